#pragma once

// Who is logged in at the console. All of it is in memory: a service that starts anew has nobody logged in.

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarvex::host {

// 256 random bits as 64 hexadecimal digits. Throws std::bad_alloc.
std::string NewSecret();

// The SHA-256 of a text as hexadecimal digits: what is kept of a secret.
std::string DigestOf(std::string_view text);

// Whether two texts are the same; the time it takes tells nothing of what they are.
bool AreSame(std::string_view one, std::string_view other);

struct Session {
    std::string id;          // by which it is shown and ended: the beginning of its digest
    std::string user;        // the folder: "user0"
    std::string form_token;  // which forms carry
    std::string password;    // digest of the stored password: the session ends when that changes
    std::string address;     // from where
    std::chrono::system_clock::time_point began;
    std::chrono::system_clock::time_point used;
};

// From any thread.
class Sessions {
public:
    using Clock = std::chrono::system_clock;

    static constexpr std::chrono::minutes kIdle{30};
    static constexpr std::chrono::hours kLongest{12};
    static constexpr std::size_t kMostOfUser = 20;  // the oldest ends for a new one

    // Begins one, of which id, tokens and times are made here. Returns the secret of its cookie, of which only a digest
    // is kept.
    std::string Begin(Session session, Clock::time_point now);

    // That of a cookie, used from now on; nothing when there is none, or none any more.
    std::optional<Session> Use(std::string_view secret, Clock::time_point now);

    void End(std::string_view secret);
    void EndAllOf(std::string_view user, std::string_view but_id = {});
    bool EndById(std::string_view user, std::string_view id);  // false when there is none

    std::vector<Session> Of(std::string_view user, Clock::time_point now);  // the newest first

private:
    void Forget(Clock::time_point now);

    std::mutex mutex_;
    std::unordered_map<std::string, Session> sessions_;  // by the digest of the secret
};

}  // namespace tarvex::host
