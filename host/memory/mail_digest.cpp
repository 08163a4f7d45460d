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
#include "host/system/hexadecimal.h"

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

// Adds what stands behind the field's name, without white space.
void AddValue(std::string& text, std::string_view field) {
    const std::string_view value = ValueIn(field);
    const auto is_space = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    const std::size_t before = text.size();
    text.resize(before + value.size());
    const auto added = text.begin() + static_cast<std::ptrdiff_t>(before);
    text.erase(std::ranges::remove_copy_if(value, added, is_space).out, text.end());
}

// Message-ID, Date and From in lines; empty without a Message-ID. Of several the first one that says anything counts.
std::string LetterOf(const SplitMail& mail) {
    std::string letter;
    for (const std::string_view name : {"message-id"sv, "date"sv, "from"sv}) {
        const std::size_t before = letter.size();
        for (const std::string_view field : mail.fields) {
            if (letter.size() == before && IsCalled(field, name)) AddValue(letter, field);
        }
        if (letter.empty()) break;
        letter += kLineEnd;
    }
    return letter;
}

}  // namespace

std::string MailDigest::Hex() const { return Hexadecimal(bytes); }

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

DigestKey::DigestKey() : bytes_{} { RequireMemory(RAND_bytes(bytes_.data(), kBytes) == 1); }

DigestKey::DigestKey(std::span<const unsigned char> bytes) : bytes_{} {
    assert(bytes.size() == kBytes);
    std::ranges::copy(bytes.first(kBytes), bytes_.begin());
}

MailDigest DigestKey::Of(const SplitMail& mail) const {
    Digester digester(bytes_);
    std::string_view counting;  // fields in a row that count
    for (const std::string_view field : mail.fields) {
        const bool of_server = std::ranges::any_of(kOfServers, [&](auto name) { return IsCalled(field, name); });
        if (!of_server) {
            counting = {counting.empty() ? field.data() : counting.data(), counting.size() + field.size()};
            continue;
        }
        digester.Add(counting);
        counting = {};
    }
    digester.Add(counting);
    digester.Add(mail.rest);
    return digester.Digest();
}

MailDigest DigestKey::OfText(std::string_view text) const {
    Digester digester(bytes_);
    digester.Add(text);
    return digester.Digest();
}

std::optional<LoopMark> DigestKey::LoopMarkOf(const SplitMail& mail) const {
    const std::string letter = LetterOf(mail);
    if (letter.empty()) return std::nullopt;
    return LoopMark(*this, letter, mail);
}

LoopMark::LoopMark(const DigestKey& key, std::string_view letter, const SplitMail& mail)
    : key_(key), letter_(key.OfText(letter)) {
    for (auto field = mail.fields.rbegin(); field != mail.fields.rend(); ++field) {
        if (!IsCalled(*field, "received")) continue;
        AddValue(received_, *field);
        received_ += kLineEnd;  // no value holds one
        ends_.push_back(received_.size());
    }
    if (!ends_.empty()) way_ = {ends_.size(), key_.OfText(received_)};
}

bool LoopMark::Continues(const Trace& earlier) const {
    if (earlier.length == 0 || ends_.size() <= earlier.length) return false;
    return key_.OfText(std::string_view(received_).substr(0, ends_[earlier.length - 1])) == earlier.last;
}

}  // namespace tarvex::host
