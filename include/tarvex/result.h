#pragma once

// What one run did: how it ended, what it fetched and delivered, what was refused and why, what is on disk.
//
// Part of every profile (CPopProfile::result). The worker of a running copy fills it. It is complete when the copy's
// worker-thread field reads null, and may be read, copied or moved away from then on until the copy is freed, by the
// host, RefreshThread, the entry or KillThread; before that only the observer may be read. Nothing here is sent, logged
// or written to disk.
//
// No exception comes from filling it. When memory runs out, every number and every enumerator outside an array is still
// right; a text may be empty, and an array shorter than the number that counts the same.

#include <cstdint>

#include "tarvex/text.h"

enum class CRunEnding : int {
    NotEnded = 0,         // it is under way, or was never started
    CouldNotBegin = 1,    // there was no memory for the copy, or no thread to run it
    NobodyTakesPart = 2,  // no address is switched on and within its schedule: no server was asked
    MailboxFailed = 3,    // see CRunResult::mailbox; nothing was delivered, no list of ids changed
    NothingNew = 4,       // nothing was fetched, so the SMTP server was not asked; see `not_fetched`
    Delivered = 5,        // every message that was fetched was taken for every address that lacked it
    DeliveryFailed = 6,   // see CRunResult::delivery; what was not taken is offered again in the next run
    Exception = 7,        // mostly want of memory, outside the two conversations; see CRunResult::exception
    KeptBack = 8,         // the guard ended it before anything was deleted or fetched; no list of ids changed
};

// What to expect of trying again.
enum class CFailureClass : int {
    None = 0,
    Permanent = 1,   // the server refused: SMTP with 5xx, POP3 with "-ERR". The same again gets the same answer
    Transient = 2,   // later may do: SMTP with 4xx other than 421, POP3 with [IN-USE], [LOGIN-DELAY] or [SYS/TEMP]
    Connection = 3,  // the server was not found or not reached, TLS failed, the connection ended, or the answer was 421
    TimeOut = 4,     // nothing came or went within the profile's time-out
    Protocol = 5,    // an answer that is none, is another than was asked for, or is over a limit
    Local = 6,       // this side: no memory, no socket, interrupted, a text that cannot be sent
};

// How far a conversation had come.
enum class CRunStage : int {
    None = 0,        // no failure, or none of a command: memory ran out between two
    Connect = 1,     // a socket, the server's name, TCP
    Tls = 2,         // the handshake and the certificate; STARTTLS with what goes before it
    Greeting = 3,    // the server's first words, EHLO, HELO, and RSET between these two
    Login = 4,       // USER and PASS, or APOP; AUTH
    List = 5,        // POP3: UIDL, LIST
    Delete = 6,      // POP3: DELE
    Retrieve = 7,    // POP3: RETR
    MailFrom = 8,    // SMTP: MAIL FROM
    RcptTo = 9,      // SMTP: RCPT TO
    Data = 10,       // SMTP: DATA, and the message until its last byte has gone
    EndOfData = 11,  // SMTP: the answer to the whole message. Without one the server may have taken it
};

// What ended a conversation.
struct TARVEX_API CRunFailure {
    CRunStage stage = CRunStage::None;
    CFailureClass failure_class = CFailureClass::None;  // None: there was no failure
    CString reply;      // the server's answer, every line of it, joined by CR LF; empty when none came. Untrusted bytes
    CString reason;     // in English, where no answer of the server tells it; may quote the server, made printable
    CString uidl;       // Delete, Retrieve, and from MailFrom on: the id of the message
    CString sender;     // from MailFrom on: the envelope sender, without angle brackets
    CString recipient;  // from MailFrom on, without brackets; empty where the command was for several recipients
};

// A message that the run wanted and did not get; the next run asks for it again.
struct TARVEX_API CNotFetchedMail {
    CString uidl;
    CFailureClass failure_class = CFailureClass::None;
    CString reply;   // as in CRunFailure; the first 1,000 bytes. Both empty: it was not asked for any more, for what
    CString reason;  // happened to the one before it
};

// In the order in which they count: a sum of several is the greatest of them.
enum class CSaved : int {
    NotTried = 0,   // there was nothing to save: the mailbox failed, the log is switched off, ...
    Saved = 1,      // it is on disk; also when it was there already, unchanged
    LeftAlone = 2,  // the directory is gone, or another's by now
    Failed = 3,     // the file could not be written, or could not be brought up to date: it holds what it held before
};

// One forwarding address, whether it took part or not.
struct TARVEX_API CAddressResult {
    CString path;
    CString address;  // as in its setting
    int copies = 0;   // that the SMTP server took for it
    CSaved list = CSaved::NotTried;
};

struct TARVEX_API CRunResult {
    CRunEnding ending = CRunEnding::NotEnded;

    int messages_listed = 0;          // on the server; 0 until the mailbox was listed
    int messages_fetched = 0;         // in memory, whole
    int messages_kept = 0;            // of these: the guard still had them, so they were not fetched again
    int messages_not_fetched = 0;     // wanted, and not got; 0 where the mailbox failed before the first RETR
    int messages_put_off = 0;         // left for a later run by the guard
    int messages_delivered = 0;       // taken by the SMTP server for every address that lacked them, one at least
    int copies = 0;                   // taken by it for one address: the sum over the addresses
    int copies_set_aside = 0;         // refused by it, and taken over by the guard: the sum over the addresses
    std::int64_t bytes_received = 0;  // over the wire, from both servers, TLS included
    std::int64_t bytes_sent = 0;      // over the wire, to both servers, TLS included

    CArray<CNotFetchedMail> not_fetched;  // in the server's order; the first 10,000
    CArray<CAddressResult> addresses;     // one for each forwarding address, in the profile's order

    CRunFailure mailbox;   // what ended the POP3 conversation before its QUIT
    CRunFailure delivery;  // the first refusal of the SMTP conversation, which ended it
    CString exception;     // what ended the run, with CRunEnding::Exception

    CSaved lists = CSaved::NotTried;  // uidl.def of every address, summed up
    CSaved log = CSaved::NotTried;
    CSaved settings = CSaved::NotTried;

    bool interrupted = false;  // told to end early: what failed then says nothing about the servers
};
