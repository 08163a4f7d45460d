// Takes out of a server's reply what differs from one message to the next.

#include "host/held/refusal_words.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace tarvex::host {
namespace {

constexpr std::size_t kMostBytes = 300;
constexpr std::size_t kCodeDigits = 3;
constexpr std::string_view kDigits = "0123456789";
constexpr std::array<std::string_view, 19> kDaysAndMonths = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun",
                                                             "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul",
                                                             "Aug", "Sep", "Oct", "Nov", "Dec"};

std::string_view TakeUntil(std::string_view& text, std::string_view ends) {
    const std::size_t end = std::min(text.find_first_of(ends), text.size());
    const std::string_view taken = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return taken;
}

bool IsNumber(std::string_view text, std::size_t most_digits) {
    return !text.empty() && text.size() <= most_digits && text.find_first_not_of(kDigits) == std::string_view::npos;
}

// "5.7.1"
bool IsEnhancedCode(std::string_view word) {
    const std::string_view kind = TakeUntil(word, ".");
    const std::string_view subject = TakeUntil(word, ".");
    return IsNumber(kind, 1) && IsNumber(subject, 3) && IsNumber(word, 3);
}

bool IsStable(std::string_view word) {
    if (word.find_first_of("@0123456789") != std::string_view::npos) return false;
    if (word.ends_with(',')) word.remove_suffix(1);
    return std::ranges::find(kDaysAndMonths, word) == kDaysAndMonths.end();
}

// The code in front of a line, which it loses with the character behind it; empty where there is none.
std::string_view TakeCode(std::string_view& line) {
    const std::string_view code = line.substr(0, kCodeDigits);
    if (code.size() < kCodeDigits || !IsNumber(code, kCodeDigits)) return {};
    line.remove_prefix(std::min(line.size(), kCodeDigits + 1));
    return code;
}

// Likewise the enhanced status code.
std::string_view TakeEnhancedCode(std::string_view& line) {
    std::string_view rest = line;
    const std::string_view word = TakeUntil(rest, " \r\n");
    if (!IsEnhancedCode(word)) return {};
    line = rest;
    return word;
}

void Append(std::string& words, std::string_view word) {
    if (word.empty() || words.size() >= kMostBytes) return;
    if (!words.empty()) words += ' ';
    words += word;
}

}  // namespace

std::string StableWords(std::string_view reply) {
    std::string words;
    for (bool is_first = true; !reply.empty(); is_first = false) {
        std::string_view line = TakeUntil(reply, "\r\n");
        const std::string_view code = TakeCode(line);
        const std::string_view enhanced_code = TakeEnhancedCode(line);
        if (is_first) {
            Append(words, code);
            Append(words, enhanced_code);
        }
        while (!line.empty()) {
            const std::string_view word = TakeUntil(line, " \t");
            if (IsStable(word)) Append(words, word);
        }
    }
    words.resize(std::min(words.size(), kMostBytes));
    return words;
}

bool IsAboutTheRecipient(std::string_view reply) {
    TakeCode(reply);
    std::string_view code = TakeEnhancedCode(reply);
    TakeUntil(code, ".");
    const std::string_view subject = TakeUntil(code, ".");
    return subject == "1" || subject == "2";
}

}  // namespace tarvex::host
