// Every mail of a folder through the reduction: TARVEX_CORPUS names the folder; skipped without it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "platform/net/framing.h"
#include "tarvex/tree.h"
#include "testing/temp_dir.h"

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

std::vector<std::string> Lines(std::string_view text) {
    std::vector<std::string> lines;
    for (;;) {
        const std::size_t end = text.find("\r\n");
        lines.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) return lines;
        text.remove_prefix(end + 2);
    }
}

// What holds of every text mail, whatever it was made of.
void ExpectTextMail(const std::string& mail) {
    EXPECT_TRUE(std::ranges::all_of(mail, [](char c) { return c > 0; })) << "7-bit, no NUL";
    EXPECT_TRUE(mail.ends_with("\r\n.\r\n"));
    const std::size_t header_end = mail.find("\r\n\r\n");
    ASSERT_NE(header_end, std::string::npos);

    const std::vector<std::string> fields = {
        "Date:", "From:", "To:", "CC:", "Subject:", "Reply-To:", "MIME-Version:", "Content-Type:"};
    std::size_t last = 0;
    for (const std::string& line : Lines(std::string_view(mail).substr(0, header_end))) {
        EXPECT_LE(line.size(), 998U);
        EXPECT_TRUE(std::ranges::all_of(line, [](char c) { return c >= ' ' && c < 0x7F; })) << line;
        if (line.starts_with(' ')) continue;
        const auto field = std::ranges::find(fields, line.substr(0, line.find(':') + 1));
        ASSERT_NE(field, fields.end()) << line;
        const auto index = static_cast<std::size_t>(field - fields.begin());
        EXPECT_GE(index, last) << line;
        last = index + 1;
    }
    EXPECT_EQ(last, fields.size()) << "Content-Type ends the header";

    std::string scratch;
    const std::string framed(FrameData(mail, DataForm::NotStuffed, scratch));
    EXPECT_EQ(("\r\n" + framed).find("\r\n.\r\n"), std::string::npos) << "nothing ends DATA early";
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
            if (reduced) ExpectTextMail(mail);
        }
        ++mails;
    }
    EXPECT_GT(mails, 0);
}

}  // namespace
}  // namespace tarvex
