#pragma once

// The part of the POP3 conversation that a run and a probe share: connect, log in, list, give up, quit.
//
// The first character of each reply decides what comes next. The socket formats commands, reads replies and keeps the
// time. Every command and every reply goes into the log.

#include <string_view>
#include <vector>

#include "platform/net/sockets.h"
#include "tarvex/guard.h"
#include "tarvex/log.h"
#include "tarvex/settings.h"

namespace tarvex {

inline constexpr const char* kPopTimeOutText = "TimeoutError..Closing Socket";

inline bool IsNegative(std::string_view reply) { return reply.starts_with('-'); }

// Whether a refusal may be none later, as a response code says (RFC 2449, RFC 3206).
bool IsForNow(std::string_view refusal);

enum class ListingKind { Uidl, List };

// The entries of a UIDL or LIST answer, as views of it. A line without a blank is an entry without a number.
std::vector<CMailOnServer> ParseListing(std::string_view reply, ListingKind kind);

class PopConversation {
public:
    // Both must outlive the conversation. POP3 is always plain TCP, whatever the setting `sslpop` says (B48).
    PopConversation(const CPopProfileSetting& setting, CProfileLog& log) : setting_(setting), log_(log) {}

    // Each is false when the conversation is over; the connection is closed then.
    bool Connect();
    bool LogIn();
    // UIDL, or LIST where the server refuses UIDL. The listing consists of views of the reply.
    bool List(CString& reply, std::vector<CMailOnServer>& listing);

    // Adds the sizes to a listing by UIDL. A server that refuses LIST is none the worse; false when it was lost over
    // it.
    bool AddSizes(std::vector<CMailOnServer>& listing);

    void Quit();

    CPopSocket& Socket() { return socket_; }
    void Log(CString line) { log_.AddLine(std::move(line)); }
    bool TimedOut() const { return socket_.timed_out == 1; }

    ListingKind ListedBy() const { return listed_by_; }

    // The answer that the last of the above was decided by, and the socket's own failure where there was none.
    const CString& LastReply() const { return last_reply_; }
    const Failure& LastFailure() const { return last_failure_; }

    // Closes and logs the text. Always false.
    bool CloseWith(const char* text);

    // After a negative reply to a login command, LIST or DELE; returns the last text. QUIT is sent only when the reply
    // says "Disconnected" (B50).
    CString GiveUp(const CString& reply);

private:
    bool LogInApop(const CString& timestamp);
    bool LogInPlain();
    bool AcceptLogIn(const CString& reply);
    void Keep(CString reply);

    const CPopProfileSetting& setting_;
    CProfileLog& log_;
    CPopSocket socket_;
    CString greeting_;
    CString last_reply_;
    Failure last_failure_;
    ListingKind listed_by_ = ListingKind::Uidl;
};

}  // namespace tarvex
