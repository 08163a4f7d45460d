// Who sent a request, and from which page.

#include "console/http/client.h"

#include <gtest/gtest.h>

#include "console/http/cookies.h"

namespace tarvex::console {
namespace {

TEST(Client, AddressIsTheOneThatTheOutermostTrustedProxySaw) {
    struct Case {
        std::vector<std::string> forwarded;
        unsigned proxies;
        std::string address;
    };
    const std::vector<Case> cases{
        {{}, 0, "192.0.2.9"},
        {{"203.0.113.1"}, 0, "192.0.2.9"},  // said by the client itself
        {{"203.0.113.1"}, 1, "203.0.113.1"},
        {{"10.0.0.1, 203.0.113.1"}, 1, "203.0.113.1"},  // the first is what the client made up
        {{"10.0.0.1, 203.0.113.1 ,198.51.100.7"}, 2, "203.0.113.1"},
        {{"10.0.0.1", "203.0.113.1"}, 1, "203.0.113.1"},
        {{}, 1, ""},
        {{"203.0.113.1"}, 2, ""},
        {{"unknown"}, 1, ""},
        {{""}, 1, ""},
        {{"203.0.113.1,"}, 1, ""},
        {{"2001:DB8::0:1"}, 1, "2001:db8::1"},
        {{"::ffff:203.0.113.1"}, 1, "203.0.113.1"},
    };
    for (const Case& each : cases) {
        Fields headers;
        for (const std::string& value : each.forwarded) headers.push_back({"x-forwarded-for", value});
        EXPECT_EQ(ClientAddress(headers, "192.0.2.9", each.proxies), each.address) << each.proxies;
    }
}

TEST(Client, AnAddressIsWhatEverySystemTakesForOne) {
    for (const char* const right : {"192.0.2.1", "2001:db8::1"}) EXPECT_EQ(PlainAddress(right), right);
    EXPECT_EQ(PlainAddress("::ffff:192.0.2.1"), "192.0.2.1");
    for (const char* const wrong :
         {"", "192.0.2.1:80", "192.0.2", "0x7f.0.0.1", "192.0.2.1 ", "[2001:db8::1]", "fe80::1%eth0", "localhost"})
        EXPECT_EQ(PlainAddress(wrong), "") << wrong;
}

TEST(Client, OnlyOneHostOfTheListIsOurs) {
    const std::vector<std::string> names{"mail.example.org", "localhost", "[::1]"};
    for (const char* const host : {"mail.example.org", "MAIL.example.org:8443", "localhost:1", "[::1]:80", "[::1]"})
        EXPECT_TRUE(IsForUs({{"host", host}}, names)) << host;
    for (const char* const host : {"", "example.org", "mail.example.org.evil.example", "127.0.0.1", "localhost@x"})
        EXPECT_FALSE(IsForUs({{"host", host}}, names)) << host;
    EXPECT_FALSE(IsForUs({}, names));
    EXPECT_FALSE(IsForUs({{"host", "localhost"}, {"host", "localhost"}}, names));
}

TEST(Client, FormsComeFromOurOwnPages) {
    struct Case {
        const char* host;
        const char* site;    // empty: not sent
        const char* origin;  // likewise
        bool is_ours;
    };
    constexpr Case kCases[] = {
        {"m.example", "same-origin", "https://m.example", true},
        {"m.example", "same-origin", "", true},
        {"m.example", "", "https://m.example", true},
        {"M.example:8443", "", "https://m.EXAMPLE:8443", true},
        {"localhost:80", "", "http://localhost:80", true},
        {"127.0.0.1:80", "same-origin", "http://127.0.0.1:80", true},
        {"m.example", "", "", false},
        {"m.example", "", "null", false},
        {"m.example", "", "http://m.example", false},  // could have been put there on the way
        {"m.example", "", "https://m.example:444", false},
        {"m.example", "", "https://m.example.evil", false},
        {"m.example", "cross-site", "https://m.example", false},
        {"m.example", "same-site", "https://m.example", false},
        {"m.example", "none", "", false},
        {"m.example", "same-origin", "https://evil.example", false},
    };
    for (const Case& each : kCases) {
        Fields headers{{"host", each.host}};
        if (*each.site) headers.push_back({"sec-fetch-site", each.site});
        if (*each.origin) headers.push_back({"origin", each.origin});
        EXPECT_EQ(IsFromOurPage(headers), each.is_ours) << each.host << ' ' << each.site << ' ' << each.origin;
    }
    EXPECT_FALSE(IsFromOurPage({{"host", "a"}, {"sec-fetch-site", "same-origin"}, {"sec-fetch-site", "same-origin"}}));
}

TEST(Client, LanguageIsTheChosenOneOrTheMostWanted) {
    using host::Language;
    struct Case {
        const char* cookie;
        const char* accepted;
        Language language;
    };
    constexpr Case kCases[] = {
        {"", "", Language::English},
        {"", "ja", Language::Japanese},
        {"", "ja-JP,ja;q=0.9", Language::Japanese},
        {"", "en;q=0.5, ja;q=0.8", Language::Japanese},
        {"", "fr, en;q=0.1", Language::English},
        {"", "ja;q=0", Language::English},
        {"en", "ja", Language::English},
        {"xx", "JA", Language::Japanese},
        {"ja", "en", Language::Japanese},
        {"", "ja;q=x,;;,en", Language::English},
    };
    for (const Case& each : kCases) EXPECT_EQ(PageLanguage(each.cookie, each.accepted), each.language) << each.accepted;
}

TEST(Cookies, AreReadAndATwiceNamedOneIsLeftOut) {
    const Fields cookies = ParseCookies({{"cookie", "a=1; b = 2;c;d=x=y"}, {"accept", "a=9"}, {"cookie", "b=3"}});
    EXPECT_EQ(cookies, (Fields{{"a", "1"}, {"d", "x=y"}}));
}

TEST(Cookies, AreForThisHostAloneAndOutOfReachOfScripts) {
    const std::string header = KeepCookie(kSessionCookie, "a;b\r\n").value;
    EXPECT_EQ(header, "__Host-session=a%3Bb%0D%0A; Path=/; Secure; HttpOnly; SameSite=Strict");
    EXPECT_TRUE(ForgetCookie(kSessionCookie).value.ends_with("; Max-Age=0"));
}

}  // namespace
}  // namespace tarvex::console
