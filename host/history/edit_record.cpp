// The values of what an edit names are read before it and after it: whatever differs is what it has changed.

#include "host/history/edit_record.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "host/generation/generation.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/settings/keys.h"
#include "host/settings/schedule_text.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/tree/names.h"

namespace tarvex::host {
namespace {

template <class Record>
std::map<std::string, std::string> ValuesOf(const Record& record) {
    std::map<std::string, std::string> values;
    for (const Key<Record>& key : Keys<Record>()) {
        if (key.type != KeyType::Password) values[key.name] = ShowValue(record, key);
    }
    return values;
}

// The path of what the request names.
CString PathNamed(CRootPath& root, const EditRequest& request) {
    switch (request.kind) {
        case EditKind::User:
            return FindUser(root, request.name).path;
        case EditKind::Profile:
            return FindProfile(root, request.name).profile->path;
        case EditKind::Tree:
            return root.path;
        case EditKind::Rules:
            return request.name.empty() ? root.path : FindUserOrProfile(root, request.name);
        default:
            return FindForward(root, request.name).forward->path;
    }
}

std::map<std::string, std::string> RulesNow(const CRootPath& root, const std::string& name) {
    if (name.empty()) return ValuesOf(RulesOf(root.path).value());
    const CString directory = FindUserOrProfile(root, name);
    const bool is_user = name.find('/') == std::string::npos;
    return ValuesOf((is_user ? RulesOfUser(root.path, directory) : RulesOf(root.path, directory)).value());
}

// The arguments of a program may be secrets.
std::string Remembered(const std::string& key, const std::string& value) {
    const std::size_t program = key.ends_with("_command") ? value.find(' ') : std::string::npos;
    return program == std::string::npos ? value : value.substr(0, program) + " ...";
}

}  // namespace

EditRecord::EditRecord(CRootPath& root, const EditRequest& request) : root_(root), request_(request) {
    const bool is_new = request.verb == EditVerb::Add && request.kind != EditKind::Schedule;
    if (is_new) return;
    const Speaking english(Language::English);
    try {
        const CString path = PathNamed(root, request);
        if (path != root.path) name_ = ShownName(root, path);
        before_ = ValuesNow();
    } catch (const std::exception&) {
        // The edit says what is wrong.
    }
}

EditRecord::Values EditRecord::ValuesNow() {
    switch (request_.kind) {
        case EditKind::User:
            return ValuesOf(FindUser(root_, name_).setting);
        case EditKind::Profile:
            return ValuesOf(FindProfile(root_, name_).profile->setting);
        case EditKind::Forward:
            return ValuesOf(FindForward(root_, name_).forward->setting);
        case EditKind::Rules:
            return RulesNow(root_, name_);
        case EditKind::Schedule:
            return OfSchedule();
        case EditKind::Tree:
            return {{"generation", std::to_string(GenerationOf(root_.path))}};
    }
    return {};
}

EditRecord::Values EditRecord::OfSchedule() {
    std::string terms;
    for (const auto& term : FindForward(root_, name_).forward->schedule.terms) {
        terms += (terms.empty() ? "" : "; ") + DescribeTerm(*term);
    }
    return {{"terms", terms}};
}

// It is the last one where it was put. Nobody but this edit has had the tree meanwhile.
std::string EditRecord::NameOfNew() const {
    try {
        if (request_.kind == EditKind::User) return ShownName(root_, root_.users.back()->path);
        if (request_.kind == EditKind::Profile)
            return ShownName(root_, FindUser(root_, request_.name).profiles.back()->path);
        if (request_.kind == EditKind::Forward)
            return ShownName(root_, FindProfile(root_, request_.name).profile->forward_addresses.back()->path);
        return name_;
    } catch (const CommandError&) {
        return request_.name;  // the new one has made the name ambiguous
    }
}

// What cannot be read back is told as it was asked for. Of something new only that counts that was asked for.
EditRecord::Values EditRecord::ValuesAfter() {
    const bool is_of_schedule = request_.kind == EditKind::Schedule;
    if (request_.verb == EditVerb::Remove && !is_of_schedule) return before_;
    Values after;
    try {
        after = ValuesNow();
    } catch (const std::exception&) {
        return request_.values;
    }
    if (request_.verb == EditVerb::Add && !is_of_schedule)
        std::erase_if(after, [this](const auto& one) { return !request_.values.contains(one.first); });
    return after;
}

std::optional<MadeEdit> EditRecord::After(int exit_code, EditedBy by) {
    const bool is_set = request_.verb == EditVerb::Set || request_.kind == EditKind::Schedule;
    if (exit_code != kDone && !is_set) return std::nullopt;  // it may have been made but for the last wait for the disk
    const Speaking english(Language::English);
    if (request_.verb == EditVerb::Add) name_ = NameOfNew();
    MadeEdit edit{std::time(nullptr), std::move(by), EditName(request_), name_, {}};
    for (const auto& [key, now] : ValuesAfter()) {
        if (before_[key] != now) edit.keys.push_back({key, Remembered(key, before_[key]), Remembered(key, now)});
    }
    if (exit_code == kDone) {
        for (const auto& [key, secret] : request_.secrets)
            edit.keys.push_back({key, "", secret.empty() ? "removed" : "changed"});
    }
    if (request_.uidls.size() == 1) edit.keys.push_back({"id", "", ShowText(request_.uidls.front())});
    if (request_.uidls.size() > 1) edit.keys.push_back({"ids", "", std::to_string(request_.uidls.size())});
    return is_set && edit.keys.empty() ? std::nullopt : std::optional(std::move(edit));
}

}  // namespace tarvex::host
