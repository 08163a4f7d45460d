#pragma once

// Texts in the reader's language.
//
//     Tr("no user \"{0}\"; did you mean \"{1}\"?", name, nearest)
//     TrN("{0} message", "{0} messages", count)
//
// The English text is the key to the translation in po/ja.po. {0} stands for the first value behind it, {1} for the
// second, so that a translation can put them in another order; of TrN {0} is the count. What a text says must be
// whole: sentences that are put together out of pieces cannot be translated. `./dev words` collects the texts.
//
// The journal, JSON, files and what programs read are English: they do without Tr.

#include <concepts>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/language/language.h"

namespace tarvex::host {

// What stands at a place of a text.
class TrPlace {
public:
    TrPlace(std::string text) : text_(std::move(text)) {}
    TrPlace(std::string_view text) : text_(text) {}
    TrPlace(const char* text) : text_(text) {}
    template <std::integral Number>
    TrPlace(Number number) : text_(std::to_string(number)) {}

    const std::string& Text() const { return text_; }

private:
    std::string text_;
};

std::string TrPlaces(const char* english, std::initializer_list<TrPlace> places);
std::string TrPlaces(const char* one, const char* many, std::int64_t count, std::initializer_list<TrPlace> places);

template <class... Places>
[[nodiscard]] std::string Tr(const char* english, const Places&... places) {
    return TrPlaces(english, {TrPlace(places)...});
}

template <class... Places>
[[nodiscard]] std::string TrN(const char* one, const char* many, std::int64_t count, const Places&... places) {
    return TrPlaces(one, many, count, {TrPlace(count), TrPlace(places)...});
}

// Marks a text in a table, which is translated where it is shown: Tr(row.text).
constexpr const char* Marked(const char* english) { return english; }

// Where the translations are: FOLDER/ja/LC_MESSAGES/tarvex.mo. Without that file all is English. Before there are
// threads.
void UseCatalogues(const std::filesystem::path& folder);

// The language of the whole process, except where a Speaking says otherwise; English until then.
void SpeakTo(Language user);
Language SpokenLanguage();  // of this thread at this moment

// Lets this thread speak a language for as long as it lives.
class Speaking {
public:
    explicit Speaking(Language language);
    ~Speaking();
    Speaking(const Speaking&) = delete;
    Speaking& operator=(const Speaking&) = delete;

    // A text that was put together out of what Tr gave on this thread meanwhile, in English: for the journal, when
    // the same was said to a person. Nothing else can be turned back.
    std::string InEnglish(std::string text) const;

private:
    friend std::string TrPlaces(const char* english, std::initializer_list<TrPlace> places);
    friend std::string TrPlaces(const char* one, const char* many, std::int64_t count,
                                std::initializer_list<TrPlace> places);
    friend Language SpokenLanguage();

    struct Said {
        std::string translated;
        std::string english;
    };

    static std::string Say(std::string_view key, std::string_view english, std::initializer_list<TrPlace> places);

    Language language_;
    Speaking* outer_;
    std::vector<Said> said_;
};

}  // namespace tarvex::host
