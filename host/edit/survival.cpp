// Tries in a scratch folder how a record would be read back.

#include "host/edit/survival.h"

#include <string>
#include <variant>

#include "host/edit/scratch.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"

namespace tarvex::host {
namespace {

CommandError NoSurvivor(const KeyInfo& key, const std::string& stored, const std::string& read) {
    const std::string name = key.name;
    if (key.type == KeyType::Password)
        return {kBadData, Tr("{0}: its last byte would be lost; choose another password", name)};
    return {
        kBadData,
        Tr("{0} cannot be \"{1}\": it would be read back as \"{2}\". In the settings files a value cannot begin with "
           "\";\" or \"//\", begin or end with a blank, hold \"[\" and \"]\", or be empty where there is a default",
           name, stored, read)};
}

}  // namespace

template <class Record>
void RequireSurvival(const Record& record, const std::vector<const Key<Record>*>& keys, const CString& directory) {
    const ScratchFolder folder(directory);
    Record read;
    if (!record.Save(folder.Path()) || !read.Load(folder.Path())) {
        throw CommandError(kCannotWrite, Tr("cannot write in \"{0}\"", ShowPath(directory)));
    }
    for (const Key<Record>* const key : keys) {
        const auto same = [&](auto field) { return record.*field == read.*field; };
        if (!std::visit(same, key->field)) throw NoSurvivor(*key, ShowValue(record, *key), ShowValue(read, *key));
    }
}

template void RequireSurvival(const CAppSetting&, const std::vector<const Key<CAppSetting>*>&, const CString&);
template void RequireSurvival(const CUserSetting&, const std::vector<const Key<CUserSetting>*>&, const CString&);
template void RequireSurvival(const CPopProfileSetting&, const std::vector<const Key<CPopProfileSetting>*>&,
                              const CString&);
template void RequireSurvival(const CForwardAddressSetting&, const std::vector<const Key<CForwardAddressSetting>*>&,
                              const CString&);

}  // namespace tarvex::host
