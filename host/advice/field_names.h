#pragma once

// What settings are called where the reader of an advice changes them: options of a command, or fields of the console.

#include <string>
#include <string_view>

namespace tarvex::host {

enum class Reader { Terminal, Console };

// Set to "console" where the console shows what a command prints.
inline constexpr const char* kReaderVariable = "TARVEX_READER";

// Who reads what this process prints.
Reader ReaderOfOutput();

class FieldNames {
public:
    explicit FieldNames(Reader reader) : reader_(reader) {}

    // Of a setting of a mailbox: "popport" or "POP3 port" in quotes.
    std::string Key(std::string_view key) const;
    // As it is set: "--sslsmtp tls", or the field and what to choose there.
    std::string Option(std::string_view key, std::string_view value = {}) const;
    // Of a rule, with the whole command.
    std::string Rule(std::string_view key, std::string_view value) const;
    std::string RuleName(std::string_view key) const;
    // The command, or the page (Marked).
    std::string Place(const char* command, const char* page) const;

    // To be put behind a text that has used these: where the fields are, if any was named.
    std::string WhereFieldsAre() const;

private:
    bool IsTerminal() const { return reader_ == Reader::Terminal; }

    Reader reader_;
    mutable bool has_named_field_ = false;
};

}  // namespace tarvex::host
