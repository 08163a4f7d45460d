// Looks at a tree for its readers, and tells them.

#include "host/alerts/alerts.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/state/profile_state.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr const char* kOfTree = "";

// The rules that hold for it; while they cannot be read, those that held before.
std::optional<HostRules> RulesFor(const CString& root, const CString& profile, std::map<CString, HostRules>& last) {
    try {
        std::optional<HostRules> rules = profile.empty() ? RulesOf(root) : RulesOf(root, profile);
        if (rules) last[profile] = *rules;
        return rules;
    } catch (const CommandError&) {
        if (const auto known = last.find(profile); known != last.end()) return known->second;
        if (profile.empty()) return std::nullopt;
    }
    try {
        return RulesOfUser(root, ParentOf(profile));
    } catch (const CommandError&) {
        return RulesFor(root, kOfTree, last);
    }
}

bool FailsAtSmtp(const ProfileState& state) {
    if (!state.history || state.history->failed_in_a_row == 0) return false;
    return FailureOf(state.history->last.result) == &state.history->last.result.delivery;
}

// First those that it is about; last those whose mail does not go out.
std::vector<Carrier> CarriersFor(const Alert& alert, const std::vector<std::pair<std::string, Carrier>>& all,
                                 const std::set<std::string>& cannot_send) {
    std::set<std::string> about;
    for (const FoundProblem& found : alert.news) about.insert(found.key.profile);
    for (const FoundProblem& found : alert.lasting) about.insert(found.key.profile);
    for (const auto& [key, since] : alert.over) about.insert(key.profile);
    std::vector<std::pair<int, Carrier>> ranked;
    for (const auto& [name, carrier] : all)
        ranked.emplace_back((cannot_send.contains(name) ? 2 : 0) + (about.contains(name) ? 0 : 1), carrier);
    std::ranges::stable_sort(ranked, {}, &std::pair<int, Carrier>::first);
    std::vector<Carrier> carriers;
    for (auto& [rank, carrier] : ranked) carriers.push_back(std::move(carrier));
    return carriers;
}

}  // namespace

Alerts::Alerts(std::string directory, AlertTellers tellers, std::function<DiskRoom(const std::string&)> room)
    : directory_(std::move(directory)),
      tellers_(std::move(tellers)),
      room_(std::move(room)),
      memory_(directory_, tellers_.warn) {}

std::vector<Alerts::OfProfile> Alerts::ReadRules(const CRootPath& root) {
    std::vector<OfProfile> all;
    const OneReadingOfRules once;
    for (const NamedProfile& named : AllProfiles(root)) {
        std::optional<HostRules> rules = RulesFor(root.path, named.profile->path, last_rules_);
        if (!rules) continue;
        std::vector<Reader> readers = ReadersOf(*rules);
        if (!readers.empty())
            all.push_back({named, ShownName(root, named.profile->path), *std::move(rules), std::move(readers)});
    }
    return all;
}

// In each language that somebody reads.
Alerts::Readers Alerts::FindReaders(const CRootPath& root, const std::vector<OfProfile>& profiles, CTime now,
                                    const NotRun& not_run) {
    Readers readers;
    std::set<Language> languages;
    const auto add = [&](const Reader& reader) -> OfReader& {
        OfReader& found = readers[reader.Key()];
        found.reader = reader;
        languages.insert(reader.language);
        return found;
    };
    if (const std::optional<HostRules> rules = RulesFor(root.path, kOfTree, last_rules_)) {
        for (const Reader& reader : ReadersOf(*rules)) add(reader).of_tree = true;
    }
    for (const OfProfile& profile : profiles) {
        for (const Reader& reader : profile.readers) add(reader).profiles.push_back(&profile);
    }
    for (const Language language : languages) {
        const Speaking speaking(language);
        AddProblems(root, profiles, now, not_run, language, readers);
    }
    return readers;
}

void Alerts::AddProblems(const CRootPath& root, const std::vector<OfProfile>& profiles, CTime now,
                         const NotRun& not_run, Language language, Readers& readers) const {
    const std::vector<FoundProblem> of_tree = ProblemsOfTree(root, room_(directory_), not_run.old_copy);
    std::vector<NamedProfile> named;
    for (const OfProfile& profile : profiles) named.push_back(profile.named);
    TreeState tree = StateOf(root, named, directory_);
    const auto append = [](std::vector<FoundProblem>& all, const std::vector<FoundProblem>& more) {
        all.insert(all.end(), more.begin(), more.end());
    };
    for (auto& [key, reader] : readers) {
        if (reader.reader.language != language) continue;
        reader.situation.whole = tree.trouble.empty();
        if (reader.of_tree) append(reader.situation.wrong, of_tree);
    }
    for (std::size_t i = 0; i < profiles.size(); ++i) {
        ProfileState& state = tree.profiles[i];
        const CPopProfile& profile = *profiles[i].named.profile;
        if (const auto why = not_run.left_out.find(profile.path); why != not_run.left_out.end())
            state.trouble = why->second;
        const std::vector<FoundProblem> wrong = ProblemsOf(state, profile, profiles[i].rules, now);
        for (const Reader& reader : profiles[i].readers) {
            if (reader.language != language) continue;
            OfReader& told = readers.at(reader.Key());
            told.situation.known.insert(state.name);
            append(told.situation.wrong, wrong);
            if (FailsAtSmtp(state) || !state.wants_login.empty()) told.cannot_send.insert(state.name);
        }
    }
}

SendingOutcome Alerts::Send(const OfReader& to, const Alert& alert, CTime now, const Sending& sending) const {
    const Speaking speaking(to.reader.language);
    const std::string tree = ShowPath(directory_);
    const AlertText text = TextOf(alert, tree);
    if (to.reader.IsCommand()) return TellProgram(to.reader, JsonOf(alert, tree, text, false), sending);
    std::vector<std::pair<std::string, Carrier>> all;
    for (const OfProfile* const profile : to.profiles) {
        const CPopProfile& carrier = *profile->named.profile;
        all.emplace_back(profile->name, Carrier{&carrier, profile->rules});
    }
    return SendMailTo(to.reader, text, CarriersFor(alert, all, to.cannot_send), sending, now);
}

void Alerts::Tell(const std::string& key, const OfReader& reader, CTime now, CTime quiet_s, const Sending& sending) {
    Situation situation = reader.situation;
    situation.quiet_s = quiet_s;
    ReaderState& state = memory_.Of(key);
    const std::optional<Alert> alert = AlertFor(situation, state, gatherings_[key], now);
    if (!alert) return;
    const SendingOutcome outcome = Send(reader, *alert, now, sending);
    if (sending.stops() && !outcome.why.empty()) return;  // it says nothing about the way
    const Speaking english(Language::English);            // the log's
    if (!outcome.why.empty()) {
        WasNotSent(outcome.why, state, now);
        if (state.tries == 1)
            tellers_.warn("the alert to " + reader.reader.Name() +
                          " did not go out, and is tried again: " + outcome.why);
        return;
    }
    WasSent(*alert, state, now);
    gatherings_.erase(key);
    memory_.Save();  // before another one takes its time
    tellers_.say("told " + reader.reader.Name() + " through " + outcome.through + ": " +
                 ShowCount(static_cast<std::int64_t>(alert->news.size()), "new matter") + ", " +
                 std::to_string(alert->over.size()) + " over, " + std::to_string(alert->lasting.size()) + " lasting");
}

void Alerts::Look(const CRootPath& root, const NotRun& not_run, CTime now, CTime quiet_s, const Sending& sending) {
    if (!HasRules(root.path)) return;
    const std::vector<OfProfile> profiles = ReadRules(root);
    const Readers readers = FindReaders(root, profiles, now, not_run);
    if (readers.empty()) return;
    std::set<std::string> keys;
    for (const auto& [key, reader] : readers) keys.insert(key);
    memory_.Begin(keys);
    for (const auto& [key, reader] : readers) {
        if (sending.stops()) break;
        Tell(key, reader, now, quiet_s, sending);
    }
    memory_.Save();
}

std::vector<TestOutcome> SendTestAlerts(const CRootPath& root, const std::vector<NamedProfile>& profiles,
                                        bool of_profiles_alone, CTime now, const Sending& sending) {
    struct Test {
        Reader reader;
        std::vector<Carrier> carriers;
    };
    std::map<std::string, Test> tests;
    const std::optional<HostRules> of_root = RulesOf(root.path);
    if (!of_root) throw NoRules();
    if (!of_profiles_alone) {
        for (const Reader& reader : ReadersOf(*of_root)) tests[reader.Key()].reader = reader;
    }
    for (const NamedProfile& named : profiles) {
        const HostRules rules = RulesOf(*named.profile).value();
        for (const Reader& reader : ReadersOf(rules)) {
            Test& test = tests[reader.Key()];
            test.reader = reader;
            test.carriers.push_back({named.profile, rules});
        }
    }
    std::vector<TestOutcome> outcomes;
    const std::string tree = ShowPath(root.path);
    for (const auto& [key, test] : tests) {
        if (sending.stops()) break;
        const Speaking speaking(test.reader.language);
        const AlertText text = TestText(tree);
        outcomes.push_back({test.reader.Name(), test.reader.IsCommand()
                                                    ? TellProgram(test.reader, JsonOf({}, tree, text, true), sending)
                                                    : SendMailTo(test.reader, text, test.carriers, sending, now)});
    }
    return outcomes;
}

}  // namespace tarvex::host
