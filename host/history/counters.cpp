// Counts what runs did, and keeps the totals in a table.

#include "host/history/counters.h"

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

#include "host/history/run_words.h"

namespace tarvex::host {
namespace {

constexpr double kMilliseconds = 1000;

void CountRefusals(Counters& counters, const std::string& profile, const CRunResult& result) {
    const auto count = [&](CRunStage stage, CFailureClass failure_class) {
        if (failure_class == CFailureClass::None) return;
        ++counters[{profile, "refusals", std::string(Word(stage)) + '/' + std::string(Word(failure_class))}];
    };
    count(result.mailbox.stage, result.mailbox.failure_class);
    count(result.delivery.stage, result.delivery.failure_class);
    // Where RETR ended the conversation, its message is counted already.
    const bool is_told = result.mailbox.stage == CRunStage::Retrieve;
    for (const CNotFetchedMail& mail : result.not_fetched) {
        const bool was_asked_for = !mail.reply.empty() || !mail.reason.empty();
        if (was_asked_for && !(is_told && mail.uidl == result.mailbox.uidl))
            count(CRunStage::Retrieve, mail.failure_class);
    }
}

void CountFor(Counters& counters, const std::string& profile, const CRunResult& result) {
    ++counters[{profile, "runs", std::string(Word(result.ending))}];
    CountRefusals(counters, profile, result);
    const std::array<std::pair<const char*, std::int64_t>, 7> sums = {{
        {"messages_fetched", result.messages_fetched},
        {"messages_not_fetched", result.messages_not_fetched},
        {"messages_delivered", result.messages_delivered},
        {"copies", result.copies},
        {"copies_set_aside", result.copies_set_aside},
        {"bytes_received", result.bytes_received},
        {"bytes_sent", result.bytes_sent},
    }};
    for (const auto& [name, count] : sums) {
        if (count > 0) counters[{profile, name, ""}] += count;
    }
}

}  // namespace

std::string RunSecondsLabel(double seconds) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << seconds;
    return text.str();
}

void CountRun(Counters& counters, const std::string& profile, std::int64_t milliseconds, const CRunResult& result) {
    CountFor(counters, profile, result);
    CountFor(counters, "", result);
    const double seconds = static_cast<double>(milliseconds) / kMilliseconds;
    const auto* const bound = std::ranges::lower_bound(kRunSeconds, seconds);
    const bool is_longer = bound == std::end(kRunSeconds);
    ++counters[{"", "run_seconds", is_longer ? kLongerRuns : RunSecondsLabel(*bound)}];
    if (milliseconds > 0) counters[{"", "run_milliseconds", ""}] += milliseconds;
}

void AddTo(Counters& sum, const Counters& counters) {
    for (const auto& [name, value] : counters) sum[name] += value;
}

void KeepAtLeast(Counters& counters, const Counters& before) {
    for (const auto& [name, value] : before) {
        std::int64_t& now = counters[name];
        now = std::max(now, value);
    }
}

Counters ReadCounters(Database& database) {
    Counters counters;
    Statement row = database.Prepare("SELECT profile, name, label, value FROM counters ORDER BY profile, name, label");
    while (row.Next())
        counters.emplace_hint(counters.end(), CounterName{row.Text(0), row.Text(1), row.Text(2)}, row.Number(3));
    return counters;
}

void WriteMore(Database& database, const Counters& more) {
    const Database::Kept add = database.Lend(
        "INSERT INTO counters VALUES (?, ?, ?, ?) ON CONFLICT DO UPDATE SET value = value + excluded.value");
    for (const auto& [name, value] : more) add->With(name.profile, name.name, name.label, value).Run();
}

void WriteAtLeast(Database& database, const Counters& counters) {
    const Database::Kept set = database.Lend(
        "INSERT INTO counters VALUES (?, ?, ?, ?) ON CONFLICT DO UPDATE SET value = max(value, excluded.value)");
    for (const auto& [name, value] : counters) set->With(name.profile, name.name, name.label, value).Run();
}

}  // namespace tarvex::host
