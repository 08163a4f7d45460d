// POP3 through TLS with the recipe of docs/stunnel.md: a real stunnel in front of a real POP3 server.

#include <gmock/gmock.h>

#include "tests/real/servers/servers_fixture.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr const char* kStunnel = "/usr/bin/stunnel4";

// What stands between ```ini and ``` in the document.
std::string Recipe() {
    const std::string document = ReadFile(fs::path(TARVEX_DOCS) / "stunnel.md");
    constexpr std::string_view kBegin = "```ini\n";
    const std::size_t begin = document.find(kBegin) + kBegin.size();
    return document.substr(begin, document.find("```", begin) - begin);
}

void Replace(std::string& text, const std::string& what, const std::string& with) {
    const std::size_t place = text.find(what);
    ASSERT_NE(place, std::string::npos) << what << " does not stand in the recipe";
    text.replace(place, what.size(), with);
}

class RealStunnel : public RealServersTest {
protected:
    void SetUp() override {
        RealServersTest::SetUp();
        if (!fs::exists(kStunnel)) GTEST_SKIP() << "stunnel is not installed (package stunnel4)";
    }

    // The recipe with the test's own ports, and its own authority in the place of the system's.
    void Tunnel(const PopServer& pop, const std::string& ca_file) {
        port_ = FreePorts(1).front();
        std::string recipe = Recipe();
        Replace(recipe, "127.0.0.1:11001", "127.0.0.1:" + std::to_string(port_));
        Replace(recipe, "connect = pop.example.org:995", "connect = 127.0.0.1:" + std::to_string(pop.TlsPort()));
        Replace(recipe, "/etc/ssl/certs/ca-certificates.crt", ca_file);
        WriteFile(folder_ / "stunnel.conf", "foreground = yes\npid =\n" + recipe);
        WriteFile(folder_ / "stunnel.out", "");
        for (const char* name : {"stunnel.conf", "stunnel.out"}) folder_.GiveAway(folder_ / name);
        process_ = std::make_unique<ServerProcess>(ServerProcess::Command{
            .words = {kStunnel, (folder_ / "stunnel.conf").string()}, .output = folder_ / "stunnel.out"});
        ASSERT_TRUE(WaitUntil([&] { return !process_->Running() || Answers(port_, ""); }));
        ASSERT_TRUE(process_->Running()) << Output();
    }

    // A run ends before the password is sent, for the reason that stunnel says.
    void ExpectNoLogin(const PopServer& pop, const std::string& reason) const {
        Forwarding forwarding(port_, UnusedPort());
        const std::string log = forwarding.Run();
        EXPECT_THAT(log, Not(HasSubstr("PASS")));
        EXPECT_THAT(forwarding.Uidls(), IsEmpty());
        EXPECT_THAT(pop.Log(), Not(HasSubstr("Login:")));
        EXPECT_THAT(Output(), HasSubstr(reason));
    }

    std::string Output() const { return ReadFile(folder_ / "stunnel.out"); }

    ServerFolder folder_;
    int port_ = 0;
    std::unique_ptr<ServerProcess> process_;
    const std::vector<GeneratedMail> mails_ = MakeOrdinaryMails(8, 20'000);
};

TEST_F(RealStunnel, RecipeFetchesThroughTls) {
    PopServer pop(TlsOptions{.names = {"pop.example.org"}});
    pop.Deliver(kAlice, mails_);
    ASSERT_NO_FATAL_FAILURE(Tunnel(pop, pop.CaFile()));
    const SmtpServer smtp;
    Forwarding forwarding(port_, smtp.PlainPort());

    const std::string log = forwarding.Run();

    EXPECT_EQ(Texts(smtp.WaitForMails(8)), Texts(mails_)) << log << Output();
    EXPECT_THAT(pop.Log(), HasSubstr("TLS"));
}

TEST_F(RealStunnel, RecipeRefusesAServerOfAnotherName) {
    PopServer pop(TlsOptions{.names = {"other.example.org"}});
    pop.Deliver(kAlice, mails_);
    ASSERT_NO_FATAL_FAILURE(Tunnel(pop, pop.CaFile()));
    ExpectNoLogin(pop, "Subject checks failed");
}

TEST_F(RealStunnel, RecipeRefusesAnUnknownAuthority) {
    PopServer pop(TlsOptions{.names = {"pop.example.org"}});
    const PopServer other(TlsOptions{.names = {"pop.example.org"}});
    pop.Deliver(kAlice, mails_);
    ASSERT_NO_FATAL_FAILURE(Tunnel(pop, other.CaFile()));
    ExpectNoLogin(pop, "issuer certificate");
}

}  // namespace
}  // namespace tarvex::testing
