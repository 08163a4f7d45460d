// The first session of somebody who has installed the packages and read the README: from `tarvex init` to a service
// that forwards, with real servers on both sides.

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <memory>

#include "testing/child_process.h"
#include "tests/real/mail_reader.h"
#include "tests/real/servers/servers_fixture.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using Words = std::vector<std::string>;

constexpr const char* kMailbox = "me@example.test";
constexpr const char* kOffice = "office@work.example.test";
constexpr const char* kPager = "pager@text.example.test";
constexpr int kPagerLimit_bytes = 120;

class Newcomer : public RealServersTest {
protected:
    void SetUp() override {
        RealServersTest::SetUp();
        if (!fs::exists(HostCommand().front())) GTEST_SKIP() << "the packages could not be made";
    }

    // The command in a home of its own.
    std::unique_ptr<ChildProcess> Start(const Words& words, ChildProcess::Output output = ChildProcess::Output::Pipe,
                                        const std::string& input = {}) const {
        Words all = HostCommand();
        all.insert(all.end(), words.begin(), words.end());
        return std::make_unique<ChildProcess>(
            all, output,
            Words{"HOME=" + home_.String(), "XDG_CONFIG_HOME=" + (home_ / "config"),
                  "XDG_DATA_HOME=" + (home_ / "data"), "SSL_CERT_FILE=" + smtp_->CaFile()},
            input);
    }

    // What a command prints that goes well.
    std::string Do(const Words& words, const std::string& input = {}) const {
        const auto command = Start(words, ChildProcess::Output::Pipe, input);
        command->Wait();
        EXPECT_EQ(command->ExitCode(), 0) << ::testing::PrintToString(words) << command->Printed();
        EXPECT_EQ(command->Errors(), "") << ::testing::PrintToString(words);
        return command->Printed();
    }

    std::unique_ptr<ChildProcess> Serve() const {
        auto service = Start({"serve", "--every", "0.2"}, ChildProcess::Output::Together);
        EXPECT_TRUE(service->WaitForOutput("serving \"" + Tree(), kPatience)) << service->Printed();
        return service;
    }

    static void Stop(ChildProcess& service) {
        service.Signal(SIGTERM);
        EXPECT_TRUE(service.WaitFor(10s));
        EXPECT_EQ(service.ExitCode(), 0) << service.Printed();
    }

    // A new mail in the mailbox, of plain text.
    GeneratedMail Deliver() {
        GeneratedMail mail = MakeMail("ascii", ++delivered_, 3000);
        pop_->Deliver(kAlice, mail);
        return mail;
    }

    // The newest of that many mails that have arrived, at the address.
    ArrivedMail Newest(std::size_t count, const std::string& recipient) {
        std::vector<ArrivedMail> mails = smtp_->WaitForMails(count);
        EXPECT_THAT(mails, SizeIs(count));
        for (const ArrivedMail& mail : seen_) {
            const auto same = std::ranges::find(mails, mail.added, &ArrivedMail::added);
            if (same != mails.end()) mails.erase(same);
        }
        seen_.insert(seen_.end(), mails.begin(), mails.end());
        EXPECT_THAT(mails, SizeIs(1));
        if (mails.size() != 1) return {};
        EXPECT_EQ(mails[0].recipient, recipient);
        EXPECT_EQ(mails[0].sender, kMailbox);
        return mails[0];
    }

    static void ExpectShort(const ArrivedMail& mail) {
        const SeenMail seen = ReadMail(mail.added + mail.text);
        EXPECT_EQ(seen.content_type, "text/plain");
        EXPECT_THAT(seen.text, Not(IsEmpty()));
        EXPECT_LE(seen.text.size(), kPagerLimit_bytes + 1U);  // and a line end
    }

    std::string Tree() const { return home_ / "data/tarvex"; }
    std::size_t Handled(int address) const {
        return static_cast<std::size_t>(
            CountOf(ReadFile(Tree() + "/user0/from0/forwardto" + std::to_string(address) + "/uidl.def"), "\n"));
    }

    std::unique_ptr<PopServer> pop_;
    std::unique_ptr<SmtpServer> smtp_;
    TempDir home_;
    int delivered_ = 0;
    std::vector<ArrivedMail> seen_;
};

TEST_F(Newcomer, SetsUpAMailboxAndHasItServed) {
    pop_ = std::make_unique<PopServer>();
    smtp_ = std::make_unique<SmtpServer>();
    for (int i = 0; i < 3; ++i) Deliver();

    EXPECT_THAT(Do({"init"}), AllOf(HasSubstr("Made the data tree " + Tree()), EndsWith("tarvex setup\n")));
    EXPECT_EQ(Do({"user", "add", "taro"}), "Added user user0 (taro).\n");
    EXPECT_THAT(Do({"profile",
                    "add",
                    "taro",
                    kMailbox,
                    "--popserver",
                    "127.0.0.1",
                    "--popport",
                    std::to_string(pop_->Port()),
                    "--popuser",
                    kAlice.user,
                    "--smtpserver",
                    "localhost",
                    "--smtpport",
                    std::to_string(smtp_->TlsPort()),
                    "--sslsmtp",
                    "tls",
                    "--smtpauth",
                    "on",
                    "--timer",
                    "always",
                    "--password-stdin"},
                   kAlice.password + "\n"),
                StartsWith("Added profile user0/from0 (me@example.test)."));
    EXPECT_THAT(Do({"forward", "add", kMailbox, kOffice, "--new-mail-only"}), HasSubstr("3 in the mailbox count as"));
    Do({"forward", "add", kMailbox, kPager, "--textonly", std::to_string(kPagerLimit_bytes)});
    EXPECT_THAT(Do({"schedule", "add", kOffice, "2001-12-24 18:00 .. 2001-12-26 9:00"}), HasSubstr("  1  "));

    const std::string checked = Do({"check", "--no-dns"});
    EXPECT_THAT(checked, AllOf(ContainsRegex("log in +[0-9]+ ms  .OK Logged in"), HasSubstr("(3 messages, ")));
    ASSERT_THAT(checked, AllOf(ContainsRegex("TLS +[0-9]+ ms\n"), ContainsRegex("log in +[0-9]+ ms  235 ")));
    EXPECT_THAT(Do({"plan"}), AllOf(HasSubstr(std::string(kOffice) + ": outside its schedule now\n"),
                                    HasSubstr("  3 messages in the mailbox, 3 to fetch\n"),
                                    HasSubstr("-> pager@text.example.test as text of at most 120 bytes\n")));
    EXPECT_THAT(smtp_->WaitForMails(0), IsEmpty());

    auto service = Serve();
    ASSERT_TRUE(service->WaitForOutput("run ended, forwarded 3 messages", kPatience)) << service->Printed();
    seen_ = smtp_->WaitForMails(3);
    EXPECT_THAT(seen_, SizeIs(3));
    for (const ArrivedMail& mail : seen_) {
        EXPECT_EQ(mail.recipient, kPager);
        ExpectShort(mail);
    }
    EXPECT_THAT(Do({"status", "--json"}), AllOf(HasSubstr("\"fetched\": 3"), HasSubstr("\"copies\": 3")));
    EXPECT_THAT(Do({"log", kMailbox}), AllOf(HasSubstr("* POP Process - success"),
                                             HasSubstr("* SMTP Process - success"), Not(HasSubstr(kAlice.password))));

    // An edit takes effect in the next run: what came while the schedule was closed is still new to the address.
    const GeneratedMail first = Deliver();
    ExpectShort(Newest(4, kPager));
    Do({"schedule", "add", kOffice, "daily"});
    EXPECT_EQ(Newest(5, kOffice).text, first.text);
    Do({"schedule", "remove", kOffice, "2"});
    Do({"forward", "set", kPager, "--textonly", "whole"});
    const GeneratedMail second = Deliver();
    EXPECT_EQ(Newest(6, kPager).text, second.text);
    EXPECT_THAT(Do({"status", "--json"}), HasSubstr("\"failed\": 0"));

    Stop(*service);
    EXPECT_EQ(Handled(0), 4U);
    EXPECT_EQ(Handled(1), 5U);

    service = Serve();
    ASSERT_TRUE(service->WaitForOutput("run ended, nothing new", kPatience)) << service->Printed();
    const GeneratedMail third = Deliver();
    EXPECT_EQ(Newest(7, kPager).text, third.text);  // and nothing else has come
    Stop(*service);
    EXPECT_EQ(pop_->Count(kAlice), delivered_);
}

}  // namespace
}  // namespace tarvex::testing
