#pragma once

// A tree, its two servers, and a service of the tree: what the tests of the service share on both systems.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/host_program.h"

namespace tarvex::testing {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kLong = 20s;
constexpr const char* kProfile = "user0/from0";
constexpr const char* kStarted = "user0/from0: run started";
constexpr const char* kServing = "serving ";

template <class Condition>
bool Eventually(Condition condition) {
    for (const auto deadline = Clock::now() + kLong; Clock::now() < deadline; std::this_thread::sleep_for(5ms)) {
        if (condition()) return true;
    }
    return condition();
}

inline int Count(const std::string& text, const std::string& what) {
    int count = 0;
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += what.size()) ++count;
    return count;
}

// Names of profiles as every system could write them.
inline std::string Slashed(std::string text) {
    std::ranges::replace(text, static_cast<char>(std::filesystem::path::preferred_separator), '/');
    return text;
}

// A service that runs no longer than the object lives. In what it prints names are Slashed.
class ServiceProcess {
public:
    using Event = ChildProcess::Event;

    explicit ServiceProcess(const std::vector<std::string>& words, const std::vector<std::string>& variables = {})
        : child_(words, ChildProcess::Output::Together, variables) {}

    bool WaitForOutput(const std::string& text, std::chrono::nanoseconds time, std::size_t behind = 0) {
        if (std::filesystem::path::preferred_separator == '/') return child_.WaitForOutput(text, time, behind);
        const auto is_there = [&] { return Printed().find(text, behind) != std::string::npos; };
        for (const auto deadline = Clock::now() + time; !is_there() && Clock::now() < deadline;)
            child_.WaitForOutput("(never)", 10ms);
        return is_there();
    }
    std::string Printed() const { return Slashed(child_.Printed()); }

    void Signal(int signal) const { child_.Signal(signal); }  // on POSIX
    void Interrupt(Event event = Event::CtrlC) { child_.Interrupt(event); }
    void LoadAgain() const;  // where the system can ask for it without the service manager
    bool WaitFor(std::chrono::nanoseconds time) { return child_.WaitFor(time); }
    void Kill() { child_.Kill(); }
    int ExitCode() const { return child_.ExitCode(); }

private:
    ChildProcess child_;
};

class ServiceTest : public ::testing::Test {
protected:
    std::string AddProfile(int timer = 0) {
        return host_.AddProfile(mailbox_.Port(), sink_.Port(),
                                [timer](CPopProfile& profile) { profile.setting.timer = timer; });
    }

    // It ran last long ago, so that it is due once.
    void AddDueProfile() {
        host_.AddProfile(mailbox_.Port(), sink_.Port(), [](CPopProfile& profile) {
            profile.setting.timer = 60;
            profile.setting.lasttime = 1;
        });
    }

    std::unique_ptr<ServiceProcess> Serve(const std::vector<std::string>& variables = {}, const char* every = "0.02") {
        auto service = std::make_unique<ServiceProcess>(
            std::vector<std::string>{TARVEX_HOST, "--root", host_.Root(), "serve", "--every", every}, variables);
        EXPECT_TRUE(service->WaitForOutput(kServing, kLong)) << service->Printed();
        return service;
    }

    static void Stop(ServiceProcess& service, ServiceProcess::Event event = ServiceProcess::Event::CtrlC) {
        service.Interrupt(event);
        EXPECT_TRUE(service.WaitFor(kLong));
        EXPECT_EQ(service.ExitCode(), 0) << service.Printed();
    }

    std::string Tell(const std::vector<std::string>& words, int exit_code = 0) const {
        return Slashed(host_.Tell(words, exit_code));
    }

    // The mailbox keeps silent about its messages until it is told to go on; how often it has done so.
    void Block() {
        mailbox_.SetFault([this](const std::string& command) {
            if (command == "UIDL" && blocking_) {
                ++blocked_;
                for (const auto end = Clock::now() + kLong; blocking_ && Clock::now() < end;)
                    std::this_thread::sleep_for(1ms);
            }
            return "";
        });
    }

    void WaitUntilBlocked() {
        ASSERT_TRUE(Eventually([this] { return blocked_ > 0; }));
    }

    std::string Setting(const std::string& key) const {
        CRootPath root;
        EXPECT_TRUE(root.SetRootPath(host_.Root()));
        const CPopProfileSetting& setting = root.users.at(0)->profiles.at(0)->setting;
        return key == "nickname" ? setting.nickname : std::to_string(setting.timer);
    }

    Host host_;
    std::atomic<bool> blocking_ = true;
    std::atomic<int> blocked_ = 0;
    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
};

}  // namespace tarvex::testing
