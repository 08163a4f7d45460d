#pragma once

// Where the runs of a tree have their access tokens from: from the profile's `token_command`, else from the provider at
// which `tarvex login` has logged in.

#include <string>

#include "host/tokens/command_tokens.h"
#include "host/tokens/provider_tokens.h"
#include "host/tokens/token_trouble.h"

namespace tarvex::host {

// For any thread.
class AccessTokens {
public:
    // `root` is the path of the tree.
    explicit AccessTokens(const std::string& root) : of_providers_(root) {}

    // May take half a minute; ends when the run that asks is interrupted. `command` is empty where there is none, else
    // UTF-8. Throws TokenTrouble.
    std::string Of(const TokenOwner& owner, const std::string& command);

    // Why there will be no token before `tarvex login`; empty when there may be one. Asks nobody.
    std::string WhyWaiting(const TokenOwner& owner, const std::string& command) const;

    // The mail server does not take this one: the next is a new one.
    void Refused(const TokenOwner& owner, const std::string& command, const std::string& access_token);

private:
    ProviderTokens of_providers_;
    CommandTokens of_commands_;
};

}  // namespace tarvex::host
