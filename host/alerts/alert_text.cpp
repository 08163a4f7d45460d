// Puts an alert into words.
//
//     Tarvex: user0/from0: its runs fail                       the subject; of several matters it counts them
//
//     user0/from0 (me@example.org): its runs fail
//         since 2026-11-22 10:00:05 +0900, 6 times in a row
//         -ERR wrong password                                  what a server said
//         The server refused the login: set ...                advice
//         tarvex check user0/from0                             the command

#include "host/alerts/alert_text.h"

#include <algorithm>
#include <span>

#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostInFull = 50;
constexpr std::size_t kMostNamed = 500;
constexpr const char* kIndent = "    ";

// "2026-11-22 10:00:05 +0900"
std::string TimeWithZone(CTime moment) {
    std::string text = ShowIsoTime(moment);
    const std::size_t zone = text.find_last_of("+-");
    if (zone != std::string::npos && zone > 10) text.insert(zone, 1, ' ');
    std::ranges::replace(text, 'T', ' ');
    return text;
}

std::string Named(const ProblemKey& key) {
    return key.profile.empty() ? Headline(key) : key.profile + ": " + Headline(key);
}

std::string WhatToDo(const FoundProblem& found) {
    switch (found.key.problem) {
        case Problem::DiskIsShort:
            return Tr("Make room: without it nothing can be saved, and mail waits on the server.");
        case Problem::Waiting:
        case Problem::OldCopy:
            return Tr("`{0} --send` sends what is in the mailbox, `{0} --skip` does not.", CommandFor(found.key));
        case Problem::Parked:
            return Tr("Correct the address or ask its owner; it is tried again once an hour.");
        case Problem::Held:
            return Tr("`{0}` shows why.", CommandFor(found.key));
        default:
            return found.advice;
    }
}

std::string Lines(const FoundProblem& found) {
    const ProblemKey& key = found.key;
    std::string text = key.profile;
    if (!found.address.empty()) text += " (" + found.address + ')';
    text += (text.empty() ? "" : ": ") + Headline(key) + '\n';
    const auto add = [&text](const std::string& line) {
        if (!line.empty()) text += kIndent + line + '\n';
    };
    if (found.since != 0) {
        const std::string since = TimeWithZone(found.since);
        add(key.problem == Problem::Failing
                ? TrN("since {1}, {0} time in a row", "since {1}, {0} times in a row", found.count, since)
                : Tr("since {0}", since));
    }
    if (key.problem == Problem::Held && found.count > 0) add(TrN("{0} message", "{0} messages", found.count));
    add(key.problem == Problem::FolderUnreadable ? key.subject : found.words);
    if (const std::string advice = WhatToDo(found); !advice.empty()) text += Paragraph(advice, 4);
    add(CommandFor(key));
    return text;
}

// Than are named.
void AddHowManyMore(std::size_t count, std::string& text) {
    if (count <= kMostNamed) return;
    text += kIndent + TrN("and {0} more", "and {0} more", static_cast<std::int64_t>(count - kMostNamed)) + '\n';
}

// The first ones in full, more of them by name.
void AddList(std::span<const FoundProblem> all, std::string& text) {
    for (std::size_t i = 0; i < std::min(all.size(), kMostInFull); ++i) text += '\n' + Lines(all[i]);
    if (all.size() <= kMostInFull) return;
    text += '\n' + Tr("And in short:") + '\n';
    for (std::size_t i = kMostInFull; i < std::min(all.size(), kMostNamed); ++i)
        text += kIndent + Named(all[i].key) + '\n';
    AddHowManyMore(all.size(), text);
}

void AddOver(const Alert& alert, std::string& text) {
    if (alert.over.empty()) return;
    text += '\n' + Tr("Good again:") + '\n';
    std::size_t left = kMostNamed;
    for (const auto& [key, since] : alert.over) {
        if (left-- == 0) break;
        text += kIndent + Named(key);
        text += (since == 0 ? "" : ", " + Tr("since {0}", TimeWithZone(since))) + " - " + Tr("over") + '\n';
    }
    AddHowManyMore(alert.over.size(), text);
}

std::string Subject(const Alert& alert) {
    const auto count = [](const auto& all) { return static_cast<std::int64_t>(all.size()); };
    if (alert.news.size() == 1) return Named(alert.news.front().key);
    if (alert.news.size() > 1) return TrN("{0} matter needs you", "{0} matters need you", count(alert.news));
    if (alert.over.size() == 1) return Tr("good again: {0}", Named(alert.over.begin()->first));
    if (alert.over.size() > 1) return TrN("{0} matter is good again", "{0} matters are good again", count(alert.over));
    if (alert.lasting.size() == 1) return Tr("still: {0}", Named(alert.lasting.front().key));
    return TrN("{0} matter still needs you", "{0} matters still need you", count(alert.lasting));
}

std::string Foot(const std::string& tree) {
    return "\n-- \n" + Tr("Tarvex, for the tree {0}. `tarvex status --failed` shows how things are now.", tree) + '\n';
}

Json JsonOf(const FoundProblem& found) {
    return {{"profile", found.key.profile},
            {"address", found.address},
            {"matter", kProblemWords[static_cast<std::size_t>(found.key.problem)]},
            {"subject", found.key.subject},
            {"since", found.since == 0 ? Json() : Json(ShowIsoTime(found.since))},
            {"count", found.count},
            {"words", found.words},
            {"advice", WhatToDo(found)},
            {"command", CommandFor(found.key)}};
}

Json JsonOf(const std::vector<FoundProblem>& all) {
    Json list = Json::array();
    for (const FoundProblem& found : all) list.push_back(JsonOf(found));
    return list;
}

}  // namespace

std::string Headline(const ProblemKey& key) {
    switch (key.problem) {
        case Problem::DiskIsShort:
            return Tr("the disk of the tree is nearly full");
        case Problem::FolderUnreadable:
            return Tr("a folder cannot be read");
        case Problem::LeftOut:
            return Tr("it is not run, or cannot be saved");
        case Problem::Failing:
            return Tr("its runs fail");
        case Problem::WantsLogin:
            return Tr("it waits for a login with the provider");
        case Problem::Waiting:
            return Tr("it waits for a decision");
        case Problem::Parked:
            return Tr("{0} is parked, its recipient was refused", key.subject);
        case Problem::Held:
            return Tr("mail is set aside");
        case Problem::OldCopy:
            return Tr("nothing is run, the tree is an old copy");
    }
    return {};
}

AlertText TextOf(const Alert& alert, const std::string& tree) {
    AlertText text;
    text.subject = "Tarvex: " + OneLineOfUtf8(Subject(alert), 200);
    if (!alert.news.empty()) text.body += Tr("This needs you:") + '\n';
    AddList(alert.news, text.body);
    AddOver(alert, text.body);
    if (!alert.lasting.empty())
        text.body += (text.body.empty() ? "" : "\n") + Tr("You have been told of this, and it lasts:") + '\n';
    AddList(alert.lasting, text.body);
    text.body += Foot(tree);
    return text;
}

AlertText TestText(const std::string& tree) {
    return {"Tarvex: " + Tr("test alert"),
            Tr("This is a test. An alert of Tarvex will come to you in this way.") + '\n' + Foot(tree)};
}

Json JsonOf(const Alert& alert, const std::string& tree, const AlertText& text, bool is_test) {
    Json over = Json::array();
    for (const auto& [key, since] : alert.over) {
        over.push_back({{"profile", key.profile},
                        {"matter", kProblemWords[static_cast<std::size_t>(key.problem)]},
                        {"subject", key.subject},
                        {"since", since == 0 ? Json() : Json(ShowIsoTime(since))}});
    }
    return {{"test", is_test},
            {"tree", tree},
            {"subject", text.subject},
            {"text", text.body},
            {"new", JsonOf(alert.news)},
            {"over", std::move(over)},
            {"lasting", JsonOf(alert.lasting)}};
}

}  // namespace tarvex::host
