// The recipients of a mail to very many, for a phone that counts every byte.

#include "platform/codec/recipients.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "platform/codec/text.h"

namespace tarvex {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kLineEnd = "\r\n";

// Where each address of a list ends: at its comma, or at the end of the list.
std::vector<std::size_t> EndsOfAddresses(std::string_view list) {
    std::vector<std::size_t> ends;
    bool is_quoted = false;
    int comments = 0;
    for (std::size_t at = 0; at < list.size(); ++at) {
        const char c = list[at];
        if (c == '\\' && (is_quoted || comments > 0)) {
            ++at;
        } else if (c == '"' && comments == 0) {
            is_quoted = !is_quoted;
        } else if (c == '(' && !is_quoted) {
            ++comments;
        } else if (c == ')' && !is_quoted && comments > 0) {
            --comments;
        } else if (c == ',' && !is_quoted && comments == 0) {
            ends.push_back(at);
        }
    }
    ends.push_back(list.size());
    return ends;
}

// A field that holds addresses.
class List {
public:
    // `begin`: of the value, and `end`: of the field, in the mail.
    List(std::string_view mail, std::size_t begin, std::size_t end)
        : begin_(begin), ends_(EndsOfAddresses(mail.substr(begin, end - begin))) {}

    std::size_t Count() const { return ends_.size(); }
    std::size_t Begin() const { return begin_; }
    std::size_t End() const { return begin_ + ends_.back(); }

    // How the value ends when that many addresses stay: where, and with what behind it.
    std::size_t KeptBytes(std::size_t count) const { return ends_[std::min(count, Count()) - 1]; }
    std::string Remark(std::size_t count) const {
        if (count >= Count()) return {};
        const std::size_t others = Count() - count;
        return "\r\n (and " + std::to_string(others) + (others == 1 ? " other)" : " others)");
    }

private:
    std::size_t begin_;
    std::vector<std::size_t> ends_;
};

std::vector<List> ListsIn(std::string_view mail, std::size_t header_bytes) {
    std::vector<List> lists;
    for (std::size_t line = 0; line < header_bytes;) {
        std::size_t end = std::min(mail.find(kLineEnd, line), header_bytes);
        while (end + 2 < header_bytes && mail[end + 2] == ' ')
            end = std::min(mail.find(kLineEnd, end + 2), header_bytes);
        const std::size_t colon = mail.substr(line, end - line).find(": ");
        const std::string name = ToLower(mail.substr(line, colon == kNone ? 0 : colon));
        if (name == "to" || name == "cc") lists.emplace_back(mail, line + colon + 2, end);
        line = end + kLineEnd.size();
    }
    return lists;
}

std::size_t HeaderBytes(std::size_t whole, const std::vector<List>& lists, std::size_t count) {
    for (const List& list : lists) {
        whole -= list.End() - list.Begin();
        whole += list.KeptBytes(count) + list.Remark(count).size();
    }
    return whole;
}

}  // namespace

void ShortenRecipients(std::string* mail, std::size_t header_bytes) {
    const std::size_t whole = mail->find("\r\n\r\n");
    if (whole == kNone || whole <= header_bytes) return;
    std::vector<List> lists = ListsIn(*mail, whole);
    std::size_t count = 1;
    for (const List& list : lists) count = std::max(count, list.Count());
    while (count > 1 && HeaderBytes(whole, lists, count) > header_bytes) --count;
    std::ranges::reverse(lists);  // so that the places of those before stay
    for (const List& list : lists) {
        const std::size_t kept = list.Begin() + list.KeptBytes(count);
        mail->replace(kept, list.End() - kept, list.Remark(count));
    }
}

}  // namespace tarvex
