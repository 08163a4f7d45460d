// What a domain publishes: which names are asked, and what their records say.

#include "host/receivers/published.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "testing/dns_server.h"

namespace tarvex::host {
namespace {

using testing::DnsServer;
using ::testing::ElementsAre;
using namespace std::chrono_literals;

TEST(Published, TheDomainOfAnAddress) {
    const std::pair<const char*, const char*> cases[] = {
        {"me@Example.ORG", "example.org"},
        {"Me <me@example.org>", "example.org"},
        {"\"a@b.c\"@example.org.", "example.org"},
        {"me", ""},
        {"me@localhost", ""},
        {"me@[127.0.0.1]", ""},
        {"me@ex ample.org", ""},
        {"me@.org", ""},
        {"", ""},
        {"me@\x93\xFA.example", ""},
    };
    for (const auto& [address, domain] : cases) EXPECT_EQ(DomainOf(address), domain) << address;
}

TEST(Published, ADomainWithoutRecordsIsLookedForUpToTheTop) {
    DnsServer server;
    server.Add("a.b.example.org", "google-site-verification=1");
    server.Add("a.b.example.org", "v=spf10 -all");
    server.Add("_dmarc.a.b.example.org", "v=DMARC10; p=reject");
    const Published published = LookUpPublished("a.b.example.org", {20s, server.Address()});
    EXPECT_EQ(published.spf.ending, DnsEnding::NoSuchRecord);
    EXPECT_EQ(published.dmarc.ending, DnsEnding::NoSuchRecord);
    EXPECT_EQ(published.trouble, "");
    EXPECT_THAT(server.Asked(),
                ElementsAre("a.b.example.org", "_dmarc.a.b.example.org", "_dmarc.b.example.org", "_dmarc.example.org"));
}

TEST(Published, APolicyHoldsForItsDomainAndTheDomainsBelow) {
    struct {
        const char* record;
        DmarcPolicy own, below;
    } const cases[] = {
        {"v=DMARC1; p=reject", DmarcPolicy::Reject, DmarcPolicy::Reject},
        {"v=DMARC1;p=none;sp=quarantine", DmarcPolicy::None, DmarcPolicy::Quarantine},
        {"v=DMARC1 ; sp = None ; P = Reject ;", DmarcPolicy::Reject, DmarcPolicy::None},
        {"v=DMARC1; rua=mailto:a@example.org", DmarcPolicy::None, DmarcPolicy::None},
        {"v=DMARC1; p=nonsense; =; ;;", DmarcPolicy::None, DmarcPolicy::None},
        {"v=DMARC1", DmarcPolicy::None, DmarcPolicy::None},
    };
    for (const auto& [record, own, below] : cases) {
        DnsServer server;
        server.Add("_dmarc.example.org", record);
        const DnsSettings settings{20s, server.Address()};
        EXPECT_EQ(LookUpPublished("example.org", settings).dmarc.policy, own) << record;
        const Published published = LookUpPublished("a.example.org", settings);
        EXPECT_EQ(published.dmarc.policy, below) << record;
        EXPECT_EQ(published.dmarc.name, "_dmarc.example.org") << record;
    }
}

TEST(Published, OfSeveralPoliciesNoneHolds) {
    DnsServer server;
    server.Add("_dmarc.a.example.org", "v=DMARC1; p=reject");
    server.Add("_dmarc.a.example.org", "v=DMARC1; p=quarantine");
    server.Add("_dmarc.example.org", "v=DMARC1; p=reject");
    const Published published = LookUpPublished("a.example.org", {20s, server.Address()});
    EXPECT_EQ(published.dmarc.policy, DmarcPolicy::None);
    EXPECT_EQ(published.dmarc.name, "_dmarc.a.example.org");
}

// Each answer comes in good time, all together do not.
TEST(Published, TheTimeIsThatOfAllLookUpsTogether) {
    DnsServer server;
    server.Replies([](const std::string& reply, bool) {
        std::this_thread::sleep_for(200ms);
        return std::vector{reply};
    });
    const Published published = LookUpPublished("a.b.c.d.e.f.g.h.example.org", {500ms, server.Address()});
    EXPECT_EQ(published.dmarc.ending, DnsEnding::Failed);
    EXPECT_EQ(published.trouble, "no answer from the DNS in time");
}

}  // namespace
}  // namespace tarvex::host
