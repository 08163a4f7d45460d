// Makes a short text mail out of a message.
//
// A phone or a pager takes a few hundred bytes of plain text. A message may be megabytes of nested parts, in any
// encoding, from any stranger. So the text mail is not cut out of the message; it is written anew, from two things that
// are read out of it: the summary of its header and its first readable text.
//
//     the message, as fetched             what is read            the text mail
//
//     Received: from mx.example ...       info.date, from, ... -> Date: Sat, 21 Nov 2026 ...
//     From: =?UTF-8?B?5bGx55Sw?= <y@...>                          From: =?ISO-2022-JP?B?...?= <y@...>
//     Content-Type: multipart/mixed; ...                          MIME-Version: 1.0
//                                                                 Content-Type: text/plain; charset="ISO-2022-JP"
//     --b
//     Content-Type: text/html ...         (a part: passed over)
//     --b
//     Content-Type: text/plain; utf-8     PickReadableText     -> the text, in Shift-JIS
//     Content-Transfer-Encoding: base64                           cutwhite: blanks and signs cut or compressed
//                                                                 textonly: cut to so many bytes, then to a letter
//     5Lya6K2w44Gv...                                             converted to ISO-2022-JP
//     --b--                                                       .
//
// The limit counts bytes of Shift-JIS: it is applied before the conversion, whose escape sequences come on top.
// Everything that is written passes a strict writer, so no value of the message can forge a header line or an end.

#include <optional>
#include <string_view>
#include <utility>

#include "platform/codec/japanese.h"
#include "platform/codec/mail_header.h"
#include "platform/codec/text.h"
#include "platform/os/shield.h"
#include "rewrite/html_text.h"
#include "rewrite/mime_walk.h"
#include "tarvex/tree.h"

namespace tarvex {
namespace {

constexpr std::string_view kTerminator = "\r\n.\r\n";

// Cuts the text to the limit, and then back to a byte that is valid both alone and as the second half of a double-byte
// character. So it never ends in half a character, nor in a digit, a blank, punctuation or a line end (B70).
void LimitBytes(CString& text, std::size_t limit_bytes) {
    if (text.size() <= limit_bytes) return;
    text.resize(limit_bytes);
    const auto may_end = [](unsigned char byte) { return IsTrailByte(byte) && IsSingleByte(byte); };
    while (!text.empty() && !may_end(static_cast<unsigned char>(text.back()))) text.pop_back();
    text.shrink_to_fit();  // it may have been the text of a very large message
}

CString Header(const CMailInfo& info) {
    CString header = "Date: " + info.date;
    const auto add = [&header](std::string_view name, const CString& value) {
        if (!value.empty()) header.append("\r\n").append(name).append(": ").append(value);
    };
    add("From", info.from);
    add("To", info.to);
    add("CC", info.cc);
    add("Subject", info.subject);
    add("Reply-To", info.reply_to);
    header += "\r\nMIME-Version: " + info.mime_version;

    SJisToJis(&header, &header);
    EncodeMailHeader(&header, &header);
    return header;
}

CString ReducedMail(const CString& mail, int textonly, int cutwhite, int htmltotext, const CString& compress_words) {
    CString text = PickReadableText(mail, htmltotext != 0);
    if (text.ends_with(kTerminator)) text.resize(text.size() - kTerminator.size());
    if (cutwhite != 0) FilterCharacters(&text, cutwhite > 0 ? 1 : 0, compress_words);
    if (textonly > 0) LimitBytes(text, static_cast<std::size_t>(textonly));
    const bool is_japanese = SJisToJis(&text, &text) != 0;

    CMailInfo info;
    MakeMailInfo(mail, &info);
    CString header = Header(info);
    header.append("\r\nContent-Type: text/plain; charset=\"")
        .append(is_japanese ? "ISO-2022-JP" : "US-ASCII")
        .append("\"\r\n\r\n");
    return std::move(text.append(kTerminator).insert(0, header));
}

}  // namespace
}  // namespace tarvex

CString CPopProfile::PickText(CString part, int /*offset*/, int htmltotext) {
    return tarvex::Shielded(CString(), [&] { return tarvex::PickReadableText(part, htmltotext != 0); });
}

int CPopProfile::CutAsTextmail(CString* mail, int textonly, int cutwhite, int htmltotext, CString compress_words) {
    if (!mail) return 0;
    std::optional<CString> text_mail = TextMailOf(*mail, textonly, cutwhite, htmltotext, compress_words);
    if (!text_mail) return 0;
    mail->swap(*text_mail);
    return 1;
}

std::optional<CString> CPopProfile::TextMailOf(const CString& mail, int textonly, int cutwhite, int htmltotext,
                                               const CString& compress_words) const {
    if (mail.find("\r\n\r\n") == CString::npos) return std::nullopt;
    return tarvex::Shielded(std::optional<CString>(), [&] {
        return std::optional(tarvex::ReducedMail(mail, textonly, cutwhite, htmltotext, compress_words));
    });
}
