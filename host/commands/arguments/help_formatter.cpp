// Puts help in lines, with the library's own words in the user's language.

#include "host/commands/arguments/help_formatter.h"

#include <utility>

#include "host/language/tr.h"
#include "host/terminal/table.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kColumns = 80;
constexpr std::size_t kNameColumns = 30;
constexpr std::size_t kTextColumns = kColumns - kNameColumns;

// A name with its description beside it, or below one that leaves no room for that.
std::string Entry(const std::string& name, const std::string& description) {
    const std::string beginning = "  " + name;
    std::string entry = Padded(beginning, kNameColumns);
    if (Columns(beginning) >= kNameColumns) entry += '\n' + std::string(kNameColumns, ' ');
    for (const char c : Wrapped(description, kTextColumns)) {
        entry += c;
        if (c == '\n') entry.append(kNameColumns, ' ');
    }
    entry.erase(entry.find_last_not_of(" \n") + 1);
    return entry + '\n';
}

}  // namespace

HelpFormatter::HelpFormatter() {
    column_width(kNameColumns);
    label("Usage", Tr("Usage"));
    label("OPTIONS", Tr("OPTIONS"));
    label("SUBCOMMAND", Tr("SUBCOMMAND"));
    label("Positionals", Tr("Positionals"));
    label("REQUIRED", Tr("REQUIRED"));
    label("Needs", Tr("Needs"));
    label("Excludes", Tr("Excludes"));
}

// The groups of options with one empty line between them, where the library leaves two.
std::string HelpFormatter::make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const {
    std::string help = CLI::Formatter::make_help(app, std::move(name), mode);
    for (std::size_t gap = 0; (gap = help.find("\n\n\n", gap)) != std::string::npos;) help.erase(gap, 1);
    return help;
}

std::string HelpFormatter::make_group(std::string group, bool is_positional,
                                      std::vector<const CLI::Option*> options) const {
    if (group == "Options") group = Tr("Options");  // the library's own name
    return CLI::Formatter::make_group(std::move(group), is_positional, std::move(options));
}

std::string HelpFormatter::make_description(const CLI::App* app) const {
    return Wrapped(CLI::Formatter::make_description(app), kColumns);
}

std::string HelpFormatter::make_footer(const CLI::App* app) const {
    return Wrapped(CLI::Formatter::make_footer(app), kColumns);
}

std::string HelpFormatter::make_option(const CLI::Option* option, bool is_positional) const {
    return Entry(make_option_name(option, is_positional) + make_option_opts(option), option->get_description());
}

std::string HelpFormatter::make_subcommands(const CLI::App* app, CLI::AppFormatMode) const {
    std::string help;
    for (const CLI::App* const command : app->get_subcommands({})) help += make_subcommand(command);
    return help.empty() ? help : '\n' + Tr("Subcommands") + ":\n" + help;
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
    return Entry(command->get_name(), command->get_description());
}

}  // namespace tarvex::host
