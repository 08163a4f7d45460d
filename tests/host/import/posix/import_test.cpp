// `tarvex import`: what it writes, what it shows, and what it refuses.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/system/command_error.h"
#include "tests/support/forwarding.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using Words = std::vector<std::string>;

class Import : public ::testing::Test {
protected:
    Import() { host_.Tell({"init"}); }

    std::string Write(const std::string& name, const std::string& text) const {
        WriteFile(folder_ / name, text);
        return folder_ / name;
    }

    std::string Fetchmailrc(const std::string& more = "") const {
        return Write("fetchmailrc", "poll 127.0.0.1 proto pop3 port " + std::to_string(mailbox_.Port()) +
                                        " user user password secret is " + kPhone + " here keep smtphost 127.0.0.1/" +
                                        std::to_string(sink_.Port()) + more + "\n");
    }

    struct Said {
        int code;
        std::string printed, errors;
    };

    Said Tell(const Words& words) const {
        Words all = {"import"};
        all.insert(all.end(), words.begin(), words.end());
        ChildProcess command = host_.StartCommand(all);
        command.Wait();
        return {command.ExitCode(), command.Printed(), command.Errors()};
    }

    bool IsEmptyTree() const {
        CRootPath root;
        EXPECT_EQ(root.SetRootPath(host_.Root()), 1);
        return root.users.empty();
    }

    Host host_;
    TempDir folder_;
    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
};

TEST_F(Import, ForwardsWhatComesAfterIt) {
    mailbox_.Add(MailNumber(1));
    const Said said = Tell({"fetchmailrc", Fetchmailrc(" ssl"), "--yes"});
    EXPECT_EQ(said.code, host::kUnavailable) << "there is no TLS";
    EXPECT_THAT(said.errors, HasSubstr("line 1: "));
    EXPECT_THAT(said.errors, HasSubstr("user0/from0 got no address; `tarvex forward add user0/from0"));

    EXPECT_EQ(Tell({"fetchmailrc", Fetchmailrc(), "--yes", "--user", "taro"}).code, host::kBadUsage)
        << "the same mailbox";
    host_.Tell({"profile", "remove", "user0/from0", "--yes"});
    const Said good = Tell({"fetchmailrc", Fetchmailrc(), "--yes", "--user", "taro"});
    EXPECT_EQ(good.code, 0) << good.errors;
    mailbox_.Add(MailNumber(2));
    host_.Run(0, {"--now"});
    EXPECT_THAT(Arrived(sink_), ElementsAre(std::pair("mail-2 -> " + std::string(kPhone), 1)));
}

TEST_F(Import, LetsTheIdsOfTheOldClientCountAsHandled) {
    for (int i = 1; i <= 3; ++i) mailbox_.Add(MailNumber(i));
    const std::string ids = Write("ids", "user@127.0.0.1 mail-1\nuser@127.0.0.1 mail-3\nother@127.0.0.1 mail-2\n");
    const Said said = Tell({"fetchmailrc", Fetchmailrc(), "--yes", "--ids", ids});
    EXPECT_EQ(said.code, 0) << said.errors;
    EXPECT_THAT(said.printed, HasSubstr("2 ids of the list count as handled."));
    EXPECT_EQ(mailbox_.Received("USER") + mailbox_.Received("APOP"), 0) << "nothing is asked of the server";
    host_.Run(0, {"--now"});
    EXPECT_THAT(Arrived(sink_), ElementsAre(std::pair("mail-2 -> " + std::string(kPhone), 1)));
}

TEST_F(Import, ShowsWhatItWouldWriteWithoutPasswordsAndWritesNothing) {
    const std::string file = Fetchmailrc(" fetchlimit 5 esmtpname me esmtppassword hidden");
    for (const char* const option : {"--dry-run", "--plain"}) {  // the second one asks, and nobody answers
        const Said said = Tell({"fetchmailrc", file, option});
        EXPECT_EQ(said.code, option == std::string("--dry-run") ? 0 : kBadUsage);
        EXPECT_THAT(
            said.printed,
            AllOf(HasSubstr("New user imported\nNew profile of line 1\n"), HasSubstr("  popserver: 127.0.0.1\n"),
                  HasSubstr("  poppassword: (stored)\n"), HasSubstr("  smtppassword: (stored)\n"),
                  HasSubstr("  forwards to " + std::string(kPhone)), HasSubstr("  line 1: fetchlimit\n"),
                  HasSubstr("What is in the mailboxes now counts as handled.\n")));
        EXPECT_THAT(said.printed + said.errors, AllOf(Not(HasSubstr("secret")), Not(HasSubstr("hidden"))));
        EXPECT_TRUE(IsEmptyTree());
    }
}

TEST_F(Import, RefusesBeforeAnythingIsWritten) {
    const std::string server = "poll pop.example.org proto pop3 user me pass p ";
    struct Case {
        std::string text;
        Words options;
        int code;
        const char* why;
    };
    for (const Case& c : {
             Case{server + "ssl", {}, kBadUsage, "line 1: the file does not say to which address"},
             {server + "sslproto '' is a@b here", {}, kBadUsage, "in clear"},
             {server + "is a@b here poll pop.example.org user me is c@d",
              {},
              kBadUsage,
              "line 1 fetches from the same"},
             {server + "is a@b here user you is c@d",
              {"--address", "x@y"},
              kBadUsage,
              "--address is for a file with one"},
             {server + "is a@b here port many", {}, kBadUsage, "line 1: "},
             {"poll s user \"x", {}, host::kBadData, "line 1: a quote is not closed"},
             {std::string((1 << 20) + 1, '#'), {}, host::kBadData, "larger than"},
             {server + "is a@b here", {"--ids", "/dev/zero"}, host::kNotFound, "no regular file"},
         }) {
        SCOPED_TRACE(c.why);
        Words words = {"fetchmailrc", Write("rc", c.text), "--yes"};
        words.insert(words.end(), c.options.begin(), c.options.end());
        const Said said = Tell(words);
        EXPECT_EQ(said.code, c.code) << said.errors;
        EXPECT_THAT(said.errors, HasSubstr(c.why));
        EXPECT_TRUE(IsEmptyTree());
    }
    std::filesystem::remove(host_.Root() + "/host.def");
    EXPECT_THAT(Tell({"fetchmailrc", Write("rc", server + "ssl is a@b here"), "--yes"}).errors,
                HasSubstr("tarvex init --rules"));
    EXPECT_TRUE(IsEmptyTree());
}

TEST_F(Import, OptionsStandInForWhatTheFileDoesNotSay) {
    const std::string file = Write("mpoprc", "account a\nhost pop.example.org\nuser me\npassword p\ntimeout 99999\n");
    const Said said = Tell({"mpoprc", file, "--dry-run", "--forward", "a@x.example", "--forward", "b@x.example",
                            "--smtpserver", "relay.example.net", "--pop_tls", "starttls", "--all-mail"});
    EXPECT_EQ(said.code, 0) << said.errors;
    EXPECT_THAT(said.printed, AllOf(HasSubstr("  address: me@example.org\n"),
                                    HasSubstr("  smtpserver: relay.example.net\n"), HasSubstr("  pop_tls: starttls\n"),
                                    HasSubstr("  forwards to a@x.example\n"), HasSubstr("  forwards to b@x.example\n"),
                                    HasSubstr("  line 1: timeout: "), HasSubstr("The first run forwards all")));
}

}  // namespace
}  // namespace tarvex::testing
