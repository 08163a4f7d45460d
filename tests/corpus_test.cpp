// Every mail of a folder through the reduction: TARVEX_CORPUS names the folder; skipped without it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tarvex/tree.h"
#include "testing/temp_dir.h"
#include "tests/text_mail_invariants.h"

namespace tarvex {
namespace {

// A mail file as a POP3 server hands it over, without the line ends in front.
std::string AsFetched(const std::string& file) {
    std::string text;
    for (std::size_t i = 0; i < file.size(); ++i) {
        if (file[i] == '\n' && (i == 0 || file[i - 1] != '\r')) text += '\r';
        if (file[i] == '.' && (i == 0 || file[i - 1] == '\n')) text += '.';
        text += file[i];
    }
    if (!text.ends_with("\r\n")) text += "\r\n";
    text.erase(0, std::min(text.find_first_not_of("\r\n"), text.size()));
    return text + ".\r\n";
}

TEST(Corpus, EveryMailBecomesATextMail) {
    const char* const folder = std::getenv("TARVEX_CORPUS");
    if (!folder) GTEST_SKIP() << "TARVEX_CORPUS names no folder of mails";

    struct Options {
        int textonly, cutwhite, htmltotext;
    };
    const std::vector<Options> all_options = {{-1, 0, 1}, {0, 1, 0}, {100, -1, 1}, {1000, 1, 1}, {1, 0, 1}};
    const CForwardAddressSetting defaults;
    CPopProfile profile;
    int mails = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file()) continue;
        SCOPED_TRACE(entry.path().string());
        const std::string fetched = AsFetched(testing::ReadFile(entry.path()));
        for (const Options& options : all_options) {
            std::string mail = fetched;
            const int reduced = profile.CutAsTextmail(&mail, options.textonly, options.cutwhite, options.htmltotext,
                                                      defaults.compress_words);
            EXPECT_EQ(reduced, fetched.find("\r\n\r\n") == std::string::npos ? 0 : 1);
            if (reduced) {
                EXPECT_EQ(testing::TextMailFault(mail), "");
            }
        }
        ++mails;
    }
    EXPECT_GT(mails, 0);
}

}  // namespace
}  // namespace tarvex
