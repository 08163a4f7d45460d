// Keeps the sessions of the console by the digests of their secrets.

#include "host/desk/login/sessions.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <algorithm>
#include <array>
#include <new>
#include <span>

#include "host/system/hexadecimal.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kSecretBytes = 32;
constexpr std::size_t kIdDigits = 16;

bool IsOver(const Session& session, Sessions::Clock::time_point now) {
    return now - session.used > Sessions::kIdle || now - session.began > Sessions::kLongest || now < session.began;
}

}  // namespace

std::string NewSecret() {
    std::array<unsigned char, kSecretBytes> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) throw std::bad_alloc();
    return Hexadecimal(bytes);
}

std::string DigestOf(std::string_view text) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
    return Hexadecimal(digest);
}

bool AreSame(std::string_view one, std::string_view other) {
    const std::string left = DigestOf(one);
    const std::string right = DigestOf(other);
    return CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

std::string Sessions::Begin(Session session, Clock::time_point now) {
    std::string secret = NewSecret();
    const std::string digest = DigestOf(secret);
    session.id = digest.substr(0, kIdDigits);
    session.form_token = NewSecret();
    session.began = session.used = now;
    const std::lock_guard lock(mutex_);
    Forget(now);
    const auto is_of_user = [&](const auto& entry) { return entry.second.user == session.user; };
    const auto older = [](const auto& one, const auto& other) { return one.second.used < other.second.used; };
    if (std::ranges::count_if(sessions_, is_of_user) >= static_cast<std::ptrdiff_t>(kMostOfUser)) {
        auto oldest = sessions_.end();
        for (auto entry = sessions_.begin(); entry != sessions_.end(); ++entry) {
            if (is_of_user(*entry) && (oldest == sessions_.end() || older(*entry, *oldest))) oldest = entry;
        }
        sessions_.erase(oldest);
    }
    sessions_.emplace(digest, std::move(session));
    return secret;
}

std::optional<Session> Sessions::Use(std::string_view secret, Clock::time_point now) {
    if (secret.size() != 2 * kSecretBytes) return std::nullopt;
    const std::lock_guard lock(mutex_);
    const auto found = sessions_.find(DigestOf(secret));
    if (found == sessions_.end()) return std::nullopt;
    if (IsOver(found->second, now)) {
        sessions_.erase(found);
        return std::nullopt;
    }
    found->second.used = now;
    return found->second;
}

void Sessions::End(std::string_view secret) {
    const std::lock_guard lock(mutex_);
    sessions_.erase(DigestOf(secret));
}

void Sessions::EndAllOf(std::string_view user, std::string_view but_id) {
    const std::lock_guard lock(mutex_);
    std::erase_if(sessions_, [&](const auto& entry) { return entry.second.user == user && entry.second.id != but_id; });
}

bool Sessions::EndById(std::string_view user, std::string_view id) {
    const std::lock_guard lock(mutex_);
    return std::erase_if(sessions_,
                         [&](const auto& entry) { return entry.second.user == user && entry.second.id == id; }) != 0;
}

std::vector<Session> Sessions::Of(std::string_view user, Clock::time_point now) {
    const std::lock_guard lock(mutex_);
    Forget(now);
    std::vector<Session> sessions;
    for (const auto& [digest, session] : sessions_) {
        if (session.user == user) sessions.push_back(session);
    }
    std::ranges::sort(sessions, std::ranges::greater(), &Session::used);
    return sessions;
}

void Sessions::Forget(Clock::time_point now) {
    std::erase_if(sessions_, [now](const auto& entry) { return IsOver(entry.second, now); });
}

}  // namespace tarvex::host
