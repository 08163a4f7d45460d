// Windows has no `tarvex login`: tokens come from programs there.

#include "host/tokens/provider_tokens.h"

#include <utility>

namespace tarvex::host {
namespace {

constexpr const char* kByCommand = "there is no token_command, and on Windows tokens come from nowhere else";

}  // namespace

struct ProviderTokens::Unsaved {};

ProviderTokens::ProviderTokens(std::string root) : root_(std::move(root)) {}

ProviderTokens::~ProviderTokens() = default;

std::string ProviderTokens::Of(const TokenOwner& /*owner*/, const Stops& /*stops*/) {
    throw TokenTrouble(TokenTroubleKind::ForGood, kByCommand);
}

std::string ProviderTokens::WhyWaiting(const TokenOwner& /*owner*/) const { return {}; }

void ProviderTokens::Refused(const TokenOwner& /*owner*/, const std::string& /*access_token*/) {}

bool ForgetLogin(const std::string& /*root*/, const std::string& /*profile*/) { return true; }

}  // namespace tarvex::host
