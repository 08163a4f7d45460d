// The totals never fall, whatever happens to the file while a writer has it; edits are kept, and go with age.

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/history/history.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

CRunResult Delivered(int messages) {
    CRunResult result;
    result.ending = CRunEnding::Delivered;
    result.messages_delivered = result.messages_fetched = result.copies = messages;
    return result;
}

CRunResult Refused() {
    CRunResult result;
    result.ending = CRunEnding::MailboxFailed;
    result.mailbox.stage = CRunStage::Login;
    result.mailbox.failure_class = CFailureClass::Permanent;
    return result;
}

class HistoryTotals : public ::testing::Test {
protected:
    HistoryTotals() { fs::create_directories(root_ / "user0/from0"); }

    std::string File(const std::string& name) const { return root_.String() + "/.tarvex/" + name; }
    CString Profile() const { return root_.String() + "\\user0\\from0"; }
    Counters Read() const { return HistoryReader(root_.String()).Totals(); }

    // Of so many milliseconds.
    void Add(HistoryWriter& writer, const CRunResult& result, std::int64_t milliseconds = 200) {
        writer.Add(Profile(), {100, 101, result, milliseconds});
    }

    const testing::TempDir root_;
    std::vector<std::string> told_;
    const HistoryWriter::Tell tell_ = [this](const std::string& sentence) { told_.push_back(sentence); };
};

TEST_F(HistoryTotals, CountRunsByResultRefusalsByStageAndClassAndSeconds) {
    HistoryWriter writer(root_.String(), tell_, 0ms);
    Add(writer, Delivered(3), 100);
    Add(writer, Delivered(2), 2600);
    Add(writer, Refused(), 4'000'000);
    CRunResult part = Delivered(0);
    part.messages_not_fetched = 3;
    part.mailbox = {CRunStage::Retrieve, CFailureClass::Permanent, "-ERR no", "", "a", "", ""};
    part.not_fetched = {{"a", CFailureClass::Permanent, "-ERR no", ""},
                        {"b", CFailureClass::TimeOut, "", "nothing came"},
                        {"c", CFailureClass::TimeOut, "", ""}};  // not asked for
    Add(writer, part, 100);
    for (const char* const profile : {"user0/from0", ""}) {
        const Counters totals = Read();
        const auto of = [&](const char* name, const char* label) {
            const auto found = totals.find({profile, name, label});
            return found == totals.end() ? 0 : found->second;
        };
        EXPECT_EQ(of("runs", "delivered"), 3);
        EXPECT_EQ(of("runs", "mailbox failed"), 1);
        EXPECT_EQ(of("refusals", "login/permanent"), 1);
        EXPECT_EQ(of("refusals", "RETR/permanent"), 1);
        EXPECT_EQ(of("refusals", "RETR/time-out"), 1);
        EXPECT_EQ(of("messages_delivered", ""), 5);
        EXPECT_EQ(of("messages_not_fetched", ""), 3);
        const int of_tree = *profile ? 0 : 1;
        EXPECT_EQ(of("run_seconds", "0.1"), 2 * of_tree);
        EXPECT_EQ(of("run_seconds", "5"), of_tree);
        EXPECT_EQ(of("run_seconds", kLongerRuns), of_tree);
        EXPECT_EQ(of("run_milliseconds", ""), of_tree * 4'002'800);
    }
}

// What happens to the files between two runs.
TEST_F(HistoryTotals, StayWhateverHappensToTheFileThatAWriterHas) {
    const std::string file = File("history.db");
    const auto remove_all = [&] {
        for (const char* const end : {"", "-wal", "-shm"}) fs::remove(file + end);
    };
    const std::vector<std::function<void()>> accidents = {
        remove_all,
        [&] { fs::remove(file); },
        [&] { fs::remove_all(root_ / ".tarvex"); },
        [&] {
            remove_all();
            testing::WriteFile(file, std::string(5000, 'x'));
        },
        [&] {
            fs::copy_file(file, file + ".old");
            fs::rename(file + ".old", file);
        },
    };
    for (std::size_t i = 0; i < accidents.size(); ++i) {
        SCOPED_TRACE(i);
        fs::remove_all(root_ / ".tarvex");
        told_.clear();
        HistoryWriter writer(root_.String(), tell_, 0ms);
        Add(writer, Delivered(1));
        Add(writer, Refused());
        accidents[i]();
        writer.LookForFile();
        EXPECT_EQ(Read().at({"", "runs", "delivered"}), 1);
        Add(writer, Delivered(1));
        EXPECT_EQ(Read().at({"", "runs", "delivered"}), 2);
        EXPECT_EQ(Read().at({"user0/from0", "refusals", "login/permanent"}), 1);
        EXPECT_EQ(HistoryReader(root_.String()).Of(Profile())->runs, 3);
        EXPECT_EQ(HistoryReader(root_.String()).Of(Profile())->failed, 1);
        EXPECT_FALSE(told_.empty());
    }
}

TEST_F(HistoryTotals, OfRunsThatCouldNotBeWrittenForLongCountAllTheSame) {
    testing::WriteFile(root_ / ".tarvex", "in its place");
    HistoryWriter writer(root_.String(), tell_, 0ms);
    for (int i = 0; i < 1500; ++i) Add(writer, Delivered(1));  // more than wait in memory
    fs::remove(root_ / ".tarvex");
    Add(writer, Delivered(1));
    EXPECT_EQ(Read().at({"", "runs", "delivered"}), 1501);
}

TEST_F(HistoryTotals, OfTheTreeKeepWhatARemovedProfileDid) {
    HistoryWriter writer(root_.String(), tell_, 0ms);
    Add(writer, Delivered(1));
    fs::rename(root_ / "user0/from0", root_ / "user0/removed");
    fs::create_directories(root_ / "user0/from0");
    Add(writer, Delivered(1));
    EXPECT_EQ(HistoryReader(root_.String()).Of(Profile())->runs, 1);
    EXPECT_EQ(Read().at({"", "runs", "delivered"}), 2);
    EXPECT_EQ(Read().at({"user0/from0", "runs", "delivered"}), 2);
}

TEST_F(HistoryTotals, ATreeThatHasGoneIsNotMadeAnew) {
    const testing::TempDir other;
    HistoryWriter writer(root_.String(), tell_, 0ms);
    Add(writer, Delivered(1));
    fs::rename(root_.String(), other / "moved");
    writer.LookForFile();
    EXPECT_FALSE(fs::exists(root_.String()));
    fs::rename(other / "moved", root_.String());
    EXPECT_TRUE(told_.empty());
}

TEST_F(HistoryTotals, EditsAreFoundByWhatTheyAreAboutAndGoWithAge) {
    constexpr CTime kDay = 86400;
    HistoryWriter writer(root_.String(), tell_, 0ms);
    const MadeEdit old{kDay, {7, "taro", ""}, "user set", "user1", {{"loginname", "a", "b"}}};
    const MadeEdit edit{100 * kDay, {0, "root", "taro"}, "profile set", "user0/from0", {{"timer", "5", "10"}}};
    writer.AddEdit(old);
    writer.AddEdit(edit);
    const auto find = [&](const std::string& name, CTime since = 0) {
        return HistoryReader(root_.String()).Edits({name, since, 20});
    };
    ASSERT_EQ(find("").size(), 2u);
    EXPECT_EQ(find("")[1].by.user, "taro");
    ASSERT_EQ(find("user0").size(), 1u);
    EXPECT_EQ(find("user0")[0].by.caller, "taro");
    EXPECT_EQ(find("user0")[0].keys, edit.keys);
    EXPECT_EQ(find("user0/from0").size(), 1u);
    EXPECT_TRUE(find("user").empty());
    EXPECT_EQ(find("", 2 * kDay).size(), 1u);
    writer.Tidy([] { return MailLimits(); }, 101 * kDay, 1s);
    EXPECT_EQ(find("").size(), 1u);
}

}  // namespace
}  // namespace tarvex::host
