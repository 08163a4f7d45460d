#pragma once

// The desk in the service, asked by its socket as the console asks it.

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/terminal/json.h"
#include "tests/host/desk/desk_client.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {

inline constexpr std::chrono::seconds kDeskPatience{20};
inline constexpr const char* kDeskClient = "192.0.2.7";

// Two users, taro an administrator, each with a profile, and the service that answers for them.
class DeskTest : public ::testing::Test {
protected:
    DeskTest() {
        host_.Tell({"init"});
        for (const char* const name : {"taro", "hanako"}) {
            WriteFile(folder_ / "password", std::string(name) + "'s secret\n");
            std::vector<std::string> words = {"user", "add", name, "--password-file", folder_ / "password"};
            if (name == std::string("taro")) words.insert(words.end(), {"--administrator", "on"});
            host_.Tell(words);
            const std::string mail = std::string(name) + "@example.org";
            host_.Tell({"profile", "add", name, mail, "--popserver", "127.0.0.1", "--popport",
                        std::to_string(mailbox_.Port()), "--popuser", name, "--smtpserver", "127.0.0.1", "--smtpport",
                        std::to_string(sink_.Port())});
            host_.Tell({"forward", "add", mail, "phone@example.net", "--all-mail"});
        }
        Serve();
    }

    void Serve(const std::vector<std::string>& more = {}) {
        service_.reset();
        std::vector<std::string> words = {TARVEX_HOST, "--root", host_.Root(), "serve", "--console", Path()};
        words.insert(words.end(), more.begin(), more.end());
        service_ = std::make_unique<ChildProcess>(words, ChildProcess::Output::Together);
        ASSERT_TRUE(service_->WaitForOutput("serving ", kDeskPatience));
    }

    std::string Path() const { return DeskClient::Place(folder_); }

    DeskClient Connect() const { return DeskClient(Path()); }

    // What comes back for these bytes, without the length before it.
    std::string Exchange(const std::string& bytes) const {
        const std::string answer = Connect().Exchange(bytes);
        return answer.size() < 4 ? "" : answer.substr(4);
    }

    static std::string WithLength(const std::string& text) {
        std::string message;
        for (int shift = 24; shift >= 0; shift -= 8) message += static_cast<char>(text.size() >> shift & 0xFF);
        return message + text;
    }

    host::Json Ask(host::Json question) const { return host::Json::parse(Exchange(WithLength(question.dump()))); }

    // As somebody who is logged in; empty for nobody.
    host::Json AskAs(const host::Json& session, const std::string& name,
                     host::Json question = host::Json::object()) const {
        question["ask"] = name;
        for (const char* const key : {"session", "token"}) {
            if (session.contains(key) && !question.contains(key)) question[key] = session[key];
        }
        return Ask(std::move(question));
    }

    host::Json LogIn(const std::string& name, const host::Json& more = host::Json::object(),
                     const std::string& password = {}) const {
        host::Json question = more;
        question["ask"] = "login";
        question["name"] = name;
        question["password"] = password.empty() ? name + "'s secret" : password;
        if (!question.contains("address")) question["address"] = kDeskClient;
        return Ask(question);
    }

    // A job's state once it has ended.
    host::Json Finish(const host::Json& session, host::Json job) const {
        for (const auto deadline = std::chrono::steady_clock::now() + kDeskPatience;
             job["status"] == "working" && std::chrono::steady_clock::now() < deadline;) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            job = AskAs(session, "job", {{"job", job["job"]}});
        }
        return job;
    }

    TempDir folder_;
    MailboxServer mailbox_{"taro", "secret"};
    SinkServer sink_;
    Host host_;
    std::unique_ptr<ChildProcess> service_;
};

}  // namespace tarvex::testing
