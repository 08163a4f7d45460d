// Says what is wrong with a command line, in chosen of the library's sentences.

#include "host/commands/arguments/usage.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <limits>
#include <string_view>
#include <system_error>
#include <typeinfo>

#include "host/language/tr.h"
#include "host/terminal/typed_word.h"

namespace tarvex::host {
namespace {

template <class Error>
bool Is(const CLI::ParseError& error) {
    return typeid(error) == typeid(Error);
}

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) { return app.get_subcommands({}); }

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

// The command that was chosen, down to the last word that names one.
struct Chosen {
    const CLI::App* command;
    std::string path;
};

Chosen ChosenIn(const CLI::App& app) {
    Chosen chosen{&app, app.get_name()};
    for (auto below = app.get_subcommands(); !below.empty(); below = below.front()->get_subcommands()) {
        chosen.command = below.front();
        chosen.path += ' ' + below.front()->get_name();
    }
    return chosen;
}

// "--popserver HOST"
std::string Written(const CLI::Option& option) {
    if (option.get_positional()) return option.get_name(true);
    const std::string value = option.get_type_name();
    return option.get_name() + (value.empty() ? "" : ' ' + value);
}

// "tarvex profile add USER ADDRESS --popserver HOST --popuser NAME"
std::string ShortestForm(const Chosen& chosen) {
    std::string arguments;
    std::string options;
    for (const CLI::Option* const option : chosen.command->get_options()) {
        if (option->get_required()) (option->get_positional() ? arguments : options) += ' ' + Written(*option);
    }
    return chosen.path + arguments + options;
}

std::string UnknownOption(const Chosen& chosen, const std::string& name) {
    return Tr("{0} has no option {1}", chosen.path, Quoted(name)) + DidYouMean(name, NamesOfOptions(chosen.command));
}

// "profile set", "user set": where the word stands one level further down.
std::vector<std::string> CommandsBelow(const CLI::App& app, const std::string& word) {
    std::vector<std::string> found;
    for (const CLI::App* const command : CommandsOf(app)) {
        if (IsOneOf(word, NamesOfCommands(*command))) found.push_back(command->get_name() + ' ' + word);
    }
    return found;
}

std::string UnknownCommand(const Chosen& chosen, const std::string& word) {
    const std::vector<std::string> commands = NamesOfCommands(*chosen.command);
    if (IsOneOf(word, commands)) return Tr("{0} stands too early; write `{1} {2}`", Quoted(word), chosen.path, word);
    const std::string what = Tr("{0} has no command {1}", chosen.path, Quoted(word));
    if (word == "help") return what;
    const std::vector<std::string> below = CommandsBelow(*chosen.command, word);
    if (!below.empty()) return what + MeantOneOf(below);
    const std::string meant = DidYouMean(word, commands);
    return what + (meant.empty() ? Tr("; there are {0}", Listed(commands)) : meant);
}

// `tarvex profile set office timer 10`: an option without its hyphens.
std::string OneWordTooMany(const Chosen& chosen, const std::string& word) {
    const std::vector<std::string> options = NamesOfOptions(chosen.command);
    const std::string meant = IsOneOf("--" + word, options) ? MeantOneOf({"--" + word}) : "";
    return Tr("{0} takes no more words, so not {1}", chosen.path, Quoted(word)) + meant;
}

// What the command line has that its command does not know; nothing when it has no such word.
std::string WhatIsUnknown(const CLI::App& app, const Chosen& chosen) {
    const std::vector<std::string> unknown = app.remaining(true);
    if (unknown.empty()) return "";
    const bool is_group = !CommandsOf(*chosen.command).empty();
    if (is_group && !unknown.front().starts_with('-')) return UnknownCommand(chosen, unknown.front());
    for (const std::string& word : unknown) {
        const std::string name = word.substr(0, word.find('='));
        if (name.size() > 1 && name.starts_with('-') && !OptionNamed(chosen.command, name))
            return UnknownOption(chosen, name);
    }
    return OneWordTooMany(chosen, unknown.front());
}

std::string WhatIsMissing(const Chosen& chosen) {
    if (const auto commands = NamesOfCommands(*chosen.command); !commands.empty())
        return Tr("{0} wants a command: {1}", chosen.path, Listed(commands));
    for (const CLI::Option* const option : chosen.command->get_options()) {
        if (option->get_required() && option->count() == 0)
            return Tr("{0} wants {1}; write `{2}`", chosen.path, Written(*option), ShortestForm(chosen));
    }
    return Tr("{0} wants more", chosen.path);
}

// The library names the option at the start of its sentence.
std::string WrongCount(const Chosen& chosen, const std::string& said) {
    const std::string name = said.substr(0, said.find(": "));
    const CLI::Option* const option = OptionNamed(chosen.command, name);
    if (option && option->count() > 0) return Tr("{0} is given more than once", name);
    return Tr("{0} wants a value; write {1}", name, option ? Written(*option) : name + " ...");
}

std::string ExcludeEachOther(const std::string& said) {
    constexpr std::string_view kBetween = " excludes ";
    const std::size_t between = said.find(kBetween);
    if (between == std::string::npos) return said;
    return Tr("{0} and {1} exclude each other; give one of them", said.substr(0, between),
              said.substr(between + kBetween.size()));
}

// Whether somebody typed a password: then the words are not repeated.
bool HasPasswordOnCommandLine(const std::vector<std::string>& words) {
    return std::ranges::any_of(words, [](std::string_view word) {
        const std::string_view option = word.substr(0, word.find('='));
        const bool may_hold_one = option.starts_with('-') || option.size() < word.size();
        return may_hold_one && option.find("passw") != std::string_view::npos && !option.ends_with("-stdin") &&
               !option.ends_with("-file");
    });
}

// `--json=yes`
std::string ValueOfAFlag(const Chosen& chosen, const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        const std::size_t end = word.find('=');
        const CLI::Option* const option = OptionNamed(chosen.command, word.substr(0, end));
        if (end != std::string::npos && option && option->get_items_expected_max() == 0)
            return Tr("{0} takes no value; leave {1} out", word.substr(0, end), Quoted(word.substr(end)));
    }
    return Tr("an option that takes no value was given one");
}

std::string WhatIsWrong(const CLI::App& app, const Chosen& chosen, const std::vector<std::string>& words,
                        const CLI::ParseError& error) {
    if (const std::string unknown = WhatIsUnknown(app, chosen); !unknown.empty()) return unknown;
    const std::string said = error.what();
    if (Is<CLI::RequiredError>(error)) return WhatIsMissing(chosen);
    if (Is<CLI::ArgumentMismatch>(error)) return WrongCount(chosen, said);
    if (Is<CLI::ExcludesError>(error)) return ExcludeEachOther(said);
    // Only flags are left to convert: other values are checked before.
    if (Is<CLI::ConversionError>(error)) return ValueOfAFlag(chosen, words);
    const std::size_t end = said.find(": ");  // of the option's name, before what its validator says
    if (end == std::string::npos) return said;
    return Tr("{0} must be {1}", said.substr(0, end), said.substr(end + 2));
}

template <class Number>
std::string Digits(Number number) {
    std::array<char, 32> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr};
}

template <class Number>
CLI::Validator NumberBetween(Number lowest, Number highest, const std::string& unit) {
    const auto trouble = [=](const std::string& word) -> std::string {
        Number number = 0;
        const char* const end = word.data() + word.size();
        const auto [rest, error] = std::from_chars(word.data(), end, number);
        if (error == std::errc() && rest == end && number >= lowest && number <= highest) return "";
        const bool is_open = highest == std::numeric_limits<Number>::max();
        const std::string range = is_open ? Tr("a number from {0}", Digits(lowest))
                                          : Tr("a number from {0} to {1}", Digits(lowest), Digits(highest));
        return Tr("{0}, not {1}", unit.empty() ? range : range + " (" + unit + ')', Quoted(word));
    };
    return {trouble, ""};
}

}  // namespace

const CLI::Option* OptionNamed(const CLI::App* app, const std::string& name) {
    for (; app; app = app->get_parent()) {
        if (const CLI::Option* const option = app->get_option_no_throw(name)) return option;
    }
    return nullptr;
}

bool PrintsJson(const CLI::App& app) {
    const CLI::Option* const json = ChosenIn(app).command->get_option_no_throw("--json");
    return json && json->count() > 0;
}

std::string UsageTrouble(const CLI::App& app, const std::vector<std::string>& words, const CLI::ParseError& error) {
    if (HasPasswordOnCommandLine(words) && !Is<CLI::ExcludesError>(error)) {
        return Tr(
            "--password takes no value: a password is asked for on the terminal, or comes from --password-stdin or "
            "--password-file, never from the command line. See --help.");
    }
    const Chosen chosen = ChosenIn(app);
    const std::string what = WhatIsWrong(app, chosen, words, error);
    return what + (what.ends_with('?') ? Tr(" See `{0} --help`", chosen.path) : Tr("; see `{0} --help`", chosen.path));
}

CLI::Validator WholeNumber(std::int64_t lowest, std::int64_t highest, const std::string& unit) {
    return NumberBetween(lowest, highest, unit);
}

CLI::Validator Fraction(double lowest, double highest, const std::string& unit) {
    return NumberBetween(lowest, highest, unit);
}

}  // namespace tarvex::host
