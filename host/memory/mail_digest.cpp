// What of a message counts, and its digest: Poly1305 with a secret key (docs/decisions/0016-digests-of-messages.md).

#include "host/memory/mail_digest.h"

#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <cassert>
#include <charconv>
#include <memory>
#include <new>
#include <system_error>

#include "host/memory/mail_header.h"

namespace tarvex::host {
namespace {

using namespace std::literals;

constexpr std::string_view kLineEnd = "\r\n";

// What Dovecot, popa3d, solid-pop3d, qpopper, mailutils and UW-IMAP keep in the header of a mailbox file, and hand out
// or not as it pleases them. In small letters.
constexpr std::array kOfServers = {
    "status"sv,     "x-status"sv, "x-keywords"sv,     "x-uid"sv, "x-uidl"sv,
    "x-imapbase"sv, "x-imap"sv,   "content-length"sv, "lines"sv,
};

void RequireMemory(bool succeeded) {
    if (!succeeded) throw std::bad_alloc();  // nothing else can fail
}

// Adds up the digest of bytes that come in pieces.
class Digester {
public:
    explicit Digester(std::span<const unsigned char> key) : context_(EVP_MAC_CTX_new(Method())) {
        RequireMemory(context_ && EVP_MAC_init(context_.get(), key.data(), key.size(), nullptr) == 1);
    }

    void Add(std::string_view bytes) {
        const auto* const data = reinterpret_cast<const unsigned char*>(bytes.data());
        RequireMemory(EVP_MAC_update(context_.get(), data, bytes.size()) == 1);
    }

    MailDigest Digest() {
        MailDigest digest;
        std::size_t length = 0;
        RequireMemory(EVP_MAC_final(context_.get(), digest.bytes.data(), &length, digest.bytes.size()) == 1);
        return digest;
    }

private:
    struct Free {
        void operator()(EVP_MAC* method) const { EVP_MAC_free(method); }
        void operator()(EVP_MAC_CTX* context) const { EVP_MAC_CTX_free(context); }
    };

    static EVP_MAC* Method() {
        static const std::unique_ptr<EVP_MAC, Free> method(EVP_MAC_fetch(nullptr, "POLY1305", nullptr));
        RequireMemory(method != nullptr);
        return method.get();
    }

    std::unique_ptr<EVP_MAC_CTX, Free> context_;
};

std::string_view WithoutFrame(std::string_view message) {
    if (message.starts_with(kLineEnd)) message.remove_prefix(kLineEnd.size());
    if (message == ".\r\n") return {};
    if (message.ends_with("\r\n.\r\n")) message.remove_suffix(3);
    return message;
}

std::string ValueOf(std::string_view field) {
    std::string value(ValueIn(field));
    std::erase_if(value,
                  [](char letter) { return letter == ' ' || letter == '\t' || letter == '\r' || letter == '\n'; });
    return value;
}

}  // namespace

std::string MailDigest::Hex() const {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string hex;
    for (const unsigned char byte : bytes) hex.append({kDigits[byte >> 4], kDigits[byte & 15]});
    return hex;
}

std::optional<MailDigest> MailDigest::FromHex(std::string_view hex) {
    MailDigest digest;
    if (hex.size() != 2 * digest.bytes.size()) return std::nullopt;
    for (std::size_t i = 0; i < digest.bytes.size(); ++i) {
        const char* const end = hex.data() + 2 * i + 2;
        const auto [stop, error] = std::from_chars(end - 2, end, digest.bytes[i], 16);
        if (error != std::errc() || stop != end) return std::nullopt;
    }
    return digest;
}

bool LoopMark::Continues(const Trace& earlier) const {
    return earlier.length > 0 && trace.size() > earlier.length && trace[earlier.length - 1] == earlier.last;
}

DigestKey::DigestKey() : bytes_{} { RequireMemory(RAND_bytes(bytes_.data(), kBytes) == 1); }

DigestKey::DigestKey(std::span<const unsigned char> bytes) : bytes_{} {
    assert(bytes.size() == kBytes);
    std::ranges::copy(bytes.first(kBytes), bytes_.begin());
}

MailDigest DigestKey::Of(std::string_view message) const {
    message = WithoutFrame(message);
    Digester digester(bytes_);
    std::string_view counting = message.substr(0, 0);  // fields in a row that count
    for (std::string_view field = TakeField(message); !field.empty(); field = TakeField(message)) {
        const bool of_server = std::ranges::any_of(kOfServers, [&](auto name) { return IsCalled(field, name); });
        if (!of_server) {
            counting = {counting.data(), counting.size() + field.size()};
            continue;
        }
        digester.Add(counting);
        counting = message.substr(0, 0);
    }
    digester.Add({counting.data(), counting.size() + message.size()});
    return digester.Digest();
}

std::optional<LoopMark> DigestKey::LoopMarkOf(std::string_view message) const {
    constexpr std::array kNames = {"message-id"sv, "date"sv, "from"sv};
    std::array<std::string, kNames.size()> values;
    std::vector<std::string> received;
    message = WithoutFrame(message);
    for (std::string_view field = TakeField(message); !field.empty(); field = TakeField(message)) {
        if (IsCalled(field, "received")) received.push_back(ValueOf(field));
        for (std::size_t i = 0; i < kNames.size(); ++i) {
            if (values[i].empty() && IsCalled(field, kNames[i])) values[i] = ValueOf(field);
        }
    }
    if (values[0].empty()) return std::nullopt;
    const auto digest_of = [this](std::span<const std::string> parts) {
        Digester digester(bytes_);
        for (const std::string& part : parts) {
            digester.Add(part);
            digester.Add(kLineEnd);  // no value holds one
        }
        return digester.Digest();
    };
    LoopMark mark{digest_of(values), {}};
    std::reverse(received.begin(), received.end());
    for (const std::string& line : received) {
        const std::array parts = {mark.trace.empty() ? std::string() : mark.trace.back().Hex(), line};
        mark.trace.push_back(digest_of(parts));
    }
    return mark;
}

}  // namespace tarvex::host
