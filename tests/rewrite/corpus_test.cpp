// Every mail of a folder through the reduction: TARVEX_CORPUS names the folder; skipped without it.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tarvex/tree.h"
#include "tests/support/corpus.h"
#include "tests/support/text_mail_invariants.h"

namespace tarvex {
namespace {

TEST(Corpus, EveryMailBecomesATextMail) {
    const char* const folder = testing::CorpusFolder();
    if (!folder) GTEST_SKIP() << testing::kNoCorpus;

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
        const std::string fetched = testing::FetchedMail(entry.path());
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
