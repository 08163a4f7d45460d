// Tries what was typed before it is saved: the servers of a mailbox, and a text mail out of a real message. A server
// may be slow, so each try is a job. It works on a tree of its own, read for it and forgotten after it; what was typed
// stays with the job, for whoever goes on with it.

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <utility>

#include "host/desk/asked_edit.h"
#include "host/desk/server_talk.h"
#include "host/desk/visit.h"
#include "host/edit/key_values.h"
#include "host/held/held.h"
#include "host/language/tr.h"
#include "host/settings/shared_account.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/clear_login.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "host/view/check_text.h"
#include "host/view/phone_text.h"
#include "host/ways/newest_mail.h"
#include "host/ways/server_way.h"

namespace tarvex::host {
namespace {

using Ended = std::pair<int, std::string>;

constexpr std::chrono::milliseconds kPatience{300};
constexpr int kMostTimeOut_s = 30;  // for each step of a check
constexpr std::int64_t kMostMail_bytes = std::int64_t{16} << 20;
constexpr std::size_t kMostText_bytes = 64 << 10;
constexpr std::size_t kReasonColumns = 200;

// ---- the servers of a mailbox

// The profile as it would be.
struct Trial {
    CRootPath root;  // which owns one that is there already
    std::unique_ptr<CPopProfile> added;
    CPopProfile* profile = nullptr;
    HostRules rules;
};

// What is stored goes to no server but its own: a try leaves no trace in the history. Throws CommandError.
void RequireOwnPasswords(const CPopProfileSetting& stored, const CPopProfileSetting& typed, const HostRules& rules,
                         const EditRequest& draft) {
    const auto lacks = [&](const char* key) { return !draft.secrets.contains(key); };
    const bool is_shared = typed.smtpserver.empty() && !rules.smtpserver.empty();
    const bool other_pop = typed.popserver != stored.popserver;
    const bool other_smtp = !is_shared && ServerOf(typed, Protocol::Smtp) != ServerOf(stored, Protocol::Smtp);
    const bool pop = other_pop && (rules.pop_login != 0 || lacks("poppassword"));
    const bool logs_in = typed.smtpauth != 0 && lacks(stored.smtppassword.empty() ? "poppassword" : "smtppassword");
    if (pop || (other_smtp && (rules.smtp_login != 0 || logs_in)))
        throw CommandError(kBadData, Tr("Another server is not tried with a password that is stored: type it again, or "
                                        "save first and check then"));
}

// Throws CommandError.
void Prepare(Trial& trial, const std::string& directory, const EditRequest& draft) {
    OpenTree(trial.root, directory);
    if (!HasPath(trial.root, draft.name)) throw CommandError(kNotFound, Tr("{0} has gone meanwhile", draft.name));
    if (draft.verb == EditVerb::Add) {
        const CUser& user = FindUser(trial.root, draft.name);
        trial.added = std::make_unique<CPopProfile>();
        trial.added->path = user.path + "\\from-new";  // no profile is called so
        trial.profile = trial.added.get();
        trial.rules = RulesOfUser(trial.root.path, user.path).value_or(HostRules());
    } else {
        trial.profile = FindProfile(trial.root, draft.name).profile;
        trial.rules = RulesOf(*trial.profile).value_or(HostRules());
    }
    for (const auto& [key, value] : draft.rules) SetValue(trial.rules, KeyNamed<HostRules>(key), value);
    CPopProfileSetting& setting = trial.profile->setting;
    const CPopProfileSetting stored = setting;
    KeyValues<CPopProfileSetting>(draft).Assign(setting);
    if (draft.verb == EditVerb::Set) RequireOwnPasswords(stored, setting, trial.rules, draft);
    setting.timeout = std::clamp(setting.timeout, 1, kMostTimeOut_s);
}

StepTeller TellerFor(JobVoice& voice, std::function<std::string(std::span<const CProbeStep>)> text) {
    return {std::move(text), [&voice](const std::string& steps) { voice.Print(steps); }};
}

bool TryMailbox(JobVoice& voice, const CPopProfile& profile, const HostRules& rules) {
    const Tried tried{profile.setting, rules, Reader::Console};
    voice.Print("POP3, " + ShowServer(tried.setting, Protocol::Pop, rules.pop_tls) + '\n');
    CMailboxListing listing;
    StepTeller teller = TellerFor(voice, [&](auto steps) { return TextOfPop(steps, listing, tried); });
    const auto watch = teller.Watch([&voice](const std::string& step) { voice.Begin(step); });
    const bool is_good = LookIntoMailbox(profile, rules, listing, watch);
    teller.Tell(listing.steps);
    voice.Print(NoteOn(listing, is_good));
    return is_good;
}

bool TryRelayOf(JobVoice& voice, const CPopProfile& profile, const HostRules& rules) {
    const CPopProfileSetting used = WithAccount(profile.setting, rules);
    const Tried tried{used, rules, Reader::Console};
    const std::string shared = ShowShared(AccountOwnerOf(profile.setting, rules));
    voice.Print("SMTP, " + ShowServer(used, Protocol::Smtp, used.sslsmtp) + (shared.empty() ? "" : ", " + shared) +
                '\n');
    CSmtpTrial relay;
    StepTeller teller = TellerFor(voice, [&](auto steps) { return TextOfSmtp(steps, tried); });
    const auto watch = teller.Watch([&voice](const std::string& step) { voice.Begin(step); });
    const bool is_good = TryRelay(profile, rules, RecipientsOf(profile), relay, watch);
    teller.Tell(relay.steps);
    voice.Print(NoteOn(relay, tried));
    return is_good;
}

Ended TryServers(JobVoice& voice, const std::string& directory, const EditRequest& draft) {
    Trial trial;
    Prepare(trial, directory, draft);
    const CPopProfile& profile = *trial.profile;
    const HostRules& rules = trial.rules;
    const bool has_mailbox = TryMailbox(voice, profile, rules);
    if (LogsInInClear(profile.setting, rules.Tls()))
        voice.Print(Paragraph(Tr("Note: the password goes over the network in clear."), 6));
    if (voice.Stops()) return {kTryLater, {}};
    const bool has_relay = TryRelayOf(voice, profile, rules);
    return {has_mailbox && has_relay ? kDone : kUnavailable, {}};
}

// ---- a text mail

struct Preview {
    EditRequest draft;
    CForwardAddressSetting setting;  // as it was typed
    int held = 0;                    // the id of the message; 0: the newest of the mailbox
};

CString TextOfHeld(const CPopProfile& profile, int id) {
    auto text = HeldStore(profile.path).Text(id, static_cast<std::size_t>(kMostMail_bytes));
    if (!text) throw CommandError(kNotFound, Tr("the message is not set aside any more"));
    return *std::move(text);
}

CString NewestOf(CPopProfile& profile) {
    NewestMail newest = FetchNewest(profile, RulesOf(profile).value_or(HostRules()), kMostMail_bytes);
    if (newest.text) return *std::move(newest.text);
    if (newest.is_empty) throw CommandError(kUnavailable, Tr("the mailbox is empty: there is no message to show"));
    if (newest.is_too_large)
        throw CommandError(kUnavailable, Tr("the newest message is larger than {0}", ShowBytes(kMostMail_bytes)));
    const std::string words = OneLine(newest.why.reply.empty() ? newest.why.reason : newest.why.reply, kReasonColumns);
    throw CommandError(kUnavailable, Tr("the newest message cannot be fetched: {0}", words));
}

// As a run changes the message before it goes to the address.
CString AsSent(CPopProfile& profile, const CForwardAddressSetting& to, CString text) {
    CReceiveMail mail;
    mail.text = std::move(text);
    CArray<CReceiveMail*, CReceiveMail*> mails(1, &mail);
    if (profile.setting.replacefrom != 0) profile.ReplaceFrom(&mails);
    if (profile.setting.replaceto != 0) profile.ReplaceTo(&mail, RecipientOf(to.address));
    return std::move(mail.text);
}

PhoneText OnPhone(const CPopProfile& profile, const CForwardAddressSetting& to, const CString& mail, int limit_bytes) {
    const auto text = profile.TextMailOf(mail, limit_bytes, to.cutwhite, to.htmltotext, to.compress_words);
    return text ? PhoneTextOf(*text, kMostText_bytes) : PhoneText{};
}

Json JsonOfPreview(const CPopProfile& profile, const CForwardAddressSetting& to, const CString& mail) {
    const bool is_whole = to.textonly < 0;
    const int limit = std::max(to.textonly, 0);
    const PhoneText all = OnPhone(profile, to, mail, 0);
    const PhoneText shown = limit == 0 ? all : OnPhone(profile, to, mail, limit);
    return {{"address", ShowText(to.address)},
            {"whole", is_whole},
            {"limit", limit},
            {"bytes", shown.bytes},
            {"all_bytes", all.bytes},
            {"size", ShowBytes(static_cast<std::int64_t>(mail.size()))},
            {"from", shown.from},
            {"subject", shown.subject},
            {"text", shown.text}};
}

void ShowPreview(JobVoice& voice, const std::string& directory, const Preview& preview) {
    CRootPath root;
    OpenTree(root, directory);
    if (!HasPath(root, preview.draft.name))
        throw CommandError(kNotFound, Tr("{0} has gone meanwhile", preview.draft.name));
    CPopProfile& profile = *FindForward(root, preview.draft.name).profile;
    CString text = preview.held > 0 ? TextOfHeld(profile, preview.held) : NewestOf(profile);
    static std::mutex one;  // at a time: a large message takes its size several times over
    const std::lock_guard lock(one);
    voice.Show(JsonOfPreview(profile, preview.setting, AsSent(profile, preview.setting, std::move(text))));
}

// ---- as jobs

Json Begin(Visit& visit, const char* what, const EditRequest& draft, Jobs::Work work) {
    JobState state;
    state.what = what;
    state.about = draft.name;
    state.draft = draft;
    const std::string job = visit.Parts().jobs.Begin(visit.WhoPath(), std::move(state), std::move(work), kPatience);
    if (job.empty()) throw Refusal{"busy", {}};
    return AnswerJob(visit, job);
}

Json TryProfile(Visit& visit, const EditRequest& draft) {
    CPopProfileSetting setting;
    KeyValues<CPopProfileSetting>(draft).Assign(setting);  // what is not allowed is refused at once
    return Begin(visit, "try", draft, [directory = visit.Directory(), draft](JobVoice& voice) {
        Ended ended;
        TalkToServers(voice, [&] { ended = TryServers(voice, directory, draft); });
        return ended;
    });
}

Json TryForward(Visit& visit, const EditRequest& draft) {
    Preview preview{draft, visit.ForwardCalled(draft.name).forward->setting, static_cast<int>(visit.Number("held", 0))};
    KeyValues<CForwardAddressSetting>(draft).Assign(preview.setting);
    return Begin(visit, "preview", draft, [directory = visit.Directory(), preview](JobVoice& voice) {
        TalkToServers(voice, [&] { ShowPreview(voice, directory, preview); });
        return Ended{kDone, {}};
    });
}

}  // namespace

// An edit that is not made: whoever may make it may see what would come of it.
Json AnswerTry(Visit& visit) {
    EditRequest draft = AskedEdit(visit);
    const bool sets = draft.verb == EditVerb::Set;
    if (draft.kind == EditKind::Forward && sets) return TryForward(visit, draft);
    const bool has_own_rules =
        std::ranges::any_of(draft.rules, [](const auto& rule) { return rule.first != "pop_tls"; });
    if (has_own_rules) throw Refusal{"bad", {}};  // the shared account is for its own server
    if (draft.kind == EditKind::Profile && (sets || draft.verb == EditVerb::Add)) return TryProfile(visit, draft);
    throw Refusal{"bad", {}};
}

// Makes the edit that a job has tried. What was allowed then is judged again.
Json AnswerSaveTried(Visit& visit) {
    const auto state = visit.Parts().jobs.Of(visit.WhoPath(), visit.Text("job"));
    if (!state || !state->draft) throw Refusal{"missing", {}};
    RequireAllowed(visit, *state->draft);
    return AnswerEdit(visit, *state->draft);
}

}  // namespace tarvex::host
