// `tarvex plan`: what the next run of a profile would do.

#include <CLI/CLI.hpp>
#include <ctime>
#include <iostream>
#include <memory>
#include <new>
#include <string>
#include <utility>
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

std::string WhenDue(const CPopProfile& profile, CTime now) {
    if (profile.setting.status == 0) return "switched off: no run until its status is 1; as if it were on";
    const CTime due = profile.NextDue();
    if (due <= now) return "due now";
    return "due in " + ShowSpan(due - now) + ", at " + ShowTime(due) + "; as if it ran now";
}

std::string Reduction(const CForwardAddressSetting& setting) {
    if (setting.textonly < 0) return "";
    return setting.textonly == 0 ? " as text" : " as text of at most " + ShowCount(setting.textonly, "byte");
}

// True when one takes part.
bool PrintAddresses(const CPopProfile& profile, CTime now) {
    bool any = false;
    for (const auto& address : profile.forward_addresses) {
        const bool takes_part = address->JudgeTakePart(now) != 0;
        any |= takes_part;
        std::cout << "  " << ShowText(address->setting.address) << ": ";
        if (takes_part) {
            std::cout << "takes part\n";
        } else {
            std::cout << (address->setting.status == 0 ? "switched off\n" : "outside its schedule now\n");
        }
    }
    return any;
}

std::string Destinations(const CPlannedMail& planned) {
    std::string text;
    for (const CForwardAddress* address : planned.destinations) {
        text += (text.empty() ? "-> " : ", ") + ShowText(address->setting.address) + Reduction(address->setting);
    }
    return text.empty() ? "-> nobody: its id is listed twice" : text;
}

void PrintMails(const CArray<CPlannedMail>& plan) {
    std::vector<Table::Row> rows;
    std::int64_t handled = 0;
    std::int64_t removed = 0;
    for (const CPlannedMail& planned : plan) {
        handled += planned.fetch ? 0 : 1;
        removed += planned.remove ? 1 : 0;
        if (!planned.fetch) continue;
        const std::string size = planned.mail.size_bytes < 0 ? "" : ShowBytes(planned.mail.size_bytes);
        rows.push_back({"  ", "fetch " + OneLine(planned.mail.number, 10), OneLine(planned.mail.uidl, 40), size,
                        Destinations(planned)});
    }
    std::cout << "  " << ShowCount(static_cast<std::int64_t>(plan.size()), "message") << " in the mailbox, "
              << rows.size() << " to fetch";
    if (handled > 0) std::cout << ", " << handled << " handled already";
    if (removed > 0) std::cout << " and to be deleted on the server";
    std::cout << '\n';
    if (rows.empty()) return;
    Table table(std::move(rows.front()));
    for (std::size_t i = 1; i < rows.size(); ++i) table.Add(std::move(rows[i]));
    table.Print(std::cout);
}

// False when the mailbox cannot be listed.
bool PlanProfile(const CRootPath& root, const CPopProfile& profile) {
    const CTime now = std::time(nullptr);
    std::cout << ShownName(root, profile.path) << "  " << ShowText(profile.setting.address) << "  ("
              << WhenDue(profile, now) << ")\n";
    if (!PrintAddresses(profile, now)) {
        std::cout << "  No address takes part, so nothing is done and no connection is made.\n";
        return true;
    }
    std::cout << std::flush;
    CMailboxListing listing;
    if (!ListMailbox(profile.setting, &listing)) {
        if (listing.steps.empty()) throw std::bad_alloc();
        const CProbeStep& failed = listing.steps.back();
        std::cout << "  The mailbox cannot be listed: " << ProbeStepName(failed.kind) << ": "
                  << OneLine(failed.text, 100) << "\n  " << Advice(failed, Protocol::Pop, profile.setting) << '\n';
        return false;
    }
    CArray<CPlannedMail> plan;
    if (!PlanRun(profile, listing.mails, now, &plan)) throw std::bad_alloc();
    PrintMails(plan);
    return true;
}

int Plan(const Context& context, const std::vector<std::string>& names) {
    CRootPath root;
    OpenTree(root, RootDirectory(context));
    const std::vector<NamedProfile> chosen = ChosenProfiles(root, names);
    if (chosen.empty()) throw Trouble(kNotFound, "there is no profile to plan for; add one with `tarvex profile add`");
    bool good = true;
    for (const NamedProfile& named : chosen) {
        if (!PlanProfile(root, *named.profile)) good = false;
    }
    return good ? kDone : kUnavailable;
}

}  // namespace

void AddPlanCommand(CLI::App& app, Context& context) {
    CLI::App* const plan = app.add_subcommand(
        "plan", "Say what the next run would fetch and to whom each message would go; nothing is changed.");
    auto names = std::make_shared<std::vector<std::string>>();
    plan->add_option("PROFILE", *names, "Path, nickname or address of a profile; without one, all of them");
    plan->callback([&context, names] { context.command = [&context, names] { return Plan(context, *names); }; });
}

}  // namespace tarvex::host
