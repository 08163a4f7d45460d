#pragma once

// An old copy of a tree, and what is done with it.

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/host/service/served_tree.h"

namespace tarvex::testing {

using Words = std::vector<std::string>;

constexpr const char* kWhy = "its generation is 5, and should be 12";

// A tree of generation 5, with a profile that is due and one message in its mailbox.
class OldCopyOfTree : public ::testing::Test {
protected:
    OldCopyOfTree() {
        mailbox_.Add({"id-1", "Subject: one\r\n\r\none\r\n"});
        path_ = host_.AddProfile(mailbox_.Port(), sink_.Port());
        std::filesystem::permissions(host_.Root(), std::filesystem::perms::owner_all);
        std::filesystem::create_directory(host_.Root() + "/.tarvex");
        SetGeneration("5\n");
    }

    void AddRules(const std::string& more = "") {
        WriteFile(host_.Root() + "/host.def", "[version]\r\n0\r\n\r\n" + more);
    }

    std::string File() const { return host_.Root() + "/.tarvex/generation"; }
    void SetGeneration(const std::string& content) const { WriteFile(File(), content); }

    std::unique_ptr<ChildProcess> Serve(const Words& more = {}, const std::string& until = kServing) {
        Words words = {TARVEX_HOST, "--root", host_.Root(), "serve", "--every", "0.02"};
        words.insert(words.end(), more.begin(), more.end());
        auto service = std::make_unique<ChildProcess>(words, ChildProcess::Output::Together);
        EXPECT_TRUE(service->WaitForOutput(until, kLong));
        return service;
    }

    std::unique_ptr<ChildProcess> ServeOldCopy() { return Serve({"--expect-generation", "12"}, kWhy); }

    std::string Do(const Words& words, int exit_code = 0) const { return Slashed(host_.Tell(words, exit_code)); }

    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    Host host_;
    std::string path_;
};

}  // namespace tarvex::testing
