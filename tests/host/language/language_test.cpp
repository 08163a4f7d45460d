// Texts in the reader's language: which it is, what is found in a catalogue, and what a damaged one does.

#include "host/language/language.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "host/language/catalogue.h"
#include "host/language/tr.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

using testing::ReadFile;

const std::string kCatalogue = TARVEX_LOCALES "/ja/LC_MESSAGES/tarvex.mo";

using Texts = std::vector<std::pair<std::string, std::string>>;

// Texts of the test's own in a file as msgfmt writes it.
std::string Mo(const Texts& texts) {
    const auto number = [](std::size_t value) {
        std::string bytes;
        for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(value >> shift & 0xFF);
        return bytes;
    };
    std::string keys, translations, bytes;
    const std::size_t tables = 28;
    std::size_t place = tables + texts.size() * 16;
    for (const auto& [key, text] : texts) {
        keys += number(key.size()) + number(place);
        translations += number(text.size()) + number(place + key.size() + 1);
        bytes += key + '\0' + text + '\0';
        place += key.size() + text.size() + 2;
    }
    return number(0x950412de) + number(0) + number(texts.size()) + number(tables) + number(tables + texts.size() * 8) +
           number(0) + number(0) + keys + translations + bytes;
}

// Lets the process know these translations, and none at its end.
class Translated {
public:
    explicit Translated(const Texts& texts) {
        std::filesystem::create_directories(folder_ / "ja/LC_MESSAGES");
        std::ofstream(folder_ / "ja/LC_MESSAGES/tarvex.mo", std::ios::binary) << Mo(texts);
        UseCatalogues(folder_.String());
    }
    ~Translated() { UseCatalogues("nowhere"); }

private:
    testing::TempDir folder_;
};

TEST(Language, IsChosenAsGettextChooses) {
    struct Case {
        std::string locale, languages;
        Language expected;
    };
    for (const Case& c : std::vector<Case>{{"", "", Language::English},
                                           {"C", "ja", Language::English},
                                           {"POSIX", "ja", Language::English},
                                           {"C.UTF-8", "", Language::English},
                                           {"ja_JP.UTF-8", "", Language::Japanese},
                                           {"ja_JP.utf8@x", "", Language::Japanese},
                                           {"ja_JP", "", Language::Japanese},
                                           {"ja", "", Language::Japanese},
                                           {"ja_JP.eucJP", "", Language::English},  // UTF-8 would not be read there
                                           {"jav_ID.UTF-8", "", Language::English},
                                           {"de_DE.UTF-8", "ja", Language::Japanese},
                                           {"ja_JP.UTF-8", "en:ja", Language::English},
                                           {"de_DE.UTF-8", "de:ja_JP:en", Language::Japanese},
                                           {"ja_JP.UTF-8", "de", Language::Japanese},
                                           {"ja_JP.UTF-8", "::", Language::Japanese}}) {
        EXPECT_EQ(LanguageOf(c.locale, c.languages), c.expected) << c.locale << ' ' << c.languages;
    }
}

TEST(Language, HasACodeForSettings) {
    for (const Language language : {Language::English, Language::Japanese}) {
        EXPECT_EQ(LanguageOfCode(LanguageCode(language)), language);
    }
    for (const char* const unknown : {"", "de", "JA", "ja_JP"}) EXPECT_FALSE(LanguageOfCode(unknown)) << unknown;
}

TEST(Tr, FillsPlacesInAnyOrderAndLeavesThoseWithoutAValue) {
    const Translated texts(Texts{{"{0} of {1}", "{1} の {0}{2}"}, {"{0} day", "{0} 日"}});
    EXPECT_EQ(Tr("{0} of {1}", 3, std::string("x")), "3 of x");
    EXPECT_EQ(Tr("{0} {x} {"), "{0} {x} {");
    const Speaking in(Language::Japanese);
    EXPECT_EQ(Tr("{0} of {1}", 3, "{0}"), "{0} の 3{2}");
    EXPECT_EQ(Tr("not translated: {0}", 1), "not translated: 1");
    EXPECT_EQ(TrN("{0} day", "{0} days", 2), "2 日");
}

TEST(Tr, ChoosesTheEnglishPluralByTheCount) {
    EXPECT_EQ(TrN("{0} day of {1}", "{0} days of {1}", 1, 7), "1 day of 7");
    EXPECT_EQ(TrN("{0} day of {1}", "{0} days of {1}", 0, 7), "0 days of 7");
}

TEST(Tr, SpeaksOnEachThreadWhatItsReaderReads) {
    const Translated texts(Texts{{"yes", "はい"}});
    SpeakTo(Language::Japanese);
    EXPECT_EQ(Tr("yes"), "はい");
    {
        const Speaking in(Language::English);
        EXPECT_EQ(Tr("yes"), "yes");
        std::string elsewhere;
        std::thread([&elsewhere] { elsewhere = Tr("yes"); }).join();
        EXPECT_EQ(elsewhere, "はい");
    }
    EXPECT_EQ(Tr("yes"), "はい");
    SpeakTo(Language::English);
    EXPECT_EQ(Tr("yes"), "yes");
}

TEST(Tr, TurnsBackWhatItSaidForTheJournal) {
    const Translated texts(
        Texts{{"no user \"{0}\"", "ユーザー「{0}」はありません"}, {"{0}; see {1}", "{1} を参照: {0}"}});
    const Speaking in(Language::Japanese);
    const std::string said = "x: " + Tr("{0}; see {1}", Tr("no user \"{0}\"", "taro"), "--help");
    EXPECT_EQ(said, "x: --help を参照: ユーザー「taro」はありません");
    EXPECT_EQ(in.InEnglish(said), "x: no user \"taro\"; see --help");
}

TEST(Tr, TurnsBackATextThatWasEmpty) {
    const Translated texts(Texts{{"{0} said", "{0}"}});
    const Speaking in(Language::Japanese);
    EXPECT_EQ(in.InEnglish(Tr("{0} said", "") + "x"), "x");
}

TEST(Catalogue, ReadsWhatMsgfmtWrites) {
    const Catalogue catalogue(ReadFile(kCatalogue));
    EXPECT_EQ(catalogue.Find("Options"), "オプション");
    EXPECT_EQ(catalogue.Find("Option"), "");
    EXPECT_EQ(catalogue.Find(""), "");  // its own header
}

TEST(Catalogue, TakesTheFirstFormOfAPlural) {
    using namespace std::string_literals;
    const Catalogue catalogue(Mo(Texts{{"{0} day\0{0} days"s, "{0} 日\0unused"s}}));
    EXPECT_EQ(catalogue.Find("{0} day"), "{0} 日");
}

// Cut anywhere, or with any byte of its head and tables changed, it gives a whole text or none.
TEST(Catalogue, LeavesOutWhatIsDamaged) {
    const std::string whole = Mo(Texts{{"one", "一"}, {"two", "二"}});
    const auto holds = [](const std::string& text) { return text.empty() || text == "一" || text == "二"; };
    for (std::size_t size = 0; size < whole.size(); ++size) {
        const Catalogue cut(whole.substr(0, size));
        EXPECT_TRUE(holds(std::string(cut.Find("one")))) << size;
    }
    for (std::size_t place = 0; place < 28 + 32; ++place) {
        for (const char value : {'\0', '\1', '\x7F', '\xFF'}) {
            std::string changed = whole;
            changed[place] = value;
            (void)Catalogue(changed).Find("one");
        }
    }
    std::string many = whole;
    many.replace(8, 4, "\xFF\xFF\xFF\xFF");
    EXPECT_EQ(Catalogue(many).Find("one"), "");
}

}  // namespace
}  // namespace tarvex::host
