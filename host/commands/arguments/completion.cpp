// Completion of command lines: what the program knows of its commands, options, keys and of the tree, for each shell.

#include "host/commands/arguments/completion.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <iostream>
#include <optional>
#include <string_view>
#include <utility>

#include "host/commands/arguments/usage.h"
#include "host/settings/host_setting.h"
#include "host/settings/keys.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMeaningColumns = 60;

// What stands before the word that is completed.
struct Line {
    const CLI::App* command;
    const CLI::Option* awaited = nullptr;  // the option whose value the word is
    std::size_t arguments = 0;
    std::optional<std::string> root;
};

const CLI::App* CommandNamed(const CLI::App& app, const std::string& name) {
    const auto below = app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
    return below.empty() ? nullptr : below.front();
}

Line LineOf(const CLI::App& app, const std::vector<std::string>& words) {
    Line line{&app, nullptr, 0, {}};
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        const std::size_t end = words[i].find('=');
        const std::string name = words[i].substr(0, end);
        const bool is_root = name == "--root";
        if (std::exchange(line.awaited, nullptr)) {
            if (i > 0 && words[i - 1] == "--root") line.root = words[i];
        } else if (name.starts_with('-')) {
            const CLI::Option* const option = OptionNamed(line.command, name);
            const bool has_value = option && option->get_items_expected_max() > 0;
            if (has_value && end == std::string::npos) line.awaited = option;
            if (is_root && end != std::string::npos) line.root = words[i].substr(end + 1);
        } else if (const CLI::App* const below = CommandNamed(*line.command, words[i])) {
            line.command = below;
        } else {
            ++line.arguments;
        }
    }
    return line;
}

void Offer(const std::string& word, std::string_view meaning) {
    const bool is_one_line = std::ranges::none_of(word, [](unsigned char c) { return c < ' '; });
    if (word.empty() || !is_one_line) return;
    std::cout << word << '\t' << OneLineOfUtf8(meaning, kMeaningColumns) << '\n';
}

void OfferCommands(const CLI::App& app) {
    for (const CLI::App* const command : app.get_subcommands({}))
        Offer(command->get_name(), command->get_description());
}

// Behind a command also --root, which stands above all of them.
void OfferOptions(const CLI::App* app) {
    const bool is_below = app->get_parent() != nullptr;
    for (; app; app = app->get_parent()) {
        const bool is_above = is_below && app->get_parent() == nullptr;
        for (const CLI::Option* const option : app->get_options()) {
            for (const std::string& name : option->get_lnames()) {
                if (!is_above || name == "root") Offer("--" + name, option->get_description());
            }
        }
    }
}

// The words of a key; returns whether the record has it.
template <class Record>
bool OfferValues(const std::string& name) {
    const auto keys = Keys<Record>();
    const auto key = std::ranges::find_if(keys, [&](const KeyInfo& one) { return one.name == name; });
    if (key == keys.end()) return false;
    for (const ValueWord& value : key->words) Offer(value.word, "");
    return true;
}

void OfferUsers(const CRootPath& root) {
    for (const CUser* const user : AllUsers(root)) {
        const std::string login = ShowText(user->setting.loginname);
        Offer(ShownName(root, user->path), login);
        Offer(login, ShownName(root, user->path));
    }
}

// A path with nickname and address for a meaning, and each of the two with the path.
template <class Object>
void OfferNames(const CRootPath& root, const Object& object) {
    const std::string path = ShownName(root, object.path);
    const std::string nickname = ShowText(object.setting.nickname);
    const std::string address = ShowText(object.setting.address);
    Offer(path, nickname.empty() || address.empty() ? nickname + address : nickname + ", " + address);
    Offer(nickname, path);
    if (address != nickname) Offer(address, path);
}

// Of one of the kinds "USER", "PROFILE", "FORWARD". A tree that cannot be read has no names.
void OfferOfTree(const Line& line, const std::vector<std::string_view>& kinds) {
    CRootPath root;
    try {
        OpenTree(root, RootDirectory(line.root ? std::optional(TreePath(*line.root)) : std::nullopt));
    } catch (const CommandError&) {
        return;
    }
    for (const std::string_view kind : kinds) {
        if (kind == "USER") OfferUsers(root);
        if (kind == "PROFILE") {
            for (const NamedProfile& named : AllProfiles(root)) OfferNames(root, *named.profile);
        }
        if (kind == "FORWARD") {
            for (const NamedForward& named : AllForwards(root)) OfferNames(root, *named.forward);
        }
    }
}

void OfferArgument(const Line& line, const std::string& placeholder, const CLI::Option& option) {
    const auto is_one_of = [&](std::initializer_list<std::string_view> names) {
        return std::ranges::find(names, placeholder) != names.end();
    };
    if (is_one_of({"FILE", "PATH"})) {
        std::cout << "files\n";
        return;
    }
    if (is_one_of({"DIR", "ROOT"})) {
        std::cout << "directories\n";
        return;
    }
    std::cout << "words\n";
    if (is_one_of({"USER", "PROFILE", "FORWARD"})) return OfferOfTree(line, {placeholder});
    const CLI::App* const group = line.command->get_parent();
    if (placeholder == "NAME" && option.get_positional() && group && group->get_name() == "rules")
        return OfferOfTree(line, {"USER", "PROFILE"});
    if (option.get_lnames().empty()) return;
    const std::string& key = option.get_lnames().front();
    [[maybe_unused]] const bool is_key = OfferValues<CPopProfileSetting>(key) ||
                                         OfferValues<CForwardAddressSetting>(key) || OfferValues<HostRules>(key) ||
                                         OfferValues<CUserSetting>(key) || OfferValues<CAppSetting>(key);
}

// The one in whose place the word stands; the last may come again and again.
const CLI::Option* ArgumentAt(const CLI::App& command, std::size_t index) {
    const auto arguments = command.get_options([](const CLI::Option* option) { return option->get_positional(); });
    if (index < arguments.size()) return arguments[index];
    const bool repeats = !arguments.empty() && arguments.back()->get_items_expected_max() > 1;
    return repeats ? arguments.back() : nullptr;
}

}  // namespace

int PrintCompletions(const CLI::App& app, const std::vector<std::string>& words) {
    if (words.empty()) return kBadUsage;
    const Line line = LineOf(app, words);
    if (line.awaited) {
        OfferArgument(line, line.awaited->get_type_name(), *line.awaited);
    } else if (words.back().starts_with('-')) {
        std::cout << "words\n";
        OfferOptions(line.command);
    } else if (!line.command->get_subcommands({}).empty()) {
        std::cout << "words\n";
        if (line.arguments == 0) OfferCommands(*line.command);
    } else if (const CLI::Option* const argument = ArgumentAt(*line.command, line.arguments)) {
        OfferArgument(line, argument->get_name(true), *argument);
    }
    return kDone;
}

}  // namespace tarvex::host
