// Logs in at a provider in a browser on this machine, which comes back to a port of loopback (RFC 8252).

#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <map>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "host/system/posix/descriptor.h"
#include "host/tokens/posix/provider_login.h"
#include "host/tokens/posix/token_request.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kMostRequestBytes = 16 << 10;
constexpr auto kRequestTime = 5s;
constexpr auto kLook = 200ms;
constexpr int kMostVisitors = 32;
constexpr std::size_t kSecretBytes = 32;
constexpr std::size_t kDigestBytes = 32;

// Base64 for URLs (RFC 4648 section 5), without padding.
std::string UrlBase64(std::span<const unsigned char> bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    const int length =
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(), static_cast<int>(bytes.size()));
    text.resize(static_cast<std::size_t>(length));
    for (char& c : text) c = c == '+' ? '-' : c == '/' ? '_' : c;
    return text.substr(0, text.find('='));
}

std::string NewSecret() {
    std::array<unsigned char, kSecretBytes> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) throw std::bad_alloc();
    return UrlBase64(bytes);
}

// Method S256 of RFC 7636.
std::string ChallengeOf(std::string_view verifier) {
    std::array<unsigned char, kDigestBytes> digest{};
    unsigned size = 0;
    if (EVP_Digest(verifier.data(), verifier.size(), digest.data(), &size, EVP_sha256(), nullptr) != 1)
        throw std::bad_alloc();
    return UrlBase64(digest);
}

TokenTrouble NoPort() { return {TokenTroubleKind::ForNow, "no port of 127.0.0.1 can be opened"}; }

// The port that the browser comes back to.
class Listener {
public:
    Listener() : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        if (!socket_.IsOpen() || bind(socket_.Get(), any, size) != 0 || listen(socket_.Get(), kMostVisitors) != 0 ||
            getsockname(socket_.Get(), any, &size) != 0) {
            throw NoPort();
        }
        port_ = ntohs(address.sin_port);
    }

    std::string Address() const { return "http://127.0.0.1:" + std::to_string(port_) + '/'; }
    int Socket() const { return socket_.Get(); }

private:
    Descriptor socket_;
    int port_ = 0;
};

// Somebody who has come to the port, until the header of the request is there.
struct Visitor {
    Descriptor connection;
    Clock::time_point end = Clock::now() + kRequestTime;
    std::string request = {};

    bool IsWhole() const { return request.find("\r\n\r\n") != std::string::npos; }

    // Reads what has come. True when nothing more is waited for.
    bool HasAsked() {
        std::array<char, 4096> piece{};
        const ssize_t count = recv(connection.Get(), piece.data(), piece.size(), MSG_DONTWAIT);
        if (count > 0) request.append(piece.data(), static_cast<std::size_t>(count));
        const bool has_gone = count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
        return has_gone || IsWhole() || request.size() > kMostRequestBytes || Clock::now() >= end;
    }

    // The first line; empty when there is no whole request.
    std::string Line() const { return IsWhole() ? request.substr(0, request.find("\r\n")) : std::string(); }
};

// Waits for somebody to come or to say something, at most until then.
void WaitForVisitors(const Listener& listener, const std::vector<Visitor>& visitors, Clock::time_point end) {
    std::vector<pollfd> wanted = {{listener.Socket(), POLLIN, 0}};
    for (const Visitor& visitor : visitors) wanted.push_back({visitor.connection.Get(), POLLIN, 0});
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
    poll(wanted.data(), wanted.size(), std::max(static_cast<int>(left), 0));
}

void AnswerRequest(const Descriptor& connection, const char* status, std::string_view text) {
    const std::string answer =
        std::string("HTTP/1.1 ") + status +
        "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " + std::to_string(text.size()) +
        "\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n" + std::string(text);
    // It fits into the buffer of a new socket; a browser that does not take it shows less, and that is all.
    [[maybe_unused]] const ssize_t sent =
        send(connection.Get(), answer.data(), answer.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    shutdown(connection.Get(), SHUT_WR);
}

std::string Decoded(std::string_view word) {
    const auto digit = [](char c) { return c <= '9' ? c - '0' : (c & 0xDF) - 'A' + 10; };
    const auto is_digit = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    };
    std::string text;
    for (std::size_t i = 0; i < word.size(); ++i) {
        if (word[i] == '%' && i + 2 < word.size() && is_digit(word[i + 1]) && is_digit(word[i + 2])) {
            text += static_cast<char>(digit(word[i + 1]) * 16 + digit(word[i + 2]));
            i += 2;
        } else {
            text += word[i] == '+' ? ' ' : word[i];
        }
    }
    return text;
}

// What stands behind the "?" of "GET /?code=...&state=... HTTP/1.1"; nothing for another request.
std::optional<std::map<std::string, std::string>> FieldsIn(std::string_view line) {
    constexpr std::string_view kStart = "GET /?";
    if (!line.starts_with(kStart)) return std::nullopt;
    line.remove_prefix(kStart.size());
    line = line.substr(0, line.find(' '));
    std::map<std::string, std::string> fields;
    while (!line.empty()) {
        const std::string_view field = line.substr(0, line.find('&'));
        line.remove_prefix(std::min(field.size() + 1, line.size()));
        const std::size_t equals = std::min(field.find('='), field.size());
        fields[Decoded(field.substr(0, equals))] = Decoded(field.substr(std::min(equals + 1, field.size())));
    }
    return fields;
}

// The code that the provider gives the browser for us, when that is the visitor. Throws when it brings a refusal.
std::optional<std::string> CodeFrom(const Visitor& visitor, const std::string& state) {
    const auto fields = FieldsIn(visitor.Line());
    const auto field = [&](const char* name) {
        const auto found = fields ? fields->find(name) : decltype(fields->end())();
        return fields && found != fields->end() ? found->second : std::string();
    };
    if (field("state") != state) {
        AnswerRequest(visitor.connection, "404 Not Found", "There is nothing here.\n");
        return std::nullopt;
    }
    if (const std::string error = SafeWords(field("error")); !error.empty()) {
        AnswerRequest(visitor.connection, "200 OK", "The provider has refused the login.\n");
        throw TokenTrouble(TokenTroubleKind::NeedsLogin, "the login was refused: " + error);
    }
    AnswerRequest(visitor.connection, "200 OK",
                  "Tarvex has its answer. You can close this page; the terminal says more.\n");
    return field("code");
}

// Others on this machine may knock meanwhile, and browsers open connections that they may use later: who says nothing
// keeps nobody waiting.
std::string WaitForCode(const Listener& listener, const std::string& state, const LoginDialogue& dialogue,
                        Clock::time_point end) {
    std::vector<Visitor> visitors;
    while (Clock::now() < end) {
        if (!dialogue.pauses(0s)) throw TokenTrouble(TokenTroubleKind::NeedsLogin, "the login was given up");
        WaitForVisitors(listener, visitors, std::min(end, Clock::now() + kLook));
        Descriptor connection(accept4(listener.Socket(), nullptr, nullptr, SOCK_CLOEXEC));
        if (connection.IsOpen()) visitors.push_back({std::move(connection)});
        if (visitors.size() > std::size_t{kMostVisitors}) visitors.erase(visitors.begin());
        for (auto visitor = visitors.begin(); visitor != visitors.end();) {
            if (!visitor->HasAsked()) {
                ++visitor;
                continue;
            }
            if (std::optional<std::string> code = CodeFrom(*visitor, state)) return *std::move(code);
            visitor = visitors.erase(visitor);
        }
    }
    throw TokenTrouble(TokenTroubleKind::NeedsLogin, "nobody has logged in in time");
}

}  // namespace

TokenAnswer LogInByBrowser(const Provider& provider, const LoginDialogue& dialogue, std::chrono::seconds time) {
    const std::string state = NewSecret();
    const std::string verifier = NewSecret();
    std::string code;
    std::string back;
    {
        const Listener listener;
        back = listener.Address();
        const Form form = {{"response_type", "code"},
                           {"client_id", provider.client_id},
                           {"redirect_uri", back},
                           {"scope", provider.scopes},
                           {"state", state},
                           {"code_challenge", ChallengeOf(verifier)},
                           {"code_challenge_method", "S256"},
                           {"login_hint", dialogue.login}};
        const char join = provider.authorization_endpoint.find('?') == std::string::npos ? '?' : '&';
        const std::string address = provider.authorization_endpoint + join + Encoded(form);
        dialogue.say("Open this address in a browser on this machine:\n\n  " + address + '\n');
        dialogue.open(address);
        code = WaitForCode(listener, state, dialogue, Clock::now() + time);
    }
    const TokenAnswer answer = AskForToken(
        provider,
        {{"grant_type", "authorization_code"}, {"code", code}, {"redirect_uri", back}, {"code_verifier", verifier}},
        [&dialogue] { return !dialogue.pauses(0s); });
    RequireToken(answer);
    return answer;
}

}  // namespace tarvex::host
