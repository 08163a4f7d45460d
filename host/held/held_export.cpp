// Undoes what POP3 does to a message on its way.

#include "host/held/held_export.h"

#include <algorithm>

#include "host/system/display.h"
#include "tarvex/conversion.h"

namespace tarvex::host {

std::string MessageIn(std::string_view fetched) {
    constexpr std::string_view kLineEnd = "\r\n";
    constexpr std::string_view kEnd = "\r\n.\r\n";
    if (fetched.ends_with(kEnd)) fetched.remove_suffix(kEnd.size() - kLineEnd.size());
    if (fetched.starts_with(kLineEnd)) fetched.remove_prefix(kLineEnd.size());
    std::string message;
    message.reserve(fetched.size());
    while (!fetched.empty()) {
        if (fetched.front() == '.') fetched.remove_prefix(1);
        const std::size_t end = fetched.find(kLineEnd);
        const std::size_t length = end == std::string_view::npos ? fetched.size() : end + kLineEnd.size();
        message += fetched.substr(0, length);
        fetched.remove_prefix(length);
    }
    return message;
}

std::string ShowHead(std::string_view fetched, std::size_t most_bytes) {
    const std::string message = MessageIn(fetched.substr(0, fetched.find("\r\n\r\n", 2)));
    std::string head = message.substr(0, most_bytes);
    std::erase(head, '\r');
    std::string shown = WellFormedUtf8Bytes(head) == head.size() ? ShowUtf8Text(head) : ShowText(head);
    if (!shown.ends_with('\n')) shown += '\n';
    return message.size() > most_bytes ? shown + "...\n" : shown;
}

}  // namespace tarvex::host
