// Recognises delivery reports by their header, and the address by the lines that name a failed recipient.

#include "host/memory/delivery_report.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>

#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

// What comes after these in a report is mostly the message itself.
constexpr std::size_t kMostSearchedBytes = std::size_t{64} << 10;

std::string Lower(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

// The value of a field of the header in lower case, with its continuation lines; empty when it is not there.
std::string Field(const SplitMail& mail, std::string_view small_name) {
    const auto field = std::ranges::find_if(mail.fields, [&](auto one) { return IsCalled(one, small_name); });
    return field == mail.fields.end() ? std::string() : Lower(ValueIn(*field));
}

// Not a receipt of a reader, nor a complaint: those have other types.
bool IsStatusReport(const SplitMail& mail) {
    const std::string type = Field(mail, "content-type");
    return type.find("multipart/report") != std::string::npos && type.find("delivery-status") != std::string::npos;
}

bool IsAutomaticFromNobody(const SplitMail& mail) {
    const std::string answered = Field(mail, "auto-submitted");
    const std::size_t word = answered.find_first_not_of(" \t");
    const bool automatic = word != std::string::npos && answered.compare(word, 5, "auto-") == 0;
    return automatic && Field(mail, "return-path").find("<>") != std::string::npos;
}

// Whether it stands there as a whole, not as the end or the beginning of another address.
bool Names(std::string_view text, const std::string& address) {
    const auto is_part = [&](std::size_t at) {
        return at < text.size() && (std::isalnum(static_cast<unsigned char>(text[at])) ||
                                    std::string_view("_-+=").find(text[at]) != std::string_view::npos);
    };
    for (std::size_t at = text.find(address); at != std::string_view::npos; at = text.find(address, at + 1)) {
        const std::size_t end = at + address.size();
        const bool goes_on = is_part(end) || (end < text.size() && text[end] == '.' && is_part(end + 1));
        if (!goes_on && (at == 0 || (!is_part(at - 1) && text[at - 1] != '.'))) return true;
    }
    return false;
}

}  // namespace

std::optional<CString> ReportedAddress(const SplitMail& mail, std::span<const CString> addresses) {
    if (mail.rest.empty() || (!IsStatusReport(mail) && !IsAutomaticFromNobody(mail))) return std::nullopt;
    const std::string body = Lower(mail.rest.substr(0, kMostSearchedBytes));
    for (const CString& address : addresses) {
        const std::string mailbox = Lower(RecipientOf(address));
        if (mailbox.empty()) continue;
        if (Names(body, mailbox) || Names(Field(mail, "x-failed-recipients"), mailbox)) return address;
    }
    return std::nullopt;
}

}  // namespace tarvex::host
