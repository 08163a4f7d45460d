// Reads the authentication methods out of an EHLO reply.

#include "transfer/ehlo_reply.h"

#include <algorithm>
#include <cstddef>

namespace tarvex {

std::string_view AuthList(std::string_view ehlo_reply) {
    constexpr std::string_view kAuthLine = "\r\n250-AUTH";
    // For a position that was not found, npos + 10 is 9.
    const std::size_t begin = ehlo_reply.find(kAuthLine) + kAuthLine.size();
    const std::size_t end = ehlo_reply.find("\r\n", begin + 1);
    if (end == std::string_view::npos) return {};

    const std::string_view list = ehlo_reply.substr(begin, end - begin);
    return list.substr(std::min(list.find_first_not_of(' '), list.size()));
}

}  // namespace tarvex
