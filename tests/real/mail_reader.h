#pragma once

// A mail reader that is none of ours: GMime takes a stored mail apart and decodes what it declares.

#include <string>

namespace tarvex::testing {

// Decoded values are UTF-8.
struct SeenMail {
    std::string from_name;
    std::string from_address;
    std::string to_address;
    std::string subject;
    std::string date;          // as it stands
    std::string content_type;  // "text/plain"
    std::string charset;       // as declared
    std::string text;          // LF line ends
};

// Throws std::runtime_error when it is no mail or its content no text.
SeenMail ReadMail(const std::string& stored);

// For making mails: UTF-8 text in another character set, Base64 in lines of 76 columns, and an encoded word (RFC 2047).
std::string FromUtf8(const std::string& text, const std::string& charset);
std::string InBase64(const std::string& bytes);
std::string EncodedWord(const std::string& text, const std::string& charset);

}  // namespace tarvex::testing
