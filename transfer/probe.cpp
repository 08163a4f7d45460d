// Tries the servers of a profile: the conversations of a run, without fetching or sending a message.

#include "tarvex/probe.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/net/deadline.h"
#include "platform/net/limits.h"
#include "platform/net/sockets.h"
#include "platform/os/shield.h"
#include "tarvex/mail.h"
#include "tarvex/mail_headers.h"
#include "tarvex/probe_steps.h"
#include "tarvex/tree.h"
#include "transfer/failure_meaning.h"
#include "transfer/guarded_connecting.h"
#include "transfer/pop_conversation.h"
#include "transfer/smtp_opening.h"
#include "transfer/smtp_replies.h"

namespace tarvex {
namespace {

using Steps = CArray<CProbeStep>;

constexpr std::array kStepNames = {
    "find the server", "connect", "TLS", "greeting", "hello", "log in", "list", "quit", "sender", "recipient", "reset"};

CProbeStepKind KindOf(ConnectStep step) {
    switch (step) {
        case ConnectStep::FindServer:
            return PROBE_FIND_SERVER;
        case ConnectStep::Connect:
            return PROBE_CONNECT;
        case ConnectStep::StartTls:
            return PROBE_TLS;
        case ConnectStep::Greeting:
            break;
    }
    return PROBE_GREETING;
}

CProbeReason ReasonOf(FailureKind kind, std::string_view reply) {
    if (kind == FailureKind::None && (IsForNow(reply) || reply.starts_with('4'))) return CProbeReason::ForNow;
    return MeaningOf(kind).reason;
}

// A run takes any greeting of POP3 for a success that does not begin with "-", so that another protocol is only noticed
// when a later step fails.
bool IsPopGreeting(std::string_view reply) { return reply.starts_with('+') || reply.starts_with('-'); }

bool IsSmtpGreeting(std::string_view reply) {
    return reply.size() >= 3 && reply.substr(0, 3).find_first_not_of("0123456789") == std::string_view::npos;
}

// Keeps the steps of one conversation and the time that each takes.
class StepRecorder {
public:
    using IsGreeting = bool (*)(std::string_view reply);

    StepRecorder(Steps& steps, CBaseSocket& socket, IsGreeting is_greeting, const CProbeWatch& watch)
        : steps_(steps), socket_(socket), is_greeting_(is_greeting), watch_(watch) {
        socket.AnnounceSteps([this](ConnectStep step) { Begin(KindOf(step)); });
    }
    ~StepRecorder() { socket_.AnnounceSteps({}); }
    StepRecorder(const StepRecorder&) = delete;
    StepRecorder& operator=(const StepRecorder&) = delete;

    // Runs a step, or several that the socket announces. True when all went well.
    template <class Part, class LastReply>
    bool Run(CProbeStepKind kind, Part&& part, LastReply&& last_reply) {
        Begin(kind);
        const bool success = part();
        EndTime();
        CProbeStep& step = steps_.back();
        step.text = last_reply();
        const Failure& failure = socket_.LastFailure();
        if (step.kind == PROBE_GREETING && !failure) speaks_otherwise_ = !is_greeting_(step.text);
        if (success) return true;
        step.failure = speaks_otherwise_ ? PROBE_WRONG_PROTOCOL : MeaningOf(failure.kind).in_probe;
        step.reason = ReasonOf(failure.kind, step.text);
        if (failure) step.text = failure.reason;
        return false;
    }

private:
    using Clock = std::chrono::steady_clock;

    // The step before it has ended well.
    void Begin(CProbeStepKind kind) {
        if (running_ && steps_.back().kind == kind) return;
        EndTime();
        steps_.emplace_back().kind = kind;
        if (watch_) watch_(steps_);
        begun_ = Clock::now();
        running_ = true;
    }

    void EndTime() {
        if (!std::exchange(running_, false)) return;
        const auto taken = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begun_);
        steps_.back().microseconds = taken.count();
    }

    Steps& steps_;
    CBaseSocket& socket_;
    const IsGreeting is_greeting_;
    const CProbeWatch& watch_;
    bool speaks_otherwise_ = false;
    Clock::time_point begun_;
    bool running_ = false;
};

bool List(PopConversation& conversation, CMailboxListing& listing) {
    CString reply;
    std::vector<CMailOnServer> entries;
    if (!conversation.List(reply, entries)) return false;
    listing.has_uidls = conversation.ListedBy() == ListingKind::Uidl ? 1 : 0;
    if (listing.has_uidls != 0) conversation.AddSizes(entries);
    for (const CMailOnServer& mail : entries) {
        listing.mails.push_back({CString(mail.number), CString(mail.uidl), mail.size_bytes});
    }
    return true;
}

// Asks for the headers, until the connection is lost or the time is over.
void FetchHeaders(CPopSocket& socket, int timeout_s, const CHeadersToList& wanted, const CMailboxListing& listing,
                  CListedHeaders& headers) {
    headers.of_mails.resize(listing.mails.size());
    const Deadline end(wanted.at_most);
    const int longest_s = timeout_s > 0 ? timeout_s : kDefaultTimeOutSeconds;
    bool is_first = true;
    for (const std::size_t place : wanted.choose(listing.mails)) {
        if (end.HasPassed()) break;
        socket.SetTimeOut(std::min(longest_s, 1 + end.RemainingMs() / 1000));
        CString header;
        const CString& number = listing.mails.at(place).number;
        const bool is_refused = IsNegative(socket.SendTop(number, wanted.most_bytes, end, &header));
        if (socket.LastFailure()) break;
        if (!is_refused) headers.of_mails[place] = std::move(header);
        headers.has_no_top = is_refused && is_first;
        if (headers.has_no_top) break;
        is_first = false;
    }
    socket.SetTimeOut(timeout_s);
}

// Whom a probe asks for its account and its connections, and whom it tells of its steps, if anybody.
struct Asked {
    CRunGuard* guard = nullptr;
    const CPopProfile* profile = nullptr;
    CProbeWatch watch = {};

    void Of(CBaseSocket& socket, CProtocol protocol) const {
        if (guard) LetGuardConnect(socket, *guard, *profile, protocol);
    }
    CSmtpAccount AccountOf(const CPopProfileSetting& setting) const {
        return guard ? guard->SendsThrough(*profile) : CSmtpAccount::Of(setting);
    }
};

// What is done in a mailbox that is listed.
using InMailbox = std::function<void(CPopSocket& socket)>;

int Probe(const CPopProfileSetting& setting, const Asked& asked, CMailboxListing& listing,
          const InMailbox& in_mailbox = {}) {
    CProfileLog log;
    PopConversation conversation(setting, log);
    asked.Of(conversation.Socket(), CProtocol::Pop3);
    StepRecorder recorder(listing.steps, conversation.Socket(), IsPopGreeting, asked.watch);
    const auto reply = [&] { return conversation.LastReply(); };
    if (!recorder.Run(
            PROBE_FIND_SERVER, [&] { return conversation.Connect(); }, reply))
        return 0;
    if (!recorder.Run(
            PROBE_LOGIN, [&] { return conversation.LogIn(); }, reply))
        return 0;
    if (!recorder.Run(
            PROBE_LIST, [&] { return List(conversation, listing); }, reply))
        return 0;
    if (in_mailbox) in_mailbox(conversation.Socket());
    const auto quit = [&] {
        conversation.Quit();
        return !IsNegative(conversation.LastReply());
    };
    recorder.Run(PROBE_QUIT, quit, reply);
    return 1;
}

const char* NameOf(AuthMethod method) {
    switch (method) {
        case AuthMethod::CramMd5:
            return "CRAM-MD5";
        case AuthMethod::Login:
            return "LOGIN";
        case AuthMethod::Plain:
            return "PLAIN";
        case AuthMethod::None:
            break;
    }
    return "";
}

// The envelope of what a run forwards. A refusal ends nothing; a lost connection does.
class EnvelopeProbe {
public:
    EnvelopeProbe(CSmtpSocket& socket, StepRecorder& recorder, Steps& steps)
        : socket_(socket), recorder_(recorder), steps_(steps) {}

    // True when all was taken.
    bool Run(const CString& sender, std::span<const CString> recipients) {
        CString from = "<" + sender + ">";
        bool taken = Ask(PROBE_MAIL_FROM, [&] { return socket_.SendMailFrom(&from); });
        for (const CString& recipient : recipients) {
            if (!has_sender_ || IsLost()) break;
            CString to = "<" + recipient + ">";
            taken = Ask(PROBE_RCPT_TO, [&] { return socket_.SendRcptTo(&to); }) && taken;
            steps_.back().recipient = recipient;
        }
        return !IsLost() && Ask(PROBE_RESET, [&] { return socket_.SendReset(); }) && taken;
    }

    // Then nothing more can be said to the server.
    bool IsLost() const { return static_cast<bool>(socket_.LastFailure()); }

private:
    template <class Send>
    bool Ask(CProbeStepKind kind, const Send& send) {
        CString reply;
        const bool taken = recorder_.Run(
            kind, [&] { return IsCode(reply = send(), "250"); }, [&] { return reply; });
        if (kind == PROBE_MAIL_FROM) has_sender_ = taken;
        return taken;
    }

    CSmtpSocket& socket_;
    StepRecorder& recorder_;
    Steps& steps_;
    bool has_sender_ = false;
};

int Probe(const CPopProfileSetting& setting, const Asked& asked, std::optional<std::span<const CString>> recipients,
          CSmtpTrial& trial) {
    CProfileLog log;
    SmtpOpening opening(asked.AccountOf(setting), setting.timeout, log);
    asked.Of(opening.Socket(), CProtocol::Smtp);
    StepRecorder recorder(trial.steps, opening.Socket(), IsSmtpGreeting, asked.watch);
    const auto reply = [&] { return opening.LastReply(); };
    if (!recorder.Run(
            PROBE_FIND_SERVER, [&] { return opening.Connect(); }, reply))
        return 0;
    bool ready = recorder.Run(
        PROBE_HELLO, [&] { return opening.Greet(); }, reply);
    if (ready && opening.Method() != AuthMethod::None) {
        trial.method = NameOf(opening.Method());
        ready = recorder.Run(
            PROBE_LOGIN, [&] { return opening.Authenticate(); }, reply);
    }
    if (!ready) {
        opening.CloseAfterGreeting();
        return 0;
    }
    EnvelopeProbe envelope(opening.Socket(), recorder, trial.steps);
    const bool taken = !recipients || envelope.Run(setting.address, *recipients);
    if (envelope.IsLost()) return 0;
    CString goodbye;
    const auto quit = [&] {
        goodbye = opening.Socket().SendQuit();
        return IsCode(goodbye, "221");
    };
    recorder.Run(PROBE_QUIT, quit, [&] { return goodbye; });
    return taken ? 1 : 0;
}

}  // namespace
}  // namespace tarvex

const char* ProbeStepName(int kind) {
    const auto index = static_cast<std::size_t>(kind);
    return index < tarvex::kStepNames.size() ? tarvex::kStepNames[index] : "";
}

int ListMailbox(const CPopProfileSetting& setting, CMailboxListing* listing) {
    return tarvex::Shielded(0, [&] {
        *listing = {};
        return tarvex::Probe(setting, {}, *listing);
    });
}

int ListMailbox(const CPopProfile& profile, CRunGuard& guard, CMailboxListing* listing) {
    return tarvex::Shielded(0, [&] {
        *listing = {};
        return tarvex::Probe(profile.setting, {&guard, &profile}, *listing);
    });
}

int ListMailbox(const CPopProfile& profile, CRunGuard& guard, const CHeadersToList& wanted, CMailboxListing* listing,
                CListedHeaders* headers) {
    return tarvex::Shielded(0, [&] {
        *listing = {};
        *headers = {};
        return tarvex::Probe(profile.setting, {&guard, &profile}, *listing, [&](tarvex::CPopSocket& socket) {
            tarvex::FetchHeaders(socket, profile.setting.timeout, wanted, *listing, *headers);
        });
    });
}

int TrySmtp(const CPopProfileSetting& setting, CSmtpTrial* trial) {
    return tarvex::Shielded(0, [&] {
        *trial = {};
        return tarvex::Probe(setting, {}, {}, *trial);
    });
}

int TrySmtp(const CPopProfileSetting& setting, std::span<const CString> recipients, CSmtpTrial* trial) {
    return tarvex::Shielded(0, [&] {
        *trial = {};
        return tarvex::Probe(setting, {}, recipients, *trial);
    });
}

int TrySmtp(const CPopProfile& profile, CRunGuard& guard, CSmtpTrial* trial) {
    return tarvex::Shielded(0, [&] {
        *trial = {};
        return tarvex::Probe(profile.setting, {&guard, &profile}, {}, *trial);
    });
}

int TrySmtp(const CPopProfile& profile, CRunGuard& guard, std::span<const CString> recipients, CSmtpTrial* trial) {
    return tarvex::Shielded(0, [&] {
        *trial = {};
        return tarvex::Probe(profile.setting, {&guard, &profile}, recipients, *trial);
    });
}

int ListMailbox(const CPopProfile& profile, CRunGuard& guard, const CProbeWatch& watch, CMailboxListing* listing) {
    return tarvex::Shielded(0, [&] {
        *listing = {};
        return tarvex::Probe(profile.setting, {&guard, &profile, watch}, *listing);
    });
}

int TrySmtp(const CPopProfile& profile, CRunGuard& guard, std::span<const CString> recipients, const CProbeWatch& watch,
            CSmtpTrial* trial) {
    return tarvex::Shielded(0, [&] {
        *trial = {};
        return tarvex::Probe(profile.setting, {&guard, &profile, watch}, recipients, *trial);
    });
}
