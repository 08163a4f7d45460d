// The rows of JIS X 0208, compared with the system's converter of EUC-JP.

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "platform/codec/japanese.h"
#include "tests/platform/codec/reference_converter.h"

namespace tarvex {
namespace {

TEST(EucToSJis, TakesEveryCharacterOfTheRows) {
    const testing::ReferenceConverter to_utf8("UTF-8", "EUC-JP-MS");
    const testing::ReferenceConverter sjis_to_utf8("UTF-8", "CP932");
    int compared = 0;
    // Rows 85 to 94 are user-defined in EUC-JP-MS, and NEC's selection of IBM's characters here.
    for (int row = 0xA1; row < 0xF5; ++row) {
        for (int cell = 0xA1; cell <= 0xFE; ++cell) {
            const std::string euc = {static_cast<char>(row), static_cast<char>(cell)};
            const auto expected = to_utf8(euc);
            if (!expected) continue;
            ++compared;
            std::string sjis;
            EucToSJis(&euc, &sjis);
            EXPECT_EQ(sjis_to_utf8(sjis), expected) << std::hex << row << cell;
        }
    }
    EXPECT_GT(compared, 6900);
}

// Without the codes of the rows that only Microsoft's converter knows and everybody reads.
std::string InTheStandard(std::string_view jis) {
    std::string text;
    for (bool kanji = false; !jis.empty();) {
        if (jis.front() == '\x1B') kanji = jis[1] == '$';
        const std::size_t bytes = jis.front() == '\x1B' ? 3 : kanji ? 2 : 1;
        const bool is_special = kanji && bytes == 2 && (jis[0] == 0x2D || (jis[0] >= 0x79 && jis[0] <= 0x7C));
        if (!is_special) text += jis.substr(0, bytes);
        jis.remove_prefix(bytes);
    }
    return text;
}

TEST(SJisToJis, StrictReadersTakeWhatIsWrittenForEveryCharacter) {
    const testing::ReferenceConverter strict("UTF-8", "ISO-2022-JP");
    for (char32_t code = 0x80; code < 0x110000; ++code) {
        if (code >= 0xD800 && code < 0xE000) continue;
        std::string jis = testing::Utf8Of(code);
        Utf8ToSJis(&jis, &jis);
        SJisToJis(&jis, &jis);
        EXPECT_TRUE(strict(InTheStandard(jis))) << jis;
    }
}

std::string FromUtf8(std::string text) {
    Utf8ToSJis(&text, &text);
    return text;
}

// By Unicode's own data, where it is installed (Debian's package unicode-data).
TEST(Utf8ToSJis, ReadsALetterAndItsMarksAsTheLetterThatTheyMake) {
    std::ifstream data("/usr/share/unicode/UnicodeData.txt");
    if (!data) GTEST_SKIP() << "without Unicode's data";
    int compared = 0;
    for (std::string line; std::getline(data, line);) {
        std::array<std::string, 6> fields;  // the code, its name, its category, and, as the last, what it is made of
        std::istringstream row(line);
        for (std::string& field : fields) std::getline(row, field, ';');
        std::istringstream parts(fields[5]);
        std::uint32_t letter = 0;
        std::uint32_t mark = 0;
        if (!fields[2].starts_with('L') || !(parts >> std::hex >> letter >> mark)) continue;
        const std::string made = FromUtf8(testing::Utf8Of(static_cast<char32_t>(std::stoul(fields[0], nullptr, 16))));
        if (made == "\x81\xAC" || made.empty()) continue;
        ++compared;
        EXPECT_EQ(made, FromUtf8(testing::Utf8Of(letter) + testing::Utf8Of(mark))) << line;
    }
    EXPECT_GT(compared, 800);
}

}  // namespace
}  // namespace tarvex
