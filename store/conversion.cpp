// Text of the tree in other encodings, for hosts.

#include "tarvex/conversion.h"

#include <string>

#include "platform/codec/japanese.h"
#include "platform/codec/mail_header.h"
#include "platform/os/shield.h"

using tarvex::Shielded;

namespace {

template <class Convert>
CString Converted(std::string_view source, Convert convert) {
    return Shielded(CString(), [&] {
        CString text(source);
        convert(&text, &text);
        return text;
    });
}

}  // namespace

CString Utf8FromText(std::string_view text) { return Converted(text, tarvex::SJisToUtf8); }

CString TextFromJis(std::string_view jis) { return Converted(jis, tarvex::JisToSJis); }

CString JisFromText(std::string_view text) { return Converted(text, tarvex::SJisToJis); }

std::optional<CString> TextFromUtf8(std::string_view utf8) {
    return Shielded(std::optional<CString>(), [&] { return tarvex::Utf8ToSameSJis(utf8); });
}

std::size_t WellFormedUtf8Bytes(std::string_view text) { return tarvex::WellFormedUtf8Bytes(text); }

CHeadlines HeadlinesOf(std::string_view message) {
    while (message.starts_with("\r\n")) message.remove_prefix(2);
    return Shielded(CHeadlines(), [&] {
        tarvex::CMailInfo info;
        tarvex::MakeMailInfo(tarvex::HeaderOf(message), &info);
        return CHeadlines{info.from, info.subject, info.message_id};
    });
}
