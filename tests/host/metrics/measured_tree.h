#pragma once

// A tree with a profile that has sent two messages, and its service, which serves its figures.

#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/host_program.h"

namespace tarvex::testing {

using namespace std::chrono_literals;

inline int PortIn(const std::string& text) {  // that ends in or has "http://HOST:PORT/metrics"
    return std::stoi(text.substr(text.rfind(':', text.find("/metrics\n")) + 1));
}

// The values by name and labels, of counters alone.
inline std::map<std::string, double> CountersIn(const std::string& text) {
    std::map<std::string, double> counters;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t end = line.find_first_of("{ ");
        const bool is_counter = line.substr(0, end).ends_with("_total") || line.find("_bucket") != std::string::npos;
        if (line.starts_with("tarvex_") && is_counter)
            counters[line.substr(0, line.rfind(' '))] = std::stod(line.substr(line.rfind(' ')));
    }
    return counters;
}

class MeasuredTree : public ::testing::Test {
protected:
    // "unix:" stands for a path of its own.
    explicit MeasuredTree(const std::string& place) : place_(place == "unix:" ? place + Path() : place) {
        host_.AddProfile(mailbox_.Port(), sink_.Port(), [](CPopProfile& profile) { profile.setting.timer = 60; });
        mailbox_.Add(MailNumber(1));
        mailbox_.Add(MailNumber(2));
        host_.Run(0, {"--now"});
        Serve();
    }

    void Serve() {
        service_ = std::make_unique<ChildProcess>(std::vector<std::string>{TARVEX_HOST, "--root", host_.Root(), "serve",
                                                                           "--every", "0.05", "--metrics", place_},
                                                  ChildProcess::Output::Together);
        ASSERT_TRUE(service_->WaitForOutput("serving metrics on ", 20s));
        ASSERT_TRUE(service_->WaitForOutput("\n", 20s, service_->Printed().find("serving metrics on ")));
    }

    std::string Path() const { return folder_ / "metrics"; }

    TempDir folder_;
    const std::string place_;
    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    Host host_;
    std::unique_ptr<ChildProcess> service_;
};

}  // namespace tarvex::testing
