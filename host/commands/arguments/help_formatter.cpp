// Puts help in lines, with the library's own words in the user's language.

#include "host/commands/arguments/help_formatter.h"

#include <sstream>
#include <utility>

#include "host/language/tr.h"
#include "host/terminal/table.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kColumns = 80;
constexpr std::size_t kNameColumns = 30;
constexpr std::size_t kTextColumns = kColumns - kNameColumns;

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

std::string HelpFormatter::make_option_desc(const CLI::Option* option) const {
    return Wrapped(option->get_description(), kTextColumns);
}

std::string HelpFormatter::make_subcommands(const CLI::App* app, CLI::AppFormatMode) const {
    std::string help;
    for (const CLI::App* const command : app->get_subcommands({})) help += make_subcommand(command);
    return help.empty() ? help : '\n' + Tr("Subcommands") + ":\n" + help;
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
    std::ostringstream out;
    CLI::detail::format_help(out, command->get_name(), Wrapped(command->get_description(), kTextColumns), kNameColumns);
    return out.str();
}

}  // namespace tarvex::host
