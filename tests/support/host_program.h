#pragma once

// What the tests of the command `tarvex` share.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "loopback/mail_servers.h"
#include "tarvex/tarvex.h"
#include "testing/child_process.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {

using loopback::DeliveredMail;
using loopback::MailboxServer;
using loopback::SinkServer;
using loopback::StoredMail;

constexpr int kNoRoot = 2;
constexpr int kBadUsage = 64;
constexpr int kUnavailable = 69;
constexpr int kBroken = 70;
inline constexpr const char* kPhone = "phone@example.net";

inline std::string Unix(std::string text) {
    std::erase(text, '\r');
    return text;
}

// The report of a run without the indent of the further lines of an answer.
inline std::string AsInTheLog(std::string report) {
    for (std::size_t at = 0; (at = report.find("\n  ", at)) != std::string::npos; ++at) report.erase(at + 1, 2);
    return report;
}

// A data tree and the program that runs it.
class Host {
public:
    std::string Root() const { return folder_ / "tree"; }

    // A profile of a new user that is due at every run, with one forwarding address. `adapt` may change what is saved.
    // Returns its directory.
    std::string AddProfile(int pop_port, int smtp_port, const std::function<void(CPopProfile&)>& adapt = {}) {
        CRootPath root;
        if (!root.SetRootPath(Root())) throw std::runtime_error("no tree");
        CPopProfile& profile = *root.CreateNewUser("user", "secret", 0)->CreateNewPopProfile("", "me@example.org");
        profile.setting.popserver = profile.setting.smtpserver = "127.0.0.1";
        profile.setting.popport = pop_port;
        profile.setting.smtpport = smtp_port;
        profile.setting.popuser = "user";
        profile.setting.poppassword = "secret";
        profile.setting.apop = 1;
        profile.setting.timer = 0;
        profile.CreateNewForwardAddress("phone", kPhone);
        if (adapt) adapt(profile);
        profile.SaveSetting();
        for (const auto& address : profile.forward_addresses) address->SaveSetting();
        return Native(profile.path);
    }

    using Output = ChildProcess::Output;

    ChildProcess Start(Output output = Output::Pipe, const std::vector<std::string>& more = {}) const {
        std::vector<std::string> words = {"run"};
        words.insert(words.end(), more.begin(), more.end());
        return StartCommand(words, output);
    }

    ChildProcess StartCommand(const std::vector<std::string>& words, Output output = Output::Pipe,
                              const std::vector<std::string>& variables = {}) const {
        std::vector<std::string> all = {TARVEX_HOST, "--root", Root()};
        all.insert(all.end(), words.begin(), words.end());
        return ChildProcess(all, output, variables);
    }

    // What a command prints that ends with that code and without a word to standard error.
    std::string Tell(const std::vector<std::string>& words, int exit_code = 0) const {
        ChildProcess command = StartCommand(words);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), exit_code);
        EXPECT_EQ(command.Errors(), "");
        return command.Printed();
    }

    // What a command says to standard error that ends with that code.
    std::string Fail(int exit_code, const std::vector<std::string>& words) const {
        ChildProcess command = StartCommand(words);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), exit_code) << command.Errors();
        return command.Errors();
    }

    // What a run prints. One that does not go well says so on standard error.
    std::string Run(int exit_code = 0, const std::vector<std::string>& more = {}) const {
        ChildProcess run = Start(Output::Pipe, more);
        run.Wait();
        EXPECT_EQ(run.ExitCode(), exit_code);
        EXPECT_EQ(run.Errors().empty(), exit_code == 0) << run.Errors();
        return run.Printed();
    }

    static std::string Native(std::string path) {
        std::ranges::replace(path, '\\', static_cast<char>(std::filesystem::path::preferred_separator));
        return path;
    }

private:
    TempDir folder_;
};

inline StoredMail MailNumber(int number) {
    const std::string id = "mail-" + std::to_string(number);
    return {id, "From: a@example.org\r\nSubject: " + id + "\r\n\r\ntext\r\n"};
}

inline std::string Log(const std::string& profile) { return Unix(ReadFile(profile + "/profile.log")); }
inline std::string Uidls(const std::string& profile) { return Unix(ReadFile(profile + "/forwardto0/uidl.def")); }

// Neither control characters nor bytes that are no UTF-8.
inline void ExpectFitForATerminal(std::string_view text) {
    while (!text.empty()) {
        const auto first = static_cast<unsigned char>(text[0]);
        const std::size_t length = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
        ASSERT_LE(length, text.size());
        ASSERT_TRUE(first < 0x80 || first > 0xC2 || (first == 0xC2 && static_cast<unsigned char>(text[1]) >= 0xA0));
        ASSERT_TRUE(first == '\n' || (first >= 0x20 && first != 0x7F)) << text.substr(0, 40);
        for (const char c : text.substr(1, length - 1)) ASSERT_EQ(static_cast<unsigned char>(c) & 0xC0, 0x80);
        text.remove_prefix(length);
    }
}

}  // namespace tarvex::testing
