#pragma once

// What the tests of the command `tarvex` share.

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tarvex/tarvex.h"
#include "testing/child_process.h"
#include "testing/mail_servers.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {

inline constexpr const char* kPhone = "phone@example.net";

inline std::string Unix(std::string text) {
    std::erase(text, '\r');
    return text;
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

    // What a run that goes well prints.
    std::string Run() const { return Tell({"run"}); }

    static std::string Native(std::string path) {
        std::ranges::replace(path, '\\', '/');
        return path;
    }

private:
    TempDir folder_;
};

inline StoredMail MailNumber(int number) {
    const std::string id = "mail-" + std::to_string(number);
    return {id, "From: a@example.org\r\nSubject: " + id + "\r\n\r\ntext\r\n"};
}

}  // namespace tarvex::testing
