// Makes and changes host.def.

#include "host/edit/rules_edit.h"

#include <optional>
#include <variant>

#include "host/edit/account_notes.h"
#include "host/edit/key_values.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/settings/settings_sections.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/tree/names.h"

namespace tarvex::host {
namespace {

constexpr std::string_view kNewFile = "[version]\r\n0\r\n\r\n";

std::string FileValue(const HostRules& rules, const Key<HostRules>& key) {
    if (const auto* const text = std::get_if<CString HostRules::*>(&key.field)) {
        return key.type == KeyType::Password ? EncodePassWord(rules.**text) : rules.**text;
    }
    const auto* const limit = std::get_if<int HostRules::*>(&key.field);
    return std::to_string(limit ? rules.**limit : int{rules.*std::get<bool HostRules::*>(key.field)});
}

bool IsOfAccount(const KeyInfo& key) { return *key.server != 0; }

// A text that is empty has no place in the file.
void SetOrRemove(SettingsSections& file, const Key<HostRules>& key, const std::string& value) {
    if (value.empty()) {
        file.Remove(key.name);
    } else {
        file.Set(key.name, value);
    }
}

void RefuseKeysOfOthers(const std::vector<const Key<HostRules>*>& keys, RulesPlace place) {
    for (const Key<HostRules>* const key : keys) {
        if (key->is_of_root && place != RulesPlace::Tree)
            throw CommandError(kBadUsage, Tr("{0} is of the whole tree: set it without a name", key->name));
        if (key->is_shared && place == RulesPlace::Profile) {
            throw CommandError(
                kBadUsage, Tr("{0} of a profile is not one of its rules: set it with `tarvex profile set`", key->name));
        }
    }
}

std::string AddRules(const CRootPath& root, Saved& saved) {
    if (HasRules(root.path)) throw CommandError(kBadUsage, Tr("the tree has rules already"));
    SettingsSections file(kNewFile);
    for (const Key<HostRules>& key : Keys<HostRules>()) {
        if (!IsOfAccount(key)) SetOrRemove(file, key, FileValue({}, key));
    }
    saved = ReplaceContent(root.path + kHostSettingFile, file.Text());
    return Tr("The tree has rules now, all of them on; `tarvex rules show` shows them.") + '\n';
}

// What the file would be read as must be what was meant: a text may look like the header of a key, or be one that the
// tree has set and a profile cannot leave out.
void RequireSame(const HostRules& read, const HostRules& meant, const std::vector<const Key<HostRules>*>& keys) {
    for (const Key<HostRules>* const key : keys) {
        if (FileValue(read, *key) == FileValue(meant, *key)) continue;
        if (key->type == KeyType::Password)
            throw CommandError(kBadData, Tr("{0}: its last byte would be lost; choose another password", key->name));
        throw CommandError(
            kBadData, Tr("{0} cannot be stored: it would be read back as \"{1}\"", key->name, ShowValue(read, *key)));
    }
}

// Whose rules are changed.
struct Owner {
    CString directory;
    RulesPlace place = RulesPlace::Tree;
    HostRules before;
    HostRules others;  // what holds where its file says nothing
};

Owner OwnerNamed(const CRootPath& root, const std::string& name) {
    const std::optional<HostRules> of_root = RulesOf(root.path);
    if (!of_root) throw NoRules();
    if (name.empty()) return {root.path, RulesPlace::Tree, *of_root, {}};
    const CString directory = FindUserOrProfile(root, name);
    const CString above = ParentOf(directory);
    if (above == root.path) return {directory, RulesPlace::User, RulesOfUser(root.path, directory).value(), *of_root};
    return {directory, RulesPlace::Profile, RulesOf(root.path, directory).value(),
            RulesOfUser(root.path, above).value()};
}

// Without its server an account is none, and no login of it shall go to another server.
void RemoveAccount(SettingsSections& file, std::string_view server) {
    for (const Key<HostRules>& key : Keys<HostRules>()) {
        if (key.server == server) file.Remove(key.name);
    }
}

// Whether the account is removed of which this key names the server.
bool EndsAccount(const KeyValues<HostRules>& values, const HostRules& after, std::string_view server) {
    return values.Has(server) && FileValue(after, KeyNamed<HostRules>(server)).empty();
}

// What is as without the file needs no key in it. An account is kept whole.
std::string SetRules(const Owner& owner, const KeyValues<HostRules>& values, Saved& saved) {
    HostRules after = owner.before;
    values.Assign(after);
    const CString path = owner.directory + kHostSettingFile;
    SettingsSections file(ReadWholeFile(path).value_or(std::string(kNewFile)));
    for (const Key<HostRules>* const key : values.Keys()) {
        const std::string value = FileValue(after, *key);
        const bool as_others =
            owner.place != RulesPlace::Tree && !IsOfAccount(*key) && FileValue(owner.others, *key) == value;
        SetOrRemove(file, *key, as_others ? "" : value);
    }
    std::vector<const Key<HostRules>*> kept = values.Keys();
    for (const std::string_view server : {"smtpserver", "alert_server"}) {
        if (!EndsAccount(values, after, server)) continue;
        RemoveAccount(file, server);
        std::erase_if(kept, [server](const auto* key) { return key->server == server; });
    }
    const HostRules read = RulesIn(file.Text(), path, owner.others, owner.place);
    RequireSame(read, after, kept);
    const bool has_secret = file.Find("smtppassword") || file.Find("alert_password");
    saved = ReplaceContent(path, file.Text(), has_secret ? Readers::OwnerAlone : Readers::AsBefore);
    return values.Difference(owner.before, read);
}

}  // namespace

Saved SaveNewRules(const CRootPath& root, const CString& directory, const std::map<std::string, std::string>& given) {
    const std::optional<HostRules> others = RulesOfUser(root.path, ParentOf(directory));
    if (!others) throw NoRules();
    EditRequest request(EditKind::Rules, EditVerb::Set, "");
    request.values = given;
    const KeyValues<HostRules> values(request);
    RefuseKeysOfOthers(values.Keys(), RulesPlace::Profile);
    HostRules rules = *others;
    values.Assign(rules);
    SettingsSections file(kNewFile);
    for (const Key<HostRules>* const key : values.Keys()) SetOrRemove(file, *key, FileValue(rules, *key));
    return ReplaceContent(directory + kHostSettingFile, file.Text());
}

std::string EditRules(const CRootPath& root, const EditRequest& request, Saved& saved, CString& directory) {
    directory = root.path;
    if (request.verb == EditVerb::Add) return AddRules(root, saved);
    const KeyValues<HostRules> values(request);
    const Owner owner = OwnerNamed(root, request.name);
    directory = owner.directory;
    RefuseKeysOfOthers(values.Keys(), owner.place);
    const std::string of = owner.place == RulesPlace::Tree ? Tr("the tree") : ShownName(root, directory);
    const std::string said = Tr("Rules of {0}:", of) + '\n' + SetRules(owner, values, saved);
    return saved == Saved::No ? said : said + NotesOnAccount(root, directory, values);
}

}  // namespace tarvex::host
