// Finds translations and fills their places.

#include "host/language/tr.h"

#include <atomic>
#include <fstream>
#include <iterator>

#include "host/language/catalogue.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostSaid = 1000;  // texts that can be turned back; one answer has fewer

std::atomic<Language> users_language = Language::English;
thread_local Speaking* speaking = nullptr;

Catalogue& Japanese() {
    static Catalogue catalogue;
    return catalogue;
}

// A place that has no value stays as it is written.
std::string Filled(std::string_view text, std::initializer_list<TrPlace> places) {
    std::string filled;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool is_place = text[i] == '{' && i + 2 < text.size() && text[i + 2] == '}';
        const auto number = static_cast<std::size_t>(is_place ? text[i + 1] - '0' : -1);
        if (number < places.size()) {
            filled += std::data(places)[number].Text();
            i += 2;
        } else {
            filled += text[i];
        }
    }
    return filled;
}

void ReplaceAll(std::string& text, const std::string& old, const std::string& replacement) {
    if (old.empty()) return;
    for (std::size_t at = 0; (at = text.find(old, at)) != std::string::npos; at += replacement.size()) {
        text.replace(at, old.size(), replacement);
    }
}

}  // namespace

std::string TrPlaces(const char* english, std::initializer_list<TrPlace> places) {
    return Speaking::Say(english, english, places);
}

std::string TrPlaces(const char* one, const char* many, std::int64_t count, std::initializer_list<TrPlace> places) {
    return Speaking::Say(one, count == 1 ? one : many, places);
}

void UseCatalogues(const std::filesystem::path& folder) {
    std::ifstream file(folder / "ja" / "LC_MESSAGES" / "tarvex.mo", std::ios::binary);
    Japanese() = Catalogue({std::istreambuf_iterator<char>(file), {}});
}

void SpeakTo(Language user) { users_language = user; }

Language SpokenLanguage() { return speaking ? speaking->language_ : users_language.load(); }

Speaking::Speaking(Language language) : language_(language), outer_(speaking) { speaking = this; }

Speaking::~Speaking() { speaking = outer_; }

std::string Speaking::Say(std::string_view key, std::string_view english, std::initializer_list<TrPlace> places) {
    const std::string_view translated =
        SpokenLanguage() == Language::Japanese ? Japanese().Find(key) : std::string_view();
    if (translated.empty()) return Filled(english, places);
    std::string text = Filled(translated, places);
    if (speaking && speaking->said_.size() < kMostSaid) speaking->said_.push_back({text, Filled(english, places)});
    return text;
}

// The last one first: its places may hold what was said before.
std::string Speaking::InEnglish(std::string text) const {
    for (auto said = said_.rbegin(); said != said_.rend(); ++said) ReplaceAll(text, said->translated, said->english);
    return text;
}

}  // namespace tarvex::host
