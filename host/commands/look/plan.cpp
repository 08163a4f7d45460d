// `tarvex plan`: what the next run of a profile would do.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <ctime>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/advice/advice.h"
#include "host/commands/arguments/profile_arguments.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/process.h"
#include "host/terminal/json.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"
#include "host/tree/account_text.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"
#include "host/tree/tree_root.h"
#include "host/tree/tree_rules.h"
#include "host/ways/header_look.h"
#include "host/ways/server_way.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

std::string WhenDue(const CUser& user, const CPopProfile& profile, CTime now) {
    if (profile.setting.status == 0) return Tr("switched off: no run until its status is 1; as if it were on");
    if (const std::string off = WhySwitchedOff(user, profile); !off.empty()) return Tr("{0}; as if it were on", off);
    const CTime due = profile.NextDue();
    if (due <= now) return Tr("due now");
    return Tr("due in {0}, at {1}; as if it ran now", ShowSpan(due - now), ShowTime(due));
}

std::string Reduction(const CForwardAddressSetting& setting) {
    if (setting.textonly < 0) return "";
    return setting.textonly == 0 ? Tr(" as text") : Tr(" as text of at most {0} bytes", setting.textonly);
}

void PrintAddresses(const CPopProfile& profile, CTime now) {
    for (const auto& address : profile.forward_addresses) {
        std::cout << "  " << ShowText(address->setting.address) << ": ";
        if (address->JudgeTakePart(now)) {
            std::cout << Tr("takes part") << '\n';
        } else {
            std::cout << (address->setting.status == 0 ? Tr("switched off") : Tr("outside its schedule now")) << '\n';
        }
    }
}

constexpr std::size_t kMostSubjects = 200;  // fetched of a mailbox
constexpr std::size_t kFromColumns = 30;
constexpr std::size_t kSubjectColumns = 60;

std::string Destinations(const CPlannedMail& planned) {
    std::string text;
    for (const CForwardAddress* address : planned.destinations) {
        text += (text.empty() ? "-> " : ", ") + ShowText(address->setting.address) + Reduction(address->setting);
    }
    return text.empty() ? Tr("-> nobody: another message has the same id") : text;
}

using Header = std::optional<CString>;  // nothing: it is not known

std::string ShowSubject(const Header& header, const CHeadlines& headlines) {
    if (!header) return "";
    return headlines.subject.empty() ? Tr("(no subject)") : OneLine(headlines.subject, kSubjectColumns);
}

// `header` is null where nobody asks for it.
Table::Row RowOf(const CPlannedMail& planned, const Header* header) {
    const CListedMail& mail = planned.mail;
    const std::string size = mail.size_bytes < 0 ? "" : ShowBytes(mail.size_bytes);
    Table::Row row = {"  ", Tr("fetch {0}", OneLine(mail.number, 10)), OneLine(mail.uidl, 40), size,
                      Destinations(planned)};
    if (!header) return row;
    const CHeadlines headlines = HeadlinesOf(header->value_or(""));
    row.insert(row.begin() + 2, {OneLine(headlines.from, kFromColumns), ShowSubject(*header, headlines)});
    return row;
}

void PrintRows(std::vector<Table::Row> rows, bool with_subjects) {
    enum WithSubjects : std::size_t { kId = 4, kSize = 5 };
    Table table(std::move(rows.front()));
    for (std::size_t i = 1; i < rows.size(); ++i) table.Add(std::move(rows[i]));
    if (with_subjects) return table.Print(std::cout, {TerminalColumns(), {kId, kSize}});
    table.Print(std::cout);
}

// What the mailbox holds, and the plan for it.
struct Inspection {
    CMailboxListing listing;
    CListedHeaders headers;  // of as many messages as the plan has where somebody asks for them
    CArray<CPlannedMail> plan;
    bool with_subjects = false;
    bool listed = false;

    const Header* HeaderOf(std::size_t place) const { return with_subjects ? &headers.of_mails[place] : nullptr; }
};

void PrintMails(const Inspection& inspection) {
    const CArray<CPlannedMail>& plan = inspection.plan;
    std::vector<Table::Row> rows;
    std::int64_t handled = 0;
    std::int64_t removed = 0;
    for (std::size_t i = 0; i < plan.size(); ++i) {
        handled += plan[i].fetch ? 0 : 1;
        removed += plan[i].remove ? 1 : 0;
        if (plan[i].fetch) rows.push_back(RowOf(plan[i], inspection.HeaderOf(i)));
    }
    std::cout << "  "
              << TrN("{0} message in the mailbox, {1} to fetch", "{0} messages in the mailbox, {1} to fetch",
                     static_cast<std::int64_t>(plan.size()), rows.size());
    if (handled > 0) std::cout << Tr(", {0} handled already", handled);
    if (removed > 0) std::cout << Tr(" and to be deleted on the server");
    std::cout << '\n';
    if (!rows.empty()) PrintRows(std::move(rows), inspection.with_subjects);
}

// The newest of those that the next run would fetch.
CArray<std::size_t> ToTell(const CPopProfile& profile, const CArray<CListedMail>& mails, CTime now) {
    CArray<CPlannedMail> plan;
    if (!PlanRun(profile, mails, now, &plan)) throw std::bad_alloc();
    CArray<std::size_t> places;
    for (std::size_t i = plan.size(); i-- > 0 && places.size() < kMostSubjects;) {
        if (plan[i].fetch) places.push_back(i);
    }
    return places;
}

Inspection Inspect(const CPopProfile& profile, CTime now, bool with_subjects) {
    Inspection inspection;
    inspection.with_subjects = with_subjects;
    if (with_subjects) {
        CHeadersToList wanted;
        wanted.choose = [&](const CArray<CListedMail>& mails) { return ToTell(profile, mails, now); };
        inspection.listed = LookForHeaders(profile, wanted, inspection.listing, inspection.headers);
    } else {
        inspection.listed = LookIntoMailbox(profile, inspection.listing);
    }
    const bool planned = !inspection.listed || PlanRun(profile, inspection.listing.mails, now, &inspection.plan);
    if (inspection.listing.steps.empty() || !planned) throw std::bad_alloc();
    return inspection;
}

// Of which messages nothing is told, and why. Empty where all is told.
std::string WhyNoSubjects(const Inspection& inspection) {
    std::int64_t untold = 0;
    for (std::size_t i = 0; i < inspection.plan.size(); ++i) {
        const Header* const header = inspection.HeaderOf(i);
        untold += inspection.plan[i].fetch && header && !*header ? 1 : 0;
    }
    if (untold == 0) return {};
    if (inspection.headers.has_no_top) return Tr("From and Subject are not known: the server has no TOP");
    return TrN("From and Subject of {0} message are not known: {1} are asked for at most, within {2}",
               "From and Subject of {0} messages are not known: {1} are asked for at most, within {2}", untold,
               kMostSubjects,
               ShowSpan(std::chrono::duration_cast<std::chrono::seconds>(CHeadersToList().at_most).count()));
}

bool AnyTakesPart(const CPopProfile& profile, CTime now) {
    return std::ranges::any_of(profile.forward_addresses,
                               [now](const auto& address) { return address->JudgeTakePart(now) != 0; });
}

// The exit code.
int PrintPlan(const CRootPath& root, const CUser& user, const CPopProfile& profile, CTime now, bool with_subjects) {
    std::cout << ShownName(root, profile.path) << "  " << ShowText(profile.setting.address) << "  ("
              << WhenDue(user, profile, now) << ")\n";
    if (const std::string why = WhyUnreadable(profile); !why.empty()) {
        std::cout << "  " << Tr("A run leaves it out: {0}", why) << '\n';
        return kCannotWrite;
    }
    std::cout << "  " << Tr("sends through {0}", ShowAccount(profile)) << '\n';
    PrintAddresses(profile, now);
    if (!AnyTakesPart(profile, now)) {
        std::cout << "  " << Tr("No address takes part, so nothing is done and no connection is made.") << '\n';
        return kDone;
    }
    std::cout << std::flush;
    const Inspection inspection = Inspect(profile, now, with_subjects);
    if (inspection.listed) {
        PrintMails(inspection);
        if (const std::string why = WhyNoSubjects(inspection); !why.empty()) std::cout << Paragraph(why, 2);
    } else {
        const CProbeStep& failed = inspection.listing.steps.back();
        std::cout << "  "
                  << Tr("The mailbox cannot be listed: {0}: {1}", ShowStep(failed.kind), OneLine(failed.text, 100))
                  << '\n'
                  << Paragraph(Advice(failed, Protocol::Pop, profile.setting, RulesToShow(profile), ReaderOfOutput()),
                               2);
    }
    return inspection.listed ? kDone : kUnavailable;
}

Json JsonOf(const CRootPath& root, const CPlannedMail& planned, const Header* header) {
    Json destinations = Json::array();
    for (const CForwardAddress* address : planned.destinations) {
        destinations.push_back({{"path", ShownName(root, address->path)},
                                {"address", Utf8FromText(address->setting.address)},
                                {"textonly", address->setting.textonly}});
    }
    Json json = {{"number", Utf8FromText(planned.mail.number)},
                 {"uidl", Utf8FromText(planned.mail.uidl)},
                 {"bytes", planned.mail.size_bytes < 0 ? Json() : Json(planned.mail.size_bytes)},
                 {"fetch", planned.fetch != 0},
                 {"remove", planned.remove != 0},
                 {"destinations", destinations}};
    if (header) {
        const CHeadlines headlines = HeadlinesOf(header->value_or(""));
        json["from"] = *header ? Json(Utf8OfServerText(headlines.from)) : Json();
        json["subject"] = *header ? Json(Utf8OfServerText(headlines.subject)) : Json();
    }
    return json;
}

std::string WhyNotPlanned(const std::string& why_left_out, const Inspection& inspection) {
    if (!why_left_out.empty() || inspection.listed) return why_left_out;
    return Utf8OfServerText(inspection.listing.steps.back().text);
}

// Adds the plan to the list of JSON objects. Returns the exit code.
int AddPlan(Json& list, const CRootPath& root, const CUser& user, const CPopProfile& profile, CTime now,
            bool with_subjects) {
    const CTime due = profile.NextDue();
    const bool is_on = IsSwitchedOn(user, profile);
    Json addresses = Json::array();
    for (const auto& address : profile.forward_addresses) {
        addresses.push_back({{"path", ShownName(root, address->path)},
                             {"address", Utf8FromText(address->setting.address)},
                             {"takes_part", address->JudgeTakePart(now) != 0}});
    }
    const std::string why_left_out = WhyUnreadable(profile);
    const bool any = why_left_out.empty() && AnyTakesPart(profile, now);
    const Inspection inspection = any ? Inspect(profile, now, with_subjects)
                                      : Inspection{.listing = {}, .headers = {}, .plan = {}, .listed = true};
    const std::string error = WhyNotPlanned(why_left_out, inspection);
    Json mails = Json::array();
    for (std::size_t i = 0; i < inspection.plan.size(); ++i) {
        mails.push_back(JsonOf(root, inspection.plan[i], inspection.HeaderOf(i)));
    }
    list.push_back({{"path", ShownName(root, profile.path)},
                    {"address", Utf8FromText(profile.setting.address)},
                    {"switched_on", is_on},
                    {"due", is_on && due <= now},
                    {"next_due", is_on && due > now ? Json(ShowIsoTime(due)) : Json()},
                    {"sends_through", JsonOfAccount(profile)},
                    {"addresses", addresses},
                    {"error", error.empty() ? Json() : Json(error)},
                    {"messages", mails}});
    if (!why_left_out.empty()) return kCannotWrite;
    return inspection.listed ? kDone : kUnavailable;
}

int Plan(const Context& context, const std::vector<std::string>& names, bool as_json, bool with_subjects) {
    CRootPath root;
    OpenTree(root, RootDirectory(context.root_option));
    const std::vector<NamedProfile> chosen = ChosenProfiles(root, names);
    int exit_code = names.empty() ? NoteWhatIsNotListed(root) : kDone;
    if (chosen.empty() && exit_code == kDone) {
        throw CommandError(kNotFound, Tr("there is no profile to plan for; add one with `tarvex profile add`"));
    }
    Json list = Json::array();
    for (const auto& [user, profile] : chosen) {
        const CTime now = std::time(nullptr);
        const int one = as_json ? AddPlan(list, root, *user, *profile, now, with_subjects)
                                : PrintPlan(root, *user, *profile, now, with_subjects);
        exit_code = std::max(exit_code, one);
    }
    if (as_json) PrintJson(list);
    return exit_code;
}

}  // namespace

void AddPlanCommand(CLI::App& app, Context& context) {
    const auto with_subjects = std::make_shared<bool>(false);
    AddReadOnlyCommand(app, context, "plan",
                       Tr("Say what the next run would fetch and to whom each message would go; nothing is changed."),
                       [with_subjects](const Context& the_context, const std::vector<std::string>& names,
                                       bool as_json) { return Plan(the_context, names, as_json, *with_subjects); })
        .add_flag("--subjects", *with_subjects, Tr("Show From and Subject, too, where the server has TOP"));
}

}  // namespace tarvex::host
