// The data tree of the tests against real servers.

#include "tests/real/forwarding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace tarvex::testing {

namespace {

constexpr int kRunPatience_ms = 200'000;

}  // namespace

std::vector<std::string> HostCommand() {
    const char* const other = std::getenv("TARVEX_TEST_HOST");
    if (!other) return {TARVEX_HOST};
    std::istringstream words(other);
    return {std::istream_iterator<std::string>(words), {}};
}

Forwarding::Forwarding(int pop_port, int smtp_port) {
    if (root_.SetRootPath(RootDirectory()) != 1) throw std::runtime_error("no root");
    CUser* user = root_.CreateNewUser("alice", "secret", 0);
    profile_ = user->CreateNewPopProfile("alice's mailbox", kSender);
    CPopProfileSetting& setting = profile_->setting;
    setting.popserver = "127.0.0.1";
    setting.popport = pop_port;
    setting.popuser = kAlice.user;
    setting.poppassword = kAlice.password;
    setting.smtpserver = "127.0.0.1";
    setting.smtpport = smtp_port;
    setting.timer = 0;
    setting.logsize = 0;
    setting.timeout = 60;
    AddAddress(kPhone);
}

CForwardAddress& Forwarding::AddAddress(const std::string& address) {
    return *profile_->CreateNewForwardAddress("a friend", address);
}

std::string Forwarding::LogFile() const { return ReadFile(RootDirectory() + "/user0/from0/profile.log"); }

std::string Forwarding::Run() {
    const std::size_t before = LogFile().size();
    Tarvex(&root_);
    EXPECT_EQ(root_.WaitThread(kRunPatience_ms), 1);
    return LogFile().substr(before);
}

Finished Forwarding::TellHost(const std::vector<std::string>& command, const std::vector<std::string>& environment) {
    EXPECT_EQ(profile_->SaveSetting(), 1);
    std::vector<std::string> words = HostCommand();
    words.insert(words.end(), {"--root", RootDirectory()});
    words.insert(words.end(), command.begin(), command.end());
    return testing::Run(words, environment);
}

std::string Forwarding::RunHost(const std::vector<std::string>& environment) {
    const std::size_t before = LogFile().size();
    const Finished host = TellHost({"run", "--quiet"}, environment);
    EXPECT_EQ(host.status, 0) << host.output;
    return LogFile().substr(before);
}

std::vector<std::string> Forwarding::Uidls(int address) const {
    std::istringstream lines(
        ReadFile(RootDirectory() + "/user0/from0/forwardto" + std::to_string(address) + "/uidl.def"));
    std::vector<std::string> uidls;
    for (std::string line; std::getline(lines, line);) uidls.push_back(line);
    return uidls;
}

int CountOf(std::string_view text, std::string_view part) {
    int count = 0;
    for (std::size_t at = 0; (at = text.find(part, at)) != std::string_view::npos; at += part.size()) ++count;
    return count;
}

int CountOfHeld(const std::string& held, std::string_view words) {
    std::istringstream lines(held);
    int count = 0;
    for (std::string line; std::getline(lines, line);)
        count += line.starts_with("        \"reply\": ") && line.find(words) != std::string::npos ? 1 : 0;
    return count;
}

std::vector<std::string> Texts(const std::vector<GeneratedMail>& mails) {
    std::vector<std::string> texts;
    for (const GeneratedMail& mail : mails) texts.push_back(mail.text);
    std::sort(texts.begin(), texts.end());
    return texts;
}

std::vector<std::string> Texts(const std::vector<ArrivedMail>& mails) {
    std::vector<std::string> texts;
    for (const ArrivedMail& mail : mails) texts.push_back(mail.text);
    std::sort(texts.begin(), texts.end());
    return texts;
}

}  // namespace tarvex::testing
