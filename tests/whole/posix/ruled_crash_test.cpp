// The rule of the house when a tree with rules is run, its servers refuse and fail, and the process is killed: every
// message is at every address or set aside for it, none in neither.
//
// The service, `tarvex run` and `tarvex held send` are killed in turn, each after a random number of the commands that
// it says to the servers, often just when a message is complete. The relay refuses some messages for good and one
// recipient now and then, and both servers drop connections. A message may arrive twice where it was under way when the
// process was killed.
//
// TARVEX_RULED_KILLS says how many kills, TARVEX_CRASH_SEED repeats one course of events.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/held/held.h"
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

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr unsigned kUsualKills = 25;
constexpr int kMostCommands = 60;           // that a process says before it is killed
constexpr int kMostMessages = 4;            // that it sends, where it is killed at the end of one
constexpr unsigned kUndisturbedEvery = 20;  // runs: then the mail set aside is sent without being killed
constexpr auto kSilence = 100ms;            // after that a process is killed that has nothing to say
constexpr auto kLongest = 400ms;   // after that without its moment: a service without new mail runs again and again
constexpr double kDrops = 0.01;    // of the commands of a conversation
constexpr double kRefusals = 0.2;  // of the recipients at the address that is refused now and then
constexpr int kRefusedEvery = 6;   // messages, of which one is refused for good
const std::vector<std::string> kAddresses = {"first@example.net", "second@example.net", "third@example.net"};
const std::string kOftenRefused = kAddresses[1];
const std::string kProfile = "user0/from0";

unsigned FromEnvironment(const char* name, unsigned otherwise) {
    const char* const given = std::getenv(name);
    return given ? static_cast<unsigned>(std::strtoul(given, nullptr, 10)) : otherwise;
}

// As POP3 sends it, behind the line end of the reply.
std::string AsFetched(std::string text) {
    for (std::size_t at = 0; (at = text.find("\r\n.", at)) != std::string::npos; at += 4) text.insert(at + 2, ".");
    return "\r\n" + text + ".\r\n";
}

// Thread-safe.
class Dice {
public:
    explicit Dice(unsigned seed) : engine_(seed) {}
    int Throw(int sides) {
        const std::lock_guard guard(mutex_);
        return std::uniform_int_distribution<int>(0, sides - 1)(engine_);
    }
    bool Happens(double chance) { return Throw(1'000'000) < chance * 1'000'000; }

private:
    std::mutex mutex_;
    std::mt19937 engine_;
};

class RuledForwarding {
public:
    RuledForwarding(int text_limit, unsigned seed) : dice_(seed) {
        BuildTree(text_limit);
        mailbox_.SetOnDelete([this](const std::string& uidl) { ExpectSafe(uidl); });
        mailbox_.SetFault([this](const std::string& command) {
            ++heard_;
            return failing_ && command.starts_with("RETR") && dice_.Happens(kDrops) ? "close" : "";
        });
        sink_.SetFault([this](const std::string& command) {
            ++heard_;
            if (command == ".") ++completed_;
            if (!failing_) return "";
            if (dice_.Happens(kDrops)) return "close";
            const bool refused = command.starts_with("RCPT TO:<" + kOftenRefused) && dice_.Happens(kRefusals);
            return refused ? "451 4.3.0 not now" : "";
        });
        sink_.SetJudge([this](const DeliveredMail& mail) -> std::string {
            if (!failing_ || mail.text.find("Subject: bad") == std::string::npos) return "";
            return "554 5.6.0 not this one: " + mail.text.substr(0, mail.text.find('\r'));
        });
    }

    void Kill(unsigned kills) {
        for (unsigned killed = 0, run = 0; killed < kills && !::testing::Test::HasFailure(); ++run) {
            SCOPED_TRACE("run " + std::to_string(run));
            ASSERT_LT(run, kills * 20) << "most runs end before the moment comes";
            for (int count = dice_.Throw(4); count > 0; --count) ReceiveMail();
            if (run % kUndisturbedEvery == kUndisturbedEvery - 1) RunToItsEnd(kSend);
            if (RunAndKill(run)) ++killed;
            CheckEverything();
        }
    }

    // When the servers work again, everything arrives everywhere. What a lost line kept from being deleted may still be
    // in the mailbox: it rests for a day.
    void Finish() {
        failing_ = false;
        for (int i = 0; i < 20 && !(HasArrived() && Records().empty()); ++i) {
            for (const auto& words : {kRun, kSend}) EXPECT_EQ(RunToItsEnd(words), 0);
        }
        EXPECT_TRUE(HasArrived());
        EXPECT_TRUE(Records().empty());
    }

    // Everything, at every address.
    bool HasArrived() {
        HearOfArrivals();
        return std::ranges::all_of(texts_, [this](const auto& mail) {
            return std::ranges::all_of(kAddresses, [&](const auto& to) { return arrived_[to][mail.first] > 0; });
        });
    }

    // Messages of which an address has more than one copy, each counted as often as it was sent in vain.
    int SentTwice() {
        std::map<std::string, int> most;
        for (const auto& [address, copies] : arrived_) {
            for (const auto& [uidl, count] : copies) most[uidl] = std::max(most[uidl], count - 1);
        }
        int all = 0;
        for (const auto& [uidl, count] : most) all += count;
        return all;
    }

    std::string Summary() {
        return std::to_string(texts_.size()) + " mails; killed " + std::to_string(kills_of_[0]) + " services, " +
               std::to_string(kills_of_[1]) + " runs, " + std::to_string(kills_of_[2]) +
               " sendings of held mail; up to " + std::to_string(most_held_) + " messages held at once; " +
               std::to_string(SentTwice()) + " sent twice";
    }

    int MostHeld() const { return most_held_; }

private:
    void BuildTree(int text_limit) {
        WriteFile(root_ / "host.def", "[setaside]\r\n1\r\n");
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
            address.setting.textonly = text_limit;
            ASSERT_TRUE(address.SaveSetting());
        }
        directory_ = profile.path;
    }

    void ReceiveMail() {
        const int number = ++received_;
        const std::string uidl = "mail-" + std::to_string(number);
        std::string text = "Message-ID: <" + uidl + "@example.org>\r\nSubject: ";
        text += number % kRefusedEvery == 0 ? "bad" : "good";
        text += "\r\n\r\n";
        for (int lines = dice_.Happens(0.1) ? 3000 : dice_.Throw(40); lines > 0; --lines) text += "..line\r\n";
        {
            const std::lock_guard guard(mutex_);
            texts_.emplace(uidl, text);
        }
        mailbox_.Add({uidl, text});
    }

    std::vector<std::string> Command(std::vector<std::string> words) const {
        words.insert(words.begin(), {TARVEX_HOST, "--root", root_.String()});
        return words;
    }

    int RunToItsEnd(const std::vector<std::string>& words) const {
        ChildProcess program(Command(words));
        program.Wait();
        ExpectGoodEnd(program);
        return program.ExitCode();
    }

    // False when the program ended before it could be killed.
    bool RunAndKill(unsigned run) {
        const auto kind = run % 8 == 7 ? 2U : run % 2;
        heard_ = completed_ = 0;
        const bool at_end = dice_.Happens(0.4);
        const std::atomic<int>& progress = at_end ? completed_ : heard_;
        const int moment = at_end ? 1 + dice_.Throw(kMostMessages) : dice_.Throw(kMostCommands);
        ChildProcess program(Command(kind == 0 ? kServe : kind == 1 ? kRun : kSend));
        int heard = 0;
        auto silent_since = Clock::now();
        const auto limit = silent_since + kLongest;
        while (progress < moment && Clock::now() < std::min(limit, silent_since + kSilence)) {
            if (program.WaitFor(200us)) return ExpectGoodEnd(program);
            if (std::exchange(heard, heard_) != heard_) silent_since = Clock::now();
        }
        if (!at_end && program.WaitFor(std::chrono::microseconds(dice_.Throw(3000)))) return ExpectGoodEnd(program);
        program.Kill();
        ++kills_of_[kind];
        return true;
    }

    static bool ExpectGoodEnd(const ChildProcess& program) {
        constexpr int kServerTrouble = 69;
        EXPECT_TRUE(program.ExitCode() == 0 || program.ExitCode() == kServerTrouble)
            << program.ExitCode() << program.Errors();
        return false;
    }

    // ---- where a message is

    std::vector<host::HeldRecord> Records() const {
        const auto records = host::HeldStore(directory_).List();
        EXPECT_TRUE(records);
        return records.value_or(std::vector<host::HeldRecord>());
    }

    // By id and address.
    std::set<std::pair<std::string, std::string>> Held() const {
        std::set<std::pair<std::string, std::string>> held;
        for (const host::HeldRecord& record : Records()) {
            EXPECT_EQ(record.damage, "");
            for (const host::HeldAddress& waiting : record.addresses) held.emplace(record.uidl, waiting.address);
        }
        return held;
    }

    void HearOfArrivals() {
        const std::lock_guard guard(mutex_);
        for (const DeliveredMail& mail : sink_.Delivered(delivered_)) {
            ++delivered_;
            const std::size_t start = mail.text.find('<') + 1;
            const std::string uidl = mail.text.substr(start, mail.text.find('@') - start);
            EXPECT_EQ(mail.text, texts_[uidl]);
            for (const std::string& recipient : mail.recipients) ++arrived_[recipient][uidl];
        }
    }

    bool HasArrived(const std::string& uidl, const std::string& address) {
        const std::lock_guard guard(mutex_);
        return arrived_[address].contains(uidl);
    }

    // A message that is no more in the mailbox. What is held may arrive meanwhile, so the arrivals come last.
    void ExpectSafe(const std::string& uidl) {
        const auto held = Held();
        HearOfArrivals();
        for (const std::string& address : kAddresses) {
            EXPECT_TRUE(HasArrived(uidl, address) || held.contains({uidl, address}))
                << uidl << " is neither at " << address << " nor set aside for it";
        }
    }

    // No program runs.
    void CheckEverything() {
        const auto held = Held();
        most_held_ = std::max(most_held_, static_cast<int>(held.size()));
        HearOfArrivals();
        std::set<std::string> in_mailbox;
        for (const StoredMail& mail : mailbox_.Mails()) in_mailbox.insert(mail.uidl);
        for (std::size_t i = 0; i < kAddresses.size(); ++i) {
            const std::set<std::string> listed = Listed("forwardto" + std::to_string(i));
            for (const auto& [uidl, text] : texts_) {
                if (in_mailbox.contains(uidl) && !listed.contains(uidl)) continue;
                EXPECT_TRUE(HasArrived(uidl, kAddresses[i]) || held.contains({uidl, kAddresses[i]}))
                    << uidl << " is neither at " << kAddresses[i] << " nor set aside for it";
            }
        }
        for (const host::HeldRecord& record : Records()) {
            EXPECT_EQ(host::HeldStore(directory_).Text(record.id), AsFetched(texts_[record.uidl])) << record.uidl;
        }
    }

    std::set<std::string> Listed(const std::string& address) const {
        std::set<std::string> uidls;
        const std::string text = ReadFile(root_.Path() / kProfile / address / "uidl.def");
        for (std::size_t start = 0, end = 0; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2)
            uidls.insert(text.substr(start, end - start));
        return uidls;
    }

    const std::vector<std::string> kServe = {"serve", "--every", "0.01"};
    const std::vector<std::string> kRun = {"run", kProfile, "--now", "--quiet"};
    const std::vector<std::string> kSend = {"held", "send", kProfile};

    Dice dice_;
    TempDir root_;
    CString directory_;
    std::atomic<bool> failing_ = true;
    std::atomic<int> heard_ = 0;      // commands of the process that runs
    std::atomic<int> completed_ = 0;  // messages that it has sent to the end
    int received_ = 0;
    int most_held_ = 0;
    unsigned kills_of_[3] = {};
    std::mutex mutex_;                                           // of the following
    std::map<std::string, std::string> texts_;                   // by id
    std::map<std::string, std::map<std::string, int>> arrived_;  // copies by address and id
    std::size_t delivered_ = 0;
    SinkServer sink_;
    MailboxServer mailbox_{"user", "secret"};
};

class KilledWithRules : public ::testing::TestWithParam<int> {};

TEST_P(KilledWithRules, EveryMessageIsAtEveryAddressOrSetAside) {
    const unsigned seed = FromEnvironment("TARVEX_CRASH_SEED", std::random_device()());
    const unsigned kills = FromEnvironment("TARVEX_RULED_KILLS", kUsualKills);
    SCOPED_TRACE("TARVEX_CRASH_SEED=" + std::to_string(seed));
    RuledForwarding forwarding(GetParam(), seed);
    forwarding.Kill(kills);
    if (!HasFailure()) forwarding.Finish();
    EXPECT_GT(forwarding.MostHeld(), 0);
    EXPECT_LE(forwarding.SentTwice(), static_cast<int>(kills)) << "more than one message was under way at a kill";
    std::cout << "seed " << seed << ": " << forwarding.Summary() << '\n';
}

INSTANTIATE_TEST_SUITE_P(Crash, KilledWithRules, ::testing::Values(0, -100), [](const auto& killed) {
    return killed.param == 0 ? "OneTransactionForAll" : "ATransactionForEachAddress";
});

}  // namespace
}  // namespace tarvex::testing
