#pragma once

// Help for a terminal of 80 columns, in the user's language.

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace tarvex::host {

class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter();

    std::string make_help(const CLI::App* app, std::string name, CLI::AppFormatMode mode) const override;
    std::string make_group(std::string group, bool is_positional,
                           std::vector<const CLI::Option*> options) const override;
    std::string make_description(const CLI::App* app) const override;
    std::string make_footer(const CLI::App* app) const override;
    std::string make_option(const CLI::Option* option, bool is_positional) const override;
    std::string make_subcommands(const CLI::App* app, CLI::AppFormatMode mode) const override;
    std::string make_subcommand(const CLI::App* command) const override;
};

}  // namespace tarvex::host
