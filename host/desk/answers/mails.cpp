// What the console shows of messages that runs have fetched: what became of each.

#include <algorithm>
#include <functional>
#include <iterator>

#include "host/desk/answers/parts.h"
#include "host/history/history.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/view/mail_json.h"
#include "tarvex/conversion.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostSame = 500;  // messages with the same id

std::vector<FoundMail> FindIn(HistoryReader& reader, const Visit& visit, MailSearch search) {
    const std::string asked = visit.Text("profile");
    if (!asked.empty()) {
        search.directory = visit.ProfileCalled(asked).profile->path;
        return reader.Find(search);
    }
    if (visit.IsAdministrator()) return reader.Find(search);
    std::vector<FoundMail> all;
    for (const NamedProfile& named : visit.Visible()) {
        search.directory = named.profile->path;
        std::ranges::move(reader.Find(search), std::back_inserter(all));
    }
    std::ranges::stable_sort(all, std::ranges::greater(), &FoundMail::id);
    if (all.size() > search.most + 1) all.resize(search.most + 1);
    return all;
}

std::vector<std::string> WordsOf(const std::string& text) {
    std::vector<std::string> words;
    for (std::size_t i = 0; i < text.size() && words.size() < 20;) {
        const std::size_t end = std::min(text.find(' ', i), text.size());
        if (end > i) words.push_back(text.substr(i, end - i));
        i = end + 1;
    }
    return words;
}

// The profile that is called as that of the message, unless that name was another one's when it was fetched.
std::optional<NamedProfile> OfToday(HistoryReader& reader, const Visit& visit, const FoundMail& mail) {
    for (const NamedProfile& named : visit.Visible()) {
        if (ShownName(visit.Root(), named.profile->path) != mail.profile) continue;
        MailSearch search{{}, {}, 0, kMostSame, named.profile->path};
        const CString& id = mail.mail.uidl.empty() ? HeadlinesOf(mail.mail.header).message_id : mail.mail.uidl;
        if (!id.empty()) search.words = {ShowText(id)};
        const std::vector<FoundMail> of_it = reader.Find(search);
        if (std::ranges::find(of_it, mail.id, &FoundMail::id) != of_it.end()) return named;
    }
    return std::nullopt;
}

}  // namespace

Json JsonOfMail(const FoundMail& found) {
    Json json = JsonOf(found);
    for (std::size_t i = 0; i < found.mail.copies.size(); ++i)
        json["copies"][i]["says"] = Say(found.mail.copies[i].fate);
    return json;
}

CalledMail MailCalled(const Visit& visit) {
    const auto id = IdInHandle(visit.Text("message"));
    CalledMail called;
    const bool is_there = id && FromHistory(visit.Directory(), [&](HistoryReader& reader) {
                              auto found = reader.Mail(*id);
                              if (!found) return false;
                              called.found = *std::move(found);
                              called.profile = OfToday(reader, visit, called.found);
                              return true;
                          });
    if (!is_there || (!called.profile && !visit.IsAdministrator())) throw Refusal{"missing", {}};
    return called;
}

// One message: each of its stations, where it is set aside, and to whom it can go once more.
Json AnswerMail(Visit& visit) {
    const CalledMail called = MailCalled(visit);
    Json answer = visit.Ok();
    answer["mail"] = JsonOfMail(called.found);
    answer["title"] = called.profile ? visit.TitleOf(called.found.profile) : called.found.profile;
    answer["size"] = called.found.mail.bytes > 0 ? Json(ShowBytes(called.found.mail.bytes)) : Json();
    answer["is_there"] = called.profile.has_value();
    answer["held"] = Json::array();
    answer["addresses"] = Json::array();
    if (!called.profile || called.found.mail.uidl.empty()) return answer;
    const CPopProfile& profile = *called.profile->profile;
    for (const HeldRecord& record : HeldOf(profile, called.found.mail.uidl, nullptr))
        answer["held"].push_back(record.id);
    for (const auto& forward : profile.forward_addresses)
        answer["addresses"].push_back(
            {{"path", ShownName(visit.Root(), forward->path)}, {"address", ShowText(forward->setting.address)}});
    return answer;
}

// What became of messages: the newest, or those that have the words.
Json AnswerMails(Visit& visit) {
    const auto most = kMailsAPage;
    std::vector<FoundMail> found = FromHistory(visit.Directory(), [&](HistoryReader& reader) {
        return FindIn(reader, visit, {WordsOf(visit.Text("search")), {}, 0, most});
    });
    Json answer = visit.Ok();
    answer["title"] = visit.TitleOf(visit.Text("profile"));
    answer["more"] = found.size() > most;
    if (found.size() > most) found.resize(most);
    answer["mails"] = Json::array();
    for (const FoundMail& one : found) answer["mails"].push_back(JsonOfMail(one));
    return answer;
}

}  // namespace tarvex::host
