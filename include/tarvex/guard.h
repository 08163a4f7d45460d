#pragma once

// What a host decides in a run.
//
// A run asks its guard at every step that a host may want otherwise. Each answer has a default, and a run whose guard
// gives the defaults is the run without a guard, byte for byte on both wires, in the log and on disk. A host derives a
// guard, overrides what it wants to decide, and gives it to StartRun for one run or to CRootPath::guard for all.
//
// Ownership: the guard stays the host's and must live until the worker-thread field of the copy reads null.
// Threads: every question is asked on the worker's thread, in the order of the run. One guard for several runs is asked
// by their threads at once. A guard may block: its run waits, and InterruptRuns ends that wait only where the guard
// asks RunIsInterrupted. `profile` is the running copy.
// Errors: a guard must not throw. An exception ends the step, as want of memory does.

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "tarvex/connection.h"
#include "tarvex/mail.h"
#include "tarvex/result.h"
#include "tarvex/smtp_account.h"
#include "tarvex/text.h"

class CPopProfile;

// A message as the server lists it, while the run works on the listing.
struct TARVEX_API CMailOnServer {
    std::string_view number;       // what the server calls it in this session
    std::string_view uidl;         // its unique id; empty where the server refuses UIDL
    std::int64_t size_bytes = -1;  // as LIST tells it, unless the server was not asked or gave no number
};

enum class CSending : int {
    AsAlways = 0,  // send it when the address's list lacks its id. One that is for nobody goes to the server all the
                   // same, which refuses it for want of a recipient, unless some answer was another
    Send = 1,      // send it, whatever the list says
    HasIt = 2,     // note it as received, and do not send it
    KeepBack = 3,  // neither send nor note it: the next run asks again
};

enum class CRefusal : int {
    EndDelivery = 0,  // QUIT; what was not delivered is for the next run
    HostHasIt = 1,    // the host holds it durably for this address: note it as received, go on with the next
};

class TARVEX_API CRunGuard {
public:
    CRunGuard() = default;
    CRunGuard(const CRunGuard&) = delete;
    CRunGuard& operator=(const CRunGuard&) = delete;
    virtual ~CRunGuard();

    // The guard itself; for null, one of defaults.
    static CRunGuard& OrDefaults(CRunGuard* guard);

    // ---- on the way to a server

    // The account that the run sends through; by default the profile's own (CSmtpAccount::Of). Asked before the
    // connection to the SMTP server, also by TrySmtp where it has a guard. Another one is not saved anywhere.
    virtual CSmtpAccount SendsThrough(const CPopProfile& profile);

    // The connection to a server; none has the run connect by itself. Asked whenever a connection is wanted, also by
    // ListMailbox and TrySmtp where they have a guard. What the host cannot do should reach the run as the greeting of
    // a server that refuses: "-ERR [SYS/TEMP] why".
    virtual CConnection Connects(const CPopProfile& profile, CServerToReach& server);

    // ---- before anything is fetched

    // Whether the run shall begin. Asked when its log is open, before a server is. False ends it with
    // CRunEnding::KeptBack.
    virtual bool Begins(const CPopProfile& profile);

    // Whether it shall go on with this mailbox. The listing is in the server's order; the lists of ids in `profile` are
    // those from disk, also of addresses that take no part. False ends it with CRunEnding::KeptBack: QUIT is sent,
    // nothing was deleted, no list of ids changes.
    virtual bool Listed(const CPopProfile& profile, std::span<const CMailOnServer> listing);

    // Whether the sizes are wanted: then LIST is sent after UIDL, when there is something to delete or to fetch. To
    // know that, the next two questions are asked of each message, up to the first such one, and all over again with
    // the sizes. A server that is lost over LIST ends the run, with CRunStage::List.
    virtual bool WantsSizes(const CPopProfile& profile);

    // Whether the message needs no fetching. `received`: whether the ids of all who take part say so.
    virtual bool IsHandled(const CPopProfile& profile, const CMailOnServer& mail, bool received);

    // Whether a handled message is deleted now, where `deletemail` is set. Its id is forgotten then.
    virtual bool Deletes(const CPopProfile& profile, const CMailOnServer& mail);

    // Whether the run goes on after the server has refused to delete a message.
    virtual bool GoesOnAfter(const CPopProfile& profile, const CRunFailure& refused_deletion);

    // ---- while the rest is fetched

    // Whether this message is fetched after all those that are not.
    virtual bool ComesLast(const CPopProfile& profile, const CMailOnServer& mail);

    // The message, where the guard still has it from an earlier run that did not deliver it (NotReached): as it was
    // fetched. Then it counts as fetched, and no RETR is sent for it. The guard answers for its being the same one.
    virtual std::optional<CString> Kept(const CPopProfile& profile, const CMailOnServer& mail);

    // Whether it is fetched in this run. Asked just before RETR; `held_bytes` is what the run holds already.
    virtual bool Fetches(const CPopProfile& profile, const CMailOnServer& mail, std::int64_t held_bytes);

    // How many bytes a long answer of the POP3 server must bring within each minute; 0 for no such rule. What is
    // slower counts as a time-out.
    virtual std::int64_t LeastBytesPerMinute(const CPopProfile& profile);

    // Whether what was fetched is delivered, although the mailbox failed at this message.
    virtual bool DeliversAfter(const CPopProfile& profile, const CRunFailure& failed_retrieval);

    // ---- while it is delivered

    // What becomes of a fetched message at an address that takes part. `mail` is as it was fetched. Asked for all
    // messages and addresses before the delivery begins. `received`: whether the address's list has the id, also
    // because a message before it in this run has the same.
    virtual CSending Sends(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                           bool received);

    // Whether the server is asked to take the message for this address. Asked just before the transaction. False: the
    // host holds it durably for the address by now; note it as received, go on with the next.
    virtual bool Offers(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address);

    // The most bytes that the header of a text mail may have, for a carrier that counts the whole mail; 0 for any
    // number. Above it To and CC hold their first few addresses and a comment: "(and 27 others)".
    virtual int TextMailHeaderBytes(const CPopProfile& profile);

    // How long the answer to a whole message may take, in seconds; 0 for the profile's time-out.
    virtual int EndOfDataSeconds(const CPopProfile& profile);

    // What becomes of a message that the server has refused at RCPT TO, DATA or its end, for good or for the time
    // being, for one address. `mail` is as it went out, or was about to. Where HostHasIt is the answer for every
    // address of the transaction, RSET follows.
    virtual CRefusal Refused(const CPopProfile& profile, const CReceiveMail& mail, const CForwardAddress& address,
                             const CRunFailure& refusal);

    // The server has taken the message for these addresses. `reply` is its answer to the whole message, every line of
    // it, joined by CR LF: mostly it names the message as the server's own queue calls it. Untrusted bytes.
    virtual void Taken(const CPopProfile& profile, const CReceiveMail& mail,
                       std::span<CForwardAddress* const> addresses, std::string_view reply);

    // ---- after it

    // What was fetched and is left for the next run, because the delivery ended before every address had it. The guard
    // may move the texts away; they may have been changed since they were fetched, by the profile's settings. Asked
    // when the lists of ids are saved, and only when there is something.
    virtual void NotReached(const CPopProfile& profile, std::span<CReceiveMail* const> mails);
};
