#pragma once

// The options that are made from the tables of settings keys.

#include <CLI/CLI.hpp>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/edit/edit.h"
#include "host/settings/keys.h"

namespace tarvex::host {

// The values given for the keys of one record. Lives as long as the application.
class KeyOptions {
public:
    // Adds an option for each key except those left out. A password gets three options, none of which takes the
    // password itself.
    template <class Record>
    void AddTo(CLI::App& app, const std::vector<std::string_view>& left_out);

    bool GivesPassword(const std::string& key) const;
    bool Empty() const;

    std::map<std::string, std::string> Values() const;  // by key, without passwords

    // Adds the values, and gets the passwords.
    void Fill(EditRequest& request) const;

private:
    struct Password {
        bool ask = false;
        bool from_input = false;
        std::string file;
    };

    void AddPassword(CLI::App& app, const KeyInfo& key);

    std::map<std::string, std::string> values_;
    std::map<std::string, CLI::Option*> options_;
    std::map<std::string, Password> passwords_;
};

}  // namespace tarvex::host
