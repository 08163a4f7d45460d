#pragma once

// Access tokens from a provider at which `tarvex login` has logged in. On Windows there are none: tokens come from a
// program there (command_tokens.h).
//
// What may happen between a provider and the disk, and what is left:
//
//     before the provider is asked    the file is written once as it is: on a full disk nothing is asked
//     the provider gives a token      the file is replaced and synced; only then the access token is used
//     killed between the two          the old refresh token; providers take it until the new one is used
//     the file cannot be written      this process keeps the new one and writes it before it asks again
//     no network, 5xx, garbage        everything as it was
//     the provider refuses the token  it is kept with the provider's words; nothing is asked before `tarvex login`

#include <memory>
#include <string>

#include "host/tokens/token_trouble.h"

namespace tarvex::host {

// The login of one profile: its path in the tree, and its user name at the mail server, UTF-8.
struct TokenOwner {
    std::string profile;
    std::string login;
};

// For any thread, and beside other processes.
class ProviderTokens {
public:
    explicit ProviderTokens(std::string root);
    ~ProviderTokens();

    // A token that does not expire within the next seconds. Asks the provider where there is none, one caller at a
    // time. Throws TokenTrouble.
    std::string Of(const TokenOwner& owner, const Stops& stops);

    // Why there will be none until somebody logs in; empty when there may be one. Asks nobody.
    std::string WhyWaiting(const TokenOwner& owner) const;

    // The mail server does not take this one: the next is a new one.
    void Refused(const TokenOwner& owner, const std::string& access_token);

private:
    struct Unsaved;

    const std::string root_;
    std::unique_ptr<Unsaved> unsaved_;
};

// Removes what is kept of a profile's login. False when something stays.
[[nodiscard]] bool ForgetLogin(const std::string& root, const std::string& profile);

}  // namespace tarvex::host
