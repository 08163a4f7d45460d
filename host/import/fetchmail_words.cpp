// Takes a fetchmailrc apart into words (fetchmail(1), "Run Control Syntax").

#include "host/import/fetchmail_words.h"

#include <algorithm>
#include <cstddef>

#include "host/import/lines.h"
#include "host/language/tr.h"

namespace tarvex::host {
namespace {

constexpr std::string_view kPunctuation = ",;:";

class Tokenizer {
public:
    explicit Tokenizer(std::string_view text) : text_(text) {}

    std::vector<FetchmailWord> Words() {
        while (SkipToWord()) {
            const char first = text_[at_];
            if (first == '=') {
                words_.push_back({"=", line_, false});
                ++at_;
            } else if (first == '"' || first == '\'') {
                TakeQuoted(first);
            } else {
                TakePlain();
            }
        }
        return std::move(words_);
    }

private:
    bool AtEnd() const { return at_ == text_.size(); }

    // Also counts the line.
    char Take() {
        const char c = text_[at_++];
        if (c == '\n') ++line_;
        if (c == '\0') throw BadLine(line_, Tr("there is a NUL: this is no text"));
        return c;
    }

    bool SkipToWord() {
        while (!AtEnd()) {
            const char c = text_[at_];
            if (c == '#') {
                while (!AtEnd() && text_[at_] != '\n') Take();
            } else if (IsBlank(c) || kPunctuation.find(c) != std::string_view::npos) {
                Take();
            } else {
                return true;
            }
        }
        return false;
    }

    void TakeQuoted(char quote) {
        FetchmailWord word{"", line_, true};
        ++at_;
        while (!AtEnd() && text_[at_] != quote) TakeCharacter(word.text, true);
        if (AtEnd()) throw BadLine(word.line, Tr("a quote is not closed"));
        ++at_;
        words_.push_back(std::move(word));
    }

    void TakePlain() {
        FetchmailWord word{"", line_, false};
        while (!AtEnd() && !IsBlank(text_[at_]) && text_[at_] != '=' &&
               kPunctuation.find(text_[at_]) == std::string_view::npos) {
            TakeCharacter(word.text, false);
        }
        words_.push_back(std::move(word));
    }

    void TakeCharacter(std::string& word, bool is_quoted) {
        const char c = Take();
        if (c != '\\' || AtEnd()) {
            word += c;
        } else if (is_quoted && text_[at_] == '\n') {
            Take();
        } else {
            word += Escaped();
        }
    }

    // Behind a backslash: \n \t \b \r, \x and hexadecimal digits, \0 and octal ones, decimal ones; else the character.
    char Escaped() {
        const char c = Take();
        constexpr std::string_view kLetters = "ntbr";
        constexpr std::string_view kMeant = "\n\t\b\r";
        if (const std::size_t found = kLetters.find(c); found != std::string_view::npos) return kMeant[found];
        if (c == 'x') return Number(16, 0, 2);
        if (c == '0') return Number(8, 0, 3);
        if (c >= '1' && c <= '9') return Number(10, c - '0', 2);
        return c;
    }

    char Number(int base, int number, int digits) {
        constexpr std::string_view kDigits = "0123456789abcdef";
        for (; digits > 0 && !AtEnd(); --digits) {
            const char c = text_[at_];
            const std::size_t value = kDigits.find(c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c);
            if (value >= static_cast<std::size_t>(base)) break;
            number = number * base + static_cast<int>(value);
            ++at_;
        }
        return static_cast<char>(number & 0xFF);
    }

    const std::string_view text_;
    std::size_t at_ = 0;
    int line_ = 1;
    std::vector<FetchmailWord> words_;
};

}  // namespace

std::vector<FetchmailWord> FetchmailWordsOf(std::string_view text) { return Tokenizer(text).Words(); }

}  // namespace tarvex::host
