// Mail that was set aside: its records, and what the store makes of the folder.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/held/held.h"
#include "testing/temp_dir.h"
#include "tests/host/rules/held_mail.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using host::HeldAddress;
using host::HeldRecord;
using host::HoldOutcome;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(HeldRecord, EveryByteComesBack) {
    HeldRecord record = SomeRecord("phone");
    record.kind = host::HeldKind::Loop;
    record.set_aside = 1'795'315'126;
    for (int byte = 0; byte < 256; ++byte) record.uidl += static_cast<char>(byte);
    for (const char* const text : {"", " ", "; no", "// no", "[next try]", "a\r\n[tries]\r\n9", "\\x41", " a ", "\t"}) {
        HeldAddress address = record.addresses.front();
        address.address = address.folder = address.route = address.reply = text;
        record.addresses.push_back(address);
    }
    const HeldRecord read = host::RecordIn(host::TextOf(record));
    EXPECT_EQ(read.damage, "");
    EXPECT_EQ(read.uidl, record.uidl);
    EXPECT_EQ(read.kind, record.kind);
    EXPECT_EQ(read.set_aside, record.set_aside);
    EXPECT_EQ(read.addresses, record.addresses);
}

TEST(HeldRecord, ReadsWhatAnEditorMakesOfIt) {
    const HeldRecord record = SomeRecord("phone");
    std::string text = "; mine\n[note]\nx\n" + host::TextOf(record);
    for (std::size_t end = 0; (end = text.find('\n', end)) != std::string::npos; end += 2) text.replace(end, 1, "\r\n");
    const HeldRecord read = host::RecordIn(text);
    EXPECT_EQ(read.damage, "");
    EXPECT_EQ(read.addresses, record.addresses);
}

TEST(HeldRecord, IsDamagedWhereverItWasCutShort) {
    HeldRecord record = SomeRecord("phone");
    record.addresses.push_back(SomeRecord("office").addresses.front());
    const std::string text = host::TextOf(record);
    const std::size_t last_value = text.find_last_not_of('\n') + 1;
    for (std::size_t bytes = 0; bytes < last_value; ++bytes) {
        EXPECT_NE(host::RecordIn(text.substr(0, bytes)).damage, "") << text.substr(0, bytes);
    }
    EXPECT_EQ(host::RecordIn(text.substr(0, last_value)).damage, "");
}

TEST(HeldRecord, SaysWhichKeyIsBroken) {
    const std::string text = host::TextOf(SomeRecord("phone"));
    const auto damage = [&](const std::string& old_text, const std::string& new_text) {
        std::string broken = text;
        broken.replace(broken.find(old_text), old_text.size(), new_text);
        return host::RecordIn(broken).damage;
    };
    EXPECT_EQ(damage("[version]\n1", "[version]\n2"), "its record is of another version of tarvex");
    EXPECT_EQ(damage("[kind]\nrefused", "[kind]\nrefuse"), "its record has no usable \"kind\"");
    EXPECT_EQ(damage("[tries]\n1", "[tries]\nmany"), "its record has no usable \"tries\"");
    EXPECT_EQ(damage("[answers]\n2", "[answers]\nx"), "its record has no usable \"answers\"");
    EXPECT_EQ(damage("[stage]\nRCPT TO", "[stage]\n"), "its record has no usable \"stage\"");
    EXPECT_EQ(damage("[next try]\n20", "[next try]\n2x"), "its record has no usable \"next try\"");
    EXPECT_EQ(damage("[digest]\n" + std::string(32, 'a'), "[digest]\n"), "its record names no digest");
}

TEST(HeldRecord, TransientRefusalsAreTriedAgainAtGrowingIntervals) {
    HeldAddress waiting;
    for (const int minutes : {15, 30, 60, 120, 240, 240}) {
        CountRefusal(waiting, CRunStage::RcptTo, CFailureClass::Transient, "450 later", kNow);
        EXPECT_EQ(waiting.next_try, kNow + minutes * 60);
        EXPECT_EQ(waiting.last_try, kNow);
    }
    CountRefusal(waiting, CRunStage::EndOfData, CFailureClass::Permanent, std::string(5000, 'x'), kNow);
    EXPECT_EQ(waiting.next_try, 0);
    EXPECT_EQ(waiting.tries, 7);
    EXPECT_EQ(waiting.reply, std::string(host::kMostReplyBytes, 'x'));
}

TEST(HeldRecord, KeepsTheFirstLinesOfTheNewestAnswers) {
    HeldRecord record = SomeRecord("phone");
    HeldAddress& waiting = record.addresses.front();
    for (const char* const reply : {"", " 450 [\\x0a] ", "450-a\r\n450 b"}) {
        for (std::size_t i = 0; i < host::kMostAnswers; ++i) {
            CountRefusal(waiting, CRunStage::Data, CFailureClass::Transient, reply, kNow + 60);
        }
        ASSERT_EQ(waiting.answers.size(), host::kMostAnswers);
        EXPECT_EQ(waiting.answers.front().time, kNow + 60) << "the first of all is gone";
        EXPECT_EQ(host::RecordIn(host::TextOf(record)).addresses, record.addresses);
    }
    EXPECT_EQ(waiting.answers.back().reply, "450-a");
}

TEST(HeldRecord, TheRouteChangesWithWhatTheServerAnswersBy) {
    CPopProfileSetting setting;
    setting.popserver = "pop.example.org";
    setting.popuser = "me";
    setting.address = "me@example.org";
    EXPECT_EQ(host::RouteOf(setting), "pop.example.org:25 tls 0 from <me@example.org>");
    setting.smtpserver = "relay.example.org";
    setting.smtpport = 587;
    setting.sslsmtp = 2;
    setting.smtpauth = 1;
    EXPECT_EQ(host::RouteOf(setting), "relay.example.org:587 tls 2 from <me@example.org> login 0 me");
    setting.smtpuser = "relay-me";
    EXPECT_EQ(host::RouteOf(setting), "relay.example.org:587 tls 2 from <me@example.org> login 0 relay-me");
}

// ---- the store

TEST(HeldStore, HoldsAMessageAsItWasFetched) {
    const TempDir profile;
    const host::HeldStore store(profile.String());
    EXPECT_THAT(*store.List(), IsEmpty());
    const std::string text = HeldText("one") + std::string(1, '\0') + "\xFF\r\n.\r\n";
    ASSERT_EQ(store.Hold(text, SomeRecord("phone"), {}), HoldOutcome::Held);
    ASSERT_EQ(store.Hold(HeldText("two"), SomeRecord("phone", 'b'), {}), HoldOutcome::Held);
    const auto all = *store.List();
    EXPECT_THAT(Ids(all), ElementsAre(1, 2));
    EXPECT_EQ(all[0].damage, "");
    EXPECT_EQ(all[0].bytes, static_cast<std::int64_t>(text.size()));
    EXPECT_EQ(all[0].addresses, SomeRecord("phone").addresses);
    EXPECT_EQ(store.Text(1), text);
    EXPECT_EQ(store.Find(2)->digest, std::string(32, 'b'));
    EXPECT_FALSE(store.Find(3));
    EXPECT_FALSE(store.Text(3));
}

TEST(HeldStore, TheSameMessageIsHeldOnceForAllItsAddresses) {
    const TempDir profile;
    const host::HeldStore store(profile.String());
    HeldRecord again = SomeRecord("phone");
    again.addresses.front().tries = 9;
    again.addresses.push_back(SomeRecord("office").addresses.front());
    HeldRecord report = again;
    report.kind = host::HeldKind::Report;
    ASSERT_EQ(store.Hold(HeldText("one"), SomeRecord("phone"), {}), HoldOutcome::Held);
    ASSERT_EQ(store.Hold(HeldText("one"), again, {1, 1}), HoldOutcome::Held) << "takes no room, so no limit applies";
    ASSERT_EQ(store.Hold(HeldText("one"), report, {}), HoldOutcome::Held);
    EXPECT_THAT(Ids(*store.List()), ElementsAre(1, 2));
    EXPECT_THAT(store.Find(1)->addresses,
                ElementsAre(SomeRecord("phone").addresses.front(), SomeRecord("office").addresses.front()));
}

TEST(HeldStore, RefusesWhatIsOverALimitBeforeAnythingIsWritten) {
    const TempDir profile;
    const host::HeldStore store(profile.String());
    const auto bytes = static_cast<std::int64_t>(HeldText("one").size());
    EXPECT_EQ(store.Hold(HeldText("one"), SomeRecord("phone"), {1, bytes - 1}), HoldOutcome::AtLimit);
    EXPECT_EQ(store.Hold(HeldText("one"), SomeRecord("phone"), {0, bytes}), HoldOutcome::AtLimit);
    EXPECT_FALSE(fs::exists(profile / "held"));
    EXPECT_EQ(store.Hold(HeldText("one"), SomeRecord("phone"), {1, bytes}), HoldOutcome::Held);
    EXPECT_EQ(store.Hold(HeldText("two"), SomeRecord("phone", 'b'), {2, 2 * bytes - 1}), HoldOutcome::AtLimit);
    EXPECT_EQ(store.Hold(HeldText("two"), SomeRecord("phone", 'b'), {1, 2 * bytes}), HoldOutcome::AtLimit);
    EXPECT_EQ(store.Hold(HeldText("two"), SomeRecord("phone", 'b'), {2, 2 * bytes}), HoldOutcome::Held);
}

TEST(HeldStore, GivesAQuarterToReportsAndLoopsThatStrangersCanMake) {
    const TempDir profile;
    const host::HeldStore store(profile.String());
    const auto bytes = static_cast<std::int64_t>(HeldText("one").size());
    const auto hold = [&](char digest, host::HeldKind kind, const host::HeldLimits& limits) {
        HeldRecord record = SomeRecord("phone", digest);
        record.kind = kind;
        return store.Hold(HeldText("one"), record, limits);
    };
    const host::HeldLimits limits{5, 100 * bytes};
    EXPECT_EQ(hold('a', host::HeldKind::Report, {5, 4 * bytes - 1}), HoldOutcome::AtLimit);
    EXPECT_EQ(hold('a', host::HeldKind::Report, limits), HoldOutcome::Held);
    EXPECT_EQ(hold('b', host::HeldKind::Loop, limits), HoldOutcome::Held);
    EXPECT_EQ(hold('c', host::HeldKind::Report, limits), HoldOutcome::AtLimit);
    for (const char digest : {'d', 'e', 'f'}) {
        EXPECT_EQ(hold(digest, host::HeldKind::Refused, limits), HoldOutcome::Held);
    }
    EXPECT_EQ(hold('g', host::HeldKind::Refused, limits), HoldOutcome::AtLimit);
}

TEST(HeldStore, ChangesAndRemovesWhatIsHeld) {
    const TempDir profile;
    const host::HeldStore store(profile.String());
    ASSERT_EQ(store.Hold(HeldText("one"), SomeRecord("phone"), {}), HoldOutcome::Held);
    ASSERT_EQ(store.Hold(HeldText("two"), SomeRecord("phone", 'b'), {}), HoldOutcome::Held);
    HeldRecord record = *store.Find(1);
    record.addresses.front().reply = "451 later";
    EXPECT_TRUE(store.Update(record));
    EXPECT_EQ(store.Find(1)->addresses, record.addresses);
    EXPECT_TRUE(store.Remove(1));
    EXPECT_TRUE(store.Remove(1));
    EXPECT_THAT(Ids(*store.List()), ElementsAre(2));
    EXPECT_FALSE(fs::exists(profile / "held/1.mail"));
    EXPECT_EQ(store.Text(2), HeldText("two"));
}

TEST(HeldStore, ADamagedRecordIsShownAndItsMessageStays) {
    const TempDir profile;
    const host::HeldStore store(profile.String());
    for (const char digest : {'a', 'b', 'c'}) {
        ASSERT_EQ(store.Hold(HeldText("one"), SomeRecord("phone", digest), {}), HoldOutcome::Held);
    }
    WriteFile(profile / "held/1.def", "");
    fs::remove(profile / "held/2.mail");
    WriteFile(profile / "held/3.mail", "cut");
    store.CleanUp();
    const auto all = *store.List();
    ASSERT_THAT(Ids(all), ElementsAre(1, 2, 3));
    EXPECT_EQ(all[0].damage, "its record has no usable \"version\"");
    EXPECT_EQ(all[1].damage, "the message itself is missing");
    EXPECT_EQ(all[2].damage, "the message has 3 bytes instead of " + std::to_string(HeldText("one").size()));
    EXPECT_EQ(store.Text(1), HeldText("one"));
    // None of them passes for the message.
    ASSERT_EQ(store.Hold(HeldText("one"), SomeRecord("phone", 'c'), {}), HoldOutcome::Held);
    EXPECT_EQ(store.Text(4), HeldText("one"));
}

TEST(HeldStore, CleansUpWhatDoesNotCountAndNothingElse) {
    const TempDir profile;
    const host::HeldStore store(profile.String());
    ASSERT_EQ(store.Hold(HeldText("one"), SomeRecord("phone"), {}), HoldOutcome::Held);
    for (const char* const name : {"1.def.tmp", "7.mail", "8.def.tmp", "note.txt", "0.mail", "01.mail"}) {
        WriteFile(profile.Path() / "held" / name, "x");
    }
    store.CleanUp();
    EXPECT_THAT(NamesIn(profile / "held"), ElementsAre("0.mail", "01.mail", "1.def", "1.mail", "note.txt"));
}

}  // namespace
}  // namespace tarvex::testing
