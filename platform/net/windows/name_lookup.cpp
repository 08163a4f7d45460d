// Name look-up by getaddrinfo.

#include "platform/net/name_lookup.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <cstring>
#include <memory>

#include "platform/net/windows/socket_error.h"

namespace tarvex {

namespace {

struct FreeAddresses {
    void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, FreeAddresses>;

// 0 or an error of Windows Sockets.
int Ask(const std::string& name, int flags, AddressList& list) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = flags;
    addrinfo* found = nullptr;
    const int code = getaddrinfo(name.c_str(), nullptr, &hints, &found);
    if (code == 0) list.reset(found);
    return code;
}

std::optional<NetworkAddress> FromSystem(const addrinfo& info) {
    NetworkAddress address;
    if (info.ai_family == AF_INET && info.ai_addrlen >= sizeof(sockaddr_in)) {
        sockaddr_in ipv4;
        std::memcpy(&ipv4, info.ai_addr, sizeof ipv4);
        std::memcpy(address.bytes.data(), &ipv4.sin_addr, sizeof ipv4.sin_addr);
        return address;
    }
    if (info.ai_family == AF_INET6 && info.ai_addrlen >= sizeof(sockaddr_in6)) {
        sockaddr_in6 ipv6;
        std::memcpy(&ipv6, info.ai_addr, sizeof ipv6);
        std::memcpy(address.bytes.data(), &ipv6.sin6_addr, sizeof ipv6.sin6_addr);
        address.is_ipv6 = true;
        address.scope = ipv6.sin6_scope_id;
        return address;
    }
    return std::nullopt;
}

}  // namespace

std::optional<NetworkAddress> NumericAddress(const std::string& name) {
    AddressList list;
    if (Ask(name, AI_NUMERICHOST, list) != 0 || !list) return std::nullopt;
    return FromSystem(*list);
}

NameAnswer AskSystemForName(const std::string& name) {
    NameAnswer answer;
    AddressList list;
    const int code = Ask(name, 0, list);
    if (code != 0) answer.error = SocketErrorText(code);
    for (const addrinfo* info = list.get(); info != nullptr; info = info->ai_next) {
        if (const auto address = FromSystem(*info)) answer.addresses.push_back(*address);
    }
    return answer;
}

std::string ToText(const NetworkAddress& address) {
    char text[INET6_ADDRSTRLEN] = {};
    inet_ntop(address.is_ipv6 ? AF_INET6 : AF_INET, address.bytes.data(), text, sizeof text);
    return text;
}

}  // namespace tarvex
