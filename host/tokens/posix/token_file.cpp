// Keeps refresh tokens on disk.

#include "host/tokens/posix/token_file.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <nlohmann/json.hpp>
#include <string_view>
#include <thread>

#include "host/system/durable_files.h"
#include "host/system/paths.h"
#include "host/system/private_folder.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Json = nlohmann::ordered_json;

constexpr auto kLockTimeout = 60s;  // longer than a provider may take
constexpr auto kLockPoll = 20ms;

struct TextKey {
    const char* name;
    std::string StoredToken::*field;
};
constexpr TextKey kTexts[] = {
    {"provider", &StoredToken::provider},
    {"login", &StoredToken::login},
    {"refresh_token", &StoredToken::refresh_token},
    {"access_token", &StoredToken::access_token},
    {"refused", &StoredToken::refused},
};
struct MomentKey {
    const char* name;
    long long StoredToken::*field;
};
constexpr MomentKey kMoments[] = {{"expires", &StoredToken::expires}, {"refused_at", &StoredToken::refused_at}};

std::string HexOf(char c) {
    constexpr std::string_view kHex = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    return {'%', kHex[byte >> 4U], kHex[byte & 0xFU]};
}

// "user0+from0"; another byte than a plain one as "%2B".
std::string Escaped(std::string_view text) {
    std::string name;
    for (const char c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
                           c == '_' || c == '.' || c == '@';
        name += c == '\\' || c == '/' ? "+" : plain ? std::string(1, c) : HexOf(c);
    }
    return name;
}

TokenTrouble Trouble(const char* what) {
    return {TokenTroubleKind::ForNow, std::string("the file of tokens cannot be ") + what};
}

}  // namespace

TokenFile::TokenFile(const std::string& root, const std::string& profile)
    : hidden_folder_(root + "\\.tarvex"),
      folder_(hidden_folder_ + "\\tokens"),
      name_(Escaped(profile.substr(std::min(profile.size(), root.size() + 1)))) {}

std::optional<StoredToken> TokenFile::Read() const {
    bool missing = false;
    const std::optional<std::string> text = PrivateFolder(folder_).Read(name_ + ".json", missing);
    if (missing) return std::nullopt;
    if (!text) throw Trouble("read");
    const Json json = Json::parse(*text, nullptr, false);
    StoredToken token;
    bool whole = json.is_object();
    for (const auto& [name, field] : kTexts) {
        whole = whole && json.contains(name) && json[name].is_string();
        if (whole) token.*field = json[name].get<std::string>();
    }
    for (const auto& [name, field] : kMoments) {
        whole = whole && json.contains(name) && json[name].is_number_integer();
        if (whole) token.*field = json[name].get<long long>();
    }
    if (!whole) throw TokenTrouble(TokenTroubleKind::NeedsLogin, "the file of tokens is damaged");
    return token;
}

void TokenFile::Write(const StoredToken& token) const {
    MakeFolders();
    Json json;
    for (const auto& [name, field] : kTexts) json[name] = token.*field;
    for (const auto& [name, field] : kMoments) json[name] = token.*field;
    const std::string text = json.dump(2, ' ', true, Json::error_handler_t::replace) + '\n';
    if (ReplaceContent(folder_ + '\\' + name_ + ".json", text) != Saved::Yes) throw Trouble("written");
}

Descriptor TokenFile::Lock(const Stops& stops) const {
    MakeFolders();
    const std::string path = NativePath(folder_ + '\\' + name_ + ".lock");
    Descriptor lock(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!lock.IsOpen()) throw Trouble("locked");
    const Clock::time_point end = Clock::now() + kLockTimeout;
    while (flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) throw Trouble("locked");
        if (stops() || Clock::now() >= end) throw Trouble("locked: another process asks for a token");
        std::this_thread::sleep_for(kLockPoll);
    }
    return lock;
}

// The lock stays: whoever waits for it would hold one that nobody else sees.
bool TokenFile::Remove() const {
    const PrivateFolder folder(folder_);
    bool missing = false;
    const bool unread = !folder.Read(name_ + ".json", missing);
    if (unread && missing) return true;
    return folder.Remove(name_ + ".json") && folder.Sync();
}

void TokenFile::MakeFolders() const {
    if (!PrivateFolder(hidden_folder_).Make() || !PrivateFolder(folder_).Make()) throw Trouble("made");
}

}  // namespace tarvex::host
