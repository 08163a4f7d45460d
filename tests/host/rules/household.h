#pragma once

// A house in which mail is forwarded from run to run, with the host's rules or without.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/rules/run_rules.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {

constexpr CTime kMinute = 60;
constexpr CTime kHour = 60 * kMinute;
constexpr CTime kInterval = 10 * kMinute;

// A mailbox and a relay, and a profile between them that is run every ten minutes.
class Household {
public:
    explicit Household(bool with_rules, const std::vector<std::string>& names = {"a"}) : with_rules_(with_rules) {
        profile.setting.timer = 10;
        profile.setting.timeout = 2;
        for (const std::string& name : names) AddAddress(profile, name + "@x");
    }

    void Add(const Ids& ids) {
        for (const std::string& id : ids) pop.Add(Mail(id));
    }

    // A run by the rules on a worker thread, and what happens meanwhile.
    template <class Do>
    CRunResult RunWhile(Do what) {
        if (!memory) memory = std::make_unique<host::RuleMemory>(tree.root.path, [](const std::string&) {});
        host::RunRules run_rules(rules, profile, *memory, budget, kept, [this] { return now; });
        EXPECT_EQ(StartRun(tree.root, profile, &run_rules), CStartResult::Started);
        what(run_rules);
        EXPECT_EQ(tree.root.WaitThread(10'000), 1);
        CRunResult result = tree.root.running_copies.back()->result;
        next = run_rules.Finish(result);
        tree.root.KillThread();
        now += kInterval;
        return result;
    }

    CRunResult Run() {
        CPopProfile copy;
        copy = profile;
        copy.setting.lasttime = now;
        host::MailRecorder recorder([this] { return now * 1000; });
        if (!with_rules_) {
            host::RecordingGuard guard(recorder);
            copy.guard = &guard;
            copy.DoOperation();
        } else {
            if (!memory) memory = std::make_unique<host::RuleMemory>(tree.root.path, [](const std::string&) {});
            host::RunRules run_rules(rules, copy, *memory, budget, kept, [this] { return now; });
            run_rules.TellTo(recorder);
            copy.guard = &run_rules;
            copy.DoOperation();
            run_rules.NoteLists(copy);
            next = run_rules.Finish(copy.result);
        }
        traced = recorder.TakeRest(copy.result);
        now += kInterval;
        return copy.result;
    }

    void Run(int times) {
        for (int i = 0; i < times; ++i) Run();
    }

    host::ProfileMemory Memory() { return memory->Of(profile.path); }

    // "u2 -> a@x: 554 no", for what is set aside.
    std::vector<std::string> Held() const {
        std::vector<std::string> held;
        const auto records = host::HeldStore(profile.path).List();
        for (const host::HeldRecord& record : *records) {
            for (const host::HeldAddress& waiting : record.addresses) {
                held.push_back(record.uidl + " -> " + waiting.address + ": " + waiting.reply);
            }
        }
        return held;
    }

    // "u2 -> a@x: sent, 250 ok", for what the last run wrote down.
    std::vector<std::string> Traced() const {
        std::vector<std::string> told;
        for (const host::TracedMail& mail : traced) {
            for (const host::TracedCopy& copy : mail.copies) {
                const std::string words = copy.words.empty() ? "" : ", " + copy.words.substr(0, copy.words.find('\r'));
                told.push_back(mail.uidl + " -> " + copy.address + ": " + std::string(Word(copy.fate)) + words);
            }
        }
        return told;
    }

    Arrivals Arrived() const { return testing::Arrived(smtp); }

    MailboxServer pop{"alice", "secret"};
    SinkServer smtp;
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    host::HostRules rules;
    std::unique_ptr<host::RuleMemory> memory;
    host::ByteBudget budget{std::int64_t{256} << 20};
    host::KeptMails kept{budget};
    CTime now = LocalMoment(2026, 11, 22, 8, 0, 0);
    host::NextRun next = host::NextRun::WhenDue;
    std::vector<host::TracedMail> traced;  // of the last Run

private:
    const bool with_rules_;
};

// Refuses the messages with this subject.
inline std::function<std::string(const DeliveredMail&)> RefuseSubject(const std::string& subject,
                                                                      const std::string& reply) {
    return [=](const DeliveredMail& mail) {
        return mail.text.find("Subject: " + subject + "\r\n") == std::string::npos ? "" : reply;
    };
}

inline std::function<std::string(const std::string&)> AnswerTo(const std::string& command, const std::string& reply) {
    return [=](const std::string& said) { return said.starts_with(command) ? reply : ""; };
}

// Takes so many messages a connection.
inline std::function<std::string(const std::string&)> TakeAtMost(int messages) {
    return [=, taken = 0](const std::string& command) mutable {
        if (command.starts_with("EHLO")) taken = 0;
        return command.starts_with("MAIL") && ++taken > messages ? "421 too many" : "";
    };
}

}  // namespace tarvex::testing
