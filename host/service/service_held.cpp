// What the service does with held mail: requests of commands, and what is due by itself.
//
// Held mail is tried on a thread of its own, and never beside a run of the same profile: whichever of the two comes
// first, the other waits, and so do edits. What is due goes before a run that is due, for it is older.

#include <ctime>
#include <sstream>
#include <string>
#include <system_error>

#include "host/held/held_work.h"
#include "host/language/tr.h"
#include "host/service/log/log_facts.h"
#include "host/service/service.h"
#include "host/system/command_error.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostSenders = 8;
constexpr std::size_t kHeadlineColumns = 60;

}  // namespace

bool Service::IsBusy(const CString& profile) const { return running_.contains(profile) || senders_.contains(profile); }

void Service::StartDueHeld() {
    if (!HasRoot() || age_.Old() || holds_back_) return;
    const CTime now = std::time(nullptr);
    ForEachProfile([&](const CUser& user, CPopProfile& profile) {
        if (senders_.size() >= kMostSenders || IsBusy(profile.path) || next_held_look_[profile.path] > now) return;
        if (!IsSwitchedOn(user, profile) || wanted_.contains(profile.path) || left_out_.contains(profile.path)) return;
        const std::vector<HeldChoice> due = DueHeldOf(root_, profile, now, next_held_look_[profile.path]);
        if (due.empty() || !rules_.MayTryHeld(profile) || !StartSender(profile, due)) return;
        log_.Say(Name(profile.path) + ": trying " + ShowCount(static_cast<std::int64_t>(due.size()), "held message") +
                     " again",
                 AboutProfile(profile.path, LogMatter::Held));
    });
}

bool Service::StartSender(const CPopProfile& profile, const std::vector<HeldChoice>& choice) {
    try {
        const HeldSendingOptions options{
            std::time(nullptr), {}, &rules_.Memory(), EndOfDataSeconds(root_, profile), &rules_.WaysOut()};
        senders_[profile.path] = std::make_unique<HeldSender>(profile, choice, options);
        return true;
    } catch (const std::system_error&) {
        senders_.erase(profile.path);
        return false;
    }
}

void Service::ReapSenders() {
    for (auto sender = senders_.begin(); sender != senders_.end();) {
        if (!sender->second->HasEnded()) {
            ++sender;
            continue;
        }
        TellSender(sender->first, *sender->second);
        sender = senders_.erase(sender);
        look_at_clients_ = true;
    }
}

void Service::TellSender(const CString& path, const HeldSender& sender) {
    next_held_look_.erase(path);
    history_.AddMails(path, SentIn(sender.Results()));
    const LogFacts facts = AboutProfile(path, LogMatter::Held);
    Reply reply;
    const int code = TellHeld(sender.Results(), sender.Asked(), reply);
    std::istringstream lines(reply.printed);
    for (std::string line; std::getline(lines, line);) log_.Say(Name(path) + ": held message " + line, facts);
    const std::string line = Name(path) + ": held mail was tried, " + (code == kDone ? "all was taken" : reply.error);
    code == kDone ? log_.Say(line, facts) : log_.Warn(line, facts);
    for (ControlClient* const client : server_.Waiting()) {
        if (!client->Held() || client->awaited_held != path) continue;
        client->awaited_held.clear();
        const Speaking in(client->ReadsIn());
        Reply answer;
        TellHeld(sender.Results(), sender.Asked(), answer);
        client->Answer(code, answer);
    }
}

void Service::HandleHeld(ControlClient& client, const HeldRequest& request) {
    if (!client.awaited_held.empty()) return;
    const Speaking in(client.ReadsIn());
    if (stopping_) return client.Answer(kTryLater, {{}, Tr("the service was stopped before it had done this")});
    try {
        BeginHeld(client, request);
    } catch (const CommandError& error) {
        client.Answer(error.ExitCode(), {{}, error.what()});
    }
}

void Service::BeginHeld(ControlClient& client, const HeldRequest& request) {
    if (!HasRoot()) throw CommandError(kCannotWrite, Tr("the tree that the service has loaded is not here any more"));
    if (request.verb == HeldVerb::Send) RequireThatRunsMayStart();
    CPopProfile& profile = *FindProfile(root_, request.profile).profile;
    if (IsBusy(profile.path)) {
        wanted_.insert(profile.path);
        return client.Note(Tr("waiting for the run of {0} to end", Name(profile.path)));
    }
    const std::string verb(kHeldVerbs[static_cast<std::size_t>(request.verb)]);
    const EditedBy by = client.WhoAsks(request.caller);
    log_.Say(OneLineOfUtf8("held " + verb + ' ' + request.profile, kHeadlineColumns),
             {.matter = LogMatter::Request, .profile = Name(profile.path), .user = NameOf(by)});
    history_.AddEdit(EditOfHeld(request, by));
    next_held_look_.erase(profile.path);
    if (request.verb == HeldVerb::Send) {
        if (!StartSender(profile, request.choice)) {
            throw CommandError(kTryLater, Tr("there is no thread for this now"));
        }
        client.awaited_held = profile.path;
        return;
    }
    Reply reply;
    const int code = DropHeld(root_, profile.path, request.choice, rules_.Memory(), reply);
    client.Answer(code, reply);
}

}  // namespace tarvex::host
