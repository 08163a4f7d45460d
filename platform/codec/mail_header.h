#pragma once

// Mail headers: reading (tolerant) and writing (strict). RFC 5322, RFC 2045, RFC 2047.

#include <string>
#include <string_view>

namespace tarvex {

// The header summary of a message or MIME part. Texts are Shift-JIS, unfolded, with encoded words decoded and a blank
// in the place of every control character; a field that the header lacks is empty.
class CMailInfo {
public:
    virtual ~CMailInfo() = default;
    CMailInfo() = default;
    CMailInfo(const CMailInfo&) = default;
    CMailInfo& operator=(const CMailInfo&) = default;

    std::string date;
    std::string from;
    std::string reply_to;
    std::string mime_version;
    std::string to;
    std::string subject;
    std::string cc;
    // Structure: the bytes as they stand, with parameters, encoded words not decoded.
    std::string content_type;
    std::string content_transfer_encoding;
    std::string content_disposition;
    std::string content_id;
    std::string content_description;
    std::string sender;
    std::string bcc;
    std::string message_id;
    std::string in_reply_to;
    std::string references;
    std::string return_path;
    std::string received;  // the topmost one
    std::string mailer;    // X-Mailer
    std::string priority;  // X-Priority

    int message_bytes = 0;  // the whole text
    int header_bytes = 0;   // up to the blank line
    int body_offset = 0;    // of the CR LF that is the blank line; 0 without one
    int field_count = 0;    // all fields, also those without a place here
    int encoded_words = 0;  // decoded in the texts above
    int has_blank_line = 0;
};

// The header lines of a message or part: up to the first blank line, or without one up to the end or to a line that
// begins with "--". A view of the text.
std::string_view HeaderOf(std::string_view text);

// Fills `info` from the header of the text. Names in either letter case, blanks before the colon tolerated, folded
// lines joined with one blank; of a repeated field the first one counts; a line that is no field is skipped. An encoded
// word that cannot be decoded stays as it is; the bytes of adjacent words of one character set are joined before they
// are decoded. In a list of addresses a decoded word that holds such characters as commas or brackets is quoted, so
// that none of them counts as structure. A raw value with bytes above 0x7F is read as UTF-8 where it is valid UTF-8,
// else as Shift-JIS; raw ISO-2022-JP is decoded. Linear in the size of the header.
void MakeMailInfo(std::string_view text, CMailInfo* info);

// The two fields that the structure of a message hangs on, without the cost of the others; from header lines.
struct ContentFields {
    std::string content_type;
    std::string content_transfer_encoding;
};
ContentFields ReadContentFields(std::string_view header);

// Fills `encoded` with the header lines of `header` (ISO-2022-JP, one field a line, CR LF between them) as they may
// stand in a mail: non-ASCII text, and text that looks like an encoded word, as encoded words in ISO-2022-JP and
// Base64, of at most 75 bytes, each beginning and ending in ASCII state and holding whole characters; lines folded at
// 76 columns where there is a place to fold. What cannot be folded and would make a line longer than 998 bytes becomes
// encoded words as well. In From, To, CC and Reply-To only words are encoded, never what is structure: brackets,
// commas, quotes.
void EncodeMailHeader(const std::string* header, std::string* encoded);

}  // namespace tarvex
