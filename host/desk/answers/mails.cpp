// What the console shows of messages that runs have fetched: what became of each.

#include <algorithm>
#include <functional>
#include <iterator>

#include "host/desk/answers/parts.h"
#include "host/history/history.h"
#include "host/view/mail_json.h"

namespace tarvex::host {
namespace {

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

}  // namespace

Json JsonOfMail(const FoundMail& found) {
    Json json = JsonOf(found);
    for (std::size_t i = 0; i < found.mail.copies.size(); ++i)
        json["copies"][i]["says"] = Say(found.mail.copies[i].fate);
    return json;
}

// What became of messages: the newest, or those that have the words.
Json AnswerMails(Visit& visit) {
    const auto most = kMailsAPage;
    std::vector<FoundMail> found = FromHistory(visit.Directory(), [&](HistoryReader& reader) {
        return FindIn(reader, visit, {WordsOf(visit.Text("search")), {}, 0, most});
    });
    Json answer = visit.Ok();
    answer["more"] = found.size() > most;
    if (found.size() > most) found.resize(most);
    answer["mails"] = Json::array();
    for (const FoundMail& one : found) answer["mails"].push_back(JsonOfMail(one));
    return answer;
}

}  // namespace tarvex::host
