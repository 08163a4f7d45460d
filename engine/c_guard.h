#pragma once

// The guard of a host in C.

#include "tarvex/guard.h"
#include "tarvex/tarvex_c.h"
#include "tarvex/text.h"

namespace tarvex {

// Asks the host's functions, and gives the default where there is none.
class CGuardForC : public CRunGuard {
public:
    CGuardForC(const CString& root, const tarvex_guard& host);

    CSmtpAccount SendsThrough(const CPopProfile& profile) override;
    CConnection Connects(const CPopProfile& profile, CServerToReach& server) override;
    bool Begins(const CPopProfile& profile) override;
    bool Listed(const CPopProfile& profile, std::span<const CMailOnServer> listing) override;
    bool IsHandled(const CPopProfile& profile, const CMailOnServer& mail, bool received) override;
    bool Deletes(const CPopProfile& profile, const CMailOnServer& mail) override;
    bool GoesOnAfter(const CPopProfile& profile, const CRunFailure& refused_deletion) override;
    bool WantsSizes(const CPopProfile& profile) override;
    bool ComesLast(const CPopProfile& profile, const CMailOnServer& mail) override;
    std::optional<CString> Kept(const CPopProfile& profile, const CMailOnServer& mail) override;
    bool Fetches(const CPopProfile& profile, const CMailOnServer& mail, std::int64_t held_bytes) override;
    std::int64_t LeastBytesPerMinute(const CPopProfile& profile) override;
    bool DeliversAfter(const CPopProfile& profile, const CRunFailure& failed_retrieval) override;
    CSending Sends(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                   bool received) override;
    bool Offers(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address) override;
    int TextMailHeaderBytes(const CPopProfile& profile) override;
    int EndOfDataSeconds(const CPopProfile& profile) override;
    CRefusal Refused(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                     const CRunFailure& refusal) override;
    void Taken(const CPopProfile& profile, const CReceiveMail& mail, std::span<CForwardAddress* const> addresses,
               std::string_view reply) override;
    void NotReached(const CPopProfile& profile, std::span<CReceiveMail* const> mails) override;

private:
    template <class Ask>
    auto AskAbout(const CPopProfile& profile, const CMailOnServer& mail, Ask ask) const;
    template <class Ask>
    auto AskAbout(const CPopProfile& profile, const CReceiveMail& mail, Ask ask) const;

    const CString root_;
    tarvex_guard host_{};
};

}  // namespace tarvex
