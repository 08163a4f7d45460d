// The file of known providers: its form, and the one that ships.

#include "host/setup/known_servers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>

#include "host/system/command_error.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {
namespace {

using namespace host;
using ::testing::IsEmpty;
using ::testing::Not;

KnownProvider Provider(const std::string& domain, const std::string& text) {
    const TempDir folder;
    WriteFile(folder / "servers", text);
    return KnownProviderOf(domain, folder / "servers").value();
}

TEST(KnownServers, LineTellsServersUserAndLogin) {
    const std::string text =
        "# words\n\na.example,b.example  pop.example:995  smtp.example:587  name  app-password  Allow it first\r\n"
        ".c.example -  - either token\n";
    const KnownProvider b = Provider("B.Example", text);
    EXPECT_EQ(b.pop, (MailServer{"pop.example", 995, PopTls::FromTheFirstByte}));
    EXPECT_EQ(b.smtp, (MailServer{"smtp.example", 587, PopTls::Stls}));
    EXPECT_EQ(b.user, LoginUser::NameAlone);
    EXPECT_EQ(b.login, LoginKind::AppPassword);
    EXPECT_EQ(b.remark, "Allow it first");
    const KnownProvider below = Provider("x.c.example", text);
    EXPECT_FALSE(below.pop || below.smtp);
    EXPECT_EQ(below.login, LoginKind::Token);
}

TEST(KnownServers, DomainThatIsNotThereOrFileThatIsNotThereTellsNothing) {
    const TempDir folder;
    WriteFile(folder / "servers", ".c.example - - either token\n");
    EXPECT_FALSE(KnownProviderOf("c.example", folder / "servers"));
    EXPECT_FALSE(KnownProviderOf("xc.example", folder / "servers"));
    EXPECT_FALSE(KnownProviderOf("x.c.example", folder / "none"));
}

TEST(KnownServers, LineThatBreaksTheFormIsNamed) {
    for (const char* const line :
         {"a.example pop.example:995 smtp.example:465 name", "a.example pop.example smtp.example:465 name password",
          "a.example pop.example:0 - name password", "a.example - smtp.example:65536 name password",
          "a.example - - nobody password", "a.example - - name secret", "a.example - :25 name password"}) {
        try {
            ReadKnownServers(line);
            ADD_FAILURE() << line;
        } catch (const CommandError& error) {
            EXPECT_EQ(error.ExitCode(), kBadSettings);
            EXPECT_THAT(error.what(), ::testing::HasSubstr(line));
        }
    }
}

TEST(KnownServers, FileThatShipsHoldsEachDomainOnceWithTlsOnly) {
    const std::vector<KnownLine> lines = ReadKnownServers(ReadFile(TARVEX_MAIL_SERVERS));
    EXPECT_GE(lines.size(), 20U);
    std::set<std::string> domains;
    for (const KnownLine& line : lines) {
        for (const std::string& domain : line.domains) {
            EXPECT_TRUE(domains.insert(domain).second) << domain;
            EXPECT_THAT(domain, Not(IsEmpty()));
        }
        const auto& [pop, smtp] = std::pair{line.provider.pop, line.provider.smtp};
        EXPECT_TRUE(!pop || pop->port == 995) << line.domains.front();
        EXPECT_TRUE(!smtp || smtp->port == 465 || smtp->port == 587) << line.domains.front();
    }
    for (const char* const domain : {"gmail.com", "outlook.com", "yahoo.co.jp", "icloud.com", "t-online.de"})
        EXPECT_TRUE(domains.contains(domain)) << domain;
}

}  // namespace
}  // namespace tarvex::testing
