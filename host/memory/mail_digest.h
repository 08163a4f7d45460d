#pragma once

// By what messages are known again, whatever a POP3 server calls them.

#include <array>
#include <compare>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::host {

class LoopMark;
struct SplitMail;

// 128 bits that stand for the bytes of a message. They are for this machine alone: somebody who knew those of messages
// that he has written could work out the key.
struct MailDigest {
    std::array<unsigned char, 16> bytes{};

    auto operator<=>(const MailDigest&) const = default;  // NOLINT(modernize-use-nullptr): there is none

    std::string Hex() const;  // 32 digits
    static std::optional<MailDigest> FromHex(std::string_view hex);
};

// The way that a message has come: how many Received lines it has, and the digest of all of them.
struct Trace {
    std::size_t length = 0;
    MailDigest last;

    bool operator==(const Trace&) const = default;
};

// The key of a tree's digests. Different messages have different digests for whoever does not know it: of two messages
// of at most 16 MB the chance to have the same one is below 1 in 2^83, however they are written. Thread-safe.
class DigestKey {
public:
    static constexpr std::size_t kBytes = 32;

    DigestKey();                                               // a new one, at random
    explicit DigestKey(std::span<const unsigned char> bytes);  // kBytes of them

    std::span<const unsigned char, kBytes> Bytes() const { return bytes_; }

    // Header lines that POP3 servers put in themselves, such as Status and X-UIDL, do not count. Throws std::bad_alloc.
    MailDigest Of(const SplitMail& mail) const;

    // Nothing without a Message-ID. Throws std::bad_alloc.
    std::optional<LoopMark> LoopMarkOf(const SplitMail& mail) const;

private:
    friend class LoopMark;
    MailDigest OfText(std::string_view text) const;

    std::array<unsigned char, kBytes> bytes_;
};

// By what a message is known that comes back from where it was sent.
class LoopMark {
public:
    // Of its Message-ID, Date and From, without white space.
    const MailDigest& Letter() const { return letter_; }

    const Trace& Way() const { return way_; }

    // Whether it has come that way, and further. Whoever writes a message with the Message-ID of another does not know
    // the Received lines that the other has got. A message without any cannot be known again by them.
    bool Continues(const Trace& earlier) const;

private:
    friend class DigestKey;
    LoopMark(const DigestKey& key, std::string_view letter, const SplitMail& mail);

    DigestKey key_;
    MailDigest letter_;
    std::string received_;           // the values of the Received lines without white space, the oldest first
    std::vector<std::size_t> ends_;  // of each
    Trace way_;
};

}  // namespace tarvex::host
