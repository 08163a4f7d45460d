// What is remembered of runs: the numbers, the last run, and what becomes of them when something goes wrong.

#include "host/history/history.h"

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "host/history/run_words.h"
#include "testing/temp_dir.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

CRunResult Ended(CRunEnding ending) {
    CRunResult result;
    result.ending = ending;
    return result;
}

CRunResult DeliveredMails(int messages, int copies) {
    CRunResult result = Ended(CRunEnding::Delivered);
    result.messages_listed = 10;
    result.messages_fetched = result.messages_delivered = messages;
    result.copies = copies;
    return result;
}

class History : public ::testing::Test {
protected:
    History() {
        root_ = folder_ / "tree";
        MakeProfile();
    }

    void MakeProfile() { fs::create_directories(fs::path(root_) / "user0" / "from0"); }
    CString Profile() const { return root_ + "\\user0\\from0"; }
    std::string File(const std::string& name) const { return root_ + "/.tarvex/" + name; }
    std::string Uri() const { return File("history.db"); }

    HistoryWriter Writer() {
        return {root_, [this](const std::string& sentence) { told_.push_back(sentence); }, 0ms};
    }

    // A run of one second.
    void Add(HistoryWriter& writer, CTime started, const CRunResult& result) {
        writer.Add(Profile(), {started, started + 1, result});
    }

    void Add(CTime started, const CRunResult& result) {
        HistoryWriter writer = Writer();
        Add(writer, started, result);
    }

    ProfileHistory Read() const { return HistoryReader(root_).Of(Profile()).value_or(ProfileHistory()); }

    std::int64_t KeptRuns() const {
        return Database(Uri(), Database::Use::Read, 1s).Number("SELECT count(*) FROM runs");
    }

    testing::TempDir folder_;
    std::string root_;
    std::vector<std::string> told_;
};

TEST_F(History, ARootWithoutOneHasNoRuns) { EXPECT_FALSE(HistoryReader(root_).Of(Profile())); }

TEST_F(History, AddsUpWhatRunsDidAcrossRestarts) {
    CRunResult first = DeliveredMails(2, 5);
    first.bytes_received = 3'000'000'000;
    first.bytes_sent = 7;
    Add(100, first);
    Add(200, Ended(CRunEnding::MailboxFailed));
    Add(300, Ended(CRunEnding::CouldNotBegin));
    const ProfileHistory history = Read();
    EXPECT_EQ(history.runs, 3);
    EXPECT_EQ(history.failed, 2);
    EXPECT_EQ(history.failed_in_a_row, 2);
    EXPECT_EQ(history.failing_since, 200);
    EXPECT_EQ(history.last_good, 100);
    EXPECT_EQ(history.fetched, 2);
    EXPECT_EQ(history.delivered, 2);
    EXPECT_EQ(history.copies, 5);
    EXPECT_EQ(history.bytes_received, 3'000'000'000);
    EXPECT_EQ(history.bytes_sent, 7);
    EXPECT_EQ(history.last.started, 300);

    Add(400, Ended(CRunEnding::NothingNew));
    EXPECT_EQ(Read().failed, 2);
    EXPECT_EQ(Read().failed_in_a_row, 0);
    EXPECT_EQ(Read().failing_since, 0);
    EXPECT_EQ(Read().last_good, 400);
    EXPECT_TRUE(told_.empty());
}

TEST_F(History, GivesTheLastRunBackWhole) {
    CRunResult result = DeliveredMails(1, 1);
    result.ending = CRunEnding::DeliveryFailed;
    result.messages_not_fetched = 1;
    result.messages_put_off = 3;
    result.copies_set_aside = 4;
    result.not_fetched = {{"id-1", CFailureClass::TimeOut, "", "nothing came"}};
    result.addresses = {{"a", "nobody@x", 0, CSaved::Saved}, {"b", "\x8c\x8e@x", 1, CSaved::Failed}};
    result.delivery = {
        CRunStage::RcptTo, CFailureClass::Permanent, std::string("550 no\r\n\0\xff", 10), "", "id-2", "me@x", "you@x"};
    result.lists = CSaved::Failed;
    result.log = CSaved::LeftAlone;
    result.settings = CSaved::Saved;
    result.exception = "none";
    Add(100, result);

    const PastRun last = Read().last;
    EXPECT_EQ(last.started, 100);
    EXPECT_EQ(last.ended, 101);
    EXPECT_EQ(last.result.ending, result.ending);
    EXPECT_EQ(last.result.messages_listed, 10);
    EXPECT_EQ(last.result.messages_not_fetched, 1);
    EXPECT_EQ(last.result.messages_put_off, 3);
    EXPECT_EQ(last.result.copies_set_aside, 4);
    EXPECT_EQ(last.result.mailbox.failure_class, CFailureClass::None);
    EXPECT_EQ(last.result.delivery.stage, CRunStage::RcptTo);
    EXPECT_EQ(last.result.delivery.failure_class, CFailureClass::Permanent);
    EXPECT_EQ(last.result.delivery.reply, result.delivery.reply);
    EXPECT_EQ(last.result.delivery.uidl, "id-2");
    EXPECT_EQ(last.result.delivery.sender, "me@x");
    EXPECT_EQ(last.result.delivery.recipient, "you@x");
    ASSERT_EQ(last.result.not_fetched.size(), 1u);
    EXPECT_EQ(last.result.not_fetched[0].failure_class, CFailureClass::TimeOut);
    EXPECT_EQ(last.result.not_fetched[0].reason, "nothing came");
    ASSERT_EQ(last.result.addresses.size(), 1u);  // only those of which there is something to say
    EXPECT_EQ(last.result.addresses[0].address, "\x8c\x8e@x");
    EXPECT_EQ(last.result.addresses[0].copies, 1);
    EXPECT_EQ(last.result.addresses[0].list, CSaved::Failed);
    EXPECT_EQ(last.result.log, CSaved::LeftAlone);
    EXPECT_EQ(last.result.settings, CSaved::Saved);
    EXPECT_EQ(last.result.exception, "none");
}

TEST_F(History, OneOfAnOlderVersionIsReadAndGoesOn) {
    CRunResult result = DeliveredMails(1, 1);
    result.copies_set_aside = 4;
    Add(100, result);
    for (const char* const step :
         {"ALTER TABLE runs DROP COLUMN put_off", "ALTER TABLE runs DROP COLUMN set_aside", "DROP TABLE mail_copies",
          "DROP TABLE mails", "DROP TABLE mails_indexed", "DROP TABLE mail_words", "DROP TABLE edit_changes",
          "DROP TABLE edits", "DROP TABLE counters", "PRAGMA user_version = 1"}) {
        Database(Uri(), Database::Use::Write, 1s).Run(step);
    }
    EXPECT_EQ(Read().last.started, 100);
    EXPECT_EQ(Read().last.result.copies_set_aside, 0);
    EXPECT_TRUE(HistoryReader(root_).Find({}).empty());
    Add(200, result);
    EXPECT_EQ(Read().runs, 2);
    EXPECT_EQ(Read().last.result.copies_set_aside, 4);
    EXPECT_TRUE(told_.empty());
}

TEST_F(History, CanBeReadWhileItIsWritten) {
    HistoryWriter writer = Writer();
    Add(writer, 100, DeliveredMails(1, 1));
    HistoryReader reader(root_);
    Add(writer, 200, DeliveredMails(1, 1));
    EXPECT_EQ(reader.Of(Profile())->runs, 1);  // of one moment
    EXPECT_EQ(Read().runs, 2);
    EXPECT_TRUE(told_.empty());
}

TEST_F(History, AProfileMadeAnewUnderTheSamePathBeginsAnew) {
    Add(100, DeliveredMails(1, 1));
    // The system must not give the new directory the number of the old one at the same moment.
    fs::rename(root_ + "/user0/from0", root_ + "/user0/removed");
    MakeProfile();
    EXPECT_FALSE(HistoryReader(root_).Of(Profile()));
    Add(200, DeliveredMails(1, 1));
    EXPECT_EQ(Read().runs, 1);
}

TEST_F(History, ATreeThatWasCopiedElsewhereKeepsIts) {
    Add(100, DeliveredMails(1, 1));
    fs::copy(root_, folder_ / "copy", fs::copy_options::recursive);
    root_ = folder_ / "copy";
    EXPECT_EQ(Read().runs, 1);
    Add(200, DeliveredMails(1, 1));
    EXPECT_EQ(Read().runs, 2);
}

TEST_F(History, OfQuietRunsInARowTheLastIsKept) {
    HistoryWriter writer = Writer();
    Add(writer, 100, DeliveredMails(1, 1));
    for (CTime started = 200; started < 205; ++started) Add(writer, started, Ended(CRunEnding::NothingNew));
    EXPECT_EQ(KeptRuns(), 2);
    EXPECT_EQ(Read().runs, 6);
    EXPECT_EQ(Read().last.started, 204);
    CRunResult unsaved = Ended(CRunEnding::NothingNew);
    unsaved.lists = CSaved::Failed;
    Add(writer, 300, unsaved);
    EXPECT_EQ(KeptRuns(), 3);
}

TEST_F(History, KeepsSoManyRunsAndSoManyDaysButEveryNumber) {
    HistoryWriter writer = Writer();
    for (int i = 0; i < kKeptRuns + 3; ++i) Add(writer, 100, DeliveredMails(1, 1));
    EXPECT_EQ(KeptRuns(), kKeptRuns);
    const CTime later = 100 + (kKeptDays + 1) * CTime{86400};
    for (int i = 0; i < kKeptRuns; ++i) Add(writer, later, Ended(CRunEnding::NothingNew));
    EXPECT_EQ(KeptRuns(), 1);
    EXPECT_EQ(Read().runs, 2 * kKeptRuns + 3);
    EXPECT_EQ(Read().delivered, kKeptRuns + 3);
}

// What is wrong with the file, and what is said about it.
TEST_F(History, ADamagedOneIsSetAsideAndBegunAnew) {
    Add(100, DeliveredMails(1, 1));
    const std::string damage(5000, 'x');
    fs::remove(Uri() + "-wal");
    testing::WriteFile(Uri(), damage);
    HistoryWriter writer = Writer();
    Add(writer, 200, DeliveredMails(1, 1));
    Add(writer, 300, DeliveredMails(1, 1));
    EXPECT_EQ(Read().runs, 2);
    EXPECT_EQ(testing::ReadFile(File("history-damaged.db")), damage);
    ASSERT_EQ(told_.size(), 1u);
    EXPECT_NE(told_[0].find("history-damaged.db, and a new one is begun"), std::string::npos) << told_[0];
}

TEST_F(History, OneWithOtherTablesIsSetAside) {
    fs::create_directories(root_ + "/.tarvex");
    for (const char* const tables : {"CREATE TABLE other (x); PRAGMA user_version = 1", "CREATE TABLE runs (x)"}) {
        fs::remove(Uri());
        fs::remove(Uri() + "-wal");
        told_.clear();
        Database(Uri(), Database::Use::Write, 1s).Run(tables);
        Add(100, DeliveredMails(1, 1));
        EXPECT_EQ(Read().runs, 1);
        EXPECT_EQ(told_.size(), 1u);
    }
}

// A trigger that somebody added and that fails, say.
TEST_F(History, OneInWhichAStatementFailsForAnotherReasonIsKept) {
    Add(100, DeliveredMails(1, 1));
    Database(Uri(), Database::Use::Write, 1s).Run("CREATE TRIGGER mine BEFORE INSERT ON runs BEGIN SELECT none(); END");
    HistoryWriter writer = Writer();
    Add(writer, 200, DeliveredMails(1, 1));
    ASSERT_EQ(told_.size(), 1u);
    EXPECT_NE(told_[0].find("cannot be written"), std::string::npos) << told_[0];
    EXPECT_EQ(Read().runs, 1);
    Database(Uri(), Database::Use::Write, 1s).Run("DROP TRIGGER mine");
    Add(writer, 300, DeliveredMails(1, 1));
    EXPECT_EQ(Read().runs, 3);
}

TEST_F(History, OneOfANewerProgramStaysAsItIs) {
    Add(100, DeliveredMails(1, 1));
    Database(Uri(), Database::Use::Write, 1s).Run("PRAGMA user_version = 1000");
    HistoryWriter writer = Writer();
    Add(writer, 200, DeliveredMails(1, 1));
    Add(writer, 300, DeliveredMails(1, 1));
    EXPECT_EQ(told_.size(), 1u);
    EXPECT_EQ(KeptRuns(), 1);
    EXPECT_THROW(HistoryReader reader(root_), DatabaseError);
}

TEST_F(History, WhatCannotBeWrittenIsSaidOnceAndWrittenLater) {
    testing::WriteFile(root_ + "/.tarvex", "in its place");
    HistoryWriter writer = Writer();
    Add(writer, 100, DeliveredMails(1, 1));
    Add(writer, 200, DeliveredMails(1, 1));
    ASSERT_EQ(told_.size(), 1u);
    EXPECT_NE(told_[0].find("cannot be written"), std::string::npos);
    fs::remove(root_ + "/.tarvex");
    Add(writer, 300, DeliveredMails(1, 1));
    ASSERT_EQ(told_.size(), 2u);
    EXPECT_EQ(told_[1], "the history of runs is written again");
    EXPECT_EQ(Read().runs, 3);
}

TEST_F(History, StaysSmallWhateverServersSay) {
    const std::string endless(64 * 1024, 'x');
    CRunResult result = Ended(CRunEnding::MailboxFailed);
    result.mailbox = {CRunStage::Retrieve, CFailureClass::Permanent, endless, endless, endless, endless, endless};
    for (int i = 0; i < 10'000; ++i) result.not_fetched.push_back({"id", CFailureClass::Permanent, "-ERR no", ""});
    Add(100, result);
    EXPECT_EQ(Read().last.result.not_fetched.size(), 100u);
    EXPECT_EQ(Read().last.result.mailbox.reply, endless.substr(0, 1000));

    result.not_fetched.resize(10);
    for (auto& mail : result.not_fetched) mail = {endless, CFailureClass::Permanent, endless, endless};
    for (int i = 0; i < 20; ++i) Add(200 + i, result);
    EXPECT_EQ(Read().last.result.not_fetched.size(), 6u);
    Database(Uri(), Database::Use::Write, 1s).Run("PRAGMA wal_checkpoint(TRUNCATE)");
    EXPECT_LT(fs::file_size(Uri()), 1u << 20);
}

// What commands that end leave in SQLite's log, the next ones must not pile up.
TEST_F(History, StaysSmallWhenEachRunIsAProcessOfItsOwn) {
    for (int i = 0; i < 100; ++i) Add(100 + i, Ended(CRunEnding::NothingNew));
    EXPECT_EQ(Read().runs, 100);
    EXPECT_LT(fs::file_size(Uri() + "-wal"), 1u << 19);
}

TEST_F(History, OneThatAnotherProcessKeepsLocksNobodyOutForLong) {
    Add(100, DeliveredMails(1, 1));
    Database other(Uri(), Database::Use::Write, 1s);
    other.Run("BEGIN IMMEDIATE");
    HistoryWriter writer = Writer();
    Add(writer, 200, DeliveredMails(1, 1));
    EXPECT_EQ(told_.size(), 1u);
    EXPECT_EQ(Read().runs, 1);
    other.Run("ROLLBACK");
    Add(writer, 300, DeliveredMails(1, 1));
    EXPECT_EQ(Read().runs, 3);
}

TEST(RunWords, SayHowARunEnded) {
    EXPECT_EQ(HowItEnded(Ended(CRunEnding::NothingNew), 0, 60), "nothing new");
    EXPECT_EQ(HowItEnded(Ended(CRunEnding::NobodyTakesPart), 0, 60), "no address took part");
    EXPECT_EQ(HowItEnded(DeliveredMails(1, 1), 0, 60), "forwarded 1 message");
    CRunResult result = DeliveredMails(2, 5);
    result.messages_not_fetched = 1;
    EXPECT_EQ(HowItEnded(result, 0, 60), "forwarded 2 messages (5 copies), could not fetch 1");
    result = DeliveredMails(0, 4);
    result.copies_set_aside = 1;
    EXPECT_EQ(HowItEnded(result, 0, 60), "forwarded 4 copies, set aside 1 copy");

    result = Ended(CRunEnding::MailboxFailed);
    result.mailbox.reason = "the connection ended";
    EXPECT_EQ(HowItEnded(result, 1, 60), "failed: the connection ended");
    result.mailbox.reply = "-ERR wrong\r\nmore";
    EXPECT_EQ(HowItEnded(result, 3, 60), "failed (3 in a row): -ERR wrong");
    EXPECT_EQ(HowItEnded(result, 1, 8), "failed: -ERR ...");

    result = Ended(CRunEnding::DeliveryFailed);
    result.delivery.reply = "550 no";
    result.delivery.recipient = "you@x";
    EXPECT_EQ(HowItEnded(result, 1, 60), "failed: 550 no (you@x)");
    result.delivery.reply = "";
    EXPECT_EQ(HowItEnded(result, 1, 60), "failed: an empty answer (you@x)");
    result = Ended(CRunEnding::Exception);
    result.exception = "no memory";
    EXPECT_EQ(HowItEnded(result, 1, 60), "failed: no memory");
}

TEST(RunWords, AreReadBackAsTheyWereWritten) {
    for (const auto ending : {CRunEnding::CouldNotBegin, CRunEnding::NobodyTakesPart, CRunEnding::Exception}) {
        EXPECT_EQ(ValueOf<CRunEnding>(Word(ending)), ending);
    }
    EXPECT_EQ(ValueOf<CRunEnding>("unheard of"), CRunEnding::NotEnded);
    EXPECT_EQ(Word(CFailureClass::TimeOut), "time-out");
    EXPECT_EQ(Word(CRunStage::EndOfData), "end of data");
}

}  // namespace
}  // namespace tarvex::host
