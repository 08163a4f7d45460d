// The DNS server of the tests.

#include "testing/dns_server.h"

#include <array>
#include <asio.hpp>
#include <map>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

namespace tarvex::testing {
namespace {

using asio::ip::tcp;
using asio::ip::udp;
using Error = std::error_code;

constexpr std::size_t kHeader = 12;
constexpr std::size_t kMostByUdp = 1232;

std::string Number(std::size_t value) {
    return {static_cast<char>(value >> 8U & 0xFFU), static_cast<char>(value & 0xFFU)};
}

std::string Labels(std::string_view name) {
    std::string labels;
    while (!name.empty() && name != ".") {
        const std::string_view label = name.substr(0, name.find('.'));
        (labels += static_cast<char>(label.size())) += label;
        name.remove_prefix(std::min(label.size() + 1, name.size()));
    }
    return labels + '\0';
}

struct Question {
    std::string name;
    std::string bytes;  // name, type and class
    std::size_t type = 0;
};

Question QuestionIn(std::string_view query) {
    Question question;
    std::size_t at = kHeader;
    while (at < query.size() && query[at] != 0) {
        const auto length = static_cast<std::size_t>(query[at]);
        if (!question.name.empty()) question.name += '.';
        question.name += query.substr(at + 1, length);
        at += length + 1;
    }
    question.bytes = query.substr(kHeader, at + 5 - kHeader);
    question.type = static_cast<unsigned char>(question.bytes.at(question.bytes.size() - 3));
    return question;
}

}  // namespace

DnsRecord TextRecord(const std::vector<std::string>& strings) {
    DnsRecord record{16, {}};
    for (const std::string& string : strings) (record.data += static_cast<char>(string.size())) += string;
    return record;
}

DnsRecord ServiceRecordOf(unsigned short priority, unsigned short weight, unsigned short port,
                          const std::string& target) {
    return {33, Number(priority) + Number(weight) + Number(port) + Labels(target)};
}

struct DnsServer::Impl {
    Impl() {
        Listen();
        WaitForQuery();
        WaitForConnection();
        thread = std::thread([this] { context.run(); });
    }
    ~Impl() {
        context.stop();
        thread.join();
    }

    // One port for both.
    void Listen() {
        for (Error taken = asio::error::address_in_use; taken;) {
            socket = udp::socket(context, {asio::ip::address_v4::loopback(), 0});
            acceptor = tcp::acceptor(context, tcp::v4());
            acceptor.bind({asio::ip::address_v4::loopback(), socket.local_endpoint().port()}, taken);
        }
        acceptor.listen();
    }

    std::vector<std::string> Replies(const std::string& query, bool over_tcp) {
        const Question question = QuestionIn(query);
        const std::lock_guard lock(mutex);
        asked.push_back(question.name);
        const auto records = names.find(question.name);
        std::string answers;
        std::size_t count = 0;
        if (records != names.end()) {
            for (const DnsRecord& record : records->second) {
                if (record.type != question.type) continue;
                answers += "\xC0\x0C" + Number(record.type) + Number(1) + Number(0) + Number(60);
                answers += Number(record.data.size()) + record.data;
                ++count;
            }
        }
        const bool is_cut = !over_tcp && answers.size() > kMostByUdp;
        const std::size_t flags = 0x8180U | (is_cut ? 0x0200U : 0U) | (records == names.end() ? 3U : 0U);
        std::string reply = query.substr(0, 2) + Number(flags) + Number(1) + Number(is_cut ? 0 : count);
        reply += Number(0) + Number(0) + question.bytes;
        if (!is_cut) reply += answers;
        return change ? change(std::move(reply), over_tcp) : std::vector{std::move(reply)};
    }

    void WaitForQuery() {
        socket.async_receive_from(asio::buffer(datagram), client, [this](Error error, std::size_t size) {
            if (!error && size > kHeader) {
                for (const std::string& reply : Replies(std::string(datagram.data(), size), false)) {
                    socket.send_to(asio::buffer(reply), client, 0, error);
                }
            }
            WaitForQuery();
        });
    }

    void WaitForConnection() {
        acceptor.async_accept([this](Error error, tcp::socket accepted) {
            if (!error) Answer(std::make_shared<tcp::socket>(std::move(accepted)));
            WaitForConnection();
        });
    }

    void Answer(const std::shared_ptr<tcp::socket>& connection) {
        const auto query = std::make_shared<std::string>();
        const auto is_whole = [query](const Error&, std::size_t got) {
            const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(query->at(at)); };
            return got < 2 ? 2 - got : 2 + byte(0) * 256U + byte(1) - got;
        };
        asio::async_read(*connection, asio::dynamic_buffer(*query), is_whole,
                         [this, connection, query](Error error, std::size_t size) {
                             if (error || size <= 2 + kHeader) return;
                             for (const std::string& reply : Replies(query->substr(2), true)) {
                                 asio::write(*connection, asio::buffer(Number(reply.size()) + reply), error);
                             }
                             Answer(connection);
                         });
    }

    asio::io_context context;
    udp::socket socket{context};
    tcp::acceptor acceptor{context};
    std::array<char, 4096> datagram{};
    udp::endpoint client;
    mutable std::mutex mutex;
    std::map<std::string, std::vector<DnsRecord>> names;
    Change change;
    std::vector<std::string> asked;
    std::thread thread;
};

DnsServer::DnsServer() : impl_(std::make_unique<Impl>()) {}

DnsServer::~DnsServer() = default;

std::string DnsServer::Address() const { return "127.0.0.1:" + std::to_string(impl_->socket.local_endpoint().port()); }

void DnsServer::Add(const std::string& name, DnsRecord record) {
    const std::lock_guard lock(impl_->mutex);
    impl_->names[name].push_back(std::move(record));
}

void DnsServer::Replies(Change change) {
    const std::lock_guard lock(impl_->mutex);
    impl_->change = std::move(change);
}

std::vector<std::string> DnsServer::Asked() const {
    const std::lock_guard lock(impl_->mutex);
    return impl_->asked;
}

}  // namespace tarvex::testing
