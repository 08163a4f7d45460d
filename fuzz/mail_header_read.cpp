// Reading mail headers: no decoded value holds a control character.

#include <algorithm>

#include "fuzz/fuzz.h"
#include "platform/codec/mail_header.h"

using namespace tarvex;

namespace {

void RequireOneLine(const std::string& value) {
    const bool one_line = std::ranges::all_of(value, [](unsigned char c) { return c >= ' ' && c != 0x7F; });
    fuzz::Require(one_line, "no control character in a decoded value");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::Input(data, size).Rest();
    CMailInfo info;
    MakeMailInfo(text, &info);
    for (const std::string CMailInfo::*member : {&CMailInfo::date,
                                                 &CMailInfo::from,
                                                 &CMailInfo::reply_to,
                                                 &CMailInfo::mime_version,
                                                 &CMailInfo::to,
                                                 &CMailInfo::subject,
                                                 &CMailInfo::cc,
                                                 &CMailInfo::content_type,
                                                 &CMailInfo::content_transfer_encoding,
                                                 &CMailInfo::content_disposition,
                                                 &CMailInfo::content_id,
                                                 &CMailInfo::content_description,
                                                 &CMailInfo::sender,
                                                 &CMailInfo::bcc,
                                                 &CMailInfo::message_id,
                                                 &CMailInfo::in_reply_to,
                                                 &CMailInfo::references,
                                                 &CMailInfo::return_path,
                                                 &CMailInfo::received,
                                                 &CMailInfo::mailer,
                                                 &CMailInfo::priority}) {
        RequireOneLine(info.*member);
    }
    const ContentFields fields = ReadContentFields(HeaderOf(text));
    fuzz::Require(fields.content_type == info.content_type, "one content type, however it is read");
    fuzz::Require(fields.content_transfer_encoding == info.content_transfer_encoding,
                  "the encoding is that of the summary");

    const std::string with_body = fuzz::WithBytesBehind(text, ' ');
    CMailInfo again;
    MakeMailInfo(with_body, &again);
    fuzz::Require(again.subject == info.subject && again.from == info.from, "the same whatever lies behind the text");
    return 0;
}
