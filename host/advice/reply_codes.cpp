// Reads the codes in the answers of servers.

#include "host/advice/reply_codes.h"

#include <algorithm>

namespace tarvex::host {
namespace {

std::string Upper(std::string_view text) {
    std::string upper(text);
    std::ranges::transform(upper, upper.begin(),
                           [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; });
    return upper;
}

// A line behind its code and the blank or hyphen after that.
std::string_view Text(std::string_view line) { return line.substr(std::min<std::size_t>(line.size(), 4)); }

std::string_view TakeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find("\r\n"), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 2, text.size()));
    return line;
}

}  // namespace

std::string PopResponseCode(std::string_view reply) {
    constexpr std::string_view kStart = "-ERR [";
    const std::size_t end = reply.find(']');
    if (!Upper(reply.substr(0, kStart.size())).starts_with(kStart) || end == std::string_view::npos) return {};
    return Upper(reply.substr(kStart.size(), end - kStart.size()));
}

std::string_view EnhancedCode(std::string_view reply) {
    const std::string_view text = Text(reply.substr(0, reply.find("\r\n")));
    const std::string_view code = text.substr(0, text.find(' '));
    const bool is_one = code.size() >= 5 && std::ranges::count(code, '.') == 2 && code[1] == '.' &&
                        code.find_first_not_of("0123456789.") == std::string_view::npos;
    return is_one && !reply.empty() && code[0] == reply[0] ? code : std::string_view();
}

std::string OfferedMethods(std::string_view ehlo_reply) {
    while (!ehlo_reply.empty()) {
        const std::string line = Upper(Text(TakeLine(ehlo_reply)));
        if (line.starts_with("AUTH ") || line.starts_with("AUTH=")) return line.substr(5);
    }
    return {};
}

}  // namespace tarvex::host
