// `tarvex trace`: what became of a message, found by any of its words.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <ctime>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/commands/arguments/submit.h"
#include "host/commands/arguments/usage.h"
#include "host/commands/commands.h"
#include "host/history/history.h"
#include "host/language/tr.h"
#include "host/settings/keys.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/json.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"
#include "host/view/mail_json.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kHeadlineColumns = 120;
constexpr std::size_t kWordsColumns = 160;
constexpr CTime kSecond = 1000;  // in milliseconds

struct Options {
    std::vector<std::string> words;
    std::string profile;
    std::string since;
    std::size_t count = 20;
    bool as_json = false;
};

std::string ShowLength(Milliseconds length) {
    return length < 10 * kSecond ? Tr("{0} ms", length) : ShowSpan(length / kSecond);
}

bool IsSetAside(const TracedCopy& copy) {
    return copy.fate != CopyFate::Waits && copy.fate != CopyFate::Sent && copy.fate != CopyFate::HadAlready;
}

bool CanBeSentAgain(const TracedMail& mail) {
    return !mail.uidl.empty() && std::ranges::any_of(mail.copies, [](const TracedCopy& copy) {
        return copy.fate == CopyFate::Sent || IsSetAside(copy);
    });
}

void PrintCopy(const TracedCopy& copy) {
    std::cout << "    ";
    if (!copy.address.empty()) std::cout << ShowText(copy.address) << ": ";
    std::cout << (copy.address.empty() ? Tr("could not be fetched") : Say(copy.fate)) << ", "
              << ShowTime(copy.ended / kSecond);
    if (copy.fate == CopyFate::Sent && copy.offered != 0)
        std::cout << ' ' << Tr("(within {0})", ShowLength(copy.ended - copy.offered));
    if (!copy.words.empty()) std::cout << ": " << OneLine(copy.words, kWordsColumns);
    std::cout << '\n';
}

// "UTC, +0000"
std::string ZoneOf(CTime moment) {
    const auto seconds = static_cast<std::time_t>(moment);
    std::tm parts{};
    std::array<char, 64> text{};
    if (localtime_r(&seconds, &parts) == nullptr) return {};
    const std::string name(text.data(), std::strftime(text.data(), text.size(), "%Z", &parts));
    return name + ", " + ShowOffset(moment);
}

void Print(const FoundMail& found) {
    const TracedMail& mail = found.mail;
    const CHeadlines headlines = HeadlinesOf(mail.header);
    const std::string subject =
        headlines.subject.empty() ? Tr("(no subject)") : OneLine(headlines.subject, kHeadlineColumns);
    std::cout << HandleOf(found) << ' ' << found.profile << ": "
              << (mail.header.empty() && mail.bytes == 0 ? Tr("a message") : subject);
    if (!headlines.from.empty()) std::cout << Tr(", from {0}", OneLine(headlines.from, kHeadlineColumns));
    if (mail.bytes > 0) std::cout << ", " << ShowBytes(mail.bytes);
    std::cout << '\n';
    if (!headlines.message_id.empty())
        std::cout << "    Message-ID " << OneLine(headlines.message_id, kHeadlineColumns) << '\n';
    if (!mail.uidl.empty()) std::cout << "    id " << OneLine(mail.uidl, kHeadlineColumns) << '\n';
    if (mail.fetched != 0) {
        std::cout << "    " << Tr("fetched, {0}", ShowTime(mail.fetched / kSecond)) << '\n';
    }
    for (const TracedCopy& copy : mail.copies) PrintCopy(copy);
    if (std::ranges::any_of(mail.copies, IsSetAside))
        std::cout << "    " << Tr("`tarvex held list {0}` shows what is set aside still", found.profile) << '\n';
    if (CanBeSentAgain(mail)) {
        const std::string handle = HandleOf(found);
        std::cout << "    " << Tr("`tarvex resend {0}` sends it again, while it is in the mailbox or set aside", handle)
                  << '\n';
    }
    if (found.waits) {
        std::cout << "    " << Tr("`tarvex status {0}` says when the next run is", found.profile) << '\n';
    }
}

int ShowTrace(const Context& context, const Options& options) {
    CRootPath root;
    const std::string directory = RootDirectory(context.root_option);
    OpenTree(root, directory);
    MailSearch search{options.words, {}, 0, options.count};
    if (!options.profile.empty()) search.profile = ShownName(root, FindProfile(root, options.profile).profile->path);
    if (!options.since.empty()) search.since = ParseMoment(options.since);
    std::vector<FoundMail> found = FromHistory(directory, [&](HistoryReader& reader) { return reader.Find(search); });
    const bool has_more = found.size() > options.count;
    if (has_more) found.pop_back();
    if (options.as_json) {
        Json list = Json::array();
        for (const FoundMail& one : found) list.push_back(JsonOf(one));
        PrintJson(list);
    } else {
        if (!found.empty()) {
            std::cout << Tr("Times in {0}.", ZoneOf(std::time(nullptr))) << '\n';
        }
        for (const FoundMail& one : found) Print(one);
        if (has_more) std::cout << Tr("There are older ones: more words, --since or --count choose.") << '\n';
    }
    if (!found.empty()) return kDone;
    if (!options.as_json) {
        std::cout << Tr("No such message is remembered. One that no run has fetched yet is not known: `tarvex status` "
                        "says which profiles fail, and `tarvex plan` what is on their servers.")
                  << '\n';
    }
    return kNotFound;
}

}  // namespace

void AddTraceCommand(CLI::App& app, Context& context) {
    CLI::App* const trace = app.add_subcommand("trace", Tr("Say what became of a message, and why it did not arrive."));
    trace->footer(Tr(
        "Each word is looked for in From, Subject and Message-ID, the id on the server, the addresses and what the "
        "SMTP server answered, which mostly names the message as its own queue does. All words must be found; the end "
        "of the last one may be missing. The newest message comes first. It ends with 66 when there is none."));
    auto options = std::make_shared<Options>();
    trace->add_option("WORD", options->words, Tr("Words of the message; without one, all messages"));
    trace->add_option("--profile", options->profile, Tr("Only of this profile: path, nickname or address"))
        ->type_name("PROFILE");
    trace->add_option("--since", options->since, Tr("Only since this moment: \"2026-12-24 18:00\""))
        ->type_name("MOMENT");
    trace->add_option("-n,--count", options->count, Tr("At most N messages (20)"))
        ->check(WholeNumber(1, 1'000'000))
        ->type_name("N");
    trace->add_flag("--json", options->as_json, Tr("Print JSON"));
    trace->callback(
        [&context, options] { context.command = [&context, options] { return ShowTrace(context, *options); }; });
}

}  // namespace tarvex::host
