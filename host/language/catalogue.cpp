// Reads gettext's binary files. C's own gettext is of no use here: it has one language for the whole process, and asks
// for a locale that many machines do not have. The file:
//
//     0   the mark 0x950412de, in the order of bytes that all numbers have: little-endian in ours
//     8   how many texts there are
//     12  where the table of English texts begins, and 16 that of the translations: for each text its length and place
//
// A text ends with a zero byte, which its length leaves out. The forms of a plural follow each other behind zero bytes.

#include "host/language/catalogue.h"

#include <cstddef>
#include <cstdint>

namespace tarvex::host {
namespace {

constexpr std::uint32_t kMark = 0x950412de;
constexpr std::size_t kHeader_bytes = 20;
constexpr std::size_t kEntry_bytes = 8;

std::uint32_t NumberAt(std::string_view bytes, std::size_t place) {
    std::uint32_t number = 0;
    for (std::size_t i = 4; i-- > 0;) number = number << 8 | static_cast<unsigned char>(bytes[place + i]);
    return number;
}

// The first form of a text; empty where it is not in the file.
std::string_view TextAt(std::string_view bytes, std::size_t entry) {
    if (entry > bytes.size() || bytes.size() - entry < kEntry_bytes) return {};
    const std::size_t length = NumberAt(bytes, entry);
    const std::size_t place = NumberAt(bytes, entry + 4);
    if (place > bytes.size() || bytes.size() - place < length) return {};
    const std::string_view text = bytes.substr(place, length);
    return text.substr(0, text.find('\0'));
}

}  // namespace

Catalogue::Catalogue(const std::string& bytes) {
    if (bytes.size() < kHeader_bytes || NumberAt(bytes, 0) != kMark) return;
    const std::size_t count = NumberAt(bytes, 8);
    const std::size_t english = NumberAt(bytes, 12);
    const std::size_t translated = NumberAt(bytes, 16);
    if (count > bytes.size() / kEntry_bytes) return;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string_view key = TextAt(bytes, english + i * kEntry_bytes);
        const std::string_view text = TextAt(bytes, translated + i * kEntry_bytes);
        if (!key.empty() && !text.empty()) texts_.emplace(key, text);
    }
}

std::string_view Catalogue::Find(std::string_view english) const {
    const auto found = texts_.find(std::string(english));
    return found == texts_.end() ? std::string_view() : std::string_view(found->second);
}

}  // namespace tarvex::host
