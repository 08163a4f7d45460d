// Reads what a domain publishes about its mail: RFC 7208 and RFC 7489.
//
// Which domain above it speaks for a domain is found by walking up, not by a list of public suffixes. A receiver that
// has such a list asks two of these names only; the name that answered is shown.

#include "host/receivers/published.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::string_view kSpf = "v=spf1";
constexpr std::string_view kDmarc = "v=DMARC1";
constexpr std::string_view kBlanks = " \t\r\n";

std::string_view Trimmed(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
    return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Whether the text begins with the version and goes on with one of these, or ends there.
bool IsOf(std::string_view text, std::string_view version, std::string_view next) {
    return text.starts_with(version) &&
           (text.size() == version.size() || next.find(text[version.size()]) != std::string_view::npos);
}

DmarcPolicy PolicyNamed(const std::string& name) {
    if (name == "reject") return DmarcPolicy::Reject;
    return name == "quarantine" ? DmarcPolicy::Quarantine : DmarcPolicy::None;
}

// "v=DMARC1; p=reject; sp=none". What is missing or misspelt asks for nothing.
DmarcPolicy PolicyIn(std::string_view record, bool is_above) {
    std::optional<DmarcPolicy> own, below;
    while (!record.empty()) {
        const std::string_view tag = record.substr(0, record.find(';'));
        record.remove_prefix(std::min(tag.size() + 1, record.size()));
        const std::size_t equals = tag.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string name = Lower(Trimmed(tag.substr(0, equals)));
        const DmarcPolicy policy = PolicyNamed(Lower(Trimmed(tag.substr(equals + 1))));
        if (name == "p") own = policy;
        if (name == "sp") below = policy;
    }
    return (is_above && below) ? *below : own.value_or(DmarcPolicy::None);
}

// One domain is asked about.
class Question {
public:
    Question(const std::string& domain, DnsSettings settings)
        : settings_(std::move(settings)), end_(Clock::now() + settings_.timeout), published_{domain, {}, {}, {}} {}

    Published Answer() {
        if (!AskForSpf()) return published_;
        std::string domain = published_.domain;
        while (AskForDmarc(domain) && published_.dmarc.ending == DnsEnding::NoSuchRecord) {
            domain.erase(0, domain.find('.') + 1);
            if (domain.find('.') == std::string::npos) break;
        }
        return published_;
    }

private:
    // The texts that are records of that kind. False when there is no answer.
    bool Ask(const std::string& name, std::string_view version, std::string_view next, TextAnswer& answer) {
        settings_.timeout = std::max(std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()),
                                     std::chrono::milliseconds::zero());
        answer = LookUpTexts(name, settings_);
        std::erase_if(answer.records, [&](const std::string& text) { return !IsOf(text, version, next); });
        if (answer.ending == DnsEnding::Found && answer.records.empty()) answer.ending = DnsEnding::NoSuchRecord;
        if (answer.ending == DnsEnding::Failed) published_.trouble = answer.reason;
        return answer.ending != DnsEnding::Failed;
    }

    bool AskForSpf() {
        TextAnswer answer;
        const bool answered = Ask(published_.domain, kSpf, " ", answer);
        published_.spf = {answer.ending, std::move(answer.records)};
        return answered;
    }

    bool AskForDmarc(const std::string& domain) {
        const std::string name = "_dmarc." + domain;
        TextAnswer answer;
        const bool answered = Ask(name, kDmarc, "; \t", answer);
        published_.dmarc.ending = answer.ending;
        if (answer.ending != DnsEnding::Found) return answered;
        published_.dmarc.name = name;
        // Receivers heed none of several.
        if (answer.records.size() == 1) {
            published_.dmarc.policy = PolicyIn(answer.records.front(), domain != published_.domain);
        }
        return answered;
    }

    DnsSettings settings_;
    const Clock::time_point end_;
    Published published_;
};

}  // namespace

std::string DomainOf(const CString& address) {
    constexpr std::string_view kAllowed = "abcdefghijklmnopqrstuvwxyz0123456789-_.";
    const std::size_t at = address.rfind('@');
    if (at == CString::npos) return {};
    std::string domain = Lower(Trimmed(std::string_view(address).substr(at + 1)));
    if (domain.ends_with('>')) domain.pop_back();
    if (domain.ends_with('.')) domain.pop_back();
    const bool is_name = domain.find_first_not_of(kAllowed) == std::string::npos && !domain.starts_with('.');
    return is_name && domain.find('.') != std::string::npos ? domain : std::string();
}

Published LookUpPublished(const std::string& domain, const DnsSettings& settings) {
    return Question(domain, settings).Answer();
}

std::string_view NameOf(DmarcPolicy policy) {
    if (policy == DmarcPolicy::Reject) return "reject";
    return policy == DmarcPolicy::Quarantine ? "quarantine" : "none";
}

}  // namespace tarvex::host
