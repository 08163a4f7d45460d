// Keeps undelivered messages between two runs.

#include "host/rules/kept_mail.h"

#include <algorithm>
#include <string>
#include <utility>

namespace tarvex::host {
namespace {

CString MailboxOf(const CPopProfile& profile) {
    const CPopProfileSetting& setting = profile.setting;
    return setting.popserver + '\n' + std::to_string(setting.popport) + '\n' + setting.popuser;
}

// Not the run's own.
CString NameInBudget(const CString& profile_path) { return "kept " + profile_path; }

const CPopProfile* FindByPath(const CRootPath& root, const CString& path) {
    for (const auto& user : root.users) {
        for (const auto& profile : user->profiles) {
            if (profile->path == path) return profile.get();
        }
    }
    return nullptr;
}

}  // namespace

void KeptMail::Add(const CString& uidl, std::int64_t listed_bytes, CString text) {
    const auto bytes = static_cast<std::int64_t>(text.size());
    if (messages_.try_emplace(uidl, Message{listed_bytes, std::move(text)}).second) bytes_ += bytes;
}

std::optional<CString> KeptMail::Take(const CString& uidl, std::int64_t listed_bytes) {
    const auto found = messages_.find(uidl);
    if (found == messages_.end() || found->second.listed_bytes != listed_bytes) return std::nullopt;
    CString text = std::move(found->second.text);
    messages_.erase(found);
    bytes_ -= static_cast<std::int64_t>(text.size());
    return text;
}

bool KeptMails::OfProfile::IsFor(const CPopProfile& profile, CTime now) const {
    return mailbox == MailboxOf(profile) && now >= since && now - since <= kKeptInMemory_s;
}

KeptMail KeptMails::Take(const CPopProfile& profile, CTime now) {
    const std::lock_guard lock(mutex_);
    const auto found = all_.find(profile.path);
    if (found == all_.end()) return {};
    if (!found->second.IsFor(profile, now)) {
        Drop(found);
        return {};
    }
    KeptMail mail = std::move(found->second.mail);
    budget_.Hold(profile.path, mail.Bytes());
    Drop(found);
    return mail;
}

void KeptMails::Keep(const CPopProfile& profile, KeptMail mail, CTime now) {
    const std::lock_guard lock(mutex_);
    if (const auto found = all_.find(profile.path); found != all_.end()) Drop(found);
    budget_.Hold(NameInBudget(profile.path), mail.Bytes());
    budget_.Leave(profile.path);
    all_[profile.path] = {MailboxOf(profile), now, std::move(mail)};
}

void KeptMails::MakeRoom(std::int64_t bytes) {
    const std::lock_guard lock(mutex_);
    while (bytes > 0 && !all_.empty()) {
        const auto first = std::ranges::min_element(all_, {}, [](const auto& one) { return one.second.since; });
        bytes -= first->second.mail.Bytes();
        Drop(first);
    }
}

void KeptMails::DropUseless(const CRootPath& root, CTime now) {
    const std::lock_guard lock(mutex_);
    for (auto one = all_.begin(); one != all_.end();) {
        const CPopProfile* const profile = FindByPath(root, one->first);
        one = profile && one->second.IsFor(*profile, now) ? std::next(one) : Drop(one);
    }
}

KeptMails::All::iterator KeptMails::Drop(All::iterator one) {
    budget_.Leave(NameInBudget(one->first));
    return all_.erase(one);
}

}  // namespace tarvex::host
