// Saves records and schedules, and finds out what became of a save that failed.

#include "host/saving/saving.h"

#include <algorithm>
#include <variant>

namespace tarvex::host {

template <class Record>
Saved Save(const Record& record, const std::vector<const Key<Record>*>& changed, const CString& directory) {
    if (record.Save(directory)) return Saved::Yes;
    Record read;
    if (!read.Load(directory)) return Saved::No;
    const bool is_there = std::ranges::all_of(changed, [&](const Key<Record>* key) {
        return std::visit([&](auto field) { return record.*field == read.*field; }, key->field);
    });
    return is_there ? Saved::Unsynced : Saved::No;
}

Saved Save(const CScheduleSetting& schedule, const CString& directory) {
    if (schedule.Save(directory)) return Saved::Yes;
    CScheduleSetting read;
    return read.Load(directory) && read == schedule ? Saved::Unsynced : Saved::No;
}

template Saved Save(const CUserSetting&, const std::vector<const Key<CUserSetting>*>&, const CString&);
template Saved Save(const CPopProfileSetting&, const std::vector<const Key<CPopProfileSetting>*>&, const CString&);
template Saved Save(const CForwardAddressSetting&, const std::vector<const Key<CForwardAddressSetting>*>&,
                    const CString&);

void Assign(CUserSetting& target, const CUserSetting& source) {
    target = source;
    target.version = source.version;
}

void Assign(CPopProfileSetting& target, const CPopProfileSetting& source) {
    target = source;
    target.version = source.version;
    target.lasttime = source.lasttime;
}

void Assign(CForwardAddressSetting& target, const CForwardAddressSetting& source) { target = source; }

}  // namespace tarvex::host
