// Refreshes tokens at their provider, and loses none.

#include "host/tokens/provider_tokens.h"

#include <ctime>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "host/system/command_error.h"
#include "host/tokens/posix/provider.h"
#include "host/tokens/posix/token_file.h"
#include "host/tokens/posix/token_request.h"

namespace tarvex::host {
namespace {

constexpr const char* kNobodyLoggedIn = "nobody has logged in at the provider yet";

bool IsFresh(const StoredToken& token) { return !token.access_token.empty() && token.expires > std::time(nullptr); }

std::string WhyNeedsLogin(const std::optional<StoredToken>& token, const TokenOwner& owner) {
    if (!token) return kNobodyLoggedIn;
    if (token->login != owner.login) return "the login at the provider was for another user name";
    if (!token->refused.empty()) return token->refused;
    return token->refresh_token.empty() && !IsFresh(*token)
               ? "the login has expired, and the provider gave no refresh token"
               : "";
}

Provider ProviderOf(const std::string& root, const StoredToken& token) {
    try {
        return ProviderNamed(root, token.provider);
    } catch (const CommandError& error) {
        throw TokenTrouble(TokenTroubleKind::ForGood, SafeWords(error.what()));
    }
}

// A refusal is kept beside the token, so that nothing is asked again before somebody has logged in.
TokenAnswer Refresh(const std::string& root, const TokenFile& file, StoredToken& token, const Stops& stops) {
    const TokenAnswer answer = AskForToken(
        ProviderOf(root, token), {{"grant_type", "refresh_token"}, {"refresh_token", token.refresh_token}}, stops);
    try {
        RequireToken(answer);
    } catch (const TokenTrouble& trouble) {
        if (trouble.Kind() == TokenTroubleKind::NeedsLogin) {
            token.refused = trouble.what();
            token.refused_at = std::time(nullptr);
            file.Write(token);
        }
        throw;
    }
    return answer;
}

}  // namespace

// Tokens that the disk did not take.
struct ProviderTokens::Unsaved {
    struct Entry {
        StoredToken token;
        std::string instead_of;  // the refresh token before it
    };

    // In the place of what is on disk, unless somebody has logged in since.
    std::optional<StoredToken> Newer(const std::string& profile, const std::optional<StoredToken>& on_disk) {
        const std::scoped_lock lock(mutex);
        const auto found = entries.find(profile);
        if (found == entries.end() || !on_disk) return std::nullopt;
        const auto& [token, instead_of] = found->second;
        const bool is_newer = on_disk->refresh_token == instead_of || on_disk->refresh_token == token.refresh_token;
        return is_newer ? std::optional(token) : std::nullopt;
    }
    void Add(const std::string& profile, Entry entry) {
        const std::scoped_lock lock(mutex);
        entries.insert_or_assign(profile, std::move(entry));
    }
    void Remove(const std::string& profile) {
        const std::scoped_lock lock(mutex);
        entries.erase(profile);
    }

    std::mutex mutex;
    std::map<std::string, Entry> entries;  // by profile
};

ProviderTokens::ProviderTokens(std::string root) : root_(std::move(root)), unsaved_(std::make_unique<Unsaved>()) {}

ProviderTokens::~ProviderTokens() = default;

std::string ProviderTokens::Of(const TokenOwner& owner, const Stops& stops) {
    const TokenFile file(root_, owner.profile);
    const Descriptor lock = file.Lock(stops);
    std::optional<StoredToken> token = file.Read();
    const std::optional<StoredToken> unsaved = unsaved_->Newer(owner.profile, token);
    if (unsaved) token = unsaved;
    if (const std::string why = WhyNeedsLogin(token, owner); !why.empty())
        throw TokenTrouble(TokenTroubleKind::NeedsLogin, why);
    const bool is_fresh = IsFresh(*token);
    if (!is_fresh || unsaved) file.Write(*token);
    unsaved_->Remove(owner.profile);
    if (is_fresh) return token->access_token;

    const TokenAnswer answer = Refresh(root_, file, *token, stops);
    const std::string before = token->refresh_token;
    Keep(answer, *token);
    unsaved_->Add(owner.profile, {*token, before});
    file.Write(*token);
    unsaved_->Remove(owner.profile);
    return token->access_token;
}

std::string ProviderTokens::WhyWaiting(const TokenOwner& owner) const {
    try {
        const std::optional<StoredToken> token = TokenFile(root_, owner.profile).Read();
        const std::optional<StoredToken> unsaved = unsaved_->Newer(owner.profile, token);
        return WhyNeedsLogin(unsaved ? unsaved : token, owner);
    } catch (const TokenTrouble& trouble) {
        return trouble.Kind() == TokenTroubleKind::NeedsLogin ? trouble.what() : "";
    }
}

void ProviderTokens::Refused(const TokenOwner& owner, const std::string& access_token) {
    try {
        const TokenFile file(root_, owner.profile);
        const Descriptor lock = file.Lock([] { return false; });
        std::optional<StoredToken> token = file.Read();
        if (!token || token->access_token != access_token) return;
        token->access_token.clear();
        file.Write(*token);
    } catch (const TokenTrouble&) {
        return;  // the run fails anyway, and the next one with it until the token expires
    }
}

bool ForgetLogin(const std::string& root, const std::string& profile) { return TokenFile(root, profile).Remove(); }

}  // namespace tarvex::host
