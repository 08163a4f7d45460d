// Makes and changes host.def.

#include "host/edit/rules_edit.h"

#include <optional>
#include <variant>

#include "host/edit/key_values.h"
#include "host/settings/host_setting.h"
#include "host/settings/settings_sections.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/tree/names.h"

namespace tarvex::host {
namespace {

constexpr std::string_view kNewFile = "[version]\r\n0\r\n\r\n";

std::string FileValue(const HostRules& rules, const Key<HostRules>& key) {
    if (const auto* const text = std::get_if<CString HostRules::*>(&key.field)) return rules.**text;
    const auto* const limit = std::get_if<int HostRules::*>(&key.field);
    return std::to_string(limit ? rules.**limit : int{rules.*std::get<bool HostRules::*>(key.field)});
}

// A text that is empty has no place in the file.
void SetOrRemove(SettingsSections& file, const Key<HostRules>& key, const std::string& value) {
    if (value.empty()) {
        file.Remove(key.name);
    } else {
        file.Set(key.name, value);
    }
}

void RefuseKeysOfTheRoot(const std::vector<const Key<HostRules>*>& keys) {
    for (const Key<HostRules>* const key : keys) {
        if (!key->is_of_root) continue;
        throw CommandError(kBadUsage, std::string(key->name) + " is of the whole tree: set it without a profile");
    }
}

std::string AddRules(const CRootPath& root, Saved& saved) {
    if (HasRules(root.path)) throw CommandError(kBadUsage, "the tree has rules already");
    SettingsSections file(kNewFile);
    for (const Key<HostRules>& key : Keys<HostRules>()) SetOrRemove(file, key, FileValue({}, key));
    saved = ReplaceContent(root.path + kHostSettingFile, file.Text());
    return "The tree has rules now, all of them on; `tarvex rules show` shows them.\n";
}

// What the file would be read as must be what was meant: a text may look like the header of a key, or be one that the
// tree has set and a profile cannot leave out.
void RequireSame(const HostRules& read, const HostRules& meant, const std::vector<const Key<HostRules>*>& keys) {
    for (const Key<HostRules>* const key : keys) {
        if (ShowValue(read, *key) == ShowValue(meant, *key)) continue;
        throw CommandError(kBadData, std::string(key->name) + " cannot be stored: it would be read back as \"" +
                                         ShowValue(read, *key) + '"');
    }
}

// A profile that is as the root has no key of its own.
std::string SetRules(const CString& directory, const HostRules& before, const std::optional<HostRules>& of_root,
                     const KeyValues<HostRules>& values, Saved& saved) {
    HostRules after = before;
    values.Assign(after);
    const CString path = directory + kHostSettingFile;
    SettingsSections file(ReadWholeFile(path).value_or(std::string(kNewFile)));
    for (const Key<HostRules>* const key : values.Keys()) {
        const std::string value = FileValue(after, *key);
        const bool as_root = of_root && FileValue(*of_root, *key) == value;
        SetOrRemove(file, *key, as_root ? "" : value);
    }
    RequireSame(RulesIn(file.Text(), path, of_root.value_or(HostRules()), !of_root), after, values.Keys());
    saved = ReplaceContent(path, file.Text());
    return values.Difference(before, after);
}

}  // namespace

Saved SaveNewRules(const CRootPath& root, const CString& directory, const std::map<std::string, std::string>& given) {
    const std::optional<HostRules> of_root = RulesOf(root.path);
    if (!of_root) throw NoRules();
    EditRequest request(EditKind::Rules, EditVerb::Set, "");
    request.values = given;
    const KeyValues<HostRules> values(request);
    RefuseKeysOfTheRoot(values.Keys());
    HostRules rules = *of_root;
    values.Assign(rules);
    SettingsSections file(kNewFile);
    for (const Key<HostRules>* const key : values.Keys()) SetOrRemove(file, *key, FileValue(rules, *key));
    return ReplaceContent(directory + kHostSettingFile, file.Text());
}

std::string EditRules(const CRootPath& root, const EditRequest& request, Saved& saved, CString& directory) {
    directory = root.path;
    if (request.verb == EditVerb::Add) return AddRules(root, saved);
    const KeyValues<HostRules> values(request);
    const std::optional<HostRules> of_root = RulesOf(root.path);
    if (!of_root) throw NoRules();
    if (request.name.empty()) return "Rules of the tree:\n" + SetRules(directory, *of_root, {}, values, saved);
    RefuseKeysOfTheRoot(values.Keys());
    directory = FindProfile(root, request.name).profile->path;
    const HostRules before = RulesOf(root.path, directory).value();
    return "Rules of " + ShownName(root, directory) + ":\n" + SetRules(directory, before, of_root, values, saved);
}

}  // namespace tarvex::host
