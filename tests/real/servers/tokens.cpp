// Tokens for the real servers, and a Dovecot that takes them.

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <ctime>

#include "tests/real/servers/real_servers.h"

namespace tarvex::testing {
namespace {

constexpr std::string_view kKey = "a secret key of thirty-two bytes";

std::string Base64(std::string_view bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::string ForUrls(std::string base64) {
    for (char& c : base64) c = c == '+' ? '-' : c == '/' ? '_' : c;
    return base64.substr(0, base64.find('='));
}

}  // namespace

std::string MakeToken(const std::string& user, int seconds) {
    const std::time_t now = std::time(nullptr);
    const std::string signed_part =
        ForUrls(Base64(R"({"alg":"HS256","typ":"JWT"})")) + '.' +
        ForUrls(Base64(R"({"sub":")" + user + R"(","exp":)" + std::to_string(now + seconds) + R"(,"iat":)" +
                       std::to_string(now - 5) + "}"));
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned size = 0;
    HMAC(EVP_sha256(), kKey.data(), static_cast<int>(kKey.size()),
         reinterpret_cast<const unsigned char*>(signed_part.data()), signed_part.size(), digest.data(), &size);
    return signed_part + '.' + ForUrls(Base64({reinterpret_cast<const char*>(digest.data()), size}));
}

std::string ServerFolder::TakeTokens() const {
    const std::string keys = (*this / "keys").string();
    MakeFolder("keys/default/HS256");
    WriteFile(*this / "keys/default/HS256/default", Base64(kKey));
    WriteFile(*this / "oauth2.conf", "introspection_mode = local\nlocal_validation_key_dict = fs:posix:prefix=" + keys +
                                         "/\nusername_attribute = sub\n");
    GiveAway(*this / "keys");
    GiveAway(*this / "oauth2.conf");
    return "passdb {\n  driver = oauth2\n  mechanisms = xoauth2 oauthbearer\n  args = " +
           (*this / "oauth2.conf").string() + "\n}\n";
}

}  // namespace tarvex::testing
