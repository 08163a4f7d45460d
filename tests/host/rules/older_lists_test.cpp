// A list of ids that is older than what is remembered of it: known, and nothing else taken for it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "host/backup/archive.h"
#include "host/backup/backup.h"
#include "tests/host/rules/household.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::SizeIs;

constexpr std::size_t kForEach = 3;

// Three runs, each with three new messages for two addresses; the lists after the first are kept.
class OlderLists : public ::testing::Test {
protected:
    OlderLists() {
        for (int run = 0; run < 3; ++run) {
            Ids ids;
            for (std::size_t i = 0; i < kForEach; ++i) ids.push_back("u" + std::to_string(next_++));
            house_.Add(ids);
            house_.Run();
            if (run == 0) old_ = ReadFile(UidlFile(Address(0)));
        }
    }

    CForwardAddress& Address(std::size_t index) { return *house_.profile.forward_addresses[index]; }
    void BringBack(std::size_t index) { WriteFile(UidlFile(Address(index)), old_); }
    bool Waits() { return house_.Memory().IsWaiting(); }
    std::string Why() { return house_.Memory().Notes(host::Matter::Waiting).at("").words; }
    std::size_t Sent() const { return house_.smtp.Delivered().size(); }

    // As the next process finds it.
    void Restart() { house_.memory.reset(); }

    Household house_{true, {"a", "b"}};
    int next_ = 1;
    std::string old_;
};

TEST_F(OlderLists, HoldBackTheProfileAndSayWhichListAndWhatItHeld) {
    const std::size_t sent = Sent();
    BringBack(1);
    Restart();
    EXPECT_EQ(house_.Run().ending, CRunEnding::KeptBack);
    EXPECT_THAT(Why(), AllOf(HasSubstr("uidl.def of forwardto1 (b@x) is older"), HasSubstr("held 6 messages"),
                             HasSubstr("at 2026-11-22 08:20:00")));
    house_.Add({"new"});
    house_.Run();
    EXPECT_EQ(Sent(), sent);
    EXPECT_EQ(ReadFile(UidlFile(Address(1))), old_);
}

TEST_F(OlderLists, AreKnownByTheProcessThatWroteTheNewerOnes) {
    BringBack(0);
    house_.Run();
    EXPECT_TRUE(Waits());
}

TEST_F(OlderLists, GoOnWhenAPersonSaysSoAndSendNothingTwice) {
    const std::size_t sent = Sent();
    BringBack(0);
    house_.Run();
    house_.Memory().Answer(host::WaitAnswer::Send, house_.now);
    house_.Run(2);
    EXPECT_FALSE(Waits());
    EXPECT_EQ(Sent(), sent);  // known by their bytes
    EXPECT_THAT(UidlsOnDisk(Address(0)), SizeIs(9));
}

// Another folder under the same name, with the same files.
void CopyFolder(const CPopProfile& profile) {
    const std::filesystem::path folder = OnDisk(profile.path);
    const std::filesystem::path copy = folder.string() + ".copy";
    std::filesystem::copy(folder, copy, std::filesystem::copy_options::recursive);
    std::filesystem::remove_all(folder);
    std::filesystem::rename(copy, folder);
}

TEST_F(OlderLists, AreKnownWhereTheWholeFolderOfTheProfileWasBroughtBack) {
    const std::size_t sent = Sent();
    BringBack(0);
    BringBack(1);
    CopyFolder(house_.profile);
    for (int time = 0; time < 2; ++time) {
        Restart();
        EXPECT_EQ(house_.Run().ending, CRunEnding::KeptBack);
    }
    EXPECT_THAT(Why(), HasSubstr("is older"));
    EXPECT_EQ(Sent(), sent);
}

// What makes a list differ from what is remembered, and is no older list.
struct Difference {
    const char* name;
    std::function<void(Household& house, CForwardAddress& address)> make;
};

class DifferentLists : public OlderLists, public ::testing::WithParamInterface<Difference> {};

TEST_P(DifferentLists, AreRun) {
    GetParam().make(house_, Address(0));
    Restart();
    house_.Add({"new"});
    const std::size_t sent = Sent();
    house_.Run(2);
    EXPECT_FALSE(Waits());
    EXPECT_GT(Sent(), sent);
    BringBack(0);
    house_.Run();
    EXPECT_EQ(Waits(), !UidlsOnDisk(Address(0)).empty());  // and it is known again from then on
}

void Leave(const CForwardAddress& address, const std::function<bool(const std::string&)>& stays) {
    Ids ids = UidlsOnDisk(address);
    std::erase_if(ids, std::not_fn(stays));
    WriteUidls(address, ids);
}

const Difference kDifferences[] = {
    {"NothingDiffers", [](Household&, CForwardAddress&) {}},
    {"ListIsLost", [](Household&, CForwardAddress& address) { std::filesystem::remove(UidlFile(address)); }},
    {"ListIsEmpty", [](Household&, CForwardAddress& address) { WriteUidls(address, {}); }},
    {"ListWasCaughtUp",
     [](Household& house, CForwardAddress& address) {
         house.Add({"caught"});
         Ids ids = UidlsOnDisk(address);
         ids.push_back("caught");
         WriteUidls(address, ids);
     }},
    {"FolderIsCopied", [](Household& house, CForwardAddress&) { CopyFolder(house.profile); }},
    {"ListIsInAnotherOrder",
     [](Household&, CForwardAddress& address) {
         Ids ids = UidlsOnDisk(address);
         std::ranges::reverse(ids);
         WriteUidls(address, ids);
     }},
    // The list of a run that was killed before it could be noted: it holds more, and lacks what the server lacks.
    {"RunWasNotNoted",
     [](Household& house, CForwardAddress& address) {
         house.pop.Remove("u9");
         Leave(address, [](const std::string& id) { return id != "u9"; });
     }},
    {"AddressHasAnotherMailbox",
     [](Household&, CForwardAddress& address) {
         address.setting.address = "c@x";
         address.SaveSetting();
         Leave(address, [](const std::string& id) { return id < "u5"; });
     }},
    {"MemoryIsLost",
     [](Household& house, CForwardAddress& address) {
         house.memory.reset();
         std::filesystem::remove_all(OnDisk(house.tree.root.path) + "/.tarvex");
         Leave(address, [](const std::string& id) { return id > "u2"; });
     }},
    {"OneMessageIsToGoOutAgain",
     [](Household& house, CForwardAddress& address) {
         host::ProfileMemory memory = house.Memory();
         host::ListNotes(memory).Forget(address, house.now);
         Leave(address, [](const std::string& id) { return id != "u9"; });
     }},
};

INSTANTIATE_TEST_SUITE_P(Rules, DifferentLists, ::testing::ValuesIn(kDifferences),
                         [](const auto& difference) { return difference.param.name; });

// It vanished from the mailbox, the list was saved without it, and the note of that was lost with the process.
TEST_F(OlderLists, MessageThatVanishedAndCameBackIsNoOlderList) {
    house_.pop.Remove("u9");
    const std::string noted = ReadFile(UidlFile(Address(0)));
    {
        CPopProfile copy;
        copy = house_.profile;
        host::RunRules rules(house_.rules, copy, *house_.memory, house_.budget, house_.kept,
                             [this] { return house_.now; });
        copy.guard = &rules;
        copy.DoOperation();  // and no more
    }
    ASSERT_NE(ReadFile(UidlFile(Address(0))), noted);
    Restart();
    house_.Add({"u9"});
    house_.Run();
    EXPECT_FALSE(Waits());
}

TEST_F(OlderLists, RuleThatIsSwitchedOffHoldsNothingBack) {
    BringBack(0);
    house_.rules.floodguard = 0;
    house_.Run();
    EXPECT_FALSE(Waits());
}

// The archive reads the lists before the memory.
TEST_F(OlderLists, BackupDoesNotRemember) {
    std::string archive;
    host::ArchiveWriter writer([&](std::string_view bytes) { archive += bytes; }, 0);
    house_.memory->Save(house_.now);
    host::BackUp(house_.tree.root, writer);
    std::istringstream input(archive);
    const TempDir folder;
    host::Restore(input, folder / "tree");
    host::RuleMemory restored(folder / "tree", [](const std::string&) {});
    EXPECT_FALSE(restored.Of(CString(folder / "tree") + "\\user0\\from0").HasAny(host::Matter::Listed));
    EXPECT_TRUE(restored.Of(CString(folder / "tree") + "\\user0\\from0").HasSentAny("a@x"));
    EXPECT_TRUE(house_.Memory().HasAny(host::Matter::Listed));
}

TEST_F(OlderLists, IdsThatTheirListDoesNotHoldAsTheyWereAreNotMissed) {
    for (const char* const id : {" lead", "  ", "end\r", "a\rb", "trail ", "\ttab", "\x82\xa0", "\xff"}) {
        SCOPED_TRACE(id);
        house_.Add({id});
        house_.Run(2);
        Restart();
        house_.Run();
        ASSERT_FALSE(Waits()) << Why();
    }
}

}  // namespace
}  // namespace tarvex::testing
