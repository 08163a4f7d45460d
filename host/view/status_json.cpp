// Puts the state of a profile into JSON.

#include "host/view/status_json.h"

#include <optional>

#include "host/history/run_words.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/account_text.h"

namespace tarvex::host {
namespace {

Json JsonOfMoment(CTime moment) { return moment == 0 ? Json() : Json(ShowIsoTime(moment)); }

// What ended the last run, with everything that is known of it.
Json JsonOfFailure(const CRunResult& result) {
    const CRunFailure* const failure = FailureOf(result);
    if (!failure) return {};
    return {{"conversation", failure == &result.mailbox ? "mailbox" : "delivery"},
            {"stage", Word(failure->stage)},
            {"class", Word(failure->failure_class)},
            {"reply", Utf8OfServerText(failure->reply)},
            {"reason", Utf8OfServerText(failure->reason)},
            {"id", Utf8FromText(failure->uidl)},
            {"sender", Utf8FromText(failure->sender)},
            {"recipient", Utf8FromText(failure->recipient)}};
}

void AddHistory(Json& entry, const ProfileHistory& history) {
    const CRunResult& last = history.last.result;
    entry["last_run"] = JsonOfMoment(history.last.started);
    entry["ended"] = history.runs == 0 ? Json() : Json(Word(last.ending));
    entry["reason"] = IsFailure(last.ending) && history.runs > 0 ? Json(Utf8OfServerText(ReasonOf(last))) : Json();
    entry["failure"] = JsonOfFailure(last);
    entry["failed_in_a_row"] = history.failed_in_a_row;
    entry["failing_since"] = JsonOfMoment(history.failing_since);
    entry["last_good_run"] = JsonOfMoment(history.last_good);
    entry["runs"] = history.runs;
    entry["failed"] = history.failed;
    entry["fetched"] = history.fetched;
    entry["not_fetched"] = history.not_fetched;
    entry["delivered"] = history.delivered;
    entry["copies"] = history.copies;
}

Json JsonOf(const std::optional<RunNow>& run) {
    if (!run) return {};
    return {{"bytes_received", run->bytes_received},
            {"bytes_sent", run->bytes_sent},
            {"messages_to_fetch", run->messages_to_fetch},
            {"messages_fetched", run->messages_fetched},
            {"messages_delivered", run->messages_delivered}};
}

Json JsonOf(const std::optional<Blocking>& blocking) {
    if (!blocking) return {};
    return {{"rule", blocking->rule.empty() ? Json() : Json(blocking->rule)},
            {"message", blocking->message.empty() ? Json() : Json(Utf8OfServerText(blocking->message))},
            {"until", JsonOfMoment(blocking->until)}};
}

Json JsonOfRemembered(const ProfileState& status) {
    Json json = Json::object();
    for (const auto& [matter, name, sentence] : ToldMatters()) {
        json[name] = Json::array();
        const auto notes = status.remembered.find(matter);
        if (notes == status.remembered.end()) continue;
        for (const auto& [subject, note] : notes->second) {
            json[name].push_back({{"subject", Utf8OfServerText(subject)},
                                  {"count", note.count},
                                  {"since", JsonOfMoment(note.since)},
                                  {"last", JsonOfMoment(note.last)},
                                  {"next", JsonOfMoment(note.next)},
                                  {"words", Utf8OfServerText(note.words)}});
        }
    }
    return json;
}

Json JsonOf(const std::vector<UntoldReader>& untold) {
    Json list = Json::array();
    for (const auto& [reader, alert] : untold) {
        list.push_back({{"to", reader.Name()},
                        {"since", JsonOfMoment(alert.since)},
                        {"tries", alert.tries},
                        {"next_try", JsonOfMoment(alert.next_try)},
                        {"words", alert.words}});
    }
    return list;
}

Json JsonOfBlocking(const AskedState& tree, const ProfileState& status, CTime now) {
    const bool is_old = !tree.held_back.empty() && status.trouble == tree.held_back;
    return JsonOf(is_old ? Blocking{"generation", {}, 0} : WhatBlocks(status, now));
}

}  // namespace

Json JsonOf(const AskedState& tree, const ProfileState& status, const std::vector<UntoldReader>& untold, bool has_rules,
            CTime now) {
    Json entry;
    entry["path"] = status.name;
    entry["address"] = status.address;
    entry["switched_on"] = status.switched_on;
    entry["log"] = status.has_log;
    entry["rules"] = has_rules;
    entry["sends_through"] = status.sends_through;
    entry["due"] = status.switched_on && status.next_due <= now;
    entry["next_due"] = status.switched_on && status.next_due > now ? Json(ShowIsoTime(status.next_due)) : Json();
    entry["next_try"] = JsonOfMoment(NextTry(status, now).value_or(0));
    entry["running"] = JsonOf(status.running);
    AddHistory(entry, status.history.value_or(ProfileHistory()));
    entry["held"] = {{"messages", status.held.messages},
                     {"copies", status.held.copies},
                     {"damaged", status.held.damaged},
                     {"bytes", status.held.bytes},
                     {"next_try", JsonOfMoment(status.held.next_try)}};
    entry["blocked_by"] = JsonOfBlocking(tree, status, now);
    entry["remembered"] = JsonOfRemembered(status);
    entry["wants_login"] = status.wants_login.empty() ? Json() : Json(status.wants_login);
    entry["clear_login"] = !status.clear_login.empty();
    entry["alerts_failing"] = JsonOf(untold);
    entry["trouble"] = status.trouble.empty() ? Json() : Json(status.trouble);
    return entry;
}

}  // namespace tarvex::host
