#pragma once

// The inside of the rules' memory: what its parts share. What is not in the file yet is in memory, and is looked at
// first.

#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "host/history/root_database.h"
#include "host/memory/copy_journal.h"
#include "host/memory/mail_digest.h"
#include "host/memory/memory.h"

namespace tarvex::host {

using Subject = std::pair<Matter, CString>;
using CopyName = std::pair<std::string, MailDigest>;  // its address, and of what it is one

struct RecordedId {
    MailDigest digest;
    std::int64_t size_bytes = -1;
    CTime seen = 0;
};

struct Passage {
    MailDigest message;
    CTime time = 0;
    Trace way;
};

struct RememberedProfile {
    ProfileName name;

    std::map<Subject, Note> notes;  // all of them, once they were loaded
    bool is_loaded = false;
    std::map<MailDigest, Passage> marks;  // likewise: those of the last hour, and some older ones
    bool has_marks = false;

    // Not in the file yet:
    std::set<Subject> changed_notes;                  // also those that are gone
    std::set<std::string> forgotten_addresses;        // with all their copies
    std::map<CopyName, std::optional<CTime>> copies;  // when they were sent or seen; nothing: forgotten
    std::map<CString, RecordedId> ids;
    bool marks_changed = false;

    // Numbers in the file that is open; 0 where there is none, or none was looked for.
    std::int64_t id = 0;
    CTime used = 0;  // what the file says of when the profile was last worked on; 0 when it was not brought up to date
    std::map<std::string, std::int64_t> addresses;
};

struct MemoryState {
    MemoryState(std::string root, RootDatabaseWriter::Tell tell, std::chrono::milliseconds retry_after);

    std::mutex mutex;  // of all that follows
    RootDatabaseWriter database;
    CopyJournal journal;
    bool journal_was_read = false;
    std::optional<DigestKey> key;  // a new one takes a while to make, and is mostly not needed
    bool key_is_known = false;     // as that of the file
    std::map<ProfileName, RememberedProfile> profiles;
    std::set<RememberedProfile*> changed;  // those that hold what is not in the file yet
    std::size_t waiting = 0;               // such things, roughly
    MailDigest cleaned_up_to;

    DigestKey Key();  // locks by itself
    void Start();
    void Load(RememberedProfile& profile);
    void NeedMarks(RememberedProfile& profile);  // which a run without new mail does not

    // Looks into the file, or changes it; false when that could not be done.
    bool Look(const RootDatabaseWriter::Work& work);
    bool Change(const RootDatabaseWriter::Work& work);
    bool Save(CTime now);
    bool WriteNow(RememberedProfile& profile, CTime now);  // also where nothing waits for it

    // Whether there is room in memory for one more thing that waits. Writes first when many wait.
    bool MakeRoom(CTime now);
    void NoteWaiting(RememberedProfile& profile);

    bool HasNotes(const RememberedProfile& profile, Matter matter) const;
    const Note* FindNote(const RememberedProfile& profile, Matter matter, const CString& subject) const;
    void PutNote(RememberedProfile& profile, Matter matter, const CString& subject, Note note, CTime now);
    void PutNoteLater(RememberedProfile& profile, Matter matter, const CString& subject, Note note);
    bool DropNote(RememberedProfile& profile, Matter matter, const CString& subject);  // whether there was one

private:
    void Opened(Database& file);
    void Write(Database& file, RememberedProfile& profile, CTime now);
    void Clean(Database& file, CTime now);
    void ForgetNumbers();
};

extern const RootDatabase kMemoryDatabase;

// The mailbox of an address: without display name and comment, its domain in small letters.
std::string MailboxOf(std::string_view address);

CString RefusalSubject(const std::string& mailbox, const MailDigest& digest);

// The numbers of a profile and of one of its mailboxes in the file; 0 where there is none.
std::int64_t FindId(Database& file, RememberedProfile& profile);
std::int64_t FindAddress(Database& file, RememberedProfile& profile, const std::string& mailbox);

// What is in memory whole (memory_notes.cpp, memory_marks.cpp).
void LoadNotes(Database& file, RememberedProfile& profile);
void LoadMarks(Database& file, RememberedProfile& profile);

// Write what waits, and remove what is too old (likewise).
void WriteNotes(Database& file, RememberedProfile& profile);
void WriteCopies(Database& file, RememberedProfile& profile);
void WriteIds(Database& file, RememberedProfile& profile);
void WriteMarks(Database& file, RememberedProfile& profile, CTime now);
void CleanCopies(Database& file, MailDigest& cleaned_up_to, CTime now);

}  // namespace tarvex::host
