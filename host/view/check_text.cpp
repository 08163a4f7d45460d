// Says what a try of a server found, as `tarvex check` prints it.

#include "host/view/check_text.h"

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <utility>

#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/table.h"
#include "host/terminal/wording.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kStepWidth = 17;
constexpr std::size_t kTimeWidth = 8;
constexpr std::size_t kTextWidth = 100;

std::string TextOf(const CProbeStep& step, const std::string& remark) {
    const std::string time = std::to_string((step.microseconds + 500) / 1000) + " ms";
    const std::string padding(time.size() < kTimeWidth ? kTimeWidth - time.size() : 0, ' ');
    std::string line = Padded(ShowStep(step.kind), kStepWidth) + padding + time + "  " +
                       (step.failure == PROBE_SUCCESS ? "" : Tr("FAILED") + "  ") + OneLine(step.text, kTextWidth);
    if (!remark.empty()) line += "  (" + remark + ')';
    line.erase(line.find_last_not_of(' ') + 1);
    return "    " + line + '\n';
}

std::string InMailbox(const CMailboxListing& listing) {
    const auto count = static_cast<std::int64_t>(listing.mails.size());
    if (count == 0) return Tr("0 messages");
    return TrN("{0} message, {1}", "{0} messages, {1}", count, ShowBytes(BytesIn(listing)));
}

}  // namespace

CProbeWatch StepTeller::Watch(std::function<void(const std::string& step)> begun) {
    return [this, begun = std::move(begun)](std::span<const CProbeStep> steps) {
        Tell(steps.first(steps.size() - 1));
        if (begun) begun(ShowStep(steps.back().kind));
    };
}

void StepTeller::Tell(std::span<const CProbeStep> ended) {
    if (ended.size() > told_) print_(text_(ended.subspan(told_)));
    told_ = std::max(told_, ended.size());
}

bool Matters(const CProbeStep& step) { return step.failure != PROBE_SUCCESS && step.kind != PROBE_QUIT; }

std::int64_t BytesIn(const CMailboxListing& listing) {
    const auto add = [](std::int64_t sum, const CListedMail& mail) {
        return sum + std::max<std::int64_t>(mail.size_bytes, 0);
    };
    return std::accumulate(listing.mails.begin(), listing.mails.end(), std::int64_t{0}, add);
}

std::string ShowServer(const CPopProfileSetting& setting, Protocol protocol, int tls) {
    const int port = protocol == Protocol::Pop ? setting.popport : setting.smtpport;
    const std::string name = ShowText(ServerOf(setting, protocol));
    if (tls == 0) return Tr("{0} port {1}", name, port);
    return tls == 2 ? Tr("{0} port {1} with STARTTLS", name, port) : Tr("{0} port {1} with TLS", name, port);
}

std::string TextOfPop(std::span<const CProbeStep> steps, const CMailboxListing& listing, const Tried& tried) {
    std::string text;
    for (const CProbeStep& step : steps) {
        const bool is_listed = step.kind == PROBE_LIST && step.failure == PROBE_SUCCESS;
        text += TextOf(step, is_listed ? InMailbox(listing) : "");
        if (Matters(step)) text += Paragraph(Advice(step, Protocol::Pop, tried.setting, tried.rules, tried.reader), 6);
    }
    return text;
}

std::string TextOfSmtp(std::span<const CProbeStep> steps, const Tried& tried) {
    std::string text;
    for (const CProbeStep& step : steps) {
        text += TextOf(step, ShowText(step.recipient));
        if (Matters(step)) text += Paragraph(Advice(step, Protocol::Smtp, tried.setting, tried.rules, tried.reader), 6);
    }
    return text;
}

std::string NoteOn(const CMailboxListing& listing, bool is_good) {
    if (!is_good || listing.has_uidls != 0) return {};
    return Paragraph(Tr("Note: the server has no unique ids (UIDL), so messages cannot be told apart."), 6);
}

std::string WhyWithoutLogin(const CSmtpTrial& trial, const CPopProfileSetting& setting, Reader reader) {
    const auto hello = std::ranges::find(trial.steps, int{PROBE_HELLO}, &CProbeStep::kind);
    const bool greeted = hello != trial.steps.end() && hello->failure == PROBE_SUCCESS;
    if (!greeted || setting.smtpauth == 0 || !trial.method.empty()) return {};
    return AdviceOnMissingLogin(hello->text, setting, reader);
}

std::string NoteOn(const CSmtpTrial& trial, const Tried& tried) {
    const std::string why = WhyWithoutLogin(trial, tried.setting, tried.reader);
    return why.empty() ? "" : Paragraph(Tr("Note: {0}", why), 6);
}

std::vector<CString> RecipientsOf(const CPopProfile& profile) {
    std::vector<CString> recipients;
    for (const auto& forward : profile.forward_addresses) {
        if (forward->setting.status != 0) recipients.push_back(RecipientOf(forward->setting.address));
    }
    return recipients;
}

}  // namespace tarvex::host
