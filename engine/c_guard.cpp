// Hands the questions of a run to the functions of a host in C.

#include "engine/c_guard.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <list>
#include <string>
#include <vector>

#include "engine/c_result.h"
#include "tarvex/tree.h"

namespace tarvex {
namespace {

template <class Enumeration>
constexpr bool Is(int value, Enumeration enumerator) {
    return value == static_cast<int>(enumerator);
}

static_assert(Is(TARVEX_SEND_AS_ALWAYS, CSending::AsAlways) && Is(TARVEX_SEND, CSending::Send) &&
              Is(TARVEX_HAS_IT, CSending::HasIt) && Is(TARVEX_KEEP_BACK, CSending::KeepBack));
static_assert(Is(TARVEX_POP3, CProtocol::Pop3) && Is(TARVEX_SMTP, CProtocol::Smtp));
static_assert(Is(TARVEX_END_DELIVERY, CRefusal::EndDelivery) && Is(TARVEX_HOST_HAS_IT, CRefusal::HostHasIt));

// What is no answer is the default.
template <class Enumeration>
Enumeration Answer(int value, Enumeration last) {
    return value >= 0 && value <= static_cast<int>(last) ? static_cast<Enumeration>(value) : Enumeration{};
}

CString TextOf(const char* text) { return text ? text : ""; }

}  // namespace

CGuardForC::CGuardForC(const CString& root, const tarvex_guard& host) : root_(root) {
    std::memcpy(&host_, &host, std::min(static_cast<std::size_t>(std::max(host.size, 0)), sizeof(host_)));
}

template <class Ask>
auto CGuardForC::AskAbout(const CPopProfile& profile, const CMailOnServer& mail, Ask ask) const {
    const std::string name = NameBelow(root_, profile.path);
    const std::string uidl(mail.uidl);
    const tarvex_mail told{name.c_str(), uidl.c_str(), mail.size_bytes, nullptr, 0};
    return ask(&told);
}

template <class Ask>
auto CGuardForC::AskAbout(const CPopProfile& profile, const CReceiveMail& mail, Ask ask) const {
    const std::string name = NameBelow(root_, profile.path);
    const auto bytes = static_cast<long long>(mail.text.size());
    const tarvex_mail told{name.c_str(), mail.uidl.c_str(), -1, mail.text.c_str(), bytes};
    return ask(&told);
}

CSmtpAccount CGuardForC::SendsThrough(const CPopProfile& profile) {
    CSmtpAccount account = CRunGuard::SendsThrough(profile);
    if (!host_.sends_through) return account;
    tarvex_smtp_account told{account.server.c_str(),  account.port,   account.tls,          account.esmtp ? 1 : 0,
                             account.logs_in ? 1 : 0, account.method, account.user.c_str(), account.password.c_str()};
    host_.sends_through(host_.context, NameBelow(root_, profile.path).c_str(), &told);
    return {TextOf(told.server), told.port,   told.tls,          told.esmtp != 0,
            told.logs_in != 0,   told.method, TextOf(told.user), TextOf(told.password)};
}

CConnection CGuardForC::Connects(const CPopProfile& profile, CServerToReach& server) {
    if (!host_.connects) return CRunGuard::Connects(profile, server);
    int is_secured = 0;
    const long long socket =
        host_.connects(host_.context, NameBelow(root_, profile.path).c_str(), static_cast<int>(server.protocol),
                       std::string(server.name).c_str(), server.port, &is_secured);
    return CConnection(static_cast<std::intptr_t>(socket), is_secured != 0);
}

bool CGuardForC::Begins(const CPopProfile& profile) {
    if (!host_.begins) return CRunGuard::Begins(profile);
    return host_.begins(host_.context, NameBelow(root_, profile.path).c_str()) != 0;
}

bool CGuardForC::Listed(const CPopProfile& profile, std::span<const CMailOnServer> listing) {
    if (!host_.listed) return CRunGuard::Listed(profile, listing);
    const std::string name = NameBelow(root_, profile.path);
    std::list<std::string> uidls;  // whose texts do not move
    std::vector<tarvex_mail> told;
    for (const CMailOnServer& mail : listing) {
        told.push_back({name.c_str(), uidls.emplace_back(mail.uidl).c_str(), mail.size_bytes, nullptr, 0});
    }
    return host_.listed(host_.context, name.c_str(), told.data(), static_cast<int>(told.size())) != 0;
}

bool CGuardForC::IsHandled(const CPopProfile& profile, const CMailOnServer& mail, bool received) {
    if (!host_.is_handled) return CRunGuard::IsHandled(profile, mail, received);
    return AskAbout(profile, mail, [&](const tarvex_mail* told) {
        return host_.is_handled(host_.context, told, received ? 1 : 0) != 0;
    });
}

bool CGuardForC::Deletes(const CPopProfile& profile, const CMailOnServer& mail) {
    if (!host_.deletes) return CRunGuard::Deletes(profile, mail);
    return AskAbout(profile, mail, [&](const tarvex_mail* told) { return host_.deletes(host_.context, told) != 0; });
}

bool CGuardForC::GoesOnAfter(const CPopProfile& profile, const CRunFailure& refused_deletion) {
    if (!host_.goes_on_after) return CRunGuard::GoesOnAfter(profile, refused_deletion);
    const tarvex_failure told = Told(refused_deletion);
    return host_.goes_on_after(host_.context, NameBelow(root_, profile.path).c_str(), &told) != 0;
}

bool CGuardForC::WantsSizes(const CPopProfile& profile) {
    if (!host_.wants_sizes) return CRunGuard::WantsSizes(profile);
    return host_.wants_sizes(host_.context, NameBelow(root_, profile.path).c_str()) != 0;
}

bool CGuardForC::ComesLast(const CPopProfile& profile, const CMailOnServer& mail) {
    if (!host_.comes_last) return CRunGuard::ComesLast(profile, mail);
    return AskAbout(profile, mail, [&](const tarvex_mail* told) { return host_.comes_last(host_.context, told) != 0; });
}

std::optional<CString> CGuardForC::Kept(const CPopProfile& profile, const CMailOnServer& mail) {
    if (!host_.kept) return CRunGuard::Kept(profile, mail);
    return AskAbout(profile, mail, [&](const tarvex_mail* told) -> std::optional<CString> {
        long long bytes = 0;
        const char* const text = host_.kept(host_.context, told, &bytes);
        if (!text || bytes < 0) return std::nullopt;
        return CString(text, static_cast<std::size_t>(bytes));
    });
}

bool CGuardForC::Fetches(const CPopProfile& profile, const CMailOnServer& mail, std::int64_t held_bytes) {
    if (!host_.fetches) return CRunGuard::Fetches(profile, mail, held_bytes);
    return AskAbout(profile, mail,
                    [&](const tarvex_mail* told) { return host_.fetches(host_.context, told, held_bytes) != 0; });
}

std::int64_t CGuardForC::LeastBytesPerMinute(const CPopProfile& profile) {
    if (!host_.least_bytes_per_minute) return CRunGuard::LeastBytesPerMinute(profile);
    return host_.least_bytes_per_minute(host_.context, NameBelow(root_, profile.path).c_str());
}

bool CGuardForC::DeliversAfter(const CPopProfile& profile, const CRunFailure& failed_retrieval) {
    if (!host_.delivers_after) return CRunGuard::DeliversAfter(profile, failed_retrieval);
    const tarvex_failure told = Told(failed_retrieval);
    return host_.delivers_after(host_.context, NameBelow(root_, profile.path).c_str(), &told) != 0;
}

CSending CGuardForC::Sends(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                           bool received) {
    if (!host_.sends) return CRunGuard::Sends(profile, mail, address, received);
    const std::string to = NameBelow(root_, address.path);
    return AskAbout(profile, mail, [&](const tarvex_mail* told) {
        return Answer(host_.sends(host_.context, told, to.c_str(), received ? 1 : 0), CSending::KeepBack);
    });
}

bool CGuardForC::Offers(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address) {
    if (!host_.offers) return CRunGuard::Offers(profile, mail, address);
    const std::string to = NameBelow(root_, address.path);
    return AskAbout(profile, mail,
                    [&](const tarvex_mail* told) { return host_.offers(host_.context, told, to.c_str()) != 0; });
}

int CGuardForC::TextMailHeaderBytes(const CPopProfile& profile) {
    if (!host_.text_mail_header_bytes) return CRunGuard::TextMailHeaderBytes(profile);
    return host_.text_mail_header_bytes(host_.context, NameBelow(root_, profile.path).c_str());
}

int CGuardForC::EndOfDataSeconds(const CPopProfile& profile) {
    if (!host_.end_of_data_seconds) return CRunGuard::EndOfDataSeconds(profile);
    return host_.end_of_data_seconds(host_.context, NameBelow(root_, profile.path).c_str());
}

CRefusal CGuardForC::Refused(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                             const CRunFailure& refusal) {
    if (!host_.refused) return CRunGuard::Refused(profile, mail, address, refusal);
    const std::string to = NameBelow(root_, address.path);
    const tarvex_failure why = Told(refusal);
    return AskAbout(profile, mail, [&](const tarvex_mail* told) {
        return Answer(host_.refused(host_.context, told, to.c_str(), &why), CRefusal::HostHasIt);
    });
}

void CGuardForC::Taken(const CPopProfile& profile, const CReceiveMail& mail,
                       std::span<CForwardAddress* const> addresses, std::string_view reply) {
    if (!host_.taken) return CRunGuard::Taken(profile, mail, addresses, reply);
    const std::string answer(reply);
    for (const CForwardAddress* address : addresses) {
        const std::string to = NameBelow(root_, address->path);
        AskAbout(profile, mail,
                 [&](const tarvex_mail* told) { host_.taken(host_.context, told, to.c_str(), answer.c_str()); });
    }
}

void CGuardForC::NotReached(const CPopProfile& profile, std::span<CReceiveMail* const> mails) {
    if (!host_.not_reached) return CRunGuard::NotReached(profile, mails);
    for (const CReceiveMail* mail : mails) {
        AskAbout(profile, *mail, [&](const tarvex_mail* told) { host_.not_reached(host_.context, told); });
    }
}

}  // namespace tarvex
