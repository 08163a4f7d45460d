#pragma once

// What the command line of `tarvex setup` said.

#include <string>
#include <vector>

#include "host/commands/arguments/key_options.h"

namespace tarvex::host {

struct SetupOptions {
    std::string address;
    std::vector<std::string> forwards;
    std::vector<std::string> terms;
    std::string text;
    std::string user;
    std::string provider;
    std::string dns;
    bool new_mail_only = false;
    bool all_mail = false;
    bool other_domain = false;
    bool again = false;
    bool no_test_mail = false;
    bool no_service = false;
    bool yes = false;
    KeyOptions keys;       // of the profile
    KeyOptions host_keys;  // of its rules
};

}  // namespace tarvex::host
