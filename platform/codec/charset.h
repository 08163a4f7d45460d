#pragma once

// The character sets of mails, to Shift-JIS.

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tarvex {

// Fills `target` from `source`, which may be the same object.
using Conversion = void (*)(const std::string* source, std::string* target);

struct Charset {
    std::string_view names;           // with blanks between them; lower case, without "-" and "_"
    Conversion to_sjis;               // null: the system converts it
    std::string_view word_in_bodies;  // empty: the content type of a body cannot name it
    unsigned windows_code_page;
};

// The character set of that name, from the table in charset.cpp; null when it is not there.
const Charset* FindCharset(std::string_view name);

// The conversion of a body whose content type is this, in lower case.
Conversion BodyConversion(std::string_view content_type);

// Converts from ISO-2022-JP, Shift_JIS, EUC-JP, UTF-8 and US-ASCII, under their usual names, by our own code and from
// what else the system's converter knows by way of UTF-8. A name from a mail is untrusted: only letters, digits and
// "-_.:+" make one. One converter asks the system for at most 16 character sets, so that a mail that names thousands
// costs nothing.
class CharsetConverter {
public:
    CharsetConverter();
    ~CharsetConverter();
    CharsetConverter(const CharsetConverter&) = delete;
    CharsetConverter& operator=(const CharsetConverter&) = delete;

    // Nothing when the character set is not known or the text does not belong to it.
    std::optional<std::string> ToSJis(std::string_view charset, const std::string& text);

    // The same as UTF-8, so nothing of it is lost: "?" for what is broken, a geta mark for a code of no character.
    std::optional<std::string> ToUtf8(std::string_view charset, const std::string& text);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// A converter of the system's from one character set to UTF-8.
class SystemCharset {
public:
    // Null when the system does not know it.
    static std::unique_ptr<SystemCharset> Open(const std::string& charset);
    ~SystemCharset();
    SystemCharset(const SystemCharset&) = delete;
    SystemCharset& operator=(const SystemCharset&) = delete;

    // Nothing when the text does not belong to the character set.
    std::optional<std::string> ToUtf8(std::string_view text);

private:
    explicit SystemCharset(void* handle) : handle_(handle) {}
    void* handle_;
};

}  // namespace tarvex
