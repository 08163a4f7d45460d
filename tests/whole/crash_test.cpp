// The rule of the house when the process is killed: at least once, never lost, never a torn file.
//
// The real program forwards from a mailbox to three addresses, one of which is refused now and then, with deletion on
// and new mail coming in. It is killed at random moments of its runs; after each kill, and whenever a message is
// deleted from the mailbox, everything that must hold is checked. The same with a service that runs again and again,
// and with settings that are saved, addresses that come and go, and profiles that come meanwhile.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <ostream>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "loopback/mail_servers.h"
#include "tarvex/tarvex.h"
#include "testing/child_process.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

using loopback::DeliveredMail;
using loopback::MailboxServer;
using loopback::SinkServer;
using loopback::StoredMail;

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

constexpr int kKills = 55;  // in each of six tests
constexpr auto kServiceRuns =
    200ms;  // after that without the part: it does not end, and there may be nothing to deliver
constexpr auto kProgramRuns = 60s;
constexpr int kUnavailable = 69;
constexpr int kTryLater = 75;  // exit codes of a command
constexpr int kNotFound = 66;  // an address that an edit which was killed did not add
constexpr int kUndisturbedEvery = 8;
constexpr double kRefusals = 0.05;  // of the recipients at the address that is refused now and then
const std::vector<std::string> kAddresses = {"first@example.net", "second@example.net", "third@example.net"};
const std::string kOftenRefused = kAddresses[1];
const std::string kAfter = "after-";  // "after-12-3@example.net" is to get nothing before the thirteenth mail

class Dice {
public:
    explicit Dice(unsigned seed) : engine_(seed) {}
    int Throw(int sides) { return std::uniform_int_distribution<int>(0, sides - 1)(engine_); }
    bool Happens(double chance) { return std::bernoulli_distribution(chance)(engine_); }
    nanoseconds UpTo(nanoseconds time) {
        return nanoseconds(std::uniform_int_distribution<nanoseconds::rep>(0, time.count())(engine_));
    }

private:
    std::mt19937 engine_;
};

// Another one every time, unless a failure is to be looked into.
unsigned Seed() {
    const char* const given = std::getenv("TARVEX_CRASH_SEED");
    return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : std::random_device()();
}

StoredMail RandomMail(int number, Dice& dice) {
    const std::string uidl = "mail-" + std::to_string(number);
    std::string text = "From: a@example.org\r\nTo: me@example.org\r\nMessage-ID: <" + uidl + "@example.org>\r\n\r\n";
    const int lines = dice.Happens(0.1) ? 3000 : dice.Throw(40);
    for (int i = 0; i < lines; ++i) {
        static constexpr std::array<const char*, 5> kLines = {"Good morning,", "", ".", "..dots", "From here on, \xE4"};
        text.append(kLines[static_cast<std::size_t>(dice.Throw(kLines.size()))]).append("\r\n");
    }
    return {uidl, text};
}

// Every mail that ever was in the mailbox, and where it has arrived. Used by the test and by the servers' threads.
class Ledger {
public:
    explicit Ledger(const SinkServer& sink) : sink_(sink) {}

    void Add(const StoredMail& mail) {
        const std::lock_guard guard(mutex_);
        uidls_.emplace(mail.text, mail.uidl);
    }

    bool HasArrived(const std::string& uidl, const std::string& address) {
        const std::lock_guard guard(mutex_);
        HearOfArrivals();
        return arrived_[address].contains(uidl);
    }

    void ExpectArrivedEverywhere(const std::string& uidl) {
        for (const std::string& address : kAddresses) {
            EXPECT_TRUE(HasArrived(uidl, address)) << uidl << " at " << address;
        }
    }

    void ExpectEverythingArrivedEverywhere() {
        for (const auto& [text, uidl] : uidls_) ExpectArrivedEverywhere(uidl);
    }

private:
    void HearOfArrivals() {
        for (const DeliveredMail& mail : sink_.Delivered(heard_)) {
            ++heard_;
            const auto known = uidls_.find(mail.text);
            EXPECT_NE(known, uidls_.end()) << "arrived at " << ::testing::PrintToString(mail.recipients)
                                           << ", but never sent like this: " << mail.text;
            if (known == uidls_.end()) continue;
            for (const std::string& recipient : mail.recipients) {
                arrived_[recipient].insert(known->second);
                if (!recipient.starts_with(kAfter)) continue;
                const int number = std::stoi(known->second.substr(known->second.find('-') + 1));
                EXPECT_GT(number, std::stoi(recipient.substr(kAfter.size()))) << "old mail at " << recipient;
            }
        }
    }

    const SinkServer& sink_;
    std::mutex mutex_;
    std::map<std::string, std::string> uidls_;              // by text
    std::map<std::string, std::set<std::string>> arrived_;  // by address
    std::size_t heard_ = 0;
};

// The parts of a run. Each gets its share of the kills, however long it takes on this machine.
enum Part { kStarting, kFetching, kDelivering, kSaving, kParts };
constexpr std::array<const char*, kParts> kPartNames = {"starting", "fetching", "delivering", "saving"};

// How far the run has come, by what the servers hear. Thread-safe.
class Progress {
public:
    void Begin() {
        for (auto& moment : begun_) moment = Clock::time_point();
        Mark(kStarting);
    }
    void Mark(Part part) {
        for (int later = part + 1; later < kParts; ++later) begun_[later] = Clock::time_point();  // of an earlier run
        begun_[part] = Clock::now();
    }
    bool HasBegun(Part part) const { return begun_[part].load() != Clock::time_point(); }
    // How long each part took in a run that has ended now; zero for one that did not happen.
    std::array<nanoseconds, kParts> Lengths() const {
        std::array<nanoseconds, kParts> lengths{};
        Clock::time_point end = Clock::now();
        for (int part = kSaving; part >= kStarting; --part) {
            if (!HasBegun(static_cast<Part>(part))) continue;
            lengths[part] = end - begun_[part].load();
            end = begun_[part].load();
        }
        return lengths;
    }
    Part Current() const {
        int part = kSaving;
        while (part > kStarting && !HasBegun(static_cast<Part>(part))) --part;
        return static_cast<Part>(part);
    }

private:
    std::array<std::atomic<Clock::time_point>, kParts> begun_{};
};

// Without the folders in which a value was tried when the service was killed.
std::map<std::string, std::string> FilesBelow(const fs::path& root) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        const std::string name = fs::relative(entry, root).generic_string();
        if (entry.is_regular_file() && !name.starts_with(".tarvex-try-")) files[name] = ReadFile(entry.path());
    }
    return files;
}

bool IsNewFile(std::string_view name) { return name.ends_with(".new"); }

// Lines that each end with CR LF.
std::vector<std::string> WholeLines(std::string_view text) {
    std::vector<std::string> lines;
    for (std::size_t end; (end = text.find("\r\n")) != std::string_view::npos; text.remove_prefix(end + 2)) {
        lines.emplace_back(text.substr(0, end));
    }
    EXPECT_EQ(text, "") << "a torn line at the end";
    return lines;
}

// A settings file with its time stamp blotted out, since every run writes its own.
std::string WithoutTime(std::string text) {
    static constexpr std::string_view kHeader = "[lasttime]\r\n";
    const std::size_t header = text.find(kHeader);
    if (header == std::string::npos) return text;
    const std::size_t start = header + kHeader.size();
    const std::size_t end = std::min(text.find("\r\n", start), text.size());
    const std::string time = text.substr(start, end - start);
    EXPECT_TRUE(std::regex_match(time, std::regex("[0-9]{4}(,[0-9]{1,2}){5}"))) << time;
    return text.replace(start, end - start, "(time)");
}

class Forwarding {
public:
    Forwarding(int text_limit, unsigned seed, bool by_service = false)
        : text_limit_(text_limit), by_service_(by_service), dice_(seed) {
        BuildTree();
        originals_ = FilesBelow(root_.Path());
        mailbox_.SetOnDelete([this](const std::string& uidl) { ledger_.ExpectArrivedEverywhere(uidl); });
        mailbox_.SetFault([this](const std::string& command) {
            if (command.starts_with("APOP ")) progress_.Mark(kFetching);
            return "";
        });
        sink_.SetFault([this, dice = Dice(seed)](const std::string& command) mutable {
            if (command.starts_with("EHLO ")) progress_.Mark(kDelivering);
            if (command == "QUIT") progress_.Mark(kSaving);
            const bool to_refused = command.starts_with("RCPT TO:<" + kOftenRefused);
            return refusing_ && to_refused && dice.Happens(kRefusals) ? "451 4.3.0 not now" : "";
        });
    }

    void ReceiveMail(int count) {
        for (int i = 0; i < count; ++i) {
            const StoredMail mail = RandomMail(++received_, dice_);
            ledger_.Add(mail);
            mailbox_.Add(mail);
        }
    }

    // What a run that is killed while it saves may leave, and a profile that was never finished.
    void LeaveNewFiles() {
        const fs::path profile = root_.Path() / "user0" / "from0";
        for (std::size_t i = 0; i < kAddresses.size(); ++i) {
            const fs::path address = profile / ("forwardto" + std::to_string(i));
            WriteFile(address / "uidl.def.new", "mail-1\r\nmail-2\r\n");
        }
        WriteFile(profile / "popprofile.def.new", "[status]\r\n0\r\n");
        WriteFile(profile / "profile.log.new", "torn");
        fs::create_directory(root_.Path() / "user0" / "from1");
        WriteFile(root_.Path() / "user0" / "from1" / "popprofile.def.new", "[status]\r\n1\r\n");
        CheckTree();
        fs::remove_all(root_.Path() / "user0" / "from1");
    }

    void KillAtRandomMoments(int kills) {
        ReceiveMail(5);
        RunUndisturbed();
        int killed = 0;
        for (int run = 1; killed < kills && !::testing::Test::HasFailure(); ++run) {
            SCOPED_TRACE("run " + std::to_string(run));
            ASSERT_LT(run, kills * 20) << "most runs end before the moment comes";
            ReceiveMail(dice_.Throw(4));
            if (run % kUndisturbedEvery == 0) {
                RunUndisturbed();
            } else if (RunAndKill()) {
                ++killed;
            }
            CheckTree();
        }
    }

    void Finish() {
        refusing_ = false;
        RunUndisturbed();
        ledger_.ExpectEverythingArrivedEverywhere();
        RunUndisturbed();
        EXPECT_TRUE(mailbox_.Mails().empty());
        CheckTree();
        for (const auto& [name, text] : FilesBelow(root_.Path()))
            EXPECT_FALSE(IsNewFile(name) && !IsOfAnEdit(name)) << name;
    }

    // The conversations as one: on a busy machine one of them may be over before the moment comes.
    void ExpectKillsInEveryPart() const {
        EXPECT_GT(kills_in_[kStarting], 0);
        EXPECT_GT(kills_in_[kFetching] + kills_in_[kDelivering], 0);
        EXPECT_GT(kills_in_[kSaving], 0);
    }

    std::string Summary() const {
        std::string summary = std::to_string(received_) + " mails; killed while";
        for (int part = kStarting; part < kParts; ++part) {
            summary += std::string(" ") + kPartNames[part] + " " + std::to_string(kills_in_[part]) + " times,";
        }
        for (const auto& [code, count] : edits_with_code_) {
            summary += " " + std::to_string(count) + " edits ended with " + std::to_string(code) + ",";
        }
        return summary + " " + std::to_string(left_over_) + " new files found";
    }

private:
    void BuildTree() {
        CRootPath root;
        ASSERT_TRUE(root.SetRootPath(root_.String()));
        CPopProfile& profile =
            *root.CreateNewUser("user", "secret", 0)->CreateNewPopProfile("profile", "me@example.org");
        profile.setting.popserver = profile.setting.smtpserver = "127.0.0.1";
        profile.setting.popport = mailbox_.Port();
        profile.setting.smtpport = sink_.Port();
        profile.setting.popuser = "user";
        profile.setting.poppassword = "secret";
        profile.setting.apop = 1;
        profile.setting.deletemail = 1;
        profile.setting.timer = 0;
        ASSERT_TRUE(profile.SaveSetting());
        for (const std::string& name : kAddresses) {
            CForwardAddress& address = *profile.CreateNewForwardAddress(name, name);
            address.setting.textonly = text_limit_;
            for (const char* const time : {"0,0,0,0,0,0", "0,0,0,12,0,0"}) {  // each is closed at that very second
                CTerm term;
                term.status = 1;
                term.kind = TERM_EVERY_DAY;
                term.start = term.end = time;
                address.schedule.AddNewTerm(&term);
            }
            ASSERT_TRUE(address.SaveSetting() && address.SaveScheduleSetting());
        }
    }

    std::vector<std::string> Command() const { return {TARVEX_HOST, "run", "--root", root_.String(), "--quiet"}; }

    std::vector<std::string> ServiceCommand() const {
        return {TARVEX_HOST, "serve", "--root", root_.String(), "--every", "0.01"};
    }
    // Among others an address that is to get nothing of what has come so far, and a profile that is never to run.
    std::vector<std::string> EditCommand() {
        const std::string number = std::to_string(++edits_);
        std::vector<std::string> words;
        switch (dice_.Throw(4)) {
            case 0:
                words = {"profile", "set", "user0/from0", "--nickname", "profile"};
                break;
            case 1:
                new_address_ = kAfter + std::to_string(received_) + "-" + number + "@example.net";
                words = {"forward",
                         "add",
                         "user0/from0",
                         new_address_,
                         "--new-mail-only",
                         "--nickname",
                         "after",
                         "--textonly",
                         std::to_string(text_limit_)};
                break;
            case 2:
                words = {"forward", "remove", new_address_, "--yes"};
                break;
            default:
                words = {"profile",     "add",       "user0",     "--again", "box" + number + "@example.org",
                         "--popserver", "127.0.0.1", "--popuser", "user",    "--status",
                         "off"};
        }
        words.insert(words.begin(), TARVEX_HOST);
        words.insert(words.end(), {"--root", root_.String()});
        return words;
    }

    // Also measures how long each part takes.
    void RunUndisturbed() {
        progress_.Begin();
        ChildProcess run(Command());
        run.Wait();
        ExpectGoodEnd(run);
        lengths_ = progress_.Lengths();
    }

    // False when the run ended before it could be killed.
    bool RunAndKill() {
        const auto part = static_cast<Part>(dice_.Throw(kParts));
        const nanoseconds moment = dice_.UpTo(lengths_[part]);
        progress_.Begin();
        ChildProcess run(by_service_ ? ServiceCommand() : Command());
        std::optional<ChildProcess> edit;
        bool ended = false;
        const auto limit = Clock::now() + (by_service_ ? kServiceRuns : kProgramRuns);
        while (!ended && !progress_.HasBegun(part) && Clock::now() < limit) ended = run.WaitFor(200us);
        if (by_service_ && dice_.Happens(0.5)) edit.emplace(EditCommand());
        if (by_service_ && part != kStarting && dice_.Happens(0.5))
            ended = run.WaitFor(dice_.UpTo(100ms));  // a later run
        if (ended || run.WaitFor(moment)) {
            ExpectGoodEnd(run);
            return false;
        }
        ++kills_in_[progress_.Current()];
        run.Kill();
        if (edit) {
            edit->Wait();  // it goes on by itself, unless the service was killed before it answered
            const int code = edit->ExitCode();
            EXPECT_TRUE(code == 0 || code == kTryLater || code == kNotFound) << code << edit->Errors();
            ++edits_with_code_[code];
        }
        return true;
    }

    static void ExpectGoodEnd(const ChildProcess& run) {
        const std::string said = run.Printed() + run.Errors();
        const bool was_refused =
            said == std::string("tarvex: user0/from0: failed: 451 4.3.0 not now (") + kOftenRefused + ")\n";
        EXPECT_TRUE(said.empty() || was_refused) << said;
        EXPECT_EQ(run.ExitCode(), was_refused ? kUnavailable : 0);
    }

    // A service raises it at each start; it never falls.
    void CheckGeneration(std::map<std::string, std::string>& files) {
        const auto file = files.find(".tarvex/generation");
        if (file == files.end()) {
            EXPECT_EQ(generation_, 0);
            return;
        }
        const int generation = std::stoi(file->second);
        EXPECT_EQ(file->second, std::to_string(generation) + '\n');
        EXPECT_GE(generation, generation_);
        generation_ = generation;
        files.erase(file);
    }

    // What must hold at any moment. No program runs.
    void CheckTree() {
        std::map<std::string, std::string> files = FilesBelow(root_.Path());
        left_over_ += static_cast<int>(std::erase_if(files, [](const auto& file) { return IsNewFile(file.first); }));
        for (const auto& [name, original] : originals_) {
            SCOPED_TRACE(name);
            EXPECT_EQ(WithoutTime(files[name]), WithoutTime(original));
            files.erase(name);
        }
        const std::string profile = "user0/from0/";
        CheckLog(files[profile + "profile.log"]);
        files.erase(profile + "profile.log");
        for (std::size_t i = 0; i < kAddresses.size(); ++i) {
            const std::string name = profile + "forwardto" + std::to_string(i) + "/uidl.def";
            SCOPED_TRACE(name);
            CheckUidls(files[name], kAddresses[i]);
            files.erase(name);
        }
        // No kill damages the history: a damaged one would have been set aside, under another name.
        std::erase_if(files, [](const auto& file) { return file.first.starts_with(".tarvex/history.db"); });
        CheckGeneration(files);
        files.erase(".tarvex.lock");  // holds no state: the kernel knows who has the lock
        std::erase_if(files, [](const auto& file) { return IsOfAnEdit(file.first); });
        for (const auto& [name, text] : files) ADD_FAILURE() << "an unknown file: " << name;
        CheckNothingElseIsLoaded();
    }

    static void CheckLog(const std::string& text) {
        const std::vector<std::string> lines = WholeLines(text);
        EXPECT_TRUE(lines.empty() || lines.back().starts_with("---- End Operation at ")) << lines.back();
    }

    void CheckUidls(const std::string& text, const std::string& address) {
        std::set<std::string> seen;
        for (const std::string& uidl : WholeLines(text)) {
            EXPECT_TRUE(seen.insert(uidl).second) << uidl << " twice";
            EXPECT_TRUE(ledger_.HasArrived(uidl, address)) << uidl << " is remembered but did not arrive";
        }
    }

    void CheckNothingElseIsLoaded() const {
        CRootPath root;
        ASSERT_TRUE(root.SetRootPath(root_.String()));
        ASSERT_EQ(root.users.size(), 1u);
        std::size_t known = 0;
        for (const auto& profile : root.users[0]->profiles) {
            const std::string& address = profile->setting.address;
            if (address != "me@example.org") {
                EXPECT_TRUE(address.starts_with("box")) << address;
                EXPECT_EQ(profile->setting.status, 0);
                EXPECT_TRUE(profile->forward_addresses.empty());
                continue;
            }
            for (const auto& forward : profile->forward_addresses) {
                if (std::ranges::count(kAddresses, forward->setting.address) == 1) {
                    ++known;
                    continue;
                }
                EXPECT_TRUE(forward->setting.address.starts_with(kAfter)) << forward->setting.address;
                EXPECT_EQ(forward->setting.nickname, "after");
            }
        }
        EXPECT_EQ(known, kAddresses.size());
    }

    // Of an address or a profile that an edit has made, or was removing.
    static bool IsOfAnEdit(const std::string& name) {
        static const std::regex kPattern(
            "\\.tarvex-removed/.*|user0/from0/forwardto([3-9]|[1-9][0-9]+)/.*|user0/from[1-9].*");
        return std::regex_match(name, kPattern);
    }

    const int text_limit_;
    const bool by_service_;
    Dice dice_;
    TempDir root_;
    Progress progress_;
    std::atomic<bool> refusing_ = true;
    int received_ = 0;
    int left_over_ = 0;
    int generation_ = 0;  // of the tree
    int edits_ = 0;
    std::map<int, int> edits_with_code_;
    std::string new_address_ = "nobody@example.net";  // the last one
    std::array<nanoseconds, kParts> lengths_{};
    std::array<int, kParts> kills_in_{};
    std::map<std::string, std::string> originals_;  // the settings files
    SinkServer sink_;
    Ledger ledger_{sink_};
    MailboxServer mailbox_{"user", "secret"};
};

struct Delivery {
    const char* name;
    int text_limit;
    bool by_service = false;
};

void PrintTo(const Delivery& delivery, std::ostream* out) { *out << delivery.name; }

class KilledProgram : public ::testing::TestWithParam<Delivery> {};

TEST_P(KilledProgram, NothingIsLostOrTorn) {
    const unsigned seed = Seed();
    SCOPED_TRACE("TARVEX_CRASH_SEED=" + std::to_string(seed));
    Forwarding forwarding(GetParam().text_limit, seed, GetParam().by_service);
    forwarding.KillAtRandomMoments(kKills);
    if (!HasFailure()) forwarding.Finish();
    forwarding.ExpectKillsInEveryPart();
    std::cout << "seed " << seed << ": " << forwarding.Summary() << '\n';
}

// By its text limit an address decides whether it shares a transaction with the others.
INSTANTIATE_TEST_SUITE_P(Crash, KilledProgram,
                         ::testing::Values(Delivery{"ATransactionForEachAddress", -100},
                                           Delivery{"OneTransactionForAll", 0},
                                           Delivery{"ATransactionForEachAddressAgain", -100},
                                           Delivery{"OneTransactionForAllAgain", 0},
                                           Delivery{"AServiceWithATransactionForEachAddress", -100, true},
                                           Delivery{"AServiceWithOneTransactionForAll", 0, true}),
                         [](const auto& killed) { return killed.param.name; });

TEST(Crash, NewFilesThatAreLeftAreNeverReadAndVanishWithTheNextSave) {
    Forwarding forwarding(-100, 1);
    forwarding.LeaveNewFiles();
    forwarding.ReceiveMail(3);
    forwarding.Finish();
}

}  // namespace
}  // namespace tarvex::testing
