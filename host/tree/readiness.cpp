// Tries whether the files of a profile can be read and saved.

#include "host/tree/readiness.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "host/system/display.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSetting = "\\popprofile.def";
constexpr const char* kList = "\\uidl.def";
constexpr std::uintmax_t kRoom = 16 << 10;  // bytes for what a run adds

std::string Cannot(const char* verb, const CString& path, const std::string& why) {
    return std::string("cannot ") + verb + " \"" + ShowPath(path) + "\": " + why;
}

// Why the system refused the last call.
std::string Refusal() { return std::generic_category().message(errno); }

std::string WhyFileUnreadable(const CString& path, bool may_be_missing) {
    std::error_code error;
    const fs::file_type type = fs::status(NativePath(path), error).type();
    if (type == fs::file_type::not_found && may_be_missing) return {};
    if (error) return Cannot("read", path, error.message());
    if (type != fs::file_type::regular) return Cannot("read", path, "it is no regular file");
    return std::ifstream(NativePath(path)) ? std::string() : Cannot("read", path, Refusal());
}

// What is written for a try goes where a save writes first: a kill leaves nothing that is ever read or stays.
std::string WhyFileUnwritable(const CString& path, std::uintmax_t bytes) {
    std::error_code ignored;
    fs::path file = fs::weakly_canonical(NativePath(path), ignored);
    if (fs::exists(file, ignored)) {
        if (!std::fstream(file, std::ios::in | std::ios::out | std::ios::binary)) {
            return Cannot("write", path, Refusal());
        }
        bytes = std::max(bytes, fs::file_size(file, ignored));
    }
    file += ".new";
    fs::remove(file, ignored);
    std::ofstream out(file, std::ios::binary);
    const std::string piece(kRoom, '\0');
    for (std::uintmax_t written = 0; out && written < bytes + kRoom; written += kRoom) out << piece << std::flush;
    std::string trouble = out ? std::string() : Cannot("write", path, Refusal());
    out.close();
    fs::remove(file, ignored);
    return trouble;
}

}  // namespace

std::string WhyUnreadable(const CPopProfile& profile) {
    std::string trouble = WhyFileUnreadable(profile.path + kSetting, false);
    for (const auto& address : profile.forward_addresses) {
        if (trouble.empty()) trouble = WhyFileUnreadable(address->path + "\\forwardaddress.def", false);
        if (trouble.empty()) trouble = WhyFileUnreadable(address->path + "\\schedule.def", true);
        if (trouble.empty()) trouble = WhyFileUnreadable(address->path + kList, true);
    }
    return trouble;
}

std::string WhyNotRunnable(const CPopProfile& profile, std::uintmax_t list_bytes) {
    std::string trouble = WhyUnreadable(profile);
    if (trouble.empty()) trouble = WhyFileUnwritable(profile.path + kSetting, 0);
    for (const auto& address : profile.forward_addresses) {
        if (trouble.empty()) trouble = WhyFileUnwritable(address->path + kList, list_bytes);
    }
    return trouble;
}

std::uintmax_t UnsavedListBytes(const CPopProfile& copy) {
    constexpr std::uintmax_t kLineEnd = 2;
    std::uintmax_t most = 0;
    for (const auto& address : copy.forward_addresses) {
        CForwardAddress stored;
        stored.path = address->path;
        stored.LoadUidlSetting();
        if (stored.uidls == address->uidls) continue;
        std::uintmax_t bytes = 1;
        for (const CString& uidl : address->uidls) bytes += uidl.size() + kLineEnd;
        most = std::max(most, bytes);
    }
    return most;
}

}  // namespace tarvex::host
