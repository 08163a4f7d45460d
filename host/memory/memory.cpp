// The file of the memory, and what waits to be written into it.

#include "host/memory/memory.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "host/memory/mail_header.h"
#include "host/memory/memory_state.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kManyWaiting = 5000;  // are written when they come together before the end of a run
constexpr std::size_t kMostWaiting = 100'000;
constexpr CTime kDay = 86400;

constexpr std::array kSchemas = {
    R"(
CREATE TABLE root (directory TEXT NOT NULL);
INSERT INTO root VALUES ('');
CREATE TABLE profiles (
  id INTEGER PRIMARY KEY,
  path TEXT NOT NULL,                         -- user0/from0
  directory TEXT NOT NULL,                    -- which directory that is; empty: not known
  gone INTEGER,                               -- when another had taken its place
  used INTEGER NOT NULL DEFAULT 0);           -- roughly; moments are seconds since 1970
CREATE UNIQUE INDEX profiles_by_path ON profiles (path) WHERE gone IS NULL;
CREATE TABLE key (bytes BLOB NOT NULL);       -- of the digests
CREATE TABLE addresses (
  id INTEGER PRIMARY KEY AUTOINCREMENT,       -- the copies of one that is forgotten must not become another's
  profile INTEGER NOT NULL,
  mailbox TEXT NOT NULL,
  UNIQUE (profile, mailbox));
CREATE TABLE copies (
  digest BLOB NOT NULL,
  address INTEGER NOT NULL,                   -- of addresses, or of one that is forgotten
  sent INTEGER NOT NULL,
  seen INTEGER NOT NULL,                      -- in the mailbox, roughly
  PRIMARY KEY (digest, address)) WITHOUT ROWID;
CREATE TABLE ids (
  profile INTEGER NOT NULL,
  uidl TEXT NOT NULL,
  digest BLOB NOT NULL,
  seen INTEGER NOT NULL,
  PRIMARY KEY (profile, uidl)) WITHOUT ROWID;
CREATE TABLE marks (
  profile INTEGER PRIMARY KEY,
  passages TEXT NOT NULL);                    -- of the last hour; now bytes (WriteMarks)
CREATE TABLE notes (
  profile INTEGER NOT NULL,
  matter INTEGER NOT NULL,
  subject TEXT NOT NULL,
  count INTEGER NOT NULL,
  since INTEGER NOT NULL,
  last INTEGER NOT NULL,
  next INTEGER NOT NULL,
  words TEXT NOT NULL,
  PRIMARY KEY (profile, matter, subject)) WITHOUT ROWID;
)",
    "ALTER TABLE ids ADD COLUMN size INTEGER NOT NULL DEFAULT -1;",  // as the server listed it; -1: not known
    "DELETE FROM marks;",                                            // which were lines, and are bytes from now on
};

}  // namespace

const RootDatabase kMemoryDatabase{"sent", "the memory of what was sent", kSchemas};

std::string MailboxOf(std::string_view address) {
    std::string mailbox(address);
    std::erase(mailbox, ' ');
    const std::size_t open = mailbox.find('<');
    const std::size_t close = mailbox.find('>');
    if (close != std::string::npos && open < close) mailbox = mailbox.substr(open + 1, close - open - 1);
    const std::size_t comment = mailbox.find('(');
    const std::size_t comment_end = mailbox.find(')');
    if (comment_end != std::string::npos && comment < comment_end) mailbox.erase(comment, comment_end - comment + 1);
    const std::size_t domain = std::min(mailbox.rfind('@'), mailbox.size());
    std::for_each(mailbox.begin() + static_cast<std::ptrdiff_t>(domain), mailbox.end(), [](char& letter) {
        if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
    });
    return mailbox;
}

// ---- the file

MemoryState::MemoryState(std::string root, RootDatabaseWriter::Tell tell, std::chrono::milliseconds retry_after)
    : database(kMemoryDatabase, root, std::move(tell), retry_after, [this](Database& file) { Opened(file); }),
      journal(root) {}

// Reads what an earlier process could not put into the file any more. It stays in the journal until it is there.
void MemoryState::Start() {
    if (std::exchange(journal_was_read, true)) return;
    for (const SentCopy& copy : journal.Read()) {
        RememberedProfile& profile = profiles[copy.profile];
        profile.name = copy.profile;
        profile.copies.emplace(CopyName(copy.address, copy.digest), copy.sent);
        NoteWaiting(profile);
    }
}

// A new file gets this process's key and all notes; what has other digests is known no more.
void MemoryState::Opened(Database& file) {
    Statement found = file.Prepare("SELECT bytes FROM key");
    const bool is_new = !found.Next() || found.Bytes(0).size() != DigestKey::kBytes;
    if (is_new) {
        file.Run("DELETE FROM key");
        if (!key) key.emplace();
        file.Prepare("INSERT INTO key VALUES (?)").With(key->Bytes()).Run();
    } else {
        key.emplace(found.Bytes(0));
    }
    key_is_known = true;
    ForgetNumbers();
    if (!is_new) return;
    for (auto& [name, profile] : profiles) {
        for (const auto& [subject, note] : profile.notes) profile.changed_notes.insert(subject);
        profile.marks_changed = true;
        changed.insert(&profile);
    }
}

// That of the file, once it could be opened.
DigestKey MemoryState::Key() {
    const std::scoped_lock lock(mutex);
    if (!key_is_known) database.Look([](Database&) {});
    if (!key) key.emplace();
    return *key;
}

// One view of the file serves until it is changed: beginning a new one takes longer than what is asked of it.
bool MemoryState::Look(const RootDatabaseWriter::Work& work) {
    return database.Look([&](Database& file) {
        if (!file.IsInTransaction()) file.Run("BEGIN");
        work(file);
    });
}

bool MemoryState::Change(const RootDatabaseWriter::Work& work) {
    return database.Do([&](Database& file) {
        if (file.IsInTransaction()) file.Run("COMMIT");
        Transaction transaction(file);
        work(file);
        transaction.Commit();
    });
}

bool MemoryState::Save(CTime now) {
    Start();
    if (changed.empty()) return true;
    const bool done = Change([&](Database& file) {
        for (RememberedProfile* const profile : changed) Write(file, *profile, now);
        Clean(file, now);
    });
    if (!done) return false;
    for (RememberedProfile* const profile : changed) {
        profile->changed_notes.clear();
        profile->forgotten_addresses.clear();
        profile->copies.clear();
        profile->ids.clear();
        profile->marks_changed = false;
    }
    changed.clear();
    waiting = 0;
    journal.Empty();
    return true;
}

bool MemoryState::WriteNow(RememberedProfile& profile, CTime now) {
    profile.used = 0;  // so that there is something to write
    changed.insert(&profile);
    return Save(now);
}

void MemoryState::Write(Database& file, RememberedProfile& profile, CTime now) {
    if (profile.used == 0) profile.id = AddProfile(file, profile.name, now);
    if (profile.used < now - kDay) {
        file.Lend("UPDATE profiles SET used = ? WHERE id = ?")->With(now, profile.id).Run();
        profile.used = now;
    }
    WriteNotes(file, profile);
    WriteCopies(file, profile);
    WriteIds(file, profile);
    WriteMarks(file, profile, now);
}

// What was written just now is not too old. (Foreign keys would do the same, and look for the profile of every row that
// is written.)
void MemoryState::Clean(Database& file, CTime now) {
    CleanCopies(file, cleaned_up_to, now);
    file.Lend("DELETE FROM profiles WHERE gone IS NOT NULL OR used < ?")->With(now - kCopiesKept).Run();
    auto removed = file.Lend("SELECT changes()");
    if (!removed->With().Next() || removed->Number(0) == 0) return;
    for (const std::string table : {"addresses", "ids", "marks", "notes"}) {
        file.Run(("DELETE FROM " + table + " WHERE profile NOT IN (SELECT id FROM profiles)").c_str());
    }
    ForgetNumbers();
}

void MemoryState::ForgetNumbers() {
    for (auto& [name, profile] : profiles) {
        profile.id = profile.used = 0;
        profile.addresses.clear();
    }
}

bool MemoryState::MakeRoom(CTime now) {
    if (waiting >= kManyWaiting) Save(now);
    return waiting < kMostWaiting;
}

void MemoryState::NoteWaiting(RememberedProfile& profile) {
    changed.insert(&profile);
    ++waiting;
}

std::int64_t FindId(Database& file, RememberedProfile& profile) {
    if (profile.id != 0) return profile.id;
    auto row =
        file.Lend("SELECT id FROM profiles WHERE path = ?1 AND (directory IN (?2, '') OR ?2 = '') AND gone IS NULL");
    if (row->With(profile.name.path, profile.name.directory).Next()) profile.id = row->Number(0);
    return profile.id;
}

void MemoryState::Load(RememberedProfile& profile) {
    if (profile.is_loaded) return;
    profile.is_loaded = Look([&](Database& file) { LoadNotes(file, profile); });
}

void MemoryState::NeedMarks(RememberedProfile& profile) {
    if (profile.has_marks) return;
    profile.has_marks = Look([&](Database& file) { LoadMarks(file, profile); });
}

// ---- the memory of a root

RuleMemory::RuleMemory(std::string root, Tell tell, std::chrono::milliseconds retry_after)
    : root_(std::move(root)), state_(std::make_unique<MemoryState>(root_, std::move(tell), retry_after)) {}

RuleMemory::~RuleMemory() { Save(std::time(nullptr)); }

ProfileMemory RuleMemory::Of(const CString& profile_path) {
    const ProfileName name = NameOfProfile(profile_path);
    const std::scoped_lock lock(state_->mutex);
    state_->Start();
    RememberedProfile& profile = state_->profiles[name];
    profile.name = name;
    state_->Load(profile);
    return {*state_, profile};
}

MailDigest RuleMemory::DigestOf(std::string_view message) { return DigestOf(SplitMail(message)); }

MailDigest RuleMemory::DigestOf(const SplitMail& mail) { return state_->Key().Of(mail); }

std::optional<LoopMark> RuleMemory::LoopMarkOf(const SplitMail& mail) { return state_->Key().LoopMarkOf(mail); }

bool RuleMemory::Save(CTime now) {
    const std::scoped_lock lock(state_->mutex);
    return state_->Save(now);
}

bool RuleMemory::IsReadable() {
    const std::scoped_lock lock(state_->mutex);
    return state_->Look([](Database& file) { file.Number("SELECT count(*) FROM key"); });
}

}  // namespace tarvex::host
