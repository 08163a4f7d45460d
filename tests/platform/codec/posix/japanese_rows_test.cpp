// The rows of JIS X 0208, compared with the system's converter of EUC-JP.

#include <gtest/gtest.h>

#include <string>

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

}  // namespace
}  // namespace tarvex
