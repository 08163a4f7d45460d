// Makes and checks the hashes of passwords with OpenSSL's scrypt.

#include "host/settings/login_password.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <openssl/sha.h>

#include <array>
#include <charconv>
#include <cstdint>
#include <mutex>
#include <new>
#include <optional>
#include <vector>

namespace tarvex::host {
namespace {

constexpr std::string_view kMethod = "$scrypt$ln=";
constexpr std::size_t kSaltBytes = 16;
constexpr std::size_t kHashBytes = 32;
constexpr std::size_t kMostBytes = 64;  // of a salt or hash that is read
constexpr std::uint64_t kMostMemory = 256ULL << 20;

struct Cost {
    unsigned ln = 15;  // the binary logarithm of N
    unsigned r = 8;
    unsigned p = 1;
};
constexpr Cost kCost;
constexpr std::uint64_t kMostWork = 4 * ((std::uint64_t{1} << kCost.ln) * kCost.r * kCost.p);

using Bytes = std::vector<unsigned char>;

struct Kept {
    Cost cost;
    Bytes salt;
    Bytes hash;
};

// Base64 without "=", as PHC strings have it.
std::string Base64(const Bytes& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    auto* const out = reinterpret_cast<unsigned char*>(text.data());
    text.resize(static_cast<std::size_t>(EVP_EncodeBlock(out, bytes.data(), static_cast<int>(bytes.size()))));
    text.erase(text.find_last_not_of('=') + 1);
    return text;
}

std::optional<Bytes> FromBase64(std::string_view text) {
    if (text.empty() || text.size() > kMostBytes || text.size() % 4 == 1) return std::nullopt;
    const std::size_t missing = (4 - text.size() % 4) % 4;
    std::string whole(text);
    whole.append(missing, '=');
    Bytes bytes(whole.size());
    const auto* const in = reinterpret_cast<const unsigned char*>(whole.data());
    const int count = EVP_DecodeBlock(bytes.data(), in, static_cast<int>(whole.size()));
    if (count < 0) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(count) - missing);
    return bytes;
}

// Takes "15" and what stands behind it.
bool TakeNumber(std::string_view& text, unsigned& number, std::string_view behind) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc()) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (!text.starts_with(behind)) return false;
    text.remove_prefix(behind.size());
    return true;
}

std::optional<Kept> Read(std::string_view text) {
    if (!text.starts_with(kMethod)) return std::nullopt;
    text.remove_prefix(kMethod.size());
    Kept kept;
    if (!TakeNumber(text, kept.cost.ln, ",r=") || !TakeNumber(text, kept.cost.r, ",p=") ||
        !TakeNumber(text, kept.cost.p, "$"))
        return std::nullopt;
    const std::size_t end = text.find('$');
    if (end == std::string_view::npos) return std::nullopt;
    auto salt = FromBase64(text.substr(0, end));
    auto hash = FromBase64(text.substr(end + 1));
    if (!salt || !hash) return std::nullopt;
    kept.salt = *std::move(salt);
    kept.hash = *std::move(hash);
    return kept;
}

bool CostsTooMuch(const Cost& cost) {
    return cost.ln == 0 || cost.ln > 24 || cost.r == 0 || cost.r > 64 || cost.p == 0 || cost.p > 64 ||
           (std::uint64_t{1} << cost.ln) * cost.r * cost.p > kMostWork;
}

// One at a time: logins that come all at once need the memory of one.
Bytes Scrypt(std::string_view password, const Bytes& salt, const Cost& cost, std::size_t bytes) {
    static std::mutex one;
    const std::lock_guard lock(one);
    Bytes hash(bytes);
    const bool done =
        EVP_PBE_scrypt(password.data(), password.size(), salt.data(), salt.size(), std::uint64_t{1} << cost.ln, cost.r,
                       cost.p, kMostMemory, hash.data(), hash.size()) == 1;
    if (!done) throw std::bad_alloc();  // nothing else can fail
    return hash;
}

// Equal lengths, so that comparing takes the same time for all.
std::array<unsigned char, SHA256_DIGEST_LENGTH> Digest(std::string_view text) {
    std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
    SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
    return digest;
}

}  // namespace

std::string HashedPassword(std::string_view password) {
    Bytes salt(kSaltBytes);
    if (RAND_bytes(salt.data(), static_cast<int>(salt.size())) != 1) throw std::bad_alloc();
    const Bytes hash = Scrypt(password, salt, kCost, kHashBytes);
    return std::string(kMethod) + std::to_string(kCost.ln) + ",r=" + std::to_string(kCost.r) +
           ",p=" + std::to_string(kCost.p) + '$' + Base64(salt) + '$' + Base64(hash);
}

bool IsHashedPassword(std::string_view stored) { return Read(stored).has_value(); }

bool FitsPassword(std::string_view stored, std::string_view password) {
    if (stored.empty() || password.empty()) return false;
    const std::optional<Kept> kept = Read(stored);
    if (!kept) {
        const auto one = Digest(stored);
        const auto other = Digest(password);
        return CRYPTO_memcmp(one.data(), other.data(), one.size()) == 0;
    }
    if (CostsTooMuch(kept->cost)) return false;
    const Bytes hash = Scrypt(password, kept->salt, kept->cost, kept->hash.size());
    return CRYPTO_memcmp(hash.data(), kept->hash.data(), hash.size()) == 0;
}

void TakePasswordsTime(std::string_view password) {
    static const std::string kOfNobody = HashedPassword("nobody's");
    (void)FitsPassword(kOfNobody, password.empty() ? "none" : password);
}

}  // namespace tarvex::host
