// The SMTP server (RFC 5321) that takes everything and keeps it.

#include <algorithm>
#include <functional>
#include <mutex>
#include <utility>

#include "loopback/codec.h"
#include "loopback/command_session.h"
#include "loopback/listener.h"
#include "loopback/mail_servers.h"

namespace tarvex::loopback {

namespace {

struct Sink {
    const std::string user;
    const std::string password;
    const bool login_required;
    CommandDesk desk{};

    mutable std::mutex mutex{};
    std::vector<DeliveredMail> delivered{};
    std::function<std::string(const DeliveredMail&)> judge{};
};

// The path in angle brackets after "FROM:" or "TO:"; the parameters after it are ignored.
std::string Path(std::string_view argument) {
    const std::size_t open = argument.find('<');
    const std::size_t close = argument.find('>', open);
    if (open == std::string_view::npos || close == std::string_view::npos) return {};
    return std::string(argument.substr(open + 1, close - open - 1));
}

class SmtpSession : public CommandSession {
public:
    SmtpSession(asio::ip::tcp::socket socket, Sink& sink) : CommandSession(std::move(socket), sink.desk), sink_(sink) {}

protected:
    std::string Greeting() override { return "220 localhost ESMTP sink\r\n"; }
    void OnLine(std::string_view line) override;
    std::string Obey(const std::string& command) override;

private:
    enum class Expecting { Command, Message, Plain, LoginUser, LoginPassword, CramMd5 };

    std::string Hello(bool extended);
    std::string Auth(std::string_view argument);
    std::string AuthAnswer(const std::string& line);
    std::string Challenge(Expecting answer, std::string_view challenge);
    std::string Verdict(bool right);
    std::string Plain(const std::string& response);
    std::string Mail(std::string_view argument);
    std::string Rcpt(std::string_view argument);
    std::string Data();
    std::string EndOfMessage();
    void OnMessageLine(std::string_view line);
    void Reset();

    Sink& sink_;
    Expecting expecting_ = Expecting::Command;
    bool greeted_ = false;
    bool authenticated_ = false;
    bool in_transaction_ = false;
    bool at_line_start_ = true;  // only CR LF ends a line of the message
    std::string login_user_;
    DeliveredMail mail_;
};

void SmtpSession::OnLine(std::string_view line) {
    if (expecting_ == Expecting::Command) return CommandSession::OnLine(line);
    if (expecting_ == Expecting::Message) return OnMessageLine(line);
    Answer(AuthAnswer(std::string(WithoutLineEnd(line))));
}

void SmtpSession::OnMessageLine(std::string_view line) {
    if (at_line_start_ && line == ".\r\n") {
        expecting_ = Expecting::Command;
        OnCommand(".");
        return Reset();
    }
    if (at_line_start_ && line.starts_with('.')) line.remove_prefix(1);
    mail_.text += line;
    at_line_start_ = line.ends_with("\r\n");
}

std::string SmtpSession::Obey(const std::string& command) {
    const std::string verb = Verb(command);
    const std::string_view argument = Argument(command);
    if (verb == "EHLO") return Hello(true);
    if (verb == "HELO") return Hello(false);
    if (verb == "QUIT") {
        HangUp();
        return "221 2.0.0 bye\r\n";
    }
    if (verb == "NOOP") return "250 2.0.0 ok\r\n";
    if (verb == "RSET") {
        Reset();
        return "250 2.0.0 ok\r\n";
    }
    if (!greeted_) return "503 5.5.1 greet first\r\n";
    if (verb == "AUTH") return Auth(argument);
    if (verb == "MAIL") return Mail(argument);
    if (verb == "RCPT") return Rcpt(argument);
    if (verb == "DATA") return Data();
    if (verb == ".") return EndOfMessage();
    return "500 5.5.2 unknown command\r\n";
}

std::string SmtpSession::Hello(bool extended) {
    greeted_ = true;
    Reset();
    if (!extended) return "250 localhost\r\n";
    const std::string auth = sink_.login_required ? "250-AUTH CRAM-MD5 LOGIN PLAIN\r\n" : "";
    return "250-localhost\r\n" + auth + "250-SIZE 268435456\r\n250 8BITMIME\r\n";
}

std::string SmtpSession::Auth(std::string_view argument) {
    if (!sink_.login_required) return "502 5.5.1 no authentication here\r\n";
    if (authenticated_) return "503 5.5.1 authenticated already\r\n";
    const std::string method = Verb(argument);
    const std::string initial(Argument(argument));
    if (method == "CRAM-MD5") return Challenge(Expecting::CramMd5, "<1896.20090315@localhost>");
    if (method == "LOGIN") return Challenge(Expecting::LoginUser, "Username:");
    if (method == "PLAIN") return initial.empty() ? Challenge(Expecting::Plain, "") : Plain(initial);
    return "504 5.5.4 unknown method\r\n";
}

std::string SmtpSession::AuthAnswer(const std::string& line) {
    const Expecting answered = std::exchange(expecting_, Expecting::Command);
    if (answered == Expecting::LoginUser) {
        login_user_ = FromBase64(line);
        return Challenge(Expecting::LoginPassword, "Password:");
    }
    if (answered == Expecting::LoginPassword) {
        return Verdict(login_user_ == sink_.user && FromBase64(line) == sink_.password);
    }
    if (answered == Expecting::Plain) return Plain(line);
    return Verdict(FromBase64(line) == sink_.user + " " + HmacMd5(sink_.password, "<1896.20090315@localhost>"));
}

std::string SmtpSession::Challenge(Expecting answer, std::string_view challenge) {
    expecting_ = answer;
    return "334 " + ToBase64(challenge) + "\r\n";
}

std::string SmtpSession::Verdict(bool right) {
    authenticated_ = right;
    return right ? "235 2.7.0 welcome\r\n" : "535 5.7.8 wrong user or password\r\n";
}

// Authorisation identity, authentication identity and password, separated by NUL (RFC 4616).
std::string SmtpSession::Plain(const std::string& response) {
    const std::string decoded = FromBase64(response);
    const std::size_t first = decoded.find('\0');
    const std::string login = sink_.user + '\0' + sink_.password;
    if (first == std::string::npos) return Verdict(false);
    const std::string authorisation = decoded.substr(0, first);
    return Verdict((first == 0 || authorisation == sink_.user) && decoded.substr(first + 1) == login);
}

std::string SmtpSession::Mail(std::string_view argument) {
    if (sink_.login_required && !authenticated_) return "530 5.7.0 authentication required\r\n";
    if (in_transaction_) return "503 5.5.1 nested MAIL command\r\n";
    in_transaction_ = true;
    mail_.sender = Path(argument);
    return "250 2.1.0 ok\r\n";
}

std::string SmtpSession::Rcpt(std::string_view argument) {
    if (!in_transaction_) return "503 5.5.1 MAIL first\r\n";
    const std::string recipient = Path(argument);
    if (recipient.empty()) return "501 5.1.3 bad recipient\r\n";
    mail_.recipients.push_back(recipient);
    return "250 2.1.5 ok\r\n";
}

std::string SmtpSession::Data() {
    if (mail_.recipients.empty()) return "503 5.5.1 RCPT first\r\n";
    expecting_ = Expecting::Message;
    at_line_start_ = true;
    return "354 go ahead\r\n";
}

std::string SmtpSession::EndOfMessage() {
    const std::lock_guard guard(sink_.mutex);
    const std::string refusal = sink_.judge ? sink_.judge(mail_) : "";
    if (!refusal.empty()) return refusal + "\r\n";
    sink_.delivered.push_back(std::move(mail_));
    return "250 2.0.0 taken\r\n";
}

void SmtpSession::Reset() {
    mail_ = {};
    in_transaction_ = false;
}

}  // namespace

struct SinkServer::Impl {
    Impl(std::string user, std::string password, bool login_required)
        : sink{std::move(user), std::move(password), login_required} {}

    Sink sink;
    Listener listener{"127.0.0.1", [this](asio::ip::tcp::socket socket) {
                          std::make_shared<SmtpSession>(std::move(socket), sink)->Start();
                      }};
};

SinkServer::SinkServer() : impl_(std::make_unique<Impl>("", "", false)) {}

SinkServer::SinkServer(std::string user, std::string password)
    : impl_(std::make_unique<Impl>(std::move(user), std::move(password), true)) {}

SinkServer::~SinkServer() = default;

int SinkServer::Port() const { return impl_->listener.Port(); }

std::vector<DeliveredMail> SinkServer::Delivered(std::size_t first) const {
    const std::lock_guard guard(impl_->sink.mutex);
    const std::vector<DeliveredMail>& all = impl_->sink.delivered;
    return {all.begin() + static_cast<std::ptrdiff_t>(std::min(first, all.size())), all.end()};
}

void SinkServer::SetFault(std::function<std::string(const std::string& command)> fault) {
    impl_->sink.desk.SetFault(std::move(fault));
}

void SinkServer::SetJudge(std::function<std::string(const DeliveredMail& mail)> judge) {
    const std::lock_guard guard(impl_->sink.mutex);
    impl_->sink.judge = std::move(judge);
}

int SinkServer::Received(const std::string& verb) const { return impl_->sink.desk.Received(verb); }

}  // namespace tarvex::loopback
