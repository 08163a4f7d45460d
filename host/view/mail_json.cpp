// Puts messages into JSON.

#include "host/view/mail_json.h"

#include <algorithm>

#include "host/held/held.h"
#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

constexpr CTime kSecond = 1000;  // in milliseconds

Json MomentOrNull(CTime moment) { return moment == 0 ? Json() : Json(ShowIsoTime(moment)); }

Json JsonOf(const HeldAddress& waiting) {
    Json answers = Json::array();
    for (const HeldAnswer& answer : waiting.answers) {
        answers.push_back({{"time", MomentOrNull(answer.time)}, {"reply", Utf8OfServerText(answer.reply)}});
    }
    return {{"address", Utf8FromText(waiting.address)},
            {"path", ShowPath(waiting.folder)},
            {"stage", Word(waiting.stage)},
            {"class", Word(waiting.failure_class)},
            {"reply", Utf8OfServerText(waiting.reply)},
            {"tries", waiting.tries},
            {"last_try", MomentOrNull(waiting.last_try)},
            {"next_try", MomentOrNull(waiting.next_try)},
            {"answers", std::move(answers)}};
}

}  // namespace

std::vector<HeldRecord> HeldRecordsOf(const CPopProfile& profile) {
    auto records = HeldStore(profile.path).List();
    if (!records) throw CommandError(kCannotWrite, Tr("cannot read \"{0}\"", ShowPath(profile.path + "\\held")));
    for (HeldRecord& record : *records) {
        for (HeldAddress& waiting : record.addresses) {
            for (const auto& address : profile.forward_addresses) {
                if (IsOf(waiting, *address)) waiting.address = address->setting.address;
            }
        }
    }
    return *std::move(records);
}

std::vector<HeldRecord> HeldOf(const CPopProfile& profile, const CString& uidl, const CForwardAddress* address) {
    std::vector<HeldRecord> held = HeldRecordsOf(profile);
    std::erase_if(held, [&](const HeldRecord& record) {
        const bool waits = std::ranges::any_of(
            record.addresses, [address](const HeldAddress& one) { return !address || IsOf(one, *address); });
        return !record.damage.empty() || record.uidl != uidl || !waits;
    });
    return held;
}

std::string Say(CopyFate fate) {
    switch (fate) {
        case CopyFate::Sent:
            return Tr("sent");
        case CopyFate::HadAlready:
            return Tr("not sent, has it already");
        case CopyFate::Refused:
            return Tr("refused and set aside");
        case CopyFate::Parked:
            return Tr("set aside, for the address is parked");
        case CopyFate::Report:
            return Tr("set aside, a delivery report about an address of this profile");
        case CopyFate::Loop:
            return Tr("set aside, it came back from where it was sent");
        default:
            return Tr("waits for a later run");
    }
}

Json JsonOf(const FoundMail& found) {
    const TracedMail& mail = found.mail;
    const CHeadlines headlines = HeadlinesOf(mail.header);
    Json json = {{"message", HandleOf(found)},
                 {"profile", found.profile},
                 {"subject", Utf8OfServerText(headlines.subject)},
                 {"from", Utf8OfServerText(headlines.from)},
                 {"message_id", Utf8OfServerText(headlines.message_id)},
                 {"id", Utf8OfServerText(mail.uidl)},
                 {"bytes", mail.bytes},
                 {"fetched", MomentOrNull(mail.fetched / kSecond)},
                 {"waits", found.waits},
                 {"copies", Json::array()}};
    for (const TracedCopy& copy : mail.copies) {
        json["copies"].push_back({{"address", Utf8OfServerText(copy.address)},
                                  {"fate", Word(copy.fate)},
                                  {"offered", MomentOrNull(copy.offered / kSecond)},
                                  {"ended", MomentOrNull(copy.ended / kSecond)},
                                  {"milliseconds", copy.offered == 0 ? Json() : Json(copy.ended - copy.offered)},
                                  {"words", Utf8OfServerText(copy.words)}});
    }
    return json;
}

Json JsonOf(const std::string& profile, const HeldRecord& record) {
    Json addresses = Json::array();
    for (const HeldAddress& waiting : record.addresses) addresses.push_back(JsonOf(waiting));
    return {{"profile", profile},
            {"id", record.id},
            {"kind", Word(record.kind)},
            {"uidl", Utf8FromText(record.uidl)},
            {"digest", Utf8FromText(record.digest)},
            {"set_aside", MomentOrNull(record.set_aside)},
            {"bytes", record.bytes},
            {"damage", record.damage.empty() ? Json() : Json(record.damage)},
            {"addresses", std::move(addresses)}};
}

}  // namespace tarvex::host
