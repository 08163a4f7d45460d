// Chooses where a profile's tokens come from.

#include "host/tokens/access_tokens.h"

#include "tarvex/tarvex.h"

namespace tarvex::host {

std::string AccessTokens::Of(const TokenOwner& owner, const std::string& command) {
    return command.empty() ? of_providers_.Of(owner, RunIsInterrupted) : of_commands_.Of(command, RunIsInterrupted);
}

std::string AccessTokens::WhyWaiting(const TokenOwner& owner, const std::string& command) const {
    return command.empty() ? of_providers_.WhyWaiting(owner) : "";
}

void AccessTokens::Refused(const TokenOwner& owner, const std::string& command, const std::string& access_token) {
    command.empty() ? of_providers_.Refused(owner, access_token) : of_commands_.Refused(command, access_token);
}

}  // namespace tarvex::host
