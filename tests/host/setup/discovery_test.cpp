// From a mail domain to its servers: who is asked in which order, and what is believed.

#include "host/setup/discovery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <set>
#include <string>

namespace tarvex::host {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

// A world in which these servers can be used and these services are named. Looks come from several threads.
struct World {
    std::map<std::string, ServiceAnswer> named;
    std::set<std::string> usable;                      // as ShowServer shows them
    std::vector<std::string> names = {"server name"};  // of every certificate
    std::vector<std::string> looked;
    std::mutex mutex;

    Discovery Find(CProtocol protocol, const std::optional<KnownProvider>& known = {},
                   const std::string& domain = "Example.org") {
        const SearchTools tools{
            [this](const std::string& name) {
                return named.contains(name) ? named[name] : ServiceAnswer{DnsEnding::NoSuchRecord, {}, {}};
            },
            [this](CProtocol, const MailServer& server) {
                const std::lock_guard lock(mutex);
                const bool upgrades = server.tls == PopTls::Stls;
                looked.push_back(ShowServer(server) + (upgrades ? " upgrade" : ""));
                ServerLook look;
                look.facts.names = names;
                if (!usable.contains(ShowServer(server))) look.trouble = "nobody there";
                return look;
            }};
        return FindServer(protocol, domain, known, tools);
    }

    void Name(const std::string& service, const std::string& target, unsigned short port) {
        ServiceAnswer& answer = named[service + "._tcp.example.org"];
        answer.ending = DnsEnding::Found;
        answer.records.push_back({target, port, 0, 0});
    }
};

TEST(Discovery, KnownProviderComesFirstAndNobodyElseIsAsked) {
    World world;
    world.usable = {"pop.known.example port 995", "pop.example.org port 995"};
    world.Name("_pop3s", "pop.example.org", 995);
    KnownProvider known;
    known.pop = MailServer{"pop.known.example", 995, PopTls::FromTheFirstByte};
    const Discovery found = world.Find(CProtocol::Pop3, known);
    EXPECT_EQ(found.found->server.name, "pop.known.example");
    EXPECT_EQ(found.found->by, FoundBy::KnownServers);
    EXPECT_FALSE(found.found->is_foreign);
    EXPECT_THAT(world.looked, ElementsAre("pop.known.example port 995"));
}

TEST(Discovery, DnsComesNextAndTlsFromTheFirstByteBeforeAnUpgrade) {
    World world;
    world.usable = {"a.example.org port 1110", "b.example.org port 1995"};
    world.Name("_pop3", "a.example.org", 1110);
    world.Name("_pop3s", "B.example.org.", 1995);
    KnownProvider gone;
    gone.pop = MailServer{"pop.gone.example", 995, PopTls::FromTheFirstByte};
    const Discovery found = world.Find(CProtocol::Pop3, gone);
    EXPECT_EQ(found.found->server, (MailServer{"b.example.org", 1995, PopTls::FromTheFirstByte}));
    EXPECT_EQ(found.found->by, FoundBy::Dns);
    EXPECT_THAT(found.tried, ElementsAre("pop.gone.example port 995: nobody there"));

    world.usable = {"a.example.org port 1110"};
    EXPECT_EQ(world.Find(CProtocol::Pop3).found->server, (MailServer{"a.example.org", 1110, PopTls::Stls}));
}

TEST(Discovery, UsualNamesComeLast) {
    World world;
    EXPECT_FALSE(world.Find(CProtocol::Pop3).found);
    EXPECT_THAT(world.looked, UnorderedElementsAre("pop.example.org port 995", "pop3.example.org port 995",
                                                   "mail.example.org port 995"));
    world.looked.clear();
    world.usable = {"mail.example.org port 465", "smtp.example.org port 587"};
    const Discovery found = world.Find(CProtocol::Smtp);
    EXPECT_EQ(found.found->server, (MailServer{"mail.example.org", 465, PopTls::FromTheFirstByte}));
    EXPECT_EQ(found.found->by, FoundBy::UsualName);
    EXPECT_THAT(found.tried,
                ElementsAre("smtp.example.org port 465: nobody there", "mail.example.org port 587: nobody there"));
    EXPECT_THAT(world.looked,
                UnorderedElementsAre("smtp.example.org port 465", "mail.example.org port 465",
                                     "smtp.example.org port 587 upgrade", "mail.example.org port 587 upgrade"));
}

TEST(Discovery, ServiceThatIsNotOfferedIsNotGuessedAt) {
    World world;
    world.usable = {"pop.example.org port 995"};
    world.named["_pop3s._tcp.example.org"].ending = DnsEnding::NotOffered;
    EXPECT_EQ(world.Find(CProtocol::Pop3).not_offered, "the DNS of example.org");
    EXPECT_EQ(world.Find(CProtocol::Pop3, KnownProvider{}).not_offered, "the provider of example.org");
    EXPECT_THAT(world.looked, IsEmpty());
    world.Name("_pop3", "pop.example.org", 995);
    EXPECT_TRUE(world.Find(CProtocol::Pop3).found);
}

TEST(Discovery, DnsThatFailsIsToldAndTheUsualNamesAreTried) {
    World world;
    world.usable = {"pop3.example.org port 995"};
    world.named["_pop3s._tcp.example.org"] = {DnsEnding::Failed, {}, "no answer"};
    const Discovery found = world.Find(CProtocol::Pop3);
    EXPECT_EQ(found.found->server.name, "pop3.example.org");
    EXPECT_THAT(found.tried, ::testing::Contains("DNS: no answer"));
}

// RFC 6186 section 6: whoever answers for DNS must not choose who gets the password.
TEST(Discovery, ServerOfAnotherDomainIsForeignUnlessItsCertificateIsForTheMailDomain) {
    World world;
    world.usable = {"pop.provider.example port 995", "pop.notexample.org port 995", "example.org port 995"};
    for (const auto& [target, foreign] : {std::pair{"pop.provider.example", true},
                                          std::pair{"pop.notexample.org", true}, std::pair{"example.org", false}}) {
        world.named.clear();
        world.Name("_pop3s", target, 995);
        world.names = {target};
        EXPECT_EQ(world.Find(CProtocol::Pop3).found->is_foreign, foreign) << target;
        world.names = {target, "example.org"};
        EXPECT_FALSE(world.Find(CProtocol::Pop3).found->is_foreign) << target;
    }
}

TEST(Discovery, NamesThatAreNoHostNamesAndTooManyAreLeftOut) {
    World world;
    world.Name("_pop3s", "pop\x1b[31m.example.org", 995);
    for (int i = 0; i < 100; ++i) world.Name("_pop3s", "pop" + std::to_string(i) + ".example.org", 995);
    EXPECT_EQ(world.Find(CProtocol::Pop3).tried.size(), 8U + 3U);
    for (const std::string& looked : world.looked) EXPECT_EQ(looked.find('\x1b'), std::string::npos);
}

}  // namespace
}  // namespace tarvex::host
