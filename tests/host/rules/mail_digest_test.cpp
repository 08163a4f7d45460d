// By what a message is known again: what counts of its bytes, and what does not.

#include "host/memory/mail_digest.h"

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/memory/mail_header.h"

namespace tarvex::host {
namespace {

const DigestKey kKey;

MailDigest DigestOf(const std::string& message, const DigestKey& key = kKey) { return key.Of(SplitMail(message)); }

std::optional<LoopMark> LoopMarkOf(const std::string& message) { return kKey.LoopMarkOf(SplitMail(message)); }

// As POP3 delivers it.
std::string Fetched(const std::string& header, const std::string& body) {
    return "\r\n" + header + "\r\n" + body + ".\r\n";
}

constexpr const char* kHeader = "Received: by mx\r\nMessage-ID: <1@x>\r\nSubject: long\r\n\tand folded\r\n";

TEST(MailDigest, LeavesOutTheLinesOfServersWhereverTheyStand) {
    const MailDigest plain = DigestOf(Fetched(kHeader, "text\r\n"));
    for (const std::string added :
         {"Status: RO\r\n", "X-Status: A\r\n", "X-UIDL: 8f3\r\n", "X-UID: 17\r\n", "X-Keywords: a b\r\n\tc\r\n  d\r\n",
          "X-IMAP: 1 2\r\n", "X-IMAPbase: 1 2\r\n", "Content-Length: 6\r\n", "Lines: 1\r\n", "STATUS:\r\n",
          "status:O\r\nStatus: R\r\nx-uidl: 1\r\n"}) {
        const std::string header = kHeader;
        EXPECT_EQ(DigestOf(Fetched(added + header, "text\r\n")), plain) << added;
        EXPECT_EQ(DigestOf(Fetched(header + added, "text\r\n")), plain) << added;
        const std::size_t middle = header.find("Message-ID");
        EXPECT_EQ(DigestOf(Fetched(header.substr(0, middle) + added + header.substr(middle), "text\r\n")), plain)
            << added;
    }
    EXPECT_EQ(DigestOf(Fetched("Status: R\r\n", "text\r\n")), DigestOf(Fetched("", "text\r\n")));
}

TEST(MailDigest, CountsEveryOtherByte) {
    std::set<MailDigest> digests;
    const std::vector<std::string> messages = {
        Fetched(kHeader, "text\r\n"),
        Fetched(kHeader, "text"),
        Fetched(kHeader, "Status: R\r\ntext\r\n"),  // in the body
        Fetched(kHeader, "text\r\n\r\n"),
        Fetched(kHeader, ".text\r\n"),
        Fetched(kHeader, "..text\r\n"),
        Fetched(kHeader, "..\r\n"),
        Fetched(kHeader, ""),
        Fetched(std::string(kHeader) + "X-UIDLs: 1\r\n", "text\r\n"),
        Fetched(std::string(kHeader) + "XStatus: 1\r\n", "text\r\n"),
        Fetched(std::string(kHeader) + "Status\r\n", "text\r\n"),
        Fetched(std::string(kHeader) + " Status: R\r\n", "text\r\n"),  // continues the subject
        Fetched("Subject: long\r\n", "text\r\n"),
        Fetched("Subject: long\nStatus: R\r\n", "text\r\n"),  // a bare line feed ends no line
        "\r\n.\r\n",
        "\r\n\r\n.\r\n",
        std::string("\r\nA: \0\r\n\r\n.\r\n", 11),
    };
    for (const std::string& message : messages) EXPECT_TRUE(digests.insert(DigestOf(message)).second) << message;
}

TEST(MailDigest, DoesNotDependOnTheFrame) {
    for (const std::string message : {"Subject: x\r\n\r\ntext\r\n", "Subject: x\r\n\r\n..\r\n", "Subject: x\r\n"}) {
        const MailDigest digest = DigestOf("\r\n" + message + ".\r\n");
        EXPECT_EQ(DigestOf(message), digest) << message;
        EXPECT_EQ(DigestOf("\r\n" + message), digest) << message;
        EXPECT_EQ(DigestOf(message + ".\r\n"), digest) << message;
    }
    EXPECT_EQ(DigestOf(""), DigestOf("\r\n.\r\n"));
}

TEST(MailDigest, EveryByteOfALongMessageChangesIt) {
    std::string message = Fetched(kHeader, std::string(200'000, 'x') + "\r\n");
    const MailDigest digest = DigestOf(message);
    for (std::size_t i = 3; i + 10 < message.size(); i += 997) {
        message[i] ^= 1;
        EXPECT_NE(DigestOf(message), digest) << i;
        message[i] ^= 1;
    }
}

TEST(MailDigest, HasAKeyThatNobodyKnows) {
    const std::string message = Fetched(kHeader, "text\r\n");
    EXPECT_NE(DigestOf(message, DigestKey()), DigestOf(message));
    EXPECT_EQ(DigestOf(message, DigestKey(kKey.Bytes())), DigestOf(message));
}

// RFC 8439 section 2.5.2.
TEST(MailDigest, IsPoly1305) {
    constexpr std::array<unsigned char, DigestKey::kBytes> key = {
        0x85, 0xd6, 0xbe, 0x78, 0x57, 0x55, 0x6d, 0x33, 0x7f, 0x44, 0x52, 0xfe, 0x42, 0xd5, 0x06, 0xa8,
        0x01, 0x03, 0x80, 0x8a, 0xfb, 0x0d, 0xb2, 0xfd, 0x4a, 0xbf, 0xf6, 0xaf, 0x41, 0x49, 0xf5, 0x1b};
    EXPECT_EQ(DigestOf("Cryptographic Forum Research Group", DigestKey(key)).Hex(), "a8061dc1305136c6c22b8baf0c0127a9");
}

TEST(LoopMark, StaysWhenAMessageComesBack) {
    const auto letter = [](const std::string& header, const std::string& body) {
        const auto mark = LoopMarkOf(Fetched(header, body));
        return mark ? std::optional(mark->Letter()) : std::nullopt;
    };
    const std::string sent = "From: a <a@x>\r\nDate: Mon, 1 Jan 2024 00:00:00 +0000\r\nMessage-ID: <1@x>\r\n";
    const auto mark = letter(sent, "text\r\n");
    ASSERT_TRUE(mark);
    EXPECT_EQ(letter("Received: by mx\r\n" + sent + "To: b@x\r\n", "other\r\n"), mark);
    EXPECT_EQ(letter("message-id:\r\n <1@x>\r\nFROM: a\r\n\t<a@x>\r\n"
                     "date:Mon, 1 Jan 2024 00:00:00 +0000\r\nMessage-ID: <2@x>\r\n",
                     ""),
              mark);
    EXPECT_NE(letter("From: b <a@x>\r\nDate: Mon, 1 Jan 2024 00:00:00 +0000\r\nMessage-ID: <1@x>\r\n", ""), mark);
    EXPECT_NE(letter("Message-ID: <1@x>\r\n", ""), mark);
    EXPECT_FALSE(letter("From: a\r\nDate: b\r\n", "Message-ID: <1@x>\r\n"));
    EXPECT_FALSE(letter("Message-ID:\r\n", ""));
}

TEST(LoopMark, ContinuesTheWayWhoseReceivedLinesItHasBelowItsOwn) {
    const auto way = [](const std::vector<std::string>& received) {
        std::string header = "Message-ID: <1@x>\r\n";
        for (const std::string& line : received) header += "Received: " + line + "\r\n";
        return *LoopMarkOf(Fetched(header, ""));
    };
    const auto earlier = way({"by mx", "by a"}).Way();
    EXPECT_TRUE(way({"by z", "by y", "by\r\n mx", "by a"}).Continues(earlier));
    for (const std::vector<std::string>& other : std::vector<std::vector<std::string>>{
             {"by mx", "by a"}, {"by y", "by mx"}, {"by mx", "by a", "by y"}, {"by y", "by mx", "by b"}, {}}) {
        EXPECT_FALSE(way(other).Continues(earlier)) << other.size();
    }
    EXPECT_FALSE(way({"by mx"}).Continues(way({}).Way())) << "there is nothing to know it by";
}

}  // namespace
}  // namespace tarvex::host
