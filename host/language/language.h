#pragma once

// The languages that the command and the service speak, and which of them somebody wants.

#include <optional>
#include <string>
#include <string_view>

namespace tarvex::host {

enum class Language { English, Japanese };

// "en", "ja", as settings and requests to the service name them; nothing for other words.
std::string_view LanguageCode(Language language);
std::optional<Language> LanguageOfCode(std::string_view code);

// The one that the user of this process reads: by LANGUAGE, LC_ALL, LC_MESSAGES and LANG as with gettext; on Windows,
// where none of them is set, the one that the system's own windows have.
Language UsersLanguage();

// The same out of the name of a locale ("ja_JP.UTF-8") and a list of languages ("ja:en"), either of which may be empty.
Language LanguageOf(std::string_view locale, std::string_view languages);

// The locale of the system's own texts.
std::string SystemLocale();

}  // namespace tarvex::host
