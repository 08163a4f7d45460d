// `tarvex check`: tries the servers of profiles, step by step.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "host/advice.h"
#include "host/choice.h"
#include "host/commands.h"
#include "host/display.h"
#include "host/table.h"
#include "host/tree_root.h"
#include "host/trouble.h"
#include "host/wording.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kStepWidth = 17;
constexpr std::size_t kTimeWidth = 8;
constexpr std::size_t kTextWidth = 100;

std::string Server(const CPopProfileSetting& setting, Protocol protocol) {
    const int port = protocol == Protocol::Pop ? setting.popport : setting.smtpport;
    return ShowText(ServerOf(setting, protocol)) + " port " + std::to_string(port);
}

std::string Security(const CPopProfileSetting& setting) {
    if (setting.sslsmtp == 0) return "";
    return setting.sslsmtp == 2 ? " with STARTTLS" : " with TLS";
}

void PrintStep(const CProbeStep& step, const std::string& remark) {
    const std::string time = std::to_string((step.microseconds + 500) / 1000) + " ms";
    const std::string padding(time.size() < kTimeWidth ? kTimeWidth - time.size() : 0, ' ');
    std::string line = Padded(ProbeStepName(step.kind), kStepWidth) + padding + time + "  " +
                       (step.failure == PROBE_SUCCESS ? "" : "FAILED  ") + OneLine(step.text, kTextWidth);
    if (!remark.empty()) line += "  (" + remark + ')';
    line.erase(line.find_last_not_of(' ') + 1);
    std::cout << "    " << line << '\n';
}

// True when no step failed.
bool PrintSteps(const CArray<CProbeStep>& steps, Protocol protocol, const CPopProfileSetting& setting,
                const std::string& list_remark) {
    bool good = !steps.empty();
    for (const CProbeStep& step : steps) {
        PrintStep(step, step.kind == PROBE_LIST ? list_remark : "");
        if (step.failure == PROBE_SUCCESS) continue;
        // A server that is rude at the end has done what it should.
        if (step.kind == PROBE_QUIT) continue;
        good = false;
        std::cout << Paragraph(Advice(step, protocol, setting), 6);
    }
    return good;
}

std::string InMailbox(const CMailboxListing& listing) {
    const auto add = [](std::int64_t sum, const CListedMail& mail) {
        return sum + std::max<std::int64_t>(mail.size_bytes, 0);
    };
    const std::int64_t bytes = std::accumulate(listing.mails.begin(), listing.mails.end(), std::int64_t{0}, add);
    const std::string size = listing.mails.empty() ? "" : ", " + ShowBytes(bytes);
    return ShowCount(static_cast<std::int64_t>(listing.mails.size()), "message") + size;
}

bool CheckPop(const CPopProfileSetting& setting) {
    std::cout << "  POP3, " << Server(setting, Protocol::Pop) << '\n' << std::flush;
    CMailboxListing listing;
    const bool listed = ListMailbox(setting, &listing) != 0;
    const bool good = PrintSteps(listing.steps, Protocol::Pop, setting, listed ? InMailbox(listing) : "");
    if (listed && listing.has_uidls == 0) {
        std::cout << Paragraph("Note: the server has no unique ids (UIDL), so messages cannot be told apart.", 6);
    }
    return listed && good;
}

bool CheckSmtp(const CPopProfileSetting& setting) {
    std::cout << "  SMTP, " << Server(setting, Protocol::Smtp) << Security(setting) << '\n' << std::flush;
    CSmtpTrial trial;
    const bool ready = TrySmtp(setting, &trial) != 0;
    const bool good = PrintSteps(trial.steps, Protocol::Smtp, setting, "");
    if (ready && setting.smtpauth != 0 && trial.method.empty()) {
        std::cout << Paragraph(
            "Note: smtpauth is on, but the server was not asked to authenticate: it offers no method that fits "
            "smtpauth_mode, or was greeted with HELO. Mail goes out without a login.",
            6);
    }
    return ready && good;
}

bool CheckProfile(const CRootPath& root, const CPopProfile& profile) {
    std::cout << ShownName(root, profile.path) << "  " << ShowText(profile.setting.address) << '\n';
    const bool pop = CheckPop(profile.setting);
    const bool smtp = CheckSmtp(profile.setting);
    if (profile.setting.status == 0) std::cout << "  Note: the profile is switched off (status 0).\n";
    if (profile.forward_addresses.empty()) std::cout << "  Note: the profile has no forwarding address yet.\n";
    return pop && smtp;
}

int Check(const Context& context, const std::vector<std::string>& names) {
    CRootPath root;
    OpenTree(root, RootDirectory(context));
    const std::vector<NamedProfile> chosen = ChosenProfiles(root, names);
    if (chosen.empty()) throw Trouble(kNotFound, "there is no profile to check; add one with `tarvex profile add`");
    bool good = true;
    for (const NamedProfile& named : chosen) {
        if (!CheckProfile(root, *named.profile)) good = false;
    }
    return good ? kDone : kUnavailable;
}

}  // namespace

void AddCheckCommand(CLI::App& app, Context& context) {
    CLI::App* const check = app.add_subcommand(
        "check", "Log in to the POP3 and SMTP servers of profiles, step by step; nothing is fetched or sent.");
    auto names = std::make_shared<std::vector<std::string>>();
    check->add_option("PROFILE", *names, "Path, nickname or address of a profile; without one, all of them");
    check->callback([&context, names] { context.command = [&context, names] { return Check(context, *names); }; });
}

}  // namespace tarvex::host
