// Finds the word of a command line that its command does not know, and the words that it does.

#include "host/commands/arguments/usage.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <typeinfo>
#include <utility>

#include "host/system/display.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostCandidates = 5;
constexpr std::size_t kLongestWord = 60;

// How many letters must be left out, added, exchanged or swapped with their neighbour (Damerau's distance, each letter
// touched once).
std::size_t Distance(std::string_view a, std::string_view b) {
    std::vector<std::vector<std::size_t>> cost(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) cost[i][0] = i;
    for (std::size_t j = 0; j <= b.size(); ++j) cost[0][j] = j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const std::size_t exchanged = cost[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            cost[i][j] = std::min({cost[i - 1][j] + 1, cost[i][j - 1] + 1, exchanged});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) cost[i][j] = std::min(cost[i][j], cost[i - 2][j - 2] + 1);
        }
    }
    return cost[a.size()][b.size()];
}

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
    return app.get_subcommands([](const CLI::App*) { return true; });
}

std::vector<std::string> NamesOfCommands(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* const command : CommandsOf(app)) names.push_back(command->get_name());
    return names;
}

// Also those of the commands above, which may stand behind this one as well.
std::vector<std::string> NamesOfOptions(const CLI::App* app) {
    std::vector<std::string> names;
    for (; app; app = app->get_parent()) {
        for (const CLI::Option* const option : app->get_options()) {
            for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
            for (const std::string& name : option->get_snames()) names.push_back("-" + name);
        }
    }
    return names;
}

bool IsOneOf(const std::string& word, const std::vector<std::string>& words) {
    return std::ranges::find(words, word) != words.end();
}

std::string Quoted(const std::string& word) { return '"' + OneLineOfUtf8(word, kLongestWord) + '"'; }

std::string Listed(const std::vector<std::string>& words, const char* last) {
    std::string list;
    for (std::size_t i = 0; i < words.size(); ++i)
        list += (i == 0 ? "" : i + 1 == words.size() ? std::string(" ") + last + ' ' : ", ") + Quoted(words[i]);
    return list;
}

std::string DidYouMean(const std::string& word, const std::vector<std::string>& words) {
    const std::vector<std::string> nearest = Nearest(word, words);
    return nearest.empty() ? "" : "; did you mean " + Listed(nearest, "or") + '?';
}

// The command that the words name, and what stands behind its name.
struct Place {
    const CLI::App* command;
    std::string path;
    std::vector<std::string> rest;
};

Place PlaceIn(const CLI::App& app, const std::vector<std::string>& words) {
    Place place{&app, "tarvex", {}};
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::vector<const CLI::App*> commands = CommandsOf(*place.command);
        const auto found = std::ranges::find(commands, words[i], [](const auto* one) { return one->get_name(); });
        if (found != commands.end()) {
            place.command = *found;
            place.path += ' ' + words[i];
        } else if (words[i] == "--root" && i + 1 < words.size()) {
            ++i;
        } else {
            place.rest.push_back(words[i]);
        }
    }
    return place;
}

std::string UnknownWord(const Place& place) {
    const std::vector<std::string> options = NamesOfOptions(place.command);
    for (const std::string& word : place.rest) {
        const std::string name = word.substr(0, word.find('='));
        if (name.size() > 1 && name.front() == '-' && !IsOneOf(name, options))
            return place.path + " has no option " + Quoted(name) + DidYouMean(name, options);
    }
    const std::vector<std::string> commands = NamesOfCommands(*place.command);
    if (commands.empty()) return place.path + " takes no more words: " + Listed({place.rest.back()}, "");
    for (const std::string& word : place.rest) {
        if (word.starts_with('-')) continue;
        std::string meant = DidYouMean(word, commands);
        if (meant.empty()) meant = "; there are " + Listed(commands, "and");
        return place.path + " has no command " + Quoted(word) + meant;
    }
    return place.path + " wants one of " + Listed(commands, "and");
}

// The library's sentences, which begin with the name of an option or a word.
std::string WrongValue(const Place& place, const CLI::ParseError& error) {
    const std::string said = OneLineOfUtf8(error.what(), 2 * kLongestWord);
    if (typeid(error) == typeid(CLI::RequiredError)) {
        constexpr std::string_view kEnd = " is required";
        if (said.ends_with(kEnd)) return place.path + " wants " + said.substr(0, said.size() - kEnd.size());
    }
    return place.path + ": " + said;
}

}  // namespace

std::vector<std::string> Nearest(std::string_view typed, const std::vector<std::string>& words) {
    std::vector<std::pair<std::size_t, std::string>> near;
    if (typed.size() > kLongestWord) return {};
    for (const std::string& word : words) {
        const std::size_t distance = Distance(Lower(typed), word);
        const bool is_begun = typed.size() > 2 && word.starts_with(typed);
        if (distance <= std::max<std::size_t>(1, typed.size() / 3) || is_begun) near.emplace_back(distance, word);
    }
    std::ranges::sort(near);
    near.erase(std::ranges::unique(near).begin(), near.end());
    std::vector<std::string> nearest;
    for (const auto& [distance, word] : near) {
        if (nearest.size() < kMostCandidates) nearest.push_back(word);
    }
    return nearest;
}

std::string UsageTrouble(const CLI::App& app, const std::vector<std::string>& words, const CLI::ParseError& error) {
    const Place place = PlaceIn(app, words);
    const bool lacks_command = typeid(error) == typeid(CLI::RequiredError) && !CommandsOf(*place.command).empty();
    const bool is_unknown = typeid(error) == typeid(CLI::ExtrasError) && !place.rest.empty();
    const std::string what = lacks_command || is_unknown ? UnknownWord(place) : WrongValue(place, error);
    return what + (what.ends_with('?') ? " `" : "; `") + place.path + " --help` shows how it is used";
}

}  // namespace tarvex::host
