// What logins with a token have in common, whatever the protocol: lines, and the words of the two methods.

#include "host/tokens/login_speaker.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstddef>

namespace tarvex::host {
namespace {

constexpr std::size_t kLongestLineBytes = 32 << 10;

// Takes the next whole line out of what has come; false when there is none.
bool TakeLine(std::string& text, std::string& line) {
    const std::size_t end = text.find('\n');
    if (end == std::string::npos) return false;
    line = text.substr(0, end);
    if (line.ends_with('\r')) line.pop_back();
    text.erase(0, end + 1);
    return true;
}

// A name in the first part of OAUTHBEARER (RFC 5801 section 4).
std::string SaslName(std::string_view user) {
    std::string name;
    for (const char c : user) name += c == ',' ? "=2C" : c == '=' ? "=3D" : std::string(1, c);
    return name;
}

}  // namespace

std::string Base64Encoded(std::string_view bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    return text;
}

std::string Base64Decoded(std::string_view text) {
    if (text.empty() || text.size() % 4 != 0) return {};
    std::string bytes(text.size(), '\0');
    const int length =
        EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                        reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
    const auto padding = static_cast<std::size_t>(std::ranges::count(text, '='));
    if (length < 0 || padding > 2) return {};
    bytes.resize(static_cast<std::size_t>(length) - padding);
    return bytes;
}

// What the speaker cannot get through with ends the tunnel.
Turn LoginSpeaker::TurnAfter(const std::string& heard) {
    return turn_ == Turn::GoesOn && heard.size() > kLongestLineBytes ? Turn::Ends : turn_;
}

Turn LoginSpeaker::FromServer(std::string& heard, Said& said) {
    std::string line;
    while (turn_ == Turn::GoesOn && TakeLine(heard, line)) ServerLine(line, said);
    return TurnAfter(heard);
}

Turn LoginSpeaker::FromRun(std::string& heard, Said& said) {
    std::string line;
    while (ListensToRun() && TakeLine(heard, line)) RunLine(line, said);
    return TurnAfter(heard);
}

// A control character would end the name within the response.
void LoginSpeaker::SetUser(std::string_view user) {
    user_ = user;
    std::erase_if(user_, [](char c) { return c >= 0 && c < ' '; });
}

std::string LoginSpeaker::Command() const {
    return login_.method == TokenMethod::XOAuth2 ? "AUTH XOAUTH2" : "AUTH OAUTHBEARER";
}

std::string LoginSpeaker::Response() const {
    const std::string bearer = "auth=Bearer " + login_.token + "\x01\x01";
    if (login_.method == TokenMethod::XOAuth2) return Base64Encoded("user=" + user_ + '\x01' + bearer);
    return Base64Encoded("n,a=" + SaslName(user_) + ",\x01host=" + login_.host +
                         "\x01port=" + std::to_string(login_.port) + '\x01' + bearer);
}

// An empty line; with OAUTHBEARER one byte (RFC 7628 section 3.2.3). Then the refusal itself follows.
const char* LoginSpeaker::AnswerToChallenge() const { return login_.method == TokenMethod::XOAuth2 ? "" : "AQ=="; }

}  // namespace tarvex::host
