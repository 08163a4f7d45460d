// Which messages of a run there are, and what is known of each copy. A copy that nothing was told of since it was
// wanted waits.

#include "host/trace/mail_recorder.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "host/memory/mail_header.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kMostFieldBytes = 1000;
constexpr std::size_t kMostWordsBytes = 300;

CString Cut(std::string_view text, std::size_t most) { return CString(text.substr(0, most)); }

// The fields by which people know a message.
CString HeadlinesIn(std::string_view message) {
    CString headlines;
    while (message.starts_with("\r\n")) message.remove_prefix(2);
    for (std::string_view field = TakeField(message); !field.empty(); field = TakeField(message)) {
        if (!IsCalled(field, "from") && !IsCalled(field, "subject") && !IsCalled(field, "message-id")) continue;
        headlines += field.substr(0, kMostFieldBytes);
        if (field.size() > kMostFieldBytes) headlines += "\r\n";
        if (headlines.size() > 3 * kMostFieldBytes) break;
    }
    return headlines;
}

bool IsSettled(const TracedMail& mail) {
    return std::ranges::none_of(mail.copies, [](const TracedCopy& copy) { return copy.fate == CopyFate::Waits; });
}

std::string_view WhyNothingMore(const CRunResult& result) {
    for (const CRunFailure* const why : {&result.delivery, &result.mailbox}) {
        if (!why->reply.empty()) return why->reply;
        if (!why->reason.empty()) return why->reason;
    }
    return result.exception;
}

}  // namespace

TracedMail TraceOf(const CString& uidl, std::string_view message) {
    TracedMail mail;
    mail.uidl = Cut(uidl, kMostWordsBytes);
    mail.header = HeadlinesIn(message);
    mail.bytes = static_cast<std::int64_t>(message.size());
    return mail;
}

Milliseconds MailRecorder::Now() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

void MailRecorder::Fetches(const CMailOnServer& mail) {
    const std::lock_guard lock(mutex_);
    if (!mail.uidl.empty()) fetched_[std::string(mail.uidl)] = clock_();
}

MailRecorder::Entry& MailRecorder::EntryOf(const CReceiveMail& mail) {
    const auto [place, is_new] = places_.try_emplace(&mail, entries_.size());
    if (!is_new) return entries_[place->second];
    TracedMail& told = entries_.emplace_back(Entry{TraceOf(mail.uidl, mail.text)}).mail;
    if (const auto fetched = fetched_.find(mail.uidl); fetched != fetched_.end()) told.fetched = fetched->second;
    return entries_.back();
}

TracedCopy& MailRecorder::CopyOf(Entry& entry, const CString& address) {
    std::vector<TracedCopy>& copies = entry.mail.copies;
    const auto known = std::ranges::find(copies, address, &TracedCopy::address);
    if (known != copies.end()) return *known;
    copies.emplace_back().address = address;
    return copies.back();
}

void MailRecorder::Tell(const CReceiveMail& mail, const CString& address, CopyFate fate, std::string_view words) {
    const std::lock_guard lock(mutex_);
    TracedCopy& copy = CopyOf(EntryOf(mail), address);
    copy.fate = fate;
    copy.words = Cut(words, kMostWordsBytes);
    copy.ended = clock_();
}

void MailRecorder::Offers(const CReceiveMail& mail, const CString& address) {
    const std::lock_guard lock(mutex_);
    is_delivering_ = true;
    CopyOf(EntryOf(mail), address).offered = clock_();
}

std::vector<TracedMail> MailRecorder::TakeSettled() {
    const std::lock_guard lock(mutex_);
    std::vector<TracedMail> settled;
    if (!is_delivering_) return settled;
    for (Entry& entry : entries_) {
        if (entry.is_taken || !IsSettled(entry.mail)) continue;
        settled.push_back(std::move(entry.mail));
        entry = {{}, true};
    }
    return settled;
}

std::vector<TracedMail> MailRecorder::TakeRest(const CRunResult& result) {
    const std::lock_guard lock(mutex_);
    std::vector<TracedMail> rest;
    for (Entry& entry : entries_) {
        if (entry.is_taken) continue;
        for (TracedCopy& copy : entry.mail.copies) {
            if (copy.fate == CopyFate::Waits && copy.words.empty())
                copy.words = Cut(WhyNothingMore(result), kMostWordsBytes);
        }
        rest.push_back(std::exchange(entry, {{}, true}).mail);
    }
    for (const CNotFetchedMail& lost : result.not_fetched) {
        TracedMail& mail = rest.emplace_back();
        mail.uidl = Cut(lost.uidl, kMostWordsBytes);
        const CString& words = lost.reply.empty() ? lost.reason : lost.reply;
        mail.copies.push_back({{}, CopyFate::Waits, 0, clock_(), Cut(words, kMostWordsBytes)});
    }
    return rest;
}

// ---- a run without rules

bool RecordingGuard::Fetches(const CPopProfile& profile, const CMailOnServer& mail, std::int64_t held_bytes) {
    recorder_.Fetches(mail);
    return CRunGuard::Fetches(profile, mail, held_bytes);
}

CSending RecordingGuard::Sends(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                               bool received) {
    if (!received) recorder_.Tell(mail, address.setting.address, CopyFate::Waits);
    return CRunGuard::Sends(profile, mail, address, received);
}

bool RecordingGuard::Offers(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address) {
    recorder_.Offers(mail, address.setting.address);
    return CRunGuard::Offers(profile, mail, address);
}

void RecordingGuard::Taken(const CPopProfile& profile, const CReceiveMail& mail,
                           std::span<CForwardAddress* const> addresses, std::string_view reply) {
    for (const CForwardAddress* const to : addresses) recorder_.Tell(mail, to->setting.address, CopyFate::Sent, reply);
    CRunGuard::Taken(profile, mail, addresses, reply);
}

}  // namespace tarvex::host
