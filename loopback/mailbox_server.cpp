// The POP3 server (RFC 1939): every login sees the mailbox as it is at that moment, and what it deletes goes at QUIT.

#include <algorithm>
#include <atomic>
#include <charconv>
#include <mutex>
#include <utility>

#include "loopback/codec.h"
#include "loopback/command_session.h"
#include "loopback/listener.h"
#include "loopback/mail_servers.h"

namespace tarvex::loopback {

namespace {

struct Message {
    StoredMail mail;
    std::string wire;  // the answer to RETR
};

using Messages = std::vector<std::shared_ptr<const Message>>;

// The text as a multi-line answer: dot-stuffed, ended by its "." line.
std::string RetrAnswer(const std::string& text) {
    std::string answer = "+OK " + std::to_string(text.size()) + " octets\r\n";
    answer.reserve(answer.size() + text.size() + text.size() / 64);
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t end = rest.find("\r\n");
        const std::string_view line = rest.substr(0, end == std::string_view::npos ? end : end + 2);
        if (line.starts_with('.')) answer += '.';
        answer += line;
        rest.remove_prefix(line.size());
    }
    if (!answer.ends_with("\r\n")) answer += "\r\n";
    answer += ".\r\n";
    return answer;
}

// The mailbox and what the test has asked of the server. Thread-safe.
class Mailbox {
public:
    using OnDelete = std::function<void(const std::string& uidl)>;

    void Add(StoredMail mail) {
        auto message = std::make_shared<Message>(Message{std::move(mail), {}});
        message->wire = RetrAnswer(message->mail.text);
        const std::lock_guard guard(mutex_);
        messages_.push_back(std::move(message));
    }

    void Remove(const std::string& uidl) {
        const std::lock_guard guard(mutex_);
        const auto found = std::find_if(messages_.begin(), messages_.end(),
                                        [&](const auto& message) { return message->mail.uidl == uidl; });
        if (found != messages_.end()) messages_.erase(found);
    }

    void SetOnDelete(OnDelete on_delete) {
        auto shared = std::make_shared<OnDelete>(std::move(on_delete));
        const std::lock_guard guard(mutex_);
        on_delete_.swap(shared);
    }

    void Delete(const Message& message) {
        std::shared_ptr<OnDelete> on_delete;
        {
            const std::lock_guard guard(mutex_);
            on_delete = on_delete_;
        }
        if (on_delete && *on_delete) (*on_delete)(message.mail.uidl);
        const std::lock_guard guard(mutex_);
        std::erase_if(messages_, [&](const auto& other) { return other.get() == &message; });
    }

    Messages Snapshot() const {
        const std::lock_guard guard(mutex_);
        return messages_;
    }

private:
    mutable std::mutex mutex_;
    Messages messages_;
    std::shared_ptr<OnDelete> on_delete_;  // called without the lock
};

struct Account {
    const std::string user;
    const std::string password;
    std::atomic<bool> offer_apop = true;
    std::atomic<bool> offer_uidl = true;
    std::atomic<int> logins = 0;
    Mailbox mailbox{};
    CommandDesk desk{};
};

class PopSession : public CommandSession {
public:
    PopSession(asio::ip::tcp::socket socket, Account& account)
        : CommandSession(std::move(socket), account.desk), account_(account) {}

protected:
    std::string Greeting() override;
    std::string Obey(const std::string& command) override;

private:
    struct Entry {
        std::shared_ptr<const Message> message;
        bool deleted = false;
    };

    std::string LogIn(bool right);
    std::string Apop(std::string_view argument);
    std::string InMailbox(const std::string& verb, std::string_view argument);
    std::string Status() const;
    std::string Listing(const std::string& verb, std::string_view argument);
    std::string ListingLine(const std::string& verb, std::size_t index) const;
    std::string OfMessage(const std::string& verb, std::string_view argument);
    std::string HeaderOf(std::string_view argument);
    std::string Quit();
    Entry* Find(std::string_view number);

    Account& account_;
    std::string timestamp_;
    std::string user_;
    bool logged_in_ = false;
    std::vector<Entry> entries_;
};

std::string PopSession::Greeting() {
    if (!account_.offer_apop) return "+OK mailbox ready\r\n";
    timestamp_ = '<' + std::to_string(++account_.logins) + ".20090315@localhost>";
    return "+OK mailbox ready " + timestamp_ + "\r\n";
}

std::string PopSession::Obey(const std::string& command) {
    const std::string verb = Verb(command);
    const std::string_view argument = Argument(command);
    if (verb == "QUIT") return Quit();
    if (logged_in_) return InMailbox(verb, argument);
    if (verb == "USER") {
        user_ = argument;
        return "+OK\r\n";
    }
    if (verb == "PASS") return LogIn(user_ == account_.user && argument == account_.password);
    if (verb == "APOP") return Apop(argument);
    return "-ERR log in first\r\n";
}

std::string PopSession::LogIn(bool right) {
    if (!right) return "-ERR wrong user or password\r\n";
    logged_in_ = true;
    for (auto& message : account_.mailbox.Snapshot()) entries_.push_back({std::move(message)});
    return "+OK " + std::to_string(entries_.size()) + " messages\r\n";
}

std::string PopSession::Apop(std::string_view argument) {
    if (timestamp_.empty()) return "-ERR no APOP here\r\n";
    return LogIn(argument == account_.user + " " + Md5(timestamp_ + account_.password));
}

std::string PopSession::InMailbox(const std::string& verb, std::string_view argument) {
    if (verb == "STAT") return Status();
    if (verb == "LIST" || (verb == "UIDL" && account_.offer_uidl)) return Listing(verb, argument);
    if (verb == "RETR" || verb == "DELE") return OfMessage(verb, argument);
    if (verb == "TOP") return HeaderOf(argument);
    if (verb == "NOOP") return "+OK\r\n";
    if (verb == "RSET") {
        for (Entry& entry : entries_) entry.deleted = false;
        return "+OK\r\n";
    }
    return "-ERR unknown command\r\n";
}

std::string PopSession::Status() const {
    std::size_t count = 0, size_bytes = 0;
    for (const Entry& entry : entries_) {
        if (entry.deleted) continue;
        ++count;
        size_bytes += entry.message->mail.text.size();
    }
    return "+OK " + std::to_string(count) + " " + std::to_string(size_bytes) + "\r\n";
}

std::string PopSession::Listing(const std::string& verb, std::string_view argument) {
    if (!argument.empty()) {
        const Entry* const entry = Find(argument);
        if (!entry) return "-ERR no such message\r\n";
        return "+OK " + ListingLine(verb, static_cast<std::size_t>(entry - entries_.data()));
    }
    std::string answer = "+OK\r\n";
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        if (!entries_[i].deleted) answer += ListingLine(verb, i);
    }
    return answer + ".\r\n";
}

std::string PopSession::ListingLine(const std::string& verb, std::size_t index) const {
    const StoredMail& mail = entries_[index].message->mail;
    return std::to_string(index + 1) + " " + (verb == "UIDL" ? mail.uidl : std::to_string(mail.text.size())) + "\r\n";
}

std::string PopSession::OfMessage(const std::string& verb, std::string_view argument) {
    Entry* const entry = Find(argument);
    if (!entry) return "-ERR no such message\r\n";
    if (verb == "RETR") return entry->message->wire;
    entry->deleted = true;
    return "+OK deleted\r\n";
}

// The header whatever the number of lines: nobody here asks for more.
std::string PopSession::HeaderOf(std::string_view argument) {
    const Entry* const entry = Find(argument.substr(0, argument.find(' ')));
    if (!entry) return "-ERR no such message\r\n";
    const std::string& text = entry->message->mail.text;
    return RetrAnswer(text.substr(0, text.find("\r\n\r\n")) + "\r\n\r\n");
}

std::string PopSession::Quit() {
    for (const Entry& entry : entries_) {
        if (entry.deleted) account_.mailbox.Delete(*entry.message);
    }
    HangUp();
    return "+OK bye\r\n";
}

PopSession::Entry* PopSession::Find(std::string_view number) {
    std::size_t index = 0;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), index);
    if (error != std::errc() || end != number.data() + number.size()) return nullptr;
    if (index < 1 || index > entries_.size() || entries_[index - 1].deleted) return nullptr;
    return &entries_[index - 1];
}

}  // namespace

struct MailboxServer::Impl {
    Impl(std::string user, std::string password) : account{std::move(user), std::move(password)} {}

    Account account;
    Listener listener{"127.0.0.1", [this](asio::ip::tcp::socket socket) {
                          std::make_shared<PopSession>(std::move(socket), account)->Start();
                      }};
};

MailboxServer::MailboxServer(std::string user, std::string password)
    : impl_(std::make_unique<Impl>(std::move(user), std::move(password))) {}

MailboxServer::~MailboxServer() = default;

int MailboxServer::Port() const { return impl_->listener.Port(); }
void MailboxServer::Add(StoredMail mail) { impl_->account.mailbox.Add(std::move(mail)); }
void MailboxServer::Remove(const std::string& uidl) { impl_->account.mailbox.Remove(uidl); }

std::vector<StoredMail> MailboxServer::Mails() const {
    std::vector<StoredMail> mails;
    for (const auto& message : impl_->account.mailbox.Snapshot()) mails.push_back(message->mail);
    return mails;
}

void MailboxServer::OfferApop(bool offer) { impl_->account.offer_apop = offer; }
void MailboxServer::OfferUidl(bool offer) { impl_->account.offer_uidl = offer; }

void MailboxServer::SetFault(std::function<std::string(const std::string& command)> fault) {
    impl_->account.desk.SetFault(std::move(fault));
}

void MailboxServer::SetOnDelete(std::function<void(const std::string& uidl)> on_delete) {
    impl_->account.mailbox.SetOnDelete(std::move(on_delete));
}

int MailboxServer::Received(const std::string& verb) const { return impl_->account.desk.Received(verb); }

}  // namespace tarvex::loopback
