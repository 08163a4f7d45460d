// Tells mail addresses from other texts.

#include "host/settings/mailbox_value.h"

#include <algorithm>
#include <cstddef>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/typed_word.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

// Of those outside of quotation marks.
std::ptrdiff_t AtSigns(std::string_view address) {
    bool quoted = false;
    return std::ranges::count_if(address, [&quoted](char c) {
        if (c == '"') quoted = !quoted;
        return c == '@' && !quoted;
    });
}

// The pieces between commas, without the blanks around them.
std::vector<std::string_view> Pieces(std::string_view list) {
    std::vector<std::string_view> pieces;
    for (std::size_t start = 0; start <= list.size();) {
        const std::size_t end = std::min(list.find(',', start), list.size());
        std::string_view piece = list.substr(start, end - start);
        while (piece.starts_with(' ')) piece.remove_prefix(1);
        while (piece.ends_with(' ')) piece.remove_suffix(1);
        pieces.push_back(piece);
        start = end + 1;
    }
    return pieces;
}

}  // namespace

bool IsPlainAscii(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c > ' ' && c < '\x7F'; });
}

bool IsMailAddress(std::string_view plain) {
    const std::size_t at = plain.rfind('@');
    return at != std::string_view::npos && at > 0 && at + 1 < plain.size() && IsPlainAscii(plain) &&
           AtSigns(plain) == 1 && plain.find_first_of("<>(),;") == std::string_view::npos;
}

// The engine leaves blanks out, wherever they are: "a b@example.org" would be another mailbox.
void RequireNoBlankWithin(const KeyInfo& key, std::string_view given) {
    constexpr char kMark = '\x01';
    std::string marked(given);
    std::ranges::replace(marked, ' ', kMark);
    const std::string address = RecipientOf(marked);
    const std::size_t start = address.find_first_not_of(kMark);
    if (start == std::string::npos || address.find(kMark, start) > address.find_last_not_of(kMark)) return;
    throw CommandError(kBadUsage, Tr("{0} {1} has a blank within the address, so mail would go to {2}; write one "
                                     "address, like Taro <taro@example.org>",
                                     key.name, Quoted(given), Quoted(RecipientOf(given))));
}

void RequireAddress(const KeyInfo& key, std::string_view given, std::string_view plain) {
    if (IsMailAddress(plain)) return;
    throw CommandError(
        kBadUsage, key.type == KeyType::Recipient
                       ? Tr("{0} {1} is not a mail address; write it like me@example.org or Taro <taro@example.org>",
                            key.name, Quoted(given))
                       : Tr("{0} {1} is not a mail address; write it like me@example.org", key.name, Quoted(given)));
}

void RequireMailboxes(const KeyInfo& key, std::string_view given) {
    if (given.empty() || (key.highest > 1 && given == kNobody)) return;
    const std::vector<std::string_view> pieces = Pieces(given);
    for (const std::string_view piece : pieces) RequireAddress(key, given, piece);
    if (pieces.size() > static_cast<std::size_t>(key.highest)) {
        throw CommandError(
            kBadUsage, TrN("{1} takes at most {0} address", "{1} takes at most {0} addresses", key.highest, key.name));
    }
}

std::vector<std::string> MailboxesIn(std::string_view value) {
    std::vector<std::string> mailboxes;
    for (const std::string_view piece : Pieces(value)) {
        if (IsMailAddress(piece) && std::ranges::count(mailboxes, piece) == 0) mailboxes.emplace_back(piece);
    }
    return mailboxes;
}

}  // namespace tarvex::host
