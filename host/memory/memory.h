#pragma once

// What the rules remember from run to run, in ROOT/.tarvex/sent.db (SQLite): which copies were sent, what had an id,
// which address, message or server makes trouble. One process writes it, the holder of the root's lock. Losing it costs
// duplicates, never mail.
//
// A copy that was recorded survives the end of the process, however sudden; a power failure may take the last ones.
// What cannot be written is kept in memory for the life of the process, within limits, and written later. What cannot
// be read is not known.
//
// Nothing here throws but std::bad_alloc. Moments are given by the caller.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/history/root_database.h"
#include "host/memory/mail_digest.h"
#include "tarvex/text.h"

namespace tarvex::host {

// A copy is remembered for so long after it was sent or its message was last seen in the mailbox.
inline constexpr CTime kCopiesKept = CTime{400} * 86400;

inline constexpr std::size_t kMostWordsBytes = 300;  // of a Note

// What a note is about. The numbers are stored: new ones go to the end.
enum class Matter {
    Refused,     // a copy that is refused for the time being; the subject is made of address and digest
    Blocked,     // words with which a server refused one message after the other
    Parked,      // an address whose recipient was refused
    Bouncing,    // an address that delivery reports come for
    NotFetched,  // the id of a message that cannot be fetched
    NotDeleted,  // the id of a message that the server does not delete
    Login,       // the profile, whose logins to the POP3 server fail in a row
    Smtp,        // the profile, whose last run failed at SMTP
    Waiting,     // the profile, which waits for a person's answer
    Answer,      // the answer, until a run has acted on it; `count` is a WaitAnswer
    Refreshed,   // the profile: when Seen was recorded last
    Left,        // the profile: reports and loops stay on its server (left_mail.h)
    Rotation,    // of messages without ids of their own (rotation.h)
    SmtpLogin,   // the profile, whose logins to the SMTP server fail in a row
    InARow,      // words of the messages that were refused in a row; `count` of them, the last one's digest as words
    Sizes,       // the profile, whose server was lost when it was asked for sizes
    Listed,      // what the list of an address held (list_notes.h)
};

// An address counts as bouncing for so long after the last report.
inline constexpr CTime kBouncesKept = CTime{30} * 86400;

struct Note {
    std::int64_t count = 0;  // how often, in a row where the matter has rows
    CTime since = 0;
    CTime last = 0;
    CTime next = 0;  // nothing is to be tried before
    CString words;   // of a server, or why; only the beginning of what is long

    bool operator==(const Note&) const = default;
};

using NotesByMatter = std::map<Matter, std::map<CString, Note>>;  // by their subjects

enum class MailServer { Pop3, Smtp };

enum class WaitAnswer { Send = 1, Skip };

struct MemoryState;
struct RememberedProfile;

// What is remembered of one profile. Thread-safe; lives no longer than the RuleMemory that gave it.
//
// An address is its text as the tree has it: the same mailbox with another display name, or with other case in its
// domain, is the same address. A profile without ids on its server has the id "" everywhere, of which nothing is
// remembered.
class ProfileMemory {
public:
    // ---- copies

    bool WasSent(std::string_view address, const MailDigest& digest, CTime now);
    // The server has taken the message for these addresses. Ends their refusals of it.
    void RecordSent(std::span<const CString> addresses, const MailDigest& digest, CTime now);
    bool HasSentAny(std::string_view address);
    void Forget(std::string_view address, CTime now);  // it may be sent everything anew
    void Forget(std::string_view address, const MailDigest& digest, CTime now);

    // ---- ids

    // What had that id when it was fetched last; nothing when that is not known.
    std::optional<MailDigest> DigestOfId(const CString& uidl);
    std::int64_t SizeOfId(const CString& uidl);  // in bytes, as the server listed it then; -1 when that is not known
    // On disk with the next Save.
    void RecordId(const CString& uidl, const MailDigest& digest, CTime now, std::int64_t size_bytes = -1);
    // The mailbox holds these ids: their copies stay remembered, and the notes about ids that are gone go. Most calls
    // have nothing to do, for once a week is enough.
    void Seen(std::span<const std::string_view> uidls, CTime now);

    // ---- loops

    // Whether this message came with other bytes within the last hour, and has gone on from there. Remembers it; on
    // disk with the next Save.
    bool HasPassed(const LoopMark& mark, const MailDigest& message, CTime now);

    // ---- refusals for the time being: how many there were in a row, with this one

    int CountRefusal(std::string_view address, const MailDigest& digest, std::string_view reply, CTime now);

    // ---- messages that were refused in a row with the same words: how many there are, with this one

    int CountInARow(std::string_view words, const MailDigest& digest, CTime now);
    CString WordsInARow();
    void EndRow();

    // ---- words of a server for which nothing is set aside until one message has gone through

    void Block(std::string_view words, CTime now);
    bool IsBlocked(std::string_view words);
    void Unblock();

    // ---- parked addresses

    void Park(std::string_view address, std::string_view reply, CTime now);  // again after each refusal
    void Unpark(std::string_view address);
    bool IsParked(std::string_view address);
    CString ReplyOfParked(std::string_view address);   // the last one; empty when it is not parked
    bool MayAsk(std::string_view address, CTime now);  // at once when it is not parked, else once an hour

    // ---- addresses that delivery reports come for

    int CountBounce(std::string_view address, CTime now);
    void ClearBounces(CTime now);  // of all addresses

    // The profile has these addresses now: what made the others parked or bouncing is over.
    void KeepNotesOf(std::span<const CString> addresses, CTime now);

    // ---- messages that cannot be fetched, or deleted

    int CountNotFetched(const CString& uidl, std::string_view words, CTime now);  // times in a row
    void RecordFetched(const CString& uidl);
    bool MayFetch(const CString& uidl, CTime now);  // once a day after three failures
    void RecordNotDeleted(const CString& uidl, std::string_view words, CTime now);
    bool MayDelete(const CString& uidl, CTime now);  // once a day after a refusal

    // ---- logins and SMTP

    // The next may be tried after 2, 4, 8 ... intervals, each at least a minute, up to 4 hours.
    void RecordFailedLogin(MailServer server, std::string_view words, CTime interval_s, CTime now);
    void RecordLogin(MailServer server);
    bool MayLogIn(MailServer server, CTime now);
    void RecordSmtp(bool worked, std::string_view words, CTime now);
    bool HasSmtpFailed();

    // ---- sizes that a listing is asked for: not for a day after the server was lost over them

    void RecordSizes(bool told, std::string_view words, CTime now);
    bool MayAskForSizes(CTime now);

    // ---- waiting for a person

    void Wait(std::string_view why, CTime now);
    bool IsWaiting();
    void Answer(WaitAnswer answer, CTime now);  // ends the waiting
    std::optional<WaitAnswer> GivenAnswer();
    void UseUpAnswer();

    // ---- to tell and to undo: the notes of a matter by their subject, and the profile's own where that is empty

    bool HasAny(Matter matter);
    std::map<CString, Note> Notes(Matter matter);
    std::optional<Note> Find(Matter matter, const CString& subject);
    void Put(Matter matter, const CString& subject, Note note, CTime now);
    void Drop(Matter matter, const CString& subject, CTime now);
    void PutLater(Matter matter, const CString& subject, Note note);  // on disk with the next Save

    // Whether what is recorded now is known to the next process. False when the file and its journal cannot be written.
    bool CanRemember(CTime now);

private:
    friend class RuleMemory;
    ProfileMemory(MemoryState& state, RememberedProfile& profile) : state_(&state), profile_(&profile) {}

    bool BeginSeen(std::span<const std::string_view> uidls, CTime now);

    MemoryState* state_;
    RememberedProfile* profile_;
};

class RuleMemory {
public:
    using Tell = RootDatabaseWriter::Tell;

    // Opens nothing yet. `tell` hears once that something is wrong with the file, and once that it is over; it is
    // called on the thread that notices it, and must not call back.
    RuleMemory(std::string root, Tell tell, std::chrono::milliseconds retry_after = std::chrono::seconds(30));
    ~RuleMemory();  // saves
    RuleMemory(const RuleMemory&) = delete;
    RuleMemory& operator=(const RuleMemory&) = delete;

    ProfileMemory Of(const CString& profile_path);

    const std::string& Root() const { return root_; }

    MailDigest DigestOf(std::string_view message);  // as POP3 delivered it
    MailDigest DigestOf(const SplitMail& mail);
    std::optional<LoopMark> LoopMarkOf(const SplitMail& mail);

    // To be called at the end of a run. Writes what is not on disk yet and, in small steps, removes what is too old.
    // False when something is not on disk.
    bool Save(CTime now);
    bool IsReadable();  // else nothing is known but what this process was told

private:
    const std::string root_;
    const std::unique_ptr<MemoryState> state_;
};

// For other processes: what was on disk at one moment. Throws DatabaseError.
class RuleMemoryReader {
public:
    explicit RuleMemoryReader(const std::string& root);

    NotesByMatter Notes(const CString& profile_path);

    // How many notes there are of a matter, by profile: user0/from0.
    std::map<std::string, std::int64_t> HowMany(Matter matter);

private:
    RootDatabaseReader database_;
};

// The address that a Refused note is about.
std::string_view AddressOfRefusal(std::string_view subject);

}  // namespace tarvex::host
