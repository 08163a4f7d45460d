// Makes edits: checks an edit, changes the tree, saves it.

#include "host/edit/edit.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <memory>
#include <span>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/edit/directories.h"
#include "host/edit/survival.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"
#include "host/tree/keys.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/schedule_text.h"

namespace tarvex::host {
namespace {

using Words = std::span<const std::string>;

bool FileExists(const CString& path) {
    std::error_code ignored;
    return std::filesystem::exists(NativePath(path), ignored);
}

// What one might not expect of a schedule without a term that counts.
std::string WhatRemains(const CScheduleSetting& schedule) {
    if (schedule.terms.empty()) return "The schedule is empty: the address always takes part.\n";
    const auto is_off = [](const auto& term) { return term->status == 0; };
    if (!std::ranges::all_of(schedule.terms, is_off)) return "";
    return "Every term is switched off: the address takes part in no run. Without any term it always would.\n";
}

std::string Counted(std::size_t count, const std::string& one, const std::string& many) {
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

CommandError CannotMakeIn(const CString& path) {
    return {kCannotMake, "cannot make a directory in \"" + ShowPath(path) + '"'};
}

// What is forwarded to the mailbox itself is fetched again, and forwarded again.
void RefuseLoop(const CString& own, const CString& target) {
    if (!SameMailbox(own, target)) return;
    throw CommandError(kBadUsage,
                       '"' + ShowText(target) + "\" is the profile's own address: its mail would come back to it");
}

// A save would put defaults in the place of what could not be read.
template <class Loaded>
void RequireLoaded(const Loaded& loaded) {
    if (const std::string why = WhyNotLoaded(loaded); !why.empty()) throw CommandError(kCannotWrite, why);
}

CommandError CannotSave(const CString& path) { return {kCannotWrite, "cannot write in \"" + ShowPath(path) + '"'}; }

// One of the things in the tree that have settings: its record, and the words about it.
template <class Record>
class Values {
public:
    Values(Words words, const std::map<std::string, std::string>& secrets) {
        for (const std::string& word : words) {
            const std::size_t equals = word.find('=');
            if (equals == std::string::npos)
                throw CommandError(kBadUsage, "no value for \"" + ShowUtf8Text(word) + '"');
            Take(word.substr(0, equals), word.substr(equals + 1), false);
        }
        for (const auto& [name, secret] : secrets) Take(name, secret, true);
    }

    // Throws CommandError when a value is not allowed, or would not be read back; tries that in the root.
    void SetIn(Record& record, const CString& root) const {
        SetAgainIn(record);
        std::vector<const Key<Record>*> keys;
        for (const auto& value : values_) keys.push_back(value.first);
        RequireSurvival(record, keys, root);
    }

    // Without looking whether the values survive.
    void SetAgainIn(Record& record) const {
        for (const auto& [key, word] : values_) SetValue(record, *key, word);
    }

    // What differs, line by line.
    std::string Difference(const Record& before, const Record& after) const {
        std::string lines;
        for (const auto& [key, word] : values_) {
            lines += "  ";
            lines += key->name;
            lines += ": ";
            const std::string old_text = ShowValue(before, *key);
            const std::string new_text = ShowValue(after, *key);
            if (key->type == KeyType::Password) {
                lines += new_text == "(none)" ? "removed" : "stored";
            } else if (old_text == new_text) {
                lines += '"' + new_text + "\" as before";
            } else {
                lines.append("\"").append(old_text).append("\" -> \"").append(new_text).append("\"");
            }
            lines += '\n';
        }
        return lines;
    }

    bool Has(std::string_view name) const {
        return std::ranges::any_of(values_, [&](const auto& value) { return value.first->name == name; });
    }

private:
    void Take(const std::string& name, const std::string& word, bool secret) {
        const Key<Record>& key = KeyNamed<Record>(name);
        if ((key.type == KeyType::Password) != secret) {
            throw CommandError(kBadUsage, std::string(key.name) + ": a password is never taken from the command line");
        }
        values_.emplace_back(&key, word);
    }

    std::vector<std::pair<const Key<Record>*, std::string>> values_;
};

class Editor {
public:
    Editor(CRootPath& root, const EditRequest& request) : root_(root), request_(request) {
        if (request.words.size() < 3) throw CommandError(kBadUsage, "an edit needs more words");
    }

    std::string Apply() {
        const std::string& kind = request_.words[0];
        if (kind == "user") return EditUser();
        if (kind == "profile") return EditProfile();
        if (kind == "forward") return EditForward();
        if (kind == "schedule") return EditSchedule();
        throw CommandError(kBadUsage, "an edit cannot begin with \"" + ShowUtf8Text(kind) + '"');
    }

    std::vector<CString> Touched() {
        const std::string& kind = Verb() == "add" ? std::string() : request_.words[0];
        if (kind == "profile") return {FindProfile(root_, Name()).profile->path};
        if (kind == "forward" && Verb() == "remove") return {FindForward(root_, Name()).profile->path};
        std::vector<CString> paths;
        if (kind == "user" && Verb() == "remove") {
            for (const auto& profile : FindUser(root_, Name()).profiles) paths.push_back(profile->path);
        }
        return paths;
    }

private:
    const std::string& Verb() const { return request_.words[1]; }
    const std::string& Name() const { return request_.words[2]; }
    Words Behind(std::size_t count) const { return Words(request_.words).subspan(count); }
    std::string Shown(const CString& path) const { return ShownName(root_, path); }

    [[noreturn]] void UnknownVerb() const {
        throw CommandError(kBadUsage, "an edit cannot be \"" + ShowUtf8Text(Verb()) + '"');
    }

    // Saves what was changed in the object's setting, or puts the old values back.
    // `refuse` throws CommandError for values that do not go with the rest of the tree.
    template <class Record, class Object, class Refuse>
    std::string Set(Object& object, const Refuse& refuse) {
        const Values<Record> values(Behind(3), request_.secrets);
        const Record before(object.setting);
        Record after(object.setting);
        values.SetIn(after, root_.path);
        refuse(after);
        values.SetAgainIn(object.setting);
        if (!object.SaveSetting()) {
            object.setting = before;
            KeepUnassigned(object.setting, before);
            throw CannotSave(object.path);
        }
        return Shown(object.path) + ":\n" + values.Difference(before, after);
    }

    // Assignment leaves these out.
    static void KeepUnassigned(CUserSetting& target, const CUserSetting& source) { target.version = source.version; }
    static void KeepUnassigned(CForwardAddressSetting&, const CForwardAddressSetting&) {}
    static void KeepUnassigned(CPopProfileSetting& target, const CPopProfileSetting& source) {
        target.version = source.version;
        target.lasttime = source.lasttime;
    }

    // Moved out of the tree in one step, so that a kill leaves all of it or nothing. What cannot be moved, a directory
    // on another file system, is deleted where it is. The object is gone afterwards.
    template <class Object, class Remove>
    std::string RemoveFromDisk(const Object& object, const Remove& remove) {
        const CString directory = object.path;
        const std::string what = WhatGoes(object);
        if (request_.words.size() > 3 && request_.words[3] != what) {
            throw CommandError(kNotFound,
                               Shown(directory) + " is something else by now (" + what + "); nothing was removed");
        }
        MoveAside(root_.path, directory);
        remove();
        if (FileExists(directory) || !DeleteAside(root_.path)) {
            throw CommandError(kCannotWrite,
                               "cannot delete \"" + ShowPath(directory) + "\" whole; delete the rest by hand");
        }
        return "Removed " + Shown(directory) + ".\n";
    }

    void RefuseSecondUser(const CString& login_name) const;
    std::string NoteOnTwin(const CPopProfile& profile, const CForwardAddress& forward) const;
    std::string EditUser();
    std::string EditProfile();
    std::string EditForward();
    std::string EditSchedule();
    std::string AddUser();
    std::string AddProfile();
    std::string AddForward();
    std::string AddTerm(CForwardAddress& forward);
    std::string RemoveTerms(CForwardAddress& forward);
    std::string SwitchTerms(CForwardAddress& forward, bool on);
    CTerm* ChosenTerm(const CForwardAddress& forward) const;
    std::string SaveSchedule(CForwardAddress& forward, const CScheduleSetting& before);

    CRootPath& root_;
    const EditRequest& request_;
};

std::string Editor::EditUser() {
    if (Verb() == "add") return AddUser();
    CUser& user = FindUser(root_, Name());
    if (Verb() == "set") {
        RequireLoaded(user.setting_loaded);
        return Set<CUserSetting>(user, [&](const CUserSetting& after) {
            if (after.loginname != user.setting.loginname) RefuseSecondUser(after.loginname);
        });
    }
    if (Verb() == "remove") return RemoveFromDisk(user, [&] { root_.DeleteUser(&user); });
    UnknownVerb();
}

// Neither could be called by the name.
void Editor::RefuseSecondUser(const CString& login_name) const {
    for (const auto& user : root_.users) {
        if (user->setting.loginname != login_name) continue;
        throw CommandError(kBadUsage, "there is a user \"" + ShowText(login_name) + "\" already: " + Shown(user->path));
    }
}

std::string Editor::AddUser() {
    RequireLoaded(root_.users_loaded);  // a new folder must not take the place of one that cannot be seen
    const Values<CUserSetting> values(Behind(2), request_.secrets);
    CUserSetting draft;
    values.SetIn(draft, root_.path);
    RefuseSecondUser(draft.loginname);
    CUser* const user = root_.CreateNewUser(draft.loginname, draft.password, draft.administrator);
    if (!user) throw CannotMakeIn(root_.path);
    // What became of the administrator rights is the tree's decision.
    user->setting.status = draft.status;
    user->setting.version = draft.version;
    if (!user->SaveSetting()) {
        const CString path = user->path;
        root_.DeleteUser(user);
        throw CannotSave(path);
    }
    std::string text = "Added user " + Shown(user->path) + " (" + ShowText(draft.loginname) + ").\n";
    if (user->setting.administrator != draft.administrator) {
        text += "The directory was there already, so the user has no administrator rights.\n";
    }
    return text;
}

std::string Editor::EditProfile() {
    if (Verb() == "add") return AddProfile();
    const NamedProfile named = FindProfile(root_, Name());
    CPopProfile* const profile = named.profile;
    if (Verb() == "remove") return RemoveFromDisk(*profile, [&] { named.user->DeletePopProfile(profile); });
    if (Verb() != "set") UnknownVerb();
    RequireLoaded(*profile);
    std::string text = Set<CPopProfileSetting>(*profile, [&](const CPopProfileSetting& after) {
        if (after.address == profile->setting.address) return;
        for (const auto& forward : profile->forward_addresses) RefuseLoop(after.address, forward->setting.address);
    });
    const int timer = profile->setting.timer;
    if (Values<CPopProfileSetting>(Behind(3), request_.secrets).Has("timer") &&
        IntervalSeconds(timer) != std::int64_t{timer} * 60) {
        text += "Note: with a timer of " + std::to_string(timer) + " minutes it runs " + ShowInterval(timer) + ".\n";
    }
    return text;
}

std::string Editor::AddProfile() {
    CUser& user = FindUser(root_, Name());
    RequireLoaded(user.profiles_loaded);
    const Values<CPopProfileSetting> values(Behind(3), request_.secrets);
    CPopProfileSetting draft;
    values.SetIn(draft, root_.path);
    NewDirectory directory(user.path, "from", "popprofile.def");
    auto profile = std::make_unique<CPopProfile>();
    profile->SetPath(directory.Path());
    values.SetAgainIn(profile->setting);
    if (!profile->SaveSetting()) throw CannotSave(directory.Path());
    directory.Keep();
    const CPopProfileSetting& setting = profile->setting;
    std::string text = "Added profile " + Shown(profile->path) + " (" + ShowText(setting.address) + "). It runs " +
                       ShowInterval(setting.timer);
    const CTime first = setting.lasttime + IntervalSeconds(setting.timer);
    text += first > setting.lasttime ? ", for the first time at " + ShowMoment(first) + ".\n" : ".\n";
    user.profiles.push_back(std::move(profile));
    return text;
}

std::string Editor::EditForward() {
    if (Verb() == "add") return AddForward();
    const NamedForward named = FindForward(root_, Name());
    CForwardAddress* const forward = named.forward;
    if (Verb() == "remove") return RemoveFromDisk(*forward, [&] { named.profile->DeleteForwardAddress(forward); });
    if (Verb() != "set") UnknownVerb();
    RequireLoaded(*named.profile);
    const CString before = forward->setting.address;
    const std::string text = Set<CForwardAddressSetting>(*forward, [&](const CForwardAddressSetting& after) {
        if (after.address != before) RefuseLoop(named.profile->setting.address, after.address);
    });
    return forward->setting.address == before ? text : text + NoteOnTwin(*named.profile, *forward);
}

std::string Editor::AddForward() {
    CPopProfile& profile = *FindProfile(root_, Name()).profile;
    RequireLoaded(profile);
    const Values<CForwardAddressSetting> values(Behind(3), request_.secrets);
    CForwardAddressSetting draft;
    values.SetIn(draft, root_.path);
    RefuseLoop(profile.setting.address, draft.address);
    NewDirectory directory(profile.path, "forwardto", "forwardaddress.def");
    auto forward = std::make_unique<CForwardAddress>();
    forward->SetPath(directory.Path());
    values.SetAgainIn(forward->setting);

    // A directory that was there may hold the schedule and the list of another address that once had it.
    forward->LoadUidlSetting();
    const bool other_list = forward->uidls != request_.uidls;
    const bool other_schedule = !forward->schedule.terms.empty();
    forward->uidls = request_.uidls;
    forward->schedule.Reset();
    // The marker file comes last: an address that counts before it has its list would get the whole mailbox.
    if ((other_list && !forward->SaveUidlSetting()) || (other_schedule && !forward->SaveScheduleSetting()) ||
        !forward->SaveSetting()) {
        throw CannotSave(directory.Path());
    }
    directory.Keep();
    profile.forward_addresses.push_back(std::move(forward));
    return "Added forwarding address " + Shown(directory.Path()) + " (" + ShowText(draft.address) + ").\n" +
           (request_.uidls.empty() ? ""
                                   : "It gets only new mail: " + std::to_string(request_.uidls.size()) +
                                         " in the mailbox count as handled.\n") +
           NoteOnTwin(profile, *profile.forward_addresses.back());
}

std::string Editor::NoteOnTwin(const CPopProfile& profile, const CForwardAddress& forward) const {
    for (const auto& other : profile.forward_addresses) {
        if (other.get() == &forward || !SameMailbox(other->setting.address, forward.setting.address)) continue;
        return "Note: " + Shown(other->path) + " is the same address: it gets each mail twice.\n";
    }
    return {};
}

std::string Editor::EditSchedule() {
    const NamedForward named = FindForward(root_, Name());
    CForwardAddress& forward = *named.forward;
    if (request_.words.size() < 4) throw CommandError(kBadUsage, "an edit of a schedule needs more words");
    RequireLoaded(*named.profile);
    if (Verb() == "add") return AddTerm(forward);
    if (Verb() == "remove") return RemoveTerms(forward);
    if (Verb() == "on" || Verb() == "off") return SwitchTerms(forward, Verb() == "on");
    UnknownVerb();
}

std::string Editor::AddTerm(CForwardAddress& forward) {
    const CScheduleSetting before(forward.schedule);
    std::string said;
    for (const CTerm& term : ParseTerms(request_.words[3])) {
        if (forward.schedule.AddNewTerm(&term) < 0) throw CommandError(kBroken, "not enough memory");
        said += "  " + std::to_string(forward.schedule.terms.size()) + "  " + DescribeTerm(term) + '\n';
    }
    return SaveSchedule(forward, before) + "Added:\n" + said;
}

std::string Editor::RemoveTerms(CForwardAddress& forward) {
    const CScheduleSetting before(forward.schedule);
    if (CTerm* const term = ChosenTerm(forward)) {
        forward.schedule.DeleteTerm(term);
    } else {
        forward.schedule.Reset();
    }
    return SaveSchedule(forward, before) + "Removed.\n" + WhatRemains(forward.schedule);
}

std::string Editor::SwitchTerms(CForwardAddress& forward, bool on) {
    const CScheduleSetting before(forward.schedule);
    const CTerm* const chosen = ChosenTerm(forward);
    std::string said;
    int number = 0;
    for (const auto& term : forward.schedule.terms) {
        ++number;
        if (chosen && term.get() != chosen) continue;
        term->status = on ? 1 : 0;
        said += "  " + std::to_string(number) + "  " + DescribeTerm(*term) + '\n';
    }
    return SaveSchedule(forward, before) + (on ? "Switched on:\n" : "Switched off:\n") + said +
           WhatRemains(forward.schedule);
}

// The one that the request names by its number; null for all of them.
CTerm* Editor::ChosenTerm(const CForwardAddress& forward) const {
    const auto& terms = forward.schedule.terms;
    const std::string& which = request_.words[3];
    if (which == "all") return nullptr;
    std::size_t number = 0;
    const char* const end = which.data() + which.size();
    const auto [rest, error] = std::from_chars(which.data(), end, number);
    if (error == std::errc() && rest == end && number >= 1 && number <= terms.size()) return terms[number - 1].get();
    throw CommandError(kNotFound, "there is no term " + ShowUtf8Text(which) + "; the schedule has " +
                                      std::to_string(terms.size()) + " (see `tarvex schedule list`)");
}

std::string Editor::SaveSchedule(CForwardAddress& forward, const CScheduleSetting& before) {
    // The file has one number for "on", but each other than 0 counts as that.
    for (const auto& term : forward.schedule.terms) term->status = term->status != 0 ? 1 : 0;
    if (forward.SaveScheduleSetting()) return {};
    forward.schedule = before;
    throw CannotSave(forward.path);
}

}  // namespace

std::string WhatGoes(const CUser& user) {
    return ShowText(user.setting.loginname) + ", with " + Counted(user.profiles.size(), "profile", "profiles");
}

std::string WhatGoes(const CPopProfile& profile) {
    return ShowText(profile.setting.address) + ", with " +
           Counted(profile.forward_addresses.size(), "forwarding address", "forwarding addresses");
}

std::string WhatGoes(const CForwardAddress& forward) {
    return ShowText(forward.setting.address) + ", with the list of what it has received";
}

int Edit(CRootPath& root, const EditRequest& request, Reply& reply) {
    reply = {};
    try {
        reply.printed = Editor(root, request).Apply();
        return kDone;
    } catch (const CommandError& error) {
        reply.error = error.what();
        return error.ExitCode();
    } catch (const std::exception& error) {
        reply.error = error.what();
        return kBroken;
    }
}

std::vector<CString> TouchedProfiles(CRootPath& root, const EditRequest& request) {
    try {
        return Editor(root, request).Touched();
    } catch (const CommandError&) {
        return {};
    }
}

}  // namespace tarvex::host
