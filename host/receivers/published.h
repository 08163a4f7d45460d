#pragma once

// What a domain publishes about mail that claims to come from it: SPF and DMARC.

#include <string>
#include <string_view>
#include <vector>

#include "host/dns/lookup.h"
#include "tarvex/text.h"

namespace tarvex::host {

struct Spf {
    DnsEnding ending = DnsEnding::Failed;  // of the look-up
    std::vector<std::string> records;      // when found; receivers take more than one for an error
};

enum class DmarcPolicy { None, Quarantine, Reject };

struct Dmarc {
    DnsEnding ending = DnsEnding::Failed;
    std::string name;                        // where the record stands, "_dmarc.example.com", when found
    DmarcPolicy policy = DmarcPolicy::None;  // what it asks of receivers for the domain
};

struct Published {
    std::string domain;
    Spf spf;
    Dmarc dmarc;
    std::string trouble;  // why a look-up failed; empty: none did
};

// The domain of a mail address, in small letters; empty when there is none that the DNS could know.
[[nodiscard]] std::string DomainOf(const CString& address);

// Asks for SPF at the domain, and for DMARC there and, as long as there is none, at the domains above it, but never at
// the top. All of it takes no longer than the timeout. On any thread.
[[nodiscard]] Published LookUpPublished(const std::string& domain, const DnsSettings& settings);

[[nodiscard]] std::string_view NameOf(DmarcPolicy policy);  // "none", "quarantine", "reject"

}  // namespace tarvex::host
