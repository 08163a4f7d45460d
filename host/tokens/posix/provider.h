#pragma once

// A provider of tokens, as a file NAME.def describes it (docs/tokens.md): the client that a person has registered
// there, and the addresses that it is reached at. The files lie in /etc/tarvex/providers.d and in ROOT/providers.d; a
// name that stands in both is that of the root.

#include <string>
#include <vector>

namespace tarvex::host {

struct Provider {
    std::string name;
    std::string client_id;
    std::string client_secret;           // empty for a client without one
    std::string token_endpoint;          // URLs with https, or with http to this machine
    std::string device_endpoint;         // empty: no login by device
    std::string authorization_endpoint;  // empty: no login by browser
    std::string scopes;                  // separated by blanks
    std::string authority;               // a file of certificates in the place of the system's; empty for those
};

// In alphabetical order. `root` is a path of the tree.
std::vector<std::string> ProviderNames(const std::string& root);

// Throws CommandError: kNotFound says which there are, kBadSettings what is wrong with the file, kCannotWrite that it
// cannot be read.
Provider ProviderNamed(const std::string& root, const std::string& name);

}  // namespace tarvex::host
