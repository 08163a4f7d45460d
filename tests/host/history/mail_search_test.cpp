// What became of messages is found by their words, however many there are.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "host/history/history.h"
#include "host/history/mail_words.h"
#include "host/system/command_error.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr CTime kNow = 1'800'000'000;
constexpr CTime kDay = 86400;

TracedMail Mail(const std::string& id, const std::string& subject, CopyFate fate = CopyFate::Sent, CTime ended = kNow) {
    const std::string header = "From: =?UTF-8?B?5bGx55Sw?= <Yamada@mail.test>\r\nSubject: " + subject +
                               "\r\nMessage-ID: <" + id + ".77@mail.test>\r\n";
    return {id,
            header,
            4000,
            ended * 1000 - 5,
            {{"me@phone.test", fate, ended * 1000 - 2, ended * 1000, "250 2.0.0 Ok: queued as 4F3A" + id}}};
}

class MailSearchTest : public ::testing::Test {
protected:
    MailSearchTest() { std::filesystem::create_directories(std::filesystem::path(root_) / "user0" / "from0"); }

    CString Profile(int number = 0) const { return root_ + "\\user0\\from" + std::to_string(number); }

    void Add(std::vector<TracedMail> mails) { writer_.AddMails(Profile(), std::move(mails)); }
    void Tidy(const MailLimits& limits = {}, CTime now = kNow) {
        writer_.Tidy([&] { return limits; }, now, 10s);
    }

    std::vector<std::string> Find(const std::vector<std::string>& words, std::size_t most = 20) const {
        return Search(MailSearch{words, {}, 0, most});
    }
    std::vector<std::string> Search(const MailSearch& search) const {
        std::vector<std::string> ids;
        for (const FoundMail& found : HistoryReader(root_).Find(search)) ids.push_back(found.mail.uidl);
        return ids;
    }

    testing::TempDir folder_;
    const std::string root_ = folder_ / "tree";
    std::vector<std::string> told_;
    HistoryWriter writer_{root_, [this](const std::string& sentence) { told_.push_back(sentence); }, 0ms};
};

TEST_F(MailSearchTest, FindsAMessageByAnyOfItsWordsBeforeAndAfterItIsIndexed) {
    Add({Mail("u1", "=?ISO-2022-JP?B?GyRCOSdKRjpuGyhC?= Plan"), Mail("u2", "other"),
         Mail("u3", "=?UTF-8?B?5p2x5Lqs6YO95Lya6K2w5a6k?=")});
    for (const bool indexed : {false, true}) {
        if (indexed) Tidy();
        EXPECT_THAT(Find({"plan"}), ElementsAre("u1"));
        EXPECT_THAT(Find({"東京"}), ElementsAre("u3"));
        EXPECT_THAT(Find({"会議"}), ElementsAre("u3")) << "in the middle";
        EXPECT_THAT(Find({"京会"}), IsEmpty()) << "not in a row";
        EXPECT_THAT(Find({"山田"}), ElementsAre("u3", "u2", "u1"));
        EXPECT_THAT(Find({"yamada@mail.test", "u2"}), ElementsAre("u2"));
        EXPECT_THAT(Find({"<u1.77@mail.test>"}), ElementsAre("u1"));
        EXPECT_THAT(Find({"4f3au2"}), ElementsAre("u2")) << "as the server's queue calls it";
        EXPECT_THAT(Find({"me@phone.te"}), ElementsAre("u3", "u2", "u1")) << "the end is missing";
        EXPECT_THAT(Find({"ＰＬＡＮ"}), ElementsAre("u1")) << "full width";
        EXPECT_THAT(Find({}), ElementsAre("u3", "u2", "u1"));
        EXPECT_THAT(Find({"nowhere"}), IsEmpty());
    }
}

TEST_F(MailSearchTest, SignsOfTheQueryLanguageAreText) {
    Add({Mail("u1", "a \"b\" OR c*")});
    for (const std::string word : {"\"b\"", "a OR", "words:a", "NEAR(a b)", "b\" OR \"zzz", "-a", "{a}"})
        EXPECT_NO_THROW(Find({word})) << word;
    EXPECT_THAT(Find({"b\" OR \"c"}), ElementsAre("u1"));
    EXPECT_THROW(Find({"..."}), CommandError);
    EXPECT_THROW(Find({"plan", ""}), CommandError);
}

TEST_F(MailSearchTest, ShowsTheNewestAndSaysThatThereAreMore) {
    std::vector<TracedMail> mails;
    for (int i = 0; i < 500; ++i)
        mails.push_back(Mail("n" + std::to_string(i), "same", CopyFate::Sent, kNow - 500 + i));
    Add(mails);
    Tidy();
    Add({Mail("last", "same")});
    EXPECT_THAT(Find({"same"}, 2), ElementsAre("last", "n499", "n498"));
    EXPECT_THAT(Search(MailSearch{{"same"}, {}, kNow - 2, 20}), ElementsAre("last", "n499", "n498"));
    EXPECT_THAT(Search(MailSearch{{"same"}, "user0/from1", 0, 20}), IsEmpty());
}

TEST_F(MailSearchTest, AProfileDoesNotHaveTheMailOfOneThatHadItsName) {
    Add({Mail("old", "same")});
    EXPECT_THAT(Search(MailSearch{{"same"}, {}, 0, 20, Profile()}), ElementsAre("old"));
    const std::filesystem::path folder = std::filesystem::path(root_) / "user0" / "from0";
    std::filesystem::rename(folder, folder.string() + ".gone");  // its number on the disk is not given to the next
    std::filesystem::create_directories(folder);
    EXPECT_THAT(Search(MailSearch{{"same"}, {}, 0, 20, Profile()}), IsEmpty());
    Add({Mail("new", "same")});
    EXPECT_THAT(Search(MailSearch{{"same"}, {}, 0, 20, Profile()}), ElementsAre("new"));
    EXPECT_THAT(Search(MailSearch{{"same"}, "user0/from0", 0, 20}), ElementsAre("new", "old"));
}

TEST_F(MailSearchTest, WhatWaitsIsReplacedByWhatWaitsAfterTheNextRun) {
    const auto run = [&](CRunEnding ending, int listed, std::vector<TracedMail> mails) {
        PastRun past{kNow, kNow, {}};
        past.result.ending = ending;
        past.result.messages_fetched = listed;
        writer_.Add(Profile(), past, std::move(mails));
    };
    run(CRunEnding::DeliveryFailed, 2, {Mail("u1", "same", CopyFate::Waits), Mail("u2", "same", CopyFate::Waits)});
    run(CRunEnding::MailboxFailed, 0, {});
    EXPECT_THAT(Find({"same"}), ElementsAre("u2", "u1")) << "the second run could not look";
    run(CRunEnding::DeliveryFailed, 2, {Mail("u1", "same"), Mail("u2", "same", CopyFate::Waits)});
    EXPECT_THAT(Find({"same"}), ElementsAre("u2", "u1"));
    Tidy();
    run(CRunEnding::NothingNew, 0, {});
    EXPECT_THAT(Find({"same"}), ElementsAre("u1"));
}

TEST_F(MailSearchTest, ForgetsWhatIsTooOldOrTooMuch) {
    Add({Mail("old", "same", CopyFate::Sent, kNow - 91 * kDay), Mail("new", "same", CopyFate::Sent, kNow - 89 * kDay)});
    Tidy();
    EXPECT_THAT(Find({"same"}), ElementsAre("new"));
    Add({Mail("newer", "same")});
    Tidy({90, 1});
    EXPECT_THAT(Find({"same"}), IsEmpty());
    Add({Mail("later", "same")});
    Tidy();
    EXPECT_THAT(Find({"same"}), ElementsAre("later")) << "and goes on";
    EXPECT_THAT(told_, IsEmpty());
}

TEST_F(MailSearchTest, WhatCannotBeWrittenIsWrittenLater) {
    const std::filesystem::path file = std::filesystem::path(root_) / ".tarvex" / "history.db";
    std::filesystem::create_directories(file);
    Add({Mail("u1", "same")});
    EXPECT_THAT(told_, SizeIs(1));
    std::filesystem::remove(file);
    Add({Mail("u2", "same")});
    EXPECT_THAT(Find({"same"}), ElementsAre("u2", "u1"));
}

TEST(SearchWords, AreSafeForWhateverAMailHolds) {
    for (int byte = 0; byte < 256; ++byte) {
        const std::string text = "a" + std::string(1, static_cast<char>(byte)) + "b";
        EXPECT_NO_THROW(SearchPhrase(text));
        TracedMail mail;
        mail.uidl = mail.header = text;
        EXPECT_EQ(SearchWords(mail).find('"'), std::string::npos) << byte;
    }
}

}  // namespace
}  // namespace tarvex::host
