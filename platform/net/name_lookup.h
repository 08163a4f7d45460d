#pragma once

// From a server's name to its addresses.

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/net/deadline.h"
#include "platform/net/failure.h"

namespace tarvex {

struct NetworkAddress {
    bool is_ipv6 = false;
    std::array<unsigned char, 16> bytes{};  // network order; the first four for IPv4
    std::uint32_t scope = 0;                // of a link-local IPv6 address
};

struct NameAnswer {
    std::vector<NetworkAddress> addresses;
    std::string error;  // says why there are none
};

// Fills `addresses` with at least one address, or says why not. The system's look-up can neither be given a deadline
// nor be interrupted, so it runs on a thread of its own that is left behind when the caller has waited long enough.
// Numeric addresses need no look-up and no thread.
Failure LookUpName(const std::string& name, const Deadline& deadline, std::vector<NetworkAddress>& addresses);

// The name as a numeric address, if it is one.
std::optional<NetworkAddress> NumericAddress(const std::string& name);

std::string ToText(const NetworkAddress& address);

// Asks the system, which may take long.
NameAnswer AskSystemForName(const std::string& name);

// For tests: replaces the system's look-up, on a thread of its own; null restores it.
using NameResolver = std::function<NameAnswer(const std::string& name)>;
void SetNameResolver(NameResolver resolver);

}  // namespace tarvex
