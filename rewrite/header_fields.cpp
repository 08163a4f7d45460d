// FindHeader, ReplaceFrom and ReplaceTo: find one header field in a fetched message and replace it by one line.

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>

#include "platform/os/shield.h"
#include "tarvex/tree.h"

namespace tarvex {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr std::size_t kNone = std::string_view::npos;

struct FieldExtent {
    std::size_t start;  // of the line end before the name
    std::size_t end;    // of the line end behind the field; kNone when no line end follows
};

// The search is case-sensitive and needs a line end before the name, so it never finds a field on the very first line.
// It goes on into the body; a field that stands only there has an end before its start (B67).
std::optional<FieldExtent> FindField(std::string_view mail, std::string_view name) {
    const std::size_t header_end = mail.find("\r\n\r\n");
    if (header_end == kNone) return std::nullopt;

    const std::string prefixed = std::string(kLineEnd).append(name);
    const std::size_t start = mail.find(prefixed);
    if (start == kNone) return std::nullopt;

    std::size_t end = mail.find(kLineEnd, start + prefixed.size());
    while (end < header_end && end + 2 < mail.size() && (mail[end + 2] == ' ' || mail[end + 2] == '\t')) {
        end = mail.find(kLineEnd, end + 2);
    }
    if (end != kNone) end = std::min(end, header_end);
    return FieldExtent{start, end};
}

// A field without a line end behind it takes the rest of the message with it (B68).
void ReplaceField(CString& mail, std::string_view name, std::string_view value) {
    const auto field = FindField(mail, name);
    if (!field) return;

    CString line(kLineEnd);
    line.append(name).append(" ").append(value);
    if (field->end != kNone && field->end < field->start) line.append(mail, field->end, field->start - field->end);
    mail.replace(field->start, field->end == kNone ? kNone : std::max(field->end, field->start) - field->start, line);
}

}  // namespace
}  // namespace tarvex

int CPopProfile::FindHeader(CString* mail, CString name, int* start, int* end) {
    return tarvex::Shielded(0, [&] {
        *start = -1;
        const auto field = tarvex::FindField(*mail, name);
        if (!field) return 0;
        *start = static_cast<int>(field->start);
        *end = field->end == tarvex::kNone ? -1 : static_cast<int>(field->end);
        return 1;
    });
}

void CPopProfile::ReplaceFrom(CArray<CReceiveMail*, CReceiveMail*>* mails) {
    for (CReceiveMail* mail : *mails) {
        tarvex::Shielded([&] { tarvex::ReplaceField(mail->text, "From:", setting.address); });
    }
}

void CPopProfile::ReplaceTo(CReceiveMail* mail, CString address) {
    tarvex::Shielded([&] { tarvex::ReplaceField(mail->text, "To:", address); });
}
