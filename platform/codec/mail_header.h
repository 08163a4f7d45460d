#pragma once

// Mail headers: reading (tolerant) and writing (strict). RFC 5322, RFC 2045, RFC 2047.

#include <string>
#include <string_view>

namespace tarvex {

// The header summary of a message or MIME part. Texts are Shift-JIS and unfolded; encoded words are decoded, and every
// control character is a blank. A missing field is empty.
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

// Fills `info` from the header of the text. The time is linear in the size of the header.
//   - Fields: names in either letter case; blanks before the colon are tolerated; folded lines are joined with one
//     blank; the first of a repeated field counts; a line that is no field is skipped.
//   - Encoded words: the bytes of adjacent words of one character set are joined before they are decoded. A word that
//     cannot be decoded stays as it is.
//   - Lists of addresses: a decoded word that holds a comma, a bracket or the like is quoted, so that it stays one
//   name.
//   - Raw bytes above 0x7F: UTF-8 when the value is valid UTF-8, else Shift-JIS. Raw ISO-2022-JP is decoded.
void MakeMailInfo(std::string_view text, CMailInfo* info);

// The two fields that decide how a part is read, without the cost of reading the others. From header lines.
struct ContentFields {
    std::string content_type;
    std::string content_transfer_encoding;
};
ContentFields ReadContentFields(std::string_view header);

// Fills `encoded` with the header lines of `header` as a mail may hold them. `header` is ISO-2022-JP, one field a line,
// with CR LF between the lines.
//   - Encoded words, in ISO-2022-JP and Base64, replace non-ASCII text, text that looks like an encoded word, and text
//     that cannot be folded and would make a line longer than 998 bytes. Each word has at most 75 bytes, holds whole
//     characters, and begins and ends in ASCII state.
//   - Lines are folded at 76 columns, at blanks.
//   - In From, To, CC and Reply-To only words are encoded, never structure: brackets, commas, quotes.
void EncodeMailHeader(const std::string* header, std::string* encoded);

}  // namespace tarvex
