// What the console shows of mail that is set aside. A stranger wrote it.

#include <algorithm>
#include <ctime>

#include "host/desk/answers/parts.h"
#include "host/held/held.h"
#include "host/held/held_export.h"
#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tokens/login_speaker.h"
#include "host/view/mail_json.h"
#include "host/view/phone_text.h"
#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kHead_bytes = 8 << 10;
constexpr std::size_t kMostShown_bytes = 1 << 20;  // of a held message
constexpr std::size_t kMostText_bytes = 256 << 10;
constexpr std::size_t kMostTaken_bytes = std::size_t{12} << 20;  // what an answer has room for, as Base64 and the rest

// The readable text of a message that a stranger wrote: never its HTML, and no more than can be read.
std::string PlainTextOf(const CPopProfile& profile, const std::string& message) {
    const auto text = profile.TextMailOf(message, 0, 0, 1, "");
    return text ? PhoneTextOf(*text, kMostText_bytes).text : "";
}

void AddHeadlines(const CString& profile, Json& mail) {
    const auto text = HeldStore(profile).Text(mail["id"].get<int>(), kHead_bytes);
    const CHeadlines headlines = HeadlinesOf(text ? *text : "");
    mail["subject"] = ShowText(headlines.subject);
    mail["from"] = ShowText(headlines.from);
}

// Throws Refusal.
std::string WholeAsBase64(const CPopProfile& profile, int id) {
    const auto text = HeldStore(profile.path).Text(id, kMostTaken_bytes + 1);
    if (!text) throw Refusal{"refused", Tr("The message cannot be read.")};
    if (text->size() > kMostTaken_bytes)
        throw Refusal{"refused",
                      Tr("The message is too large for the browser: `tarvex held export` writes it to a file.")};
    return Base64Encoded(MessageIn(*text));
}

}  // namespace

Json AnswerHeld(Visit& visit) {
    const CTime now = std::time(nullptr);
    const std::string asked = visit.Text("profile");
    const std::vector<NamedProfile> chosen = asked.empty() ? visit.Visible() : std::vector{visit.ProfileCalled(asked)};
    std::vector<Json> all;
    std::vector<CString> folders;  // of the profiles of these
    for (const NamedProfile& named : chosen) {
        const std::string name = ShownName(visit.Root(), named.profile->path);
        for (const HeldRecord& record : HeldRecordsOf(*named.profile)) {
            Json one = JsonOf(name, record);
            one["account"] = ShowText(named.profile->setting.address);
            one["when"] = ShowTime(record.set_aside);
            one["size"] = ShowBytes(record.bytes);
            for (std::size_t i = 0; i < record.addresses.size(); ++i) {
                const CTime next = record.addresses[i].next_try;
                one["addresses"][i]["next"] = next == 0     ? Tr("when told")
                                              : next <= now ? Tr("now")
                                                            : Tr("in {0}", ShowSpan(next - now));
            }
            all.push_back(std::move(one));
            folders.push_back(named.profile->path);
        }
    }
    std::ranges::reverse(all);
    std::ranges::reverse(folders);
    Json answer = visit.Ok();
    const Page page(visit, all.size(), kMailsAPage);
    page.AddTo(answer);
    answer["title"] = visit.TitleOf(asked);
    answer["count"] = all.size();
    answer["held"] = Json::array();
    for (std::size_t i = page.first; i < page.last; ++i) {
        AddHeadlines(folders[i], all[i]);
        answer["held"].push_back(std::move(all[i]));
    }
    return answer;
}

// The beginning of one message, to be read.
Json AnswerHeldMail(Visit& visit) {
    const CPopProfile& profile = *visit.ProfileCalled(visit.Text("profile")).profile;
    const std::int64_t id = visit.Number("id", -1);
    for (const HeldRecord& record : HeldRecordsOf(profile)) {
        if (record.id != id) continue;
        Json answer = visit.Ok();
        if (visit.Flag("whole")) {
            answer["whole"] = WholeAsBase64(profile, record.id);
            return answer;
        }
        const auto text = HeldStore(profile.path).Text(record.id, kMostShown_bytes);
        const std::string message = text ? MessageIn(*text) : "";
        answer["mail"] = JsonOf(ShownName(visit.Root(), profile.path), record);
        answer["title"] = ShowText(profile.setting.address);
        answer["mail"]["when"] = ShowTime(record.set_aside);
        answer["mail"]["size"] = ShowBytes(record.bytes);
        answer["header"] = text ? Json(ShowHead(*text, kHead_bytes)) : Json();
        const CHeadlines headlines = HeadlinesOf(text ? *text : "");
        answer["subject"] = ShowText(headlines.subject);
        answer["from"] = ShowText(headlines.from);
        answer["text"] = PlainTextOf(profile, message);
        return answer;
    }
    throw Refusal{"missing", {}};
}

}  // namespace tarvex::host
