// Logins with tokens between a run that knows passwords and a server that takes tokens.

#include "host/tokens/login_speaker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvex::host {
namespace {

// Who says a line, and what both have to hear: "E:" the run, "S:" the server says; "e<" and "s<" they hear.
struct Conversation {
    const char* name;
    bool is_smtp;
    TokenMethod method;
    std::vector<std::string> lines;
    bool done;
    bool refused;
};

const std::string kXoauth2 = Base64Encoded(
    "user=me\x01"
    "auth=Bearer tok\x01\x01");
const std::string kBearer = Base64Encoded(
    "n,a=m=2Ce,\x01host=mail.example.org\x01port=995\x01"
    "auth=Bearer tok\x01\x01");
const std::string kJson = Base64Encoded(R"({"status":"401","schemes":"Bearer"})");

const std::vector<std::string> kGreeted = {
    "S:220 hi",           "e<220 hi",       "E:EHLO here",      "s<EHLO here", "S:250-mail",
    "S:250-AUTH XOAUTH2", "S:250-SIZE 100", "S:250 AUTH=LOGIN", "e<250-mail",  "e<250-AUTH CRAM-MD5 LOGIN PLAIN",
    "e<250-SIZE 100",     "e<250 HELP"};

std::vector<std::string> Greeted(const std::vector<std::string>& more) {
    std::vector<std::string> lines = kGreeted;
    lines.insert(lines.end(), more.begin(), more.end());
    return lines;
}

const std::vector<Conversation> kConversations = {
    {"POP3, two lines",
     false,
     TokenMethod::XOAuth2,
     {"S:+OK hi <1@x>", "e<+OK hi <1@x>", "E:USER me", "e<+OK", "E:PASS secret", "s<AUTH XOAUTH2", "S:+ ",
      "s<" + kXoauth2, "S:+OK welcome", "e<+OK welcome", "E:UIDL", "s<UIDL", "S:+OK", "S:1 a", "S:.", "e<+OK", "e<1 a",
      "e<."},
     true,
     false},
    {"POP3, APOP",
     false,
     TokenMethod::XOAuth2,
     {"S:+OK <1@x>", "e<+OK <1@x>", "E:APOP me 0123456789abcdef", "s<AUTH XOAUTH2", "S:+", "s<" + kXoauth2, "S:+OK",
      "e<+OK"},
     true,
     false},
    {"POP3, refused with details",
     false,
     TokenMethod::XOAuth2,
     {"S:+OK", "e<+OK", "E:USER me", "e<+OK", "E:PASS x", "s<AUTH XOAUTH2", "S:+ ", "s<" + kXoauth2, "S:+ " + kJson,
      "s<", "S:-ERR [AUTH] no", "e<-ERR [AUTH] no", "E:QUIT", "s<QUIT", "S:+OK", "e<+OK"},
     false,
     true},
    {"POP3, a mailbox that is in use",
     false,
     TokenMethod::XOAuth2,
     {"S:+OK", "e<+OK", "E:USER me", "e<+OK", "E:PASS x", "s<AUTH XOAUTH2", "S:+ ", "s<" + kXoauth2,
      "S:-ERR [IN-USE] later", "e<-ERR [IN-USE] later"},
     false,
     false},
    {"POP3, refused without a code",
     false,
     TokenMethod::XOAuth2,
     {"S:+OK", "e<+OK", "E:USER me", "e<+OK", "E:PASS x", "s<AUTH XOAUTH2", "S:+ ", "s<" + kXoauth2, "S:-ERR no",
      "e<-ERR no"},
     false,
     true},
    {"POP3, a method that is not known",
     false,
     TokenMethod::XOAuth2,
     {"S:+OK", "e<+OK", "E:USER me", "e<+OK", "E:PASS x", "s<AUTH XOAUTH2", "S:-ERR what", "e<-ERR what"},
     false,
     false},
    {"POP3, OAUTHBEARER",
     false,
     TokenMethod::OAuthBearer,
     {"S:+OK", "e<+OK", "E:USER m,e", "e<+OK", "E:PASS x", "s<AUTH OAUTHBEARER", "S:+ ", "s<" + kBearer, "S:+ " + kJson,
      "s<AQ==", "S:-ERR [AUTH] no", "e<-ERR [AUTH] no"},
     false,
     true},
    {"POP3, a greeting that refuses", false, TokenMethod::XOAuth2, {"S:-ERR busy", "e<-ERR busy"}, false, false},
    {"SMTP, CRAM-MD5", true, TokenMethod::XOAuth2,
     Greeted({"E:AUTH CRAM-MD5", "e<334 " + Base64Encoded("<token@localhost>"),
              "E:" + Base64Encoded("me 0123456789abcdef"), "s<AUTH XOAUTH2", "S:334 ", "s<" + kXoauth2, "S:235-fine",
              "S:235 go", "e<235-fine", "e<235 go", "E:MAIL FROM:<a@b>", "s<MAIL FROM:<a@b>"}),
     true, false},
    {"SMTP, LOGIN", true, TokenMethod::XOAuth2,
     Greeted({"E:AUTH LOGIN", "e<334 " + Base64Encoded("Username:"), "E:" + Base64Encoded("me"),
              "e<334 " + Base64Encoded("Password:"), "E:", "s<AUTH XOAUTH2", "S:334", "s<" + kXoauth2, "S:334 " + kJson,
              "s<", "S:535-5.7.8 no", "S:535 5.7.8 really", "e<535-5.7.8 no", "e<535 5.7.8 really", "E:QUIT",
              "s<QUIT"}),
     false, true},
    {"SMTP, PLAIN", true, TokenMethod::OAuthBearer,
     Greeted({"E:AUTH PLAIN", "e<334 ", "E:" + Base64Encoded(std::string("m,e\0m,e\0secret", 14)), "s<AUTH OAUTHBEARER",
              "S:334 ", "s<" + kBearer, "S:334 " + kJson, "s<AQ==", "S:535 no", "e<535 no"}),
     false, true},
    {"SMTP, for the time being", true, TokenMethod::XOAuth2,
     Greeted({"E:AUTH LOGIN", "e<334 " + Base64Encoded("Username:"), "E:" + Base64Encoded("me"),
              "e<334 " + Base64Encoded("Password:"), "E:eA==", "s<AUTH XOAUTH2", "S:334 ", "s<" + kXoauth2,
              "S:454 later", "e<454 later"}),
     false, false},
    {"SMTP, EHLO is refused",
     true,
     TokenMethod::XOAuth2,
     {"S:220 hi", "e<220 hi", "E:EHLO x", "s<EHLO x", "S:500 what", "e<500 what", "E:RSET", "s<RSET"},
     false,
     false},
};

// The two sides of a tunnel in which a speaker stands, as the tunnel treats it.
class Sides {
public:
    explicit Sides(std::unique_ptr<TunnelSpeaker> speaker) : speaker_(std::move(speaker)) {}

    void FromServer(std::string_view bytes) { Hear(from_server_ += bytes, &TunnelSpeaker::FromServer); }
    void FromRun(std::string_view bytes) { Hear(from_run_ += bytes, &TunnelSpeaker::FromRun); }

    Said said;
    Turn turn = Turn::GoesOn;

private:
    void Hear(std::string& heard, Turn (TunnelSpeaker::*hear)(std::string&, Said&)) {
        if (turn == Turn::GoesOn) turn = (speaker_.get()->*hear)(heard, said);
        if (turn != Turn::Done) return;
        said.to_run += std::exchange(from_server_, {});
        said.to_server += std::exchange(from_run_, {});
    }

    std::unique_ptr<TunnelSpeaker> speaker_;
    std::string from_server_;
    std::string from_run_;
};

// Feeds the conversation piece by piece. Returns what both have heard.
std::string Heard(const Conversation& conversation, std::size_t piece, Sides& sides) {
    std::string heard;
    const auto collect = [&](const char* who, std::string& text) {
        for (std::size_t end = 0; (end = text.find("\r\n")) != std::string::npos; text.erase(0, end + 2))
            heard += who + text.substr(0, end) + '\n';
        EXPECT_EQ(text, "");
    };
    for (const std::string& line : conversation.lines) {
        const std::string bytes = line.substr(2) + "\r\n";
        if (line[1] == '<') continue;
        for (std::size_t at = 0; at < bytes.size(); at += piece) {
            const std::string_view part = std::string_view(bytes).substr(at, piece);
            line[0] == 'E' ? sides.FromRun(part) : sides.FromServer(part);
        }
        collect("e<", sides.said.to_run);
        collect("s<", sides.said.to_server);
    }
    return heard;
}

TEST(LoginSpeaker, LogsInWithTheTokenInThePlaceOfThePassword) {
    for (const Conversation& conversation : kConversations) {
        std::string expected;
        for (const std::string& line : conversation.lines) expected += line[1] == '<' ? line + '\n' : "";
        for (const std::size_t piece : {1U, 2U, 3U, 7U, 4096U}) {
            SCOPED_TRACE(std::string(conversation.name) + ", pieces of " + std::to_string(piece));
            const auto refused = std::make_shared<std::atomic<bool>>(false);
            const TokenLogin login{conversation.method, "tok", "mail.example.org", 995, refused};
            Sides sides(conversation.is_smtp ? SmtpLoginSpeaker(login) : PopLoginSpeaker(login));
            EXPECT_EQ(Heard(conversation, piece, sides), expected);
            EXPECT_EQ(sides.turn, conversation.done ? Turn::Done : Turn::GoesOn);
            EXPECT_EQ(*refused, conversation.refused);
        }
    }
}

TEST(LoginSpeaker, LeavesTheBytesBehindTheLoginAsTheyAre) {
    Sides sides(PopLoginSpeaker({TokenMethod::XOAuth2, "tok", "", 0, nullptr}));
    sides.FromRun("USER me\r\nPASS x\r\n");
    sides.FromServer("+ \r\n+OK\r\nx\ny");
    EXPECT_EQ(sides.turn, Turn::Done);
    EXPECT_EQ(sides.said.to_run, "+OK\r\n+OK\r\nx\ny");
}

TEST(LoginSpeaker, HoldsNoMoreThanALineCanBe) {
    for (const bool is_smtp : {false, true}) {
        Sides sides(is_smtp ? SmtpLoginSpeaker({}) : PopLoginSpeaker({}));
        sides.FromServer(std::string(40'000, 'x'));
        EXPECT_EQ(sides.turn, Turn::Ends);
    }
    Sides sides(SmtpLoginSpeaker({}));
    sides.FromRun("EHLO x\r\n");
    const std::string line = "250-" + std::string(1000, 'x') + "\r\n";
    for (int i = 0; i < 65; ++i) sides.FromServer(line);
    EXPECT_EQ(sides.turn, Turn::GoesOn);
    sides.FromServer(line);
    EXPECT_EQ(sides.turn, Turn::Ends);
}

TEST(LoginSpeaker, KnowsBase64) {
    for (const std::string& text :
         {std::string(), std::string("a"), std::string("ab"), std::string("abc"), std::string("\0\xFF\0", 3)}) {
        EXPECT_EQ(Base64Decoded(Base64Encoded(text)), text);
    }
    for (const char* const bad : {"a", "ab", "abc", "a===", "    ", "a*cd"}) EXPECT_EQ(Base64Decoded(bad), "");
}

}  // namespace
}  // namespace tarvex::host
