// Looks at a mail server through a tunnel of its own.
//
// The tunnel is asked for by the engine's own look at a server. SMTP is led by that look to its end, without a login. A
// look at a mailbox would log in, so a speaker in the tunnel has the conversation and ends it before the look hears the
// greeting.

#include "host/setup/server_look.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <utility>
#include <vector>

#include "host/advice/advice.h"
#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tunnels/smtp_starttls.h"
#include "host/tunnels/stls.h"
#include "host/tunnels/tunnels.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr int kTimeOut_s = 10;
constexpr std::size_t kMostBytes = 64 << 10;
constexpr std::size_t kTextWidth = 100;

// What is heard on the loop's thread.
class Findings {
public:
    void Keep(const TlsOutcome& outcome) {
        const std::lock_guard lock(mutex_);
        outcome_ = outcome;
    }
    void Keep(std::string capabilities) {
        const std::lock_guard lock(mutex_);
        capabilities_ = std::move(capabilities);
    }
    std::optional<TlsOutcome> Outcome() const {
        const std::lock_guard lock(mutex_);
        return outcome_;
    }
    std::optional<std::string> Capabilities() const {
        const std::lock_guard lock(mutex_);
        return capabilities_;
    }

private:
    mutable std::mutex mutex_;
    std::optional<TlsOutcome> outcome_;
    std::optional<std::string> capabilities_;
};

// Asks a POP3 server for its capabilities (RFC 2449), and leaves.
class CapabilitySpeaker final : public TunnelSpeaker {
public:
    explicit CapabilitySpeaker(std::shared_ptr<Findings> findings) : findings_(std::move(findings)) {}

    Turn FromServer(std::string& heard, Said& said) override {
        if (heard.size() > kMostBytes) return Turn::Ends;
        if (!asked_) {
            const std::size_t end = heard.find('\n');
            if (end == std::string::npos) return Turn::GoesOn;
            return heard.starts_with("+OK") ? Ask(heard, said) : Turn::Ends;
        }
        const bool refused = heard.starts_with('-');  // an old server, which takes passwords
        const bool is_whole = heard.ends_with("\n.\r\n") || heard.ends_with("\n.\n");
        if (refused ? heard.find('\n') == std::string::npos : !is_whole) return Turn::GoesOn;
        findings_->Keep(refused ? "USER\n" : heard);
        said.to_server = "QUIT\r\n";
        return Turn::Ends;
    }
    // After STLS the run has been greeted, and wants to log in: it gets no further.
    Turn FromRun(std::string& heard, Said& said) override { return asked_ ? Turn::Ends : Ask(heard, said); }

private:
    Turn Ask(std::string& heard, Said& said) {
        heard.clear();
        said.to_server = "CAPA\r\n";
        asked_ = true;
        return Turn::GoesOn;
    }

    const std::shared_ptr<Findings> findings_;
    bool asked_ = false;
};

class LookGuard final : public CRunGuard {
public:
    LookGuard(const MailServer& server, const std::string& authority) : server_(server), authority_(authority) {}

    CConnection Connects(const CPopProfile& /*profile*/, CServerToReach& server) override {
        CConnection wire = server.Connect();
        if (!wire) return {};  // the look knows why
        TunnelPlan plan;
        plan.protocol = server.protocol;
        plan.server = server.name;
        plan.authority = authority_;
        plan.timeout = std::chrono::seconds(kTimeOut_s);
        const bool is_smtp = server.protocol == CProtocol::Smtp;
        const bool upgrades = server_.tls == PopTls::Stls;
        if (upgrades && is_smtp) plan.before_tls = std::make_unique<StartTlsSpeaker>();
        if (upgrades && !is_smtp) plan.before_tls = std::make_unique<StlsSpeaker>();
        if (!is_smtp) plan.after_tls = std::make_unique<CapabilitySpeaker>(findings);
        plan.on_tls = [kept = findings](const TlsOutcome& outcome) { kept->Keep(outcome); };
        return tunnels_.Open(std::move(wire), std::move(plan));
    }

    const std::shared_ptr<Findings> findings = std::make_shared<Findings>();

private:
    const MailServer server_;
    const std::string authority_;
    Tunnels tunnels_;
};

std::string Upper(std::string text) {
    std::ranges::transform(text, text.begin(), [](char c) { return c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c; });
    return text;
}

// The words of each line, without the code of an SMTP answer.
std::vector<std::vector<std::string>> LinesOf(const std::string& capabilities, CProtocol protocol) {
    std::vector<std::vector<std::string>> lines;
    std::istringstream text(Upper(capabilities));
    for (std::string line; std::getline(text, line);) {
        constexpr std::size_t kCode = 4;
        if (protocol == CProtocol::Smtp) line.erase(0, kCode);
        std::istringstream words(line);
        std::vector<std::string>& list = lines.emplace_back();
        for (std::string word; words >> word;) list.push_back(word);
    }
    return lines;
}

void ReadLogins(const std::string& capabilities, CProtocol protocol, ServerLook& look) {
    for (const std::vector<std::string>& words : LinesOf(capabilities, protocol)) {
        if (words.empty()) continue;
        const auto has = [&](const char* method) { return std::ranges::find(words, method) != words.end(); };
        if (protocol == CProtocol::Pop3 && words.front() == "USER") look.takes_passwords = true;
        if (words.front() != (protocol == CProtocol::Smtp ? "AUTH" : "SASL")) continue;
        if (protocol == CProtocol::Smtp)
            look.takes_passwords = look.takes_passwords || has("PLAIN") || has("LOGIN") || has("CRAM-MD5");
        look.takes_xoauth2 = look.takes_xoauth2 || has("XOAUTH2");
        look.takes_oauthbearer = look.takes_oauthbearer || has("OAUTHBEARER");
    }
}

// Of the last step, when TLS did not stand or the server then said nothing useful.
std::string TroubleIn(const CArray<CProbeStep>& steps, const std::optional<TlsOutcome>& outcome, CProtocol protocol) {
    if (outcome && outcome->failure) return "TLS: " + OneLine(outcome->failure.reason, kTextWidth);
    if (outcome) return protocol == CProtocol::Smtp ? Tr("it does not speak SMTP") : Tr("it does not speak POP3");
    if (steps.empty()) return Tr("there is not enough memory");
    const CProbeStep& last = steps.back();
    return ShowStep(last.kind) + ": " + OneLine(last.text, kTextWidth);
}

}  // namespace

ServerLook LookAt(CProtocol protocol, const MailServer& server, const std::string& authority) {
    const bool is_smtp = protocol == CProtocol::Smtp;
    CPopProfile profile;
    CPopProfileSetting& setting = profile.setting;
    setting.timeout = kTimeOut_s;
    (is_smtp ? setting.smtpserver : setting.popserver) = server.name;
    (is_smtp ? setting.smtpport : setting.popport) = server.port;
    setting.sslsmtp = static_cast<int>(server.tls);
    setting.popuser = "nobody";  // no server hears it
    LookGuard guard(server, authority);
    CSmtpTrial trial;
    CMailboxListing listing;
    const bool greeted = is_smtp ? TrySmtp(profile, guard, &trial) != 0 : ListMailbox(profile, guard, &listing) != 0;

    ServerLook look;
    const std::optional<TlsOutcome> outcome = guard.findings->Outcome();
    std::optional<std::string> capabilities = guard.findings->Capabilities();
    const auto hello = std::ranges::find(trial.steps, int{PROBE_HELLO}, &CProbeStep::kind);
    if (greeted && hello != trial.steps.end()) capabilities = hello->text;
    if (!outcome || outcome->failure || !capabilities) {
        look.trouble = TroubleIn(is_smtp ? trial.steps : listing.steps, outcome, protocol);
        return look;
    }
    look.facts = outcome->facts;
    ReadLogins(*capabilities, protocol, look);
    return look;
}

}  // namespace tarvex::host
