// Has the edits of `tarvex setup` made, one after the other, and takes them back when one fails.

#include "host/commands/setup/writing.h"

#include <exception>
#include <functional>
#include <iostream>
#include <vector>

#include "host/commands/arguments/submit.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/process.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "host/view/mailbox_ids.h"

namespace tarvex::host {
namespace {

// Ctrl-C ends nothing while a tree is being written, but what comes after.
void RequireNoSignal() {
    constexpr int kSignals = 128;
    if (const int signal = CaughtSignal(); signal != 0)
        throw CommandError(kSignals + signal, Tr("setup was interrupted"));
}

// Takes back what was done, the last first, unless all of it is there.
class Undoing {
public:
    ~Undoing() {
        for (auto step = steps_.rbegin(); step != steps_.rend(); ++step) {
            try {
                (*step)();
            } catch (const std::exception& error) {
                PrintNote(error.what());
            }
        }
    }
    Undoing() = default;
    Undoing(const Undoing&) = delete;
    Undoing& operator=(const Undoing&) = delete;

    void Add(std::function<void()> step) { steps_.push_back(std::move(step)); }
    void Keep() { steps_.clear(); }

private:
    std::vector<std::function<void()>> steps_;
};

class Writing {
public:
    Writing(const Context& context, SetupPlan& plan) : context_(context), plan_(plan) {}

    std::string Write() {
        CatchTermination();
        if (!HasRules(plan_.directory)) MakeTree(context_);
        Undoing undoing;
        AddUser(undoing);
        const std::string name = AddProfile(undoing);
        if (plan_.logs_in_at_provider) LogIn(name);
        RequireNoSignal();
        for (const std::string& address : plan_.forwards) AddForward(name, address);
        RequireNoSignal();
        EditRequest on(EditKind::Profile, EditVerb::Set, name);
        on.values["status"] = "on";
        Submit(on);
        undoing.Keep();
        return name;
    }

private:
    std::string Submit(const EditRequest& request) const { return SubmitQuietly(plan_.directory, request); }

    void AddUser(Undoing& undoing) {
        if (!plan_.user_is_new) return;
        EditRequest user(EditKind::User, EditVerb::Add, "");
        user.values["loginname"] = plan_.profile.name;
        Submit(user);
        undoing.Add([this] { Submit(EditRequest(EditKind::User, EditVerb::Remove, plan_.profile.name)); });
    }

    std::string AddProfile(Undoing& undoing) {
        EditRequest profile = plan_.profile;
        profile.values["status"] = "off";
        profile.values.emplace("lasttime", "never");  // due at once
        Submit(profile);
        CRootPath root;
        OpenTree(root, plan_.directory);
        const CUser& user = FindUser(root, plan_.profile.name);
        const CPopProfile* added = nullptr;
        for (const NamedProfile& named : AllProfiles(root)) {
            if (named.user == &user && named.profile->setting.status == 0 &&
                SameMailbox(named.profile->setting.address, plan_.Address()))
                added = named.profile;
        }
        if (!added) throw CommandError(kCannotWrite, Tr("the new profile cannot be read"));
        const std::string name = ShownName(root, added->path);
        std::cout << Tr("Added profile {0}.", name) << '\n';
        undoing.Add([this, name] { Submit(EditRequest(EditKind::Profile, EditVerb::Remove, name)); });
        return name;
    }

    // Only then it can be asked what the mailbox holds.
    void LogIn(const std::string& name) {
        Context of_tree;
        of_tree.root_option = plan_.directory;
        LogInAtProvider(of_tree, name, plan_.provider);
        if (plan_.all_mail) return;
        CRootPath root;
        OpenTree(root, plan_.directory);
        plan_.mailbox.emplace();
        plan_.mailbox->uidls = IdsOnServer(*FindProfile(root, name).profile, Tr("nothing was written"));
    }

    void AddForward(const std::string& profile, const std::string& address) {
        EditRequest forward(EditKind::Forward, EditVerb::Add, profile);
        forward.values["address"] = address;
        if (plan_.text != "whole") forward.values["textonly"] = plan_.text;
        if (!plan_.all_mail && plan_.mailbox) forward.uidls = plan_.mailbox->uidls;
        std::cout << Submit(forward);
        if (plan_.terms.empty()) return;
        CRootPath root;
        OpenTree(root, plan_.directory);
        const CPopProfile& known = *FindProfile(root, profile).profile;
        const std::string name = ShownName(root, known.forward_addresses.back()->path);
        for (const std::string& term : plan_.terms) {
            EditRequest schedule(EditKind::Schedule, EditVerb::Add, name);
            schedule.terms = term;
            std::cout << Submit(schedule);
        }
    }

    const Context& context_;
    SetupPlan& plan_;
};

}  // namespace

std::string Write(const Context& context, SetupPlan& plan) { return Writing(context, plan).Write(); }

void SwitchOff(const std::string& directory, const std::string& profile) {
    EditRequest off(EditKind::Profile, EditVerb::Set, profile);
    off.values["status"] = "off";
    SubmitQuietly(directory, off);
}

}  // namespace tarvex::host
