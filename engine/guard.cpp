// The default answers of a guard: the run as it is without one.

#include "tarvex/guard.h"

#include "tarvex/tree.h"

CRunGuard::~CRunGuard() = default;

CRunGuard& CRunGuard::OrDefaults(CRunGuard* guard) {
    static CRunGuard defaults;
    return guard ? *guard : defaults;
}

CSmtpAccount CRunGuard::SendsThrough(const CPopProfile& profile) { return CSmtpAccount::Of(profile.setting); }

CConnection CRunGuard::Connects(const CPopProfile& /*profile*/, CServerToReach& /*server*/) { return {}; }

bool CRunGuard::Begins(const CPopProfile& /*profile*/) { return true; }

bool CRunGuard::Listed(const CPopProfile& /*profile*/, std::span<const CMailOnServer> /*listing*/) { return true; }

bool CRunGuard::WantsSizes(const CPopProfile& /*profile*/) { return false; }

bool CRunGuard::IsHandled(const CPopProfile& /*profile*/, const CMailOnServer& /*mail*/, bool received) {
    return received;
}

bool CRunGuard::Deletes(const CPopProfile& /*profile*/, const CMailOnServer& /*mail*/) { return true; }

bool CRunGuard::GoesOnAfter(const CPopProfile& /*profile*/, const CRunFailure& /*refused_deletion*/) { return false; }

bool CRunGuard::ComesLast(const CPopProfile& /*profile*/, const CMailOnServer& /*mail*/) { return false; }

std::optional<CString> CRunGuard::Kept(const CPopProfile& /*profile*/, const CMailOnServer& /*mail*/) {
    return std::nullopt;
}

bool CRunGuard::Fetches(const CPopProfile& /*profile*/, const CMailOnServer& /*mail*/, std::int64_t /*held_bytes*/) {
    return true;
}

std::int64_t CRunGuard::LeastBytesPerMinute(const CPopProfile& /*profile*/) { return 0; }

bool CRunGuard::DeliversAfter(const CPopProfile& /*profile*/, const CRunFailure& /*failed_retrieval*/) { return false; }

CSending CRunGuard::Sends(const CPopProfile& /*profile*/, const CReceiveMail& /*mail*/,
                          const CForwardAddress& /*address*/, bool /*received*/) {
    return CSending::AsAlways;
}

bool CRunGuard::Offers(const CPopProfile& /*profile*/, const CReceiveMail& /*mail*/,
                       const CForwardAddress& /*address*/) {
    return true;
}

int CRunGuard::TextMailHeaderBytes(const CPopProfile& /*profile*/) { return 0; }

int CRunGuard::EndOfDataSeconds(const CPopProfile& /*profile*/) { return 0; }

CRefusal CRunGuard::Refused(const CPopProfile& /*profile*/, const CReceiveMail& /*mail*/,
                            const CForwardAddress& /*address*/, const CRunFailure& /*refusal*/) {
    return CRefusal::EndDelivery;
}

void CRunGuard::Taken(const CPopProfile& /*profile*/, const CReceiveMail& /*mail*/,
                      std::span<CForwardAddress* const> /*addresses*/, std::string_view /*reply*/) {}

void CRunGuard::NotReached(const CPopProfile& /*profile*/, std::span<CReceiveMail* const> /*mails*/) {}
