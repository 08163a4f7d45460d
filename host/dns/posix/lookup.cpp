// Looks records up by c-ares.

#include "host/dns/lookup.h"

#include <ares.h>
#include <arpa/nameser.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <memory>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include "host/dns/usable_services.h"

namespace tarvex::host {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

struct FreeChannel {
    void operator()(ares_channel channel) const { ares_destroy(channel); }
};
struct FreeData {
    void operator()(void* data) const { ares_free_data(data); }
};
using Channel = std::unique_ptr<std::remove_pointer_t<ares_channel>, FreeChannel>;

// What came, once it came. The channel ends before it does, and tells it of that.
struct Outcome {
    std::optional<int> status;
    std::vector<unsigned char> bytes;
};

void Take(void* outcome, int status, int, unsigned char* bytes, int length) noexcept {
    auto& taken = *static_cast<Outcome*>(outcome);
    if (taken.status) return;
    taken.status = status;
    if (!bytes || length <= 0) return;
    try {
        taken.bytes.assign(bytes, bytes + length);
    } catch (const std::bad_alloc&) {
        taken.status = ARES_ENOMEM;
    }
}

// Asks each server twice within the time.
Channel Open(const DnsSettings& settings) {
    ares_options options{};
    options.flags = ARES_FLAG_EDNS;
    options.ednspsz = 1232;
    options.timeout = std::max(1, static_cast<int>(settings.timeout.count() / 3));
    options.tries = 2;
    ares_channel channel = nullptr;
    if (ares_init_options(&channel, &options,
                          ARES_OPT_FLAGS | ARES_OPT_EDNSPSZ | ARES_OPT_TIMEOUTMS | ARES_OPT_TRIES) != ARES_SUCCESS) {
        return nullptr;
    }
    Channel opened(channel);
    if (settings.server.empty()) return opened;
    return ares_set_servers_ports_csv(channel, settings.server.c_str()) == ARES_SUCCESS ? std::move(opened) : nullptr;
}

// Waits for one of the sockets of the channel, no longer than the time that is left, and lets it go on.
void GoOn(ares_channel channel, milliseconds left) {
    std::array<ares_socket_t, ARES_GETSOCK_MAXNUM> sockets{};
    const int wanted = ares_getsock(channel, sockets.data(), static_cast<int>(sockets.size()));
    std::vector<pollfd> polled;
    for (unsigned i = 0; i < sockets.size(); ++i) {
        const unsigned bits = static_cast<unsigned>(wanted);
        const auto events = static_cast<short>((ARES_GETSOCK_READABLE(bits, i) ? POLLIN : 0) |
                                               (ARES_GETSOCK_WRITABLE(bits, i) ? POLLOUT : 0));
        if (events != 0) polled.push_back({sockets.at(i), events, 0});
    }
    timeval most{left.count() / 1000, left.count() % 1000 * 1000};
    timeval until_retry{};
    const timeval* const wait = ares_timeout(channel, &most, &until_retry);
    (void)::poll(polled.data(), polled.size(), static_cast<int>(wait->tv_sec * 1000 + (wait->tv_usec + 999) / 1000));
    for (const pollfd& socket : polled) {
        const bool is_broken = (socket.revents & (POLLERR | POLLHUP)) != 0;
        const bool reads = (socket.revents & POLLIN) != 0 || is_broken;
        const bool writes = (socket.revents & POLLOUT) != 0 || (is_broken && (socket.events & POLLOUT) != 0);
        ares_process_fd(channel, reads ? socket.fd : ARES_SOCKET_BAD, writes ? socket.fd : ARES_SOCKET_BAD);
    }
    ares_process_fd(channel, ARES_SOCKET_BAD, ARES_SOCKET_BAD);  // for its own time-outs
}

// The answer's bytes, or how there came none.
Outcome Ask(const std::string& name, int type, const DnsSettings& settings) {
    if (name.find('\0') != std::string::npos) return {ARES_EBADNAME, {}};
    Outcome outcome;
    const Channel channel = Open(settings);
    if (!channel) return {ARES_EBADSTR, {}};
    const auto end = Clock::now() + settings.timeout;
    ares_query(channel.get(), name.c_str(), ns_c_in, type, Take, &outcome);
    while (!outcome.status) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        if (left <= milliseconds::zero()) {
            outcome.status = ARES_ETIMEOUT;
        } else {
            GoOn(channel.get(), left);
        }
    }
    return outcome;
}

template <class Record>
DnsAnswer<Record> NotFound(int status) {
    if (status == ARES_ENOTFOUND || status == ARES_ENODATA) return {DnsEnding::NoSuchRecord, {}, {}};
    if (status == ARES_ENOMEM) throw std::bad_alloc();
    if (status == ARES_ETIMEOUT) return {DnsEnding::Failed, {}, "no answer from the DNS in time"};
    if (status == ARES_ECONNREFUSED) return {DnsEnding::Failed, {}, "no DNS server can be reached"};
    if (status == ARES_EBADNAME) return {DnsEnding::Failed, {}, "no name that the DNS could know"};
    if (status == ARES_EBADSTR) return {DnsEnding::Failed, {}, "the DNS server to ask cannot be used"};
    return {DnsEnding::Failed, {}, std::string("the DNS: ") + ares_strerror(status)};
}

}  // namespace

ServiceAnswer LookUpServices(const std::string& name, const DnsSettings& settings) {
    const Outcome outcome = Ask(name, ns_t_srv, settings);
    if (*outcome.status != ARES_SUCCESS) return NotFound<ServiceRecord>(*outcome.status);
    ares_srv_reply* first = nullptr;
    const int parsed = ares_parse_srv_reply(outcome.bytes.data(), static_cast<int>(outcome.bytes.size()), &first);
    const std::unique_ptr<ares_srv_reply, FreeData> records(first);
    if (parsed != ARES_SUCCESS) return NotFound<ServiceRecord>(parsed);
    std::vector<ServiceRecord> services;
    for (const ares_srv_reply* record = first; record; record = record->next) {
        services.push_back({record->host, record->port, record->priority, record->weight});
    }
    return UsableServices(std::move(services));
}

TextAnswer LookUpTexts(const std::string& name, const DnsSettings& settings) {
    const Outcome outcome = Ask(name, ns_t_txt, settings);
    if (*outcome.status != ARES_SUCCESS) return NotFound<std::string>(*outcome.status);
    ares_txt_ext* first = nullptr;
    const int parsed = ares_parse_txt_reply_ext(outcome.bytes.data(), static_cast<int>(outcome.bytes.size()), &first);
    const std::unique_ptr<ares_txt_ext, FreeData> strings(first);
    if (parsed != ARES_SUCCESS) return NotFound<std::string>(parsed);
    TextAnswer answer{DnsEnding::Found, {}, {}};
    for (const ares_txt_ext* string = first; string; string = string->next) {
        if (string->record_start || answer.records.empty()) answer.records.emplace_back();
        answer.records.back().append(reinterpret_cast<const char*>(string->txt), string->length);
    }
    if (answer.records.empty()) answer.ending = DnsEnding::NoSuchRecord;
    return answer;
}

}  // namespace tarvex::host
