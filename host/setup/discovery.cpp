// Goes from a mail domain to servers that can be used.

#include "host/setup/discovery.h"

#include <algorithm>
#include <array>
#include <future>
#include <utility>

#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostServers = 8;  // that DNS may name
constexpr int kPop3s = 995;
constexpr int kSubmissions = 465;
constexpr int kSubmission = 587;

struct Service {
    const char* label;
    PopTls tls;
};

constexpr std::array kMailboxServices = {Service{"_pop3s", PopTls::FromTheFirstByte}, Service{"_pop3", PopTls::Stls}};
constexpr std::array kRelayServices = {Service{"_submissions", PopTls::FromTheFirstByte},
                                       Service{"_submission", PopTls::Stls}};

std::string WithoutDot(std::string name) {
    if (name.ends_with('.')) name.pop_back();
    return Lower(name);
}

bool IsWithin(const std::string& name, const std::string& domain) {
    return name == domain || name.ends_with('.' + domain);
}

// What DNS names comes from a stranger.
bool IsHostName(const std::string& name) {
    return !name.empty() && name.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789-_.") == std::string::npos;
}

class Search {
public:
    Search(CProtocol protocol, const std::string& domain, const SearchTools& tools)
        : protocol_(protocol), domain_(Lower(domain)), tools_(tools) {}

    Discovery Find(const std::optional<KnownProvider>& known) {
        if (known && !OfProvider(*known)) {
            done_.not_offered = Tr("the provider of {0}", domain_);
        } else if (!(known && TryAll({*OfProvider(*known)}, FoundBy::KnownServers)) && !TryAll(Named(), FoundBy::Dns) &&
                   done_.not_offered.empty()) {
            TryAll(Usual(), FoundBy::UsualName);
        }
        return std::move(done_);
    }

private:
    const std::optional<MailServer>& OfProvider(const KnownProvider& known) const {
        return protocol_ == CProtocol::Smtp ? known.smtp : known.pop;
    }

    std::vector<MailServer> Named() {
        std::vector<MailServer> servers;
        int refused = 0;
        for (const Service& service : protocol_ == CProtocol::Smtp ? kRelayServices : kMailboxServices) {
            const ServiceAnswer answer = tools_.services(std::string(service.label) + "._tcp." + domain_);
            if (answer.ending == DnsEnding::Failed) done_.tried.push_back("DNS: " + answer.reason);
            if (answer.ending == DnsEnding::NotOffered) ++refused;
            for (const ServiceRecord& record : answer.records) {
                const std::string name = WithoutDot(record.target);
                if (IsHostName(name) && servers.size() < kMostServers)
                    servers.push_back({name, record.port, service.tls});
            }
        }
        if (servers.empty() && refused > 0) done_.not_offered = "the DNS of " + domain_;
        return servers;
    }

    std::vector<MailServer> Usual() const {
        std::vector<MailServer> servers;
        if (protocol_ == CProtocol::Pop3) {
            for (const char* const name : {"pop.", "pop3.", "mail."})
                servers.push_back({name + domain_, kPop3s, PopTls::FromTheFirstByte});
            return servers;
        }
        for (const auto& [port, tls] :
             {std::pair{kSubmissions, PopTls::FromTheFirstByte}, std::pair{kSubmission, PopTls::Stls}}) {
            for (const char* const name : {"smtp.", "mail."}) servers.push_back({name + domain_, port, tls});
        }
        return servers;
    }

    // True when one of them can be used: the first in their order.
    bool TryAll(const std::vector<MailServer>& servers, FoundBy by) {
        std::vector<std::future<ServerLook>> looks;
        for (const MailServer& server : servers) {
            looks.push_back(std::async(std::launch::async, [this, &server] { return tools_.look(protocol_, server); }));
        }
        for (std::size_t i = 0; i < servers.size(); ++i) {
            ServerLook look = looks[i].get();
            if (!look.IsGood()) {
                done_.tried.push_back(ShowServer(servers[i]) + ": " + look.trouble);
            } else if (!done_.found) {
                const bool is_foreign = by == FoundBy::Dns && !IsWithin(servers[i].name, domain_) &&
                                        std::ranges::find(look.facts.names, domain_) == look.facts.names.end();
                done_.found = FoundServer{servers[i], by, std::move(look), is_foreign};
            }
        }
        return done_.found.has_value();
    }

    const CProtocol protocol_;
    const std::string domain_;
    const SearchTools& tools_;
    Discovery done_;
};

}  // namespace

Discovery FindServer(CProtocol protocol, const std::string& domain, const std::optional<KnownProvider>& known,
                     const SearchTools& tools) {
    return Search(protocol, domain, tools).Find(known);
}

std::string ShowServer(const MailServer& server) {
    return ShowUtf8Text(server.name) + " port " + std::to_string(server.port);
}

}  // namespace tarvex::host
