// Keeps the digest of the code of the first login.

#include "host/desk/login/first_login.h"

#include <charconv>

#include "host/desk/login/sessions.h"
#include "host/saving/console_files.h"

namespace tarvex::host {
namespace {

constexpr const char* kFile = "first";

}  // namespace

std::string MakeFirstLogin(const std::string& directory, CTime now) {
    std::string code = NewSecret();
    WriteConsoleFile(directory, kFile, DigestOf(code) + ' ' + std::to_string(now + kFirstLoginSeconds) + '\n');
    return code;
}

std::optional<std::string> TakeFirstLogin(const std::string& directory, std::string_view code, CTime now) {
    auto content = ReadConsoleFile(directory, kFile);
    if (!content) return std::nullopt;
    const std::size_t blank = content->find(' ');
    if (blank == std::string::npos) return std::nullopt;
    CTime until = 0;
    const char* const end = content->data() + content->size();
    if (std::from_chars(content->data() + blank + 1, end, until).ec != std::errc()) return std::nullopt;
    const bool in_time = now <= until && now >= until - kFirstLoginSeconds;
    if (!in_time || !AreSame(content->substr(0, blank), DigestOf(code))) return std::nullopt;
    if (!RemoveConsoleFile(directory, kFile)) return std::nullopt;  // of two with the same code one is late
    return content;
}

void GiveFirstLoginBack(const std::string& directory, const std::string& taken) {
    WriteConsoleFile(directory, kFile, taken);
}

}  // namespace tarvex::host
