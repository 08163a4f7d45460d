// Edits users, profiles and forwarding addresses; schedules are in schedule_edit.cpp.

#include "host/edit/edit.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "host/edit/deletion_note.h"
#include "host/edit/key_values.h"
#include "host/edit/rules_edit.h"
#include "host/edit/schedule_edit.h"
#include "host/language/tr.h"
#include "host/saving/console_files.h"
#include "host/saving/directories.h"
#include "host/saving/saving.h"
#include "host/settings/file_names.h"
#include "host/settings/host_setting.h"
#include "host/settings/keys.h"
#include "host/settings/login_password.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"
#include "host/tokens/provider_tokens.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

// What is forwarded to the mailbox itself is fetched again, and forwarded again.
void RefuseLoop(const CString& own, const CString& target) {
    if (!SameMailbox(own, target)) return;
    throw CommandError(kBadUsage,
                       Tr("\"{0}\" is the profile's own address: its mail would come back to it", ShowText(target)));
}

// A save would put defaults in the place of what could not be read.
template <class Loaded>
void RequireLoaded(const Loaded& loaded) {
    if (const std::string why = WhyNotLoaded(loaded); !why.empty()) throw CommandError(kCannotWrite, why);
}

class Editor {
public:
    // The request outlives it.
    Editor(CRootPath& root, const EditRequest& request) : root_(root), request_(request) {}

    std::string Apply() {
        switch (request_.kind) {
            case EditKind::User:
                return EditUser();
            case EditKind::Profile:
                return EditProfile();
            case EditKind::Forward:
                return EditForward();
            case EditKind::Schedule:
                return EditTerms();
            case EditKind::Rules:
                return EditHostRules();
            case EditKind::Tree:
                break;
        }
        UnknownEdit();
    }

    // The path of what a power failure may bring back as it was; empty when there is nothing of the kind.
    const CString& Unsynced() const { return unsynced_; }

    std::vector<CString> Touched() {
        if (request_.verb == EditVerb::Add) return {};
        if (request_.kind == EditKind::Profile) return {FindProfile(root_, request_.name).profile->path};
        const bool changes_lists = request_.verb == EditVerb::CatchUp || request_.verb == EditVerb::Resend;
        if (request_.verb != EditVerb::Remove && !changes_lists) return {};
        if (request_.kind == EditKind::Forward) return {FindForward(root_, request_.name).profile->path};
        if (request_.kind == EditKind::User) return PathsOf(FindUser(root_, request_.name));
        return {};
    }

private:
    std::string Shown(const CString& path) const { return ShownName(root_, path); }

    [[noreturn]] void UnknownEdit() const {
        throw CommandError(kBadUsage, Tr("there is no edit \"{0}\"", EditName(request_)));
    }

    // Throws CommandError when nothing was saved.
    void Require(Saved saved, const CString& path) {
        if (saved == Saved::No) throw CommandError(kCannotWrite, Tr("cannot write in \"{0}\"", ShowPath(path)));
        if (saved == Saved::Unsynced) unsynced_ = path;
    }

    // `refuse` throws CommandError for values that do not go with the rest of the tree.
    template <class Record, class Object, class Refuse>
    std::string Set(Object& object, const Refuse& refuse) {
        const KeyValues<Record> values(request_);
        const Record before(object.setting);
        Record after(object.setting);
        values.SetIn(after, root_.path);
        refuse(after);
        Require(Save(after, values.Keys(), object.path), object.path);
        Assign(object.setting, after);
        return Shown(object.path) + ":\n" + values.Difference(before, after);
    }

    // The record of something new.
    template <class Record>
    Record Draft() const {
        Record draft;
        KeyValues<Record>(request_).SetIn(draft, root_.path);
        return draft;
    }

    // Makes the directory count, with its settings. Whatever else it holds is there already.
    template <class Object, class Record>
    void SaveNew(NewDirectory& directory, Object& object, const Record& draft) {
        Require(Save(draft, KeyValues<Record>(request_).Keys(), directory.Path()), directory.Path());
        Assign(object.setting, draft);
        if (!directory.Keep()) unsynced_ = directory.Path();
    }

    // Moved out of the tree in one step, so that a kill or a power failure leaves all of it or nothing. The object is
    // gone afterwards.
    template <class Object, class Remove>
    std::string RemoveFromDisk(const Object& object, const Remove& remove) {
        const CString directory = object.path;
        const std::string what = WhatGoes(object);
        if (!request_.expected.empty() && request_.expected != what) {
            throw CommandError(kNotFound,
                               Tr("{0} is something else by now ({1}); nothing was removed", Shown(directory), what));
        }
        Require(MoveAside(root_.path, directory), directory);
        remove();
        // What may come back after a power failure comes back whole; whoever takes the root next deletes it.
        if (!unsynced_.empty()) return {};
        if (!DeleteAside(root_.path) || !DeleteAside(ParentOf(directory))) {
            throw CommandError(kCannotWrite,
                               Tr("removed {0}, but \".tarvex-removed\" in \"{1}\" cannot be deleted whole",
                                  Shown(directory), ShowPath(root_.path)));
        }
        return Tr("Removed {0}.", Shown(directory)) + '\n';
    }

    static std::vector<CString> PathsOf(const CUser& user) {
        std::vector<CString> paths;
        for (const auto& profile : user.profiles) paths.push_back(profile->path);
        return paths;
    }

    // The tokens of removed profiles lie elsewhere. A profile that may come back after a power failure keeps them.
    std::string ForgetLogins(const std::vector<CString>& profiles) const {
        std::string notes;
        if (!unsynced_.empty()) return notes;
        for (const CString& path : profiles) {
            if (!ForgetLogin(root_.path, path))
                notes += Tr("Note: the tokens of {0} stay in .tarvex/tokens; delete them there.", Shown(path)) + '\n';
        }
        return notes;
    }

    void RefuseSecondUser(const CString& login_name) const;
    void RefuseSecondMailbox(const CPopProfileSetting& draft) const;
    void RefuseSecondAddress(const CPopProfile& profile, const CForwardAddressSetting& draft) const;
    std::string NoteOnTwin(const CPopProfile& profile, const CForwardAddress& forward) const;
    std::string EditUser();
    std::string EditProfile();
    std::string EditForward();
    std::string EditTerms();
    std::string EditHostRules();
    std::string AddUser();
    std::string AddProfile();
    std::string NoteOnSslPop(const CPopProfile& profile) const;
    std::string SetProfile(CPopProfile& profile);
    std::string AddForward();
    std::string SetForward(const NamedForward& named);

    CRootPath& root_;
    const EditRequest& request_;
    CString unsynced_;
};

// The passwords of users are kept as hashes; without rules as they are, for other hosts of the tree.
EditRequest AsKept(const CRootPath& root, EditRequest request) {
    const auto password = request.secrets.find("password");
    if (request.kind != EditKind::User || password == request.secrets.end() || !HasRules(root.path)) return request;
    if (!password->second.empty()) password->second = HashedPassword(password->second);
    return request;
}

std::string Editor::EditUser() {
    if (request_.verb == EditVerb::Add) return AddUser();
    CUser& user = FindUser(root_, request_.name);
    if (request_.verb == EditVerb::Remove) {
        const std::vector<CString> profiles = PathsOf(user);
        const std::string name = Shown(user.path);
        const std::string removed = RemoveFromDisk(user, [&] { root_.DeleteUser(&user); });
        if (unsynced_.empty()) RemoveConsoleFile(root_.path, CodeFileOf(name));  // the folder may be another's next
        return removed + ForgetLogins(profiles);
    }
    if (request_.verb != EditVerb::Set) UnknownEdit();
    RequireLoaded(user.setting_loaded);
    return Set<CUserSetting>(user, [&](const CUserSetting& after) {
        if (after.loginname != user.setting.loginname) RefuseSecondUser(after.loginname);
    });
}

// Neither could be called by the name.
void Editor::RefuseSecondUser(const CString& login_name) const {
    for (const auto& user : root_.users) {
        if (user->setting.loginname != login_name) continue;
        throw CommandError(kBadUsage,
                           Tr("there is a user \"{0}\" already: {1}", ShowText(login_name), Shown(user->path)));
    }
}

std::string Editor::AddUser() {
    RequireLoaded(root_.users_loaded);  // a new folder must not take the place of one that cannot be seen
    auto draft = Draft<CUserSetting>();
    RefuseSecondUser(draft.loginname);
    NewDirectory directory(root_.path, "user", kUserFile);
    auto user = std::make_unique<CUser>();
    user->SetPath(directory.Path());
    // Taking over a directory that is there already makes nobody an administrator (B26).
    const bool loses_rights = directory.WasThere() && draft.administrator != 0;
    if (loses_rights) draft.administrator = 0;
    SaveNew(directory, *user, draft);
    root_.users.push_back(std::move(user));
    std::string text = Tr("Added user {0} ({1}).", Shown(directory.Path()), ShowText(draft.loginname)) + '\n';
    if (loses_rights) text += Tr("The directory was there already, so the user has no administrator rights.") + '\n';
    return text;
}

std::string Editor::EditProfile() {
    if (request_.verb == EditVerb::Add) return AddProfile();
    const NamedProfile named = FindProfile(root_, request_.name);
    CPopProfile* const profile = named.profile;
    if (request_.verb == EditVerb::Remove) {
        const CString path = profile->path;
        return RemoveFromDisk(*profile, [&] { named.user->DeletePopProfile(profile); }) + ForgetLogins({path});
    }
    if (request_.verb != EditVerb::Set) UnknownEdit();
    return SetProfile(*profile);
}

// The key has been in the files for ever, with all values in use, and none has ever meant anything.
std::string Editor::NoteOnSslPop(const CPopProfile& profile) const {
    if (!request_.values.contains("sslpop") || profile.setting.sslpop == 0) return {};
    return Tr("Note: sslpop has no effect; `tarvex rules set {0} --pop_tls tls` encrypts POP3 (starttls: at port 110).",
              Shown(profile.path)) +
           '\n';
}

std::string Editor::SetProfile(CPopProfile& profile) {
    RequireLoaded(profile);
    std::string text = Set<CPopProfileSetting>(profile, [&](const CPopProfileSetting& after) {
        if (after.address == profile.setting.address) return;
        for (const auto& forward : profile.forward_addresses) RefuseLoop(after.address, forward->setting.address);
    });
    if (request_.values.contains("deletemail")) text += NoteOnDeletion(profile);
    const int timer = profile.setting.timer;
    if (request_.values.contains("timer") && IntervalSeconds(timer) != std::int64_t{timer} * 60) {
        text += Tr("Note: with a timer of {0} minutes it runs {1}.", timer, ShowInterval(timer)) + '\n';
    }
    return text + NoteOnSslPop(profile);
}

// Its mail would be forwarded twice, and with deletemail each of the two would delete what the other has not seen.
void Editor::RefuseSecondMailbox(const CPopProfileSetting& draft) const {
    if (request_.again) return;
    for (const NamedProfile& named : AllProfiles(root_)) {
        if (!FetchTheSame(named.profile->setting, draft)) continue;
        throw CommandError(kBadUsage,
                           Tr("{0} fetches from the same mailbox, that of \"{1}\" at {2}; --again adds it all the same",
                              Shown(named.profile->path), ShowText(draft.popuser), ShowText(draft.popserver)));
    }
}

std::string Editor::AddProfile() {
    CUser& user = FindUser(root_, request_.name);
    RequireLoaded(user.profiles_loaded);
    const auto draft = Draft<CPopProfileSetting>();
    RefuseSecondMailbox(draft);
    NewDirectory directory(user.path, "from", kProfileFile);
    auto profile = std::make_unique<CPopProfile>();
    profile->SetPath(directory.Path());
    // Before the marker file: no run may begin without it.
    if (!request_.rules.empty()) Require(SaveNewRules(root_, directory.Path(), request_.rules), directory.Path());
    SaveNew(directory, *profile, draft);
    const std::string name = Shown(profile->path);
    const std::string address = ShowText(draft.address);
    const CTime first = draft.lasttime + IntervalSeconds(draft.timer);
    std::string text = first > draft.lasttime
                           ? Tr("Added profile {0} ({1}). It runs {2}, for the first time at {3}.", name, address,
                                ShowInterval(draft.timer), ShowMoment(first))
                           : Tr("Added profile {0} ({1}). It runs {2}.", name, address, ShowInterval(draft.timer));
    text += '\n';
    text += NoteOnSslPop(*profile);
    user.profiles.push_back(std::move(profile));
    return text;
}

std::string Editor::EditForward() {
    if (request_.verb == EditVerb::Add) return AddForward();
    const NamedForward named = FindForward(root_, request_.name);
    if (request_.verb == EditVerb::Remove) {
        return RemoveFromDisk(*named.forward, [&] { named.profile->DeleteForwardAddress(named.forward); });
    }
    if (request_.verb != EditVerb::Set) UnknownEdit();
    return SetForward(named);
}

std::string Editor::SetForward(const NamedForward& named) {
    RequireLoaded(*named.profile);
    const CString before = named.forward->setting.address;
    const std::string text = Set<CForwardAddressSetting>(*named.forward, [&](const CForwardAddressSetting& after) {
        if (after.address != before) RefuseLoop(named.profile->setting.address, after.address);
    });
    const bool is_other = named.forward->setting.address != before;
    const bool is_switched = request_.values.contains("status");
    return text + (is_other ? NoteOnTwin(*named.profile, *named.forward) : "") +
           (is_other || is_switched ? NoteOnDeletion(*named.profile) : "");
}

void Editor::RefuseSecondAddress(const CPopProfile& profile, const CForwardAddressSetting& draft) const {
    if (request_.again) return;
    for (const auto& other : profile.forward_addresses) {
        if (!SameMailbox(other->setting.address, draft.address)) continue;
        throw CommandError(kBadUsage,
                           Tr("{0} is the same address: it would get each mail twice; --again adds it all the same",
                              Shown(other->path)));
    }
}

std::string Editor::AddForward() {
    CPopProfile& profile = *FindProfile(root_, request_.name).profile;
    RequireLoaded(profile);
    const auto draft = Draft<CForwardAddressSetting>();
    RefuseLoop(profile.setting.address, draft.address);
    RefuseSecondAddress(profile, draft);
    NewDirectory directory(profile.path, "forwardto", kForwardFile);
    auto forward = std::make_unique<CForwardAddress>();
    forward->SetPath(directory.Path());

    // A directory that was there may hold the schedule and the list of another address that once had it.
    forward->LoadUidlSetting();
    const bool other_list = forward->uidls != request_.uidls || !forward->uidls_loaded.whole;
    const bool other_schedule = !forward->schedule.terms.empty() || !forward->schedule_loaded.whole;
    forward->uidls = request_.uidls;
    forward->schedule.Reset();
    // The marker file comes last: an address that counts before it has its list would get the whole mailbox.
    if ((other_list && !forward->SaveUidlSetting()) || (other_schedule && !forward->SaveScheduleSetting())) {
        Require(Saved::No, directory.Path());
    }
    SaveNew(directory, *forward, draft);
    profile.forward_addresses.push_back(std::move(forward));
    std::string text =
        Tr("Added forwarding address {0} ({1}).", Shown(directory.Path()), ShowText(draft.address)) + '\n';
    if (!request_.uidls.empty())
        text += Tr("It gets only new mail: {0} in the mailbox count as handled.", request_.uidls.size()) + '\n';
    return text + NoteOnTwin(profile, *profile.forward_addresses.back());
}

std::string Editor::NoteOnTwin(const CPopProfile& profile, const CForwardAddress& forward) const {
    for (const auto& other : profile.forward_addresses) {
        if (other.get() == &forward || !SameMailbox(other->setting.address, forward.setting.address)) continue;
        return Tr("Note: {0} is the same address: it gets each mail twice.", Shown(other->path)) + '\n';
    }
    return {};
}

std::string Editor::EditTerms() {
    const NamedForward named = FindForward(root_, request_.name);
    RequireLoaded(*named.profile);
    Saved saved = Saved::No;
    std::string said = EditSchedule(*named.forward, request_, saved);
    Require(saved, named.forward->path);
    return said + NoteOnDeletion(*named.profile);
}

std::string Editor::EditHostRules() {
    if (request_.verb != EditVerb::Add && request_.verb != EditVerb::Set) UnknownEdit();
    Saved saved = Saved::No;
    CString directory;
    std::string said = EditRules(root_, request_, saved, directory);
    Require(saved, directory);
    return said;
}

}  // namespace

bool FetchTheSame(const CPopProfileSetting& one, const CPopProfileSetting& other) {
    return Lower(one.popserver) == Lower(other.popserver) && one.popport == other.popport &&
           one.popuser == other.popuser;
}

std::string WhatGoes(const CUser& user) {
    return TrN("{1}, with {0} profile", "{1}, with {0} profiles", static_cast<std::int64_t>(user.profiles.size()),
               ShowText(user.setting.loginname));
}

std::string WhatGoes(const CPopProfile& profile) {
    return TrN("{1}, with {0} forwarding address", "{1}, with {0} forwarding addresses",
               static_cast<std::int64_t>(profile.forward_addresses.size()), ShowText(profile.setting.address));
}

std::string WhatGoes(const CForwardAddress& forward) {
    return Tr("{0}, with the list of what it has received", ShowText(forward.setting.address));
}

std::string EditName(const EditRequest& request) {
    return std::string(kEditKinds[static_cast<std::size_t>(request.kind)]) + ' ' +
           std::string(kEditVerbs[static_cast<std::size_t>(request.verb)]);
}

bool IsThere(const CRootPath& root, const EditRequest& request) {
    return !request.by_path || request.name.empty() || HasPath(root, request.name);
}

int ReplyOf(Reply& reply, const std::function<void()>& apply) {
    reply = {};
    try {
        apply();
        return kDone;
    } catch (const CommandError& error) {
        reply.error = error.what();
        return error.ExitCode();
    } catch (const std::exception& error) {
        reply.error = error.what();
        return kBroken;
    }
}

int Edit(CRootPath& root, const EditRequest& request, Reply& reply) {
    return ReplyOf(reply, [&] {
        const EditRequest as_kept = AsKept(root, request);
        Editor editor(root, as_kept);
        reply.printed = editor.Apply();
        if (request.verb == EditVerb::Add && HasRules(root.path)) OrderByNumber(root);
        if (editor.Unsynced().empty()) return;
        throw CommandError(kCannotWrite,
                           Tr("the change was made, but may not survive a power failure: \"{0}\" cannot be synced",
                              ShowPath(editor.Unsynced())));
    });
}

std::vector<CString> TouchedProfiles(CRootPath& root, const EditRequest& request) {
    if (!IsThere(root, request)) return {};
    try {
        return Editor(root, request).Touched();
    } catch (const CommandError&) {
        return {};
    }
}

}  // namespace tarvex::host
