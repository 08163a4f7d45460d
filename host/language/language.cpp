// Chooses the language of whoever uses the command.

#include "host/language/language.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace tarvex::host {
namespace {

constexpr std::array<std::string_view, 2> kCodes = {"en", "ja"};

// "ja" of "ja_JP.UTF-8"; empty where texts would be read in another encoding, for only UTF-8 is written.
std::string_view CodeIn(std::string_view locale) {
    const std::string_view code = locale.substr(0, locale.find_first_of("_.@"));
    const std::size_t dot = locale.find('.');
    if (dot == std::string_view::npos) return code;
    std::string encoding(locale.substr(dot + 1, locale.find('@', dot) - dot - 1));
    std::erase(encoding, '-');
    return encoding == "UTF8" || encoding == "utf8" ? code : std::string_view();
}

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

std::string_view LanguageCode(Language language) { return kCodes[static_cast<std::size_t>(language)]; }

std::optional<Language> LanguageOfCode(std::string_view code) {
    const auto found = std::ranges::find(kCodes, code);
    if (found == kCodes.end()) return std::nullopt;
    return static_cast<Language>(found - kCodes.begin());
}

Language LanguageOf(std::string_view locale, std::string_view languages) {
    if (locale.empty() || locale == "C" || locale == "POSIX") return Language::English;
    while (!languages.empty()) {
        const std::string_view wanted = languages.substr(0, languages.find(':'));
        languages.remove_prefix(std::min(languages.size(), wanted.size() + 1));
        if (const auto language = LanguageOfCode(CodeIn(wanted))) return *language;
    }
    return LanguageOfCode(CodeIn(locale)).value_or(Language::English);
}

Language UsersLanguage() {
    for (const char* const name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        if (const std::string locale = Variable(name); !locale.empty()) return LanguageOf(locale, Variable("LANGUAGE"));
    }
    return LanguageOf(SystemLocale(), Variable("LANGUAGE"));
}

}  // namespace tarvex::host
