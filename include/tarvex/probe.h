#pragma once

// Trying the servers of a profile without forwarding anything: step by step, with the time each step took and, where
// one fails, why.
//
// The functions run on the calling thread and block for as long as the servers take, each step at most for the
// setting's time-out (longer only while a long listing keeps arriving). They work on the setting alone: nothing on disk
// is read or written, no message is fetched, deleted or sent, and the profile's log is not touched. Any number of
// threads may call them at the same time, each with a setting that nobody changes meanwhile. They do not throw: when
// memory runs out, they return 0 with the steps that were kept until then.

#include <cstdint>
#include <span>

#include "tarvex/guard.h"
#include "tarvex/settings.h"
#include "tarvex/text.h"

// A step of a conversation, in the order in which they come.
enum CProbeStepKind : int {
    PROBE_FIND_SERVER = 0,  // looking the server's name up
    PROBE_CONNECT = 1,      // TCP, each address of the name in turn
    PROBE_TLS = 2,          // SMTP with sslsmtp: STARTTLS where it is asked for, the handshake, the certificate
    PROBE_GREETING = 3,     // the server's first words; with STARTTLS they come before PROBE_TLS
    PROBE_HELLO = 4,        // SMTP: EHLO, or HELO
    PROBE_LOGIN = 5,        // USER and PASS or APOP; AUTH
    PROBE_LIST = 6,         // POP3: UIDL and LIST
    PROBE_QUIT = 7,
    PROBE_MAIL_FROM = 8,  // SMTP, before PROBE_QUIT: the sender of what a run forwards
    PROBE_RCPT_TO = 9,    // one for each recipient
    PROBE_RESET = 10,     // takes both back
};

// Why a step failed.
enum CProbeFailure : int {
    PROBE_SUCCESS = 0,
    PROBE_NO_SUCH_SERVER = 1,   // the name has no address
    PROBE_NO_CONNECTION = 2,    // refused, no route, or no such port
    PROBE_TIMED_OUT = 3,        // nothing came in time
    PROBE_WRONG_PROTOCOL = 4,   // what answers speaks something else, or breaks the rules
    PROBE_NO_TLS = 5,           // the server offers no TLS, or the handshake failed
    PROBE_BAD_CERTIFICATE = 6,  // not trusted, expired, or of another server
    PROBE_REFUSED = 7,          // the server said no
    PROBE_LOST = 8,             // the connection ended
    PROBE_LOCAL = 9,            // the fault is here: no socket, no trust store, a setting that must not be sent
};

// What is known of a failure beyond that.
enum class CProbeReason : int {
    None,
    // PROBE_NO_CONNECTION
    NotListening,  // the machine refuses the connection
    NoRoute,       // no way leads to the machine
    // PROBE_NO_TLS
    TlsRefused,  // the server speaks TLS, and refused the handshake
    // PROBE_BAD_CERTIFICATE
    OtherName,
    OutOfDate,   // expired, or not yet valid
    NotTrusted,  // by this machine
    // PROBE_REFUSED
    ForNow,  // the server says that it may answer otherwise later
};

// A short name for a kind of step, such as "log in"; empty for a value that is none.
TARVEX_API const char* ProbeStepName(int kind);

struct TARVEX_API CProbeStep {
    int kind = PROBE_FIND_SERVER;  // a CProbeStepKind
    int failure = PROBE_SUCCESS;   // a CProbeFailure; only the last step can have failed, and those from MAIL FROM on
    CProbeReason reason = CProbeReason::None;
    std::int64_t microseconds = 0;  // how long it took
    CString text;       // the server's last answer, every line of it; where none came, the reason. Untrusted bytes
    CString recipient;  // PROBE_RCPT_TO: the address as it was sent
};

// A message as the server lists it.
struct TARVEX_API CListedMail {
    CString number;                // what the server calls it in that session
    CString uidl;                  // its unique id; empty when the server has no UIDL command
    std::int64_t size_bytes = -1;  // as the server says; -1 when it does not
};

struct TARVEX_API CMailboxListing {
    CArray<CProbeStep> steps;
    CArray<CListedMail> mails;  // in the server's order
    int has_uidls = 0;          // whether the server has the UIDL command
};

// Logs in to the setting's POP3 server as a run does, lists the mailbox and quits. `listing` is emptied first. Returns
// 1 when the mailbox was listed, else 0.
TARVEX_API int ListMailbox(const CPopProfileSetting& setting, CMailboxListing* listing);

// The same by the profile's setting, over the connection that the guard gives, if any (CRunGuard::Connects). It is
// asked on the calling thread; the guard's other questions are not asked. Nobody may change the profile meanwhile.
TARVEX_API int ListMailbox(const CPopProfile& profile, CRunGuard& guard, CMailboxListing* listing);

struct TARVEX_API CSmtpTrial {
    CArray<CProbeStep> steps;
    CString method;  // "CRAM-MD5", "LOGIN" or "PLAIN"; empty when the server was not asked to authenticate, because
                     // smtpauth is 0, HELO was used, or no method that it offers fits smtpauth_mode
};

// Connects to the setting's SMTP server as a run does, greets it, authenticates where the setting asks for it and
// quits. `trial` is emptied first. Returns 1 when the server was ready for mail, else 0.
TARVEX_API int TrySmtp(const CPopProfileSetting& setting, CSmtpTrial* trial);

// The same, and before the end it names the sender and these recipients (as RecipientOf gives them), each whether the
// one before was refused or not, and takes it back: no message is sent. Returns 1 when the server took all of it.
TARVEX_API int TrySmtp(const CPopProfileSetting& setting, std::span<const CString> recipients, CSmtpTrial* trial);

// The same two by the profile's setting, through the account and over the connection that the guard gives
// (CRunGuard::SendsThrough, Connects); see ListMailbox.
TARVEX_API int TrySmtp(const CPopProfile& profile, CRunGuard& guard, CSmtpTrial* trial);
TARVEX_API int TrySmtp(const CPopProfile& profile, CRunGuard& guard, std::span<const CString> recipients,
                       CSmtpTrial* trial);
