// The file of the memory, what waits to be written into it, and the notes.

#include "host/rules/memory.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <iterator>
#include <utility>

#include "host/rules/memory_state.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kManyWaiting = 1000;  // are written when they come together before the end of a run
constexpr std::size_t kMostWaiting = 100'000;
constexpr std::ptrdiff_t kMostNotes = 1000;  // of one matter and profile
constexpr std::size_t kMostSubjectBytes = 1000;
constexpr std::size_t kMostWordsBytes = 300;

constexpr CTime kMinute = 60;
constexpr CTime kHour = 60 * kMinute;
constexpr CTime kDay = 24 * kHour;

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
  profile INTEGER NOT NULL REFERENCES profiles ON DELETE CASCADE,
  mailbox TEXT NOT NULL,
  UNIQUE (profile, mailbox));
CREATE TABLE copies (
  digest BLOB NOT NULL,
  address INTEGER NOT NULL,                   -- of addresses, or of one that is forgotten
  sent INTEGER NOT NULL,
  seen INTEGER NOT NULL,                      -- in the mailbox, roughly
  PRIMARY KEY (digest, address)) WITHOUT ROWID;
CREATE TABLE ids (
  profile INTEGER NOT NULL REFERENCES profiles ON DELETE CASCADE,
  uidl TEXT NOT NULL,
  digest BLOB NOT NULL,
  seen INTEGER NOT NULL,
  PRIMARY KEY (profile, uidl)) WITHOUT ROWID;
CREATE TABLE marks (                          -- of what came within the last hour
  profile INTEGER NOT NULL REFERENCES profiles ON DELETE CASCADE,
  mark BLOB NOT NULL,
  uidl TEXT NOT NULL,
  time INTEGER NOT NULL,
  PRIMARY KEY (profile, mark)) WITHOUT ROWID;
CREATE TABLE notes (
  profile INTEGER NOT NULL REFERENCES profiles ON DELETE CASCADE,
  matter INTEGER NOT NULL,
  subject TEXT NOT NULL,
  count INTEGER NOT NULL,
  since INTEGER NOT NULL,
  last INTEGER NOT NULL,
  next INTEGER NOT NULL,
  words TEXT NOT NULL,
  PRIMARY KEY (profile, matter, subject)) WITHOUT ROWID;
)",
};

Note ReadNote(const Statement& row, int first_column) {
    Note note;
    int column = first_column;
    for (std::int64_t* const number : {&note.count, &note.since, &note.last, &note.next}) {
        *number = row.Number(column++);
    }
    note.words = row.Text(column);
    return note;
}

void WriteNotes(Database& file, RememberedProfile& profile) {
    for (const Subject& subject : profile.changed_notes) {
        const auto number = static_cast<std::int64_t>(subject.first);
        const auto found = profile.notes.find(subject);
        if (found == profile.notes.end()) {
            file.Lend("DELETE FROM notes WHERE profile = ? AND matter = ? AND subject = ?")
                ->With(profile.id, number, subject.second)
                .Run();
            continue;
        }
        const Note& note = found->second;
        file.Lend("INSERT OR REPLACE INTO notes VALUES (?, ?, ?, ?, ?, ?, ?, ?)")
            ->With(profile.id, number, subject.second, note.count, note.since, note.last, note.next, note.words)
            .Run();
    }
}

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

CString RefusalSubject(const std::string& mailbox, const MailDigest& digest) { return mailbox + '\n' + digest.Hex(); }

std::string_view AddressOfRefusal(std::string_view subject) { return subject.substr(0, subject.rfind('\n')); }

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
        file.Prepare("INSERT INTO key VALUES (?)").With(key.Bytes()).Run();
    } else {
        key = DigestKey(found.Bytes(0));
    }
    ForgetNumbers();
    if (!is_new) return;
    for (auto& [name, profile] : profiles) {
        for (const auto& [subject, note] : profile.notes) profile.changed_notes.insert(subject);
        if (profile.Waiting() != 0) changed.insert(&profile);
    }
}

// That of the file, once it could be opened.
DigestKey MemoryState::Key() {
    const std::scoped_lock lock(mutex);
    database.Do([](Database&) {});
    return key;
}

// One view of the file serves until it is changed: beginning a new one takes longer than what is asked of it.
bool MemoryState::Look(const RootDatabaseWriter::Work& work) {
    return database.Do([&](Database& file) {
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
        profile->marks.clear();
    }
    changed.clear();
    waiting = 0;
    journal.Empty();
    return true;
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

// What was written just now is not too old.
void MemoryState::Clean(Database& file, CTime now) {
    CleanCopies(file, cleaned_up_to, now);
    file.Lend("DELETE FROM profiles WHERE gone IS NOT NULL OR used < ?")->With(now - kCopiesKept).Run();
    auto removed = file.Lend("SELECT changes()");
    if (removed->With().Next() && removed->Number(0) != 0) ForgetNumbers();
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

// ---- notes

// What was noted before they could be loaded is newer.
void MemoryState::LoadNotes(RememberedProfile& profile) {
    if (profile.notes_loaded) return;
    profile.notes_loaded = Look([&](Database& file) {
        auto row = file.Lend("SELECT matter, subject, count, since, last, next, words FROM notes WHERE profile = ?");
        for (row->With(FindId(file, profile)); row->Next();) {
            const Subject subject(static_cast<Matter>(row->Number(0)), row->Text(1));
            if (!profile.changed_notes.contains(subject)) profile.notes[subject] = ReadNote(*row, 2);
        }
    });
}

const Note* MemoryState::FindNote(const RememberedProfile& profile, Matter matter, const CString& subject) const {
    const auto found = profile.notes.find({matter, subject});
    return found == profile.notes.end() ? nullptr : &found->second;
}

void MemoryState::PutNote(RememberedProfile& profile, Matter matter, const CString& subject, Note note, CTime now) {
    const Subject name(matter, subject);
    if (subject.size() > kMostSubjectBytes) return;
    if (!profile.notes.contains(name)) {
        const auto first = profile.notes.lower_bound({matter, CString()});
        const auto last =
            std::find_if(first, profile.notes.end(), [&](auto& one) { return one.first.first != matter; });
        if (std::distance(first, last) >= kMostNotes) return;
    }
    note.words.resize(std::min(note.words.size(), kMostWordsBytes));
    profile.notes[name] = std::move(note);
    profile.changed_notes.insert(name);
    NoteWaiting(profile);
    Save(now);
}

bool MemoryState::DropNote(RememberedProfile& profile, Matter matter, const CString& subject) {
    if (profile.notes.erase({matter, subject}) == 0) return false;
    profile.changed_notes.insert({matter, subject});
    NoteWaiting(profile);
    return true;
}

namespace {

// One of the profile's notes, locked for as long as this lives.
class NoteAccess {
public:
    NoteAccess(MemoryState& state, RememberedProfile& profile, Matter matter, CString subject)
        : lock_(state.mutex), state_(state), profile_(profile), matter_(matter), subject_(std::move(subject)) {}

    const Note* Find() const { return state_.FindNote(profile_, matter_, subject_); }
    bool MayTry(CTime now) const { return !Find() || now >= Find()->next; }
    void Drop() { state_.DropNote(profile_, matter_, subject_); }

    // Counts one more; nothing is to be tried for so long. Returns how many there are.
    std::int64_t Count(std::string_view words, CTime pause, CTime now) {
        Note note = Find() ? *Find() : Note{0, now, 0, 0, {}};
        ++note.count;
        note.last = now;
        note.next = now + pause;
        note.words = words;
        const std::int64_t count = note.count;
        state_.PutNote(profile_, matter_, subject_, std::move(note), now);
        return count;
    }

    std::int64_t CountSoFar() const { return Find() ? Find()->count : 0; }

private:
    const std::scoped_lock<std::mutex> lock_;
    MemoryState& state_;
    RememberedProfile& profile_;
    const Matter matter_;
    const CString subject_;
};

}  // namespace

int ProfileMemory::CountRefusal(std::string_view address, const MailDigest& digest, std::string_view reply, CTime now) {
    NoteAccess note(*state_, *profile_, Matter::Refused, RefusalSubject(MailboxOf(address), digest));
    return static_cast<int>(note.Count(reply, 0, now));
}

void ProfileMemory::Block(std::string_view words, CTime now) {
    NoteAccess(*state_, *profile_, Matter::Blocked, CString(words)).Count({}, 0, now);
}

bool ProfileMemory::IsBlocked(std::string_view words) {
    return NoteAccess(*state_, *profile_, Matter::Blocked, CString(words)).Find() != nullptr;
}

void ProfileMemory::Unblock() {
    for (const auto& [words, note] : Notes(Matter::Blocked)) {
        NoteAccess(*state_, *profile_, Matter::Blocked, words).Drop();
    }
}

void ProfileMemory::Park(std::string_view address, std::string_view reply, CTime now) {
    NoteAccess(*state_, *profile_, Matter::Parked, MailboxOf(address)).Count(reply, kHour, now);
}

void ProfileMemory::Unpark(std::string_view address) {
    NoteAccess(*state_, *profile_, Matter::Parked, MailboxOf(address)).Drop();
}

bool ProfileMemory::IsParked(std::string_view address) {
    return NoteAccess(*state_, *profile_, Matter::Parked, MailboxOf(address)).Find() != nullptr;
}

bool ProfileMemory::MayAsk(std::string_view address, CTime now) {
    return NoteAccess(*state_, *profile_, Matter::Parked, MailboxOf(address)).MayTry(now);
}

int ProfileMemory::CountBounce(std::string_view address, CTime now) {
    NoteAccess note(*state_, *profile_, Matter::Bouncing, MailboxOf(address));
    return static_cast<int>(note.Count({}, 0, now));
}

void ProfileMemory::ClearBounces(std::string_view address) {
    NoteAccess(*state_, *profile_, Matter::Bouncing, MailboxOf(address)).Drop();
}

int ProfileMemory::CountNotFetched(const CString& uidl, std::string_view words, CTime now) {
    constexpr std::int64_t kTriesInARow = 3;
    NoteAccess note(*state_, *profile_, Matter::NotFetched, uidl);
    const CTime pause = note.CountSoFar() + 1 >= kTriesInARow ? kDay : 0;
    return static_cast<int>(note.Count(words, pause, now));
}

void ProfileMemory::RecordFetched(const CString& uidl) {
    NoteAccess(*state_, *profile_, Matter::NotFetched, uidl).Drop();
}

bool ProfileMemory::MayFetch(const CString& uidl, CTime now) {
    return NoteAccess(*state_, *profile_, Matter::NotFetched, uidl).MayTry(now);
}

void ProfileMemory::RecordNotDeleted(const CString& uidl, std::string_view words, CTime now) {
    NoteAccess(*state_, *profile_, Matter::NotDeleted, uidl).Count(words, kDay, now);
}

bool ProfileMemory::MayDelete(const CString& uidl, CTime now) {
    return NoteAccess(*state_, *profile_, Matter::NotDeleted, uidl).MayTry(now);
}

void ProfileMemory::RecordFailedLogin(std::string_view words, CTime interval_s, CTime now) {
    constexpr CTime kLongestPause = 4 * kHour;
    NoteAccess note(*state_, *profile_, Matter::Login, {});
    CTime pause = std::min(std::max(interval_s, kMinute), kLongestPause);
    for (std::int64_t i = 0; i <= note.CountSoFar() && pause < kLongestPause; ++i) pause *= 2;
    note.Count(words, std::min(pause, kLongestPause), now);
}

void ProfileMemory::RecordLogin() { NoteAccess(*state_, *profile_, Matter::Login, {}).Drop(); }

bool ProfileMemory::MayLogIn(CTime now) { return NoteAccess(*state_, *profile_, Matter::Login, {}).MayTry(now); }

void ProfileMemory::RecordSmtp(bool worked, std::string_view words, CTime now) {
    NoteAccess note(*state_, *profile_, Matter::Smtp, {});
    if (worked) {
        note.Drop();
    } else {
        note.Count(words, 0, now);
    }
}

bool ProfileMemory::HasSmtpFailed() { return NoteAccess(*state_, *profile_, Matter::Smtp, {}).Find() != nullptr; }

void ProfileMemory::Wait(std::string_view why, CTime now) {
    NoteAccess(*state_, *profile_, Matter::Waiting, {}).Count(why, 0, now);
}

bool ProfileMemory::IsWaiting() { return NoteAccess(*state_, *profile_, Matter::Waiting, {}).Find() != nullptr; }

void ProfileMemory::Answer(WaitAnswer answer, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    state_->DropNote(*profile_, Matter::Waiting, {});
    state_->PutNote(*profile_, Matter::Answer, {}, {static_cast<std::int64_t>(answer), now, now, now, {}}, now);
}

std::optional<WaitAnswer> ProfileMemory::TakeAnswer() {
    NoteAccess note(*state_, *profile_, Matter::Answer, {});
    if (!note.Find()) return std::nullopt;
    const auto answer = static_cast<WaitAnswer>(note.Find()->count);
    note.Drop();
    return answer;
}

std::map<CString, Note> ProfileMemory::Notes(Matter matter) {
    const std::scoped_lock lock(state_->mutex);
    std::map<CString, Note> notes;
    for (const auto& [subject, note] : profile_->notes) {
        if (subject.first == matter) notes.emplace(subject.second, note);
    }
    return notes;
}

void ProfileMemory::Drop(Matter matter, const CString& subject, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    if (state_->DropNote(*profile_, matter, subject)) state_->Save(now);
}

// ---- the memory of a root

RuleMemory::RuleMemory(std::string root, Tell tell, std::chrono::milliseconds retry_after)
    : state_(std::make_unique<MemoryState>(std::move(root), std::move(tell), retry_after)) {}

RuleMemory::~RuleMemory() { Save(std::time(nullptr)); }

ProfileMemory RuleMemory::Of(const CString& profile_path) {
    const ProfileName name = NameOfProfile(profile_path);
    const std::scoped_lock lock(state_->mutex);
    state_->Start();
    RememberedProfile& profile = state_->profiles[name];
    profile.name = name;
    state_->LoadNotes(profile);
    return {*state_, profile};
}

MailDigest RuleMemory::DigestOf(std::string_view message) { return state_->Key().Of(message); }

std::optional<MailDigest> RuleMemory::LoopMarkOf(std::string_view message) { return state_->Key().LoopMark(message); }

void RuleMemory::Save(CTime now) {
    const std::scoped_lock lock(state_->mutex);
    state_->Save(now);
}

RuleMemoryReader::RuleMemoryReader(const std::string& root) : database_(kMemoryDatabase, root) {}

std::map<CString, Note> RuleMemoryReader::Notes(const CString& profile_path, Matter matter) {
    std::map<CString, Note> notes;
    const auto profile = database_.FindProfile(profile_path);
    if (!profile) return notes;
    Statement row = database_.Get()->Prepare(
        "SELECT subject, count, since, last, next, words FROM notes WHERE profile = ? AND matter = ?");
    for (row.With(*profile, static_cast<std::int64_t>(matter)); row.Next();) {
        notes.emplace(row.Text(0), ReadNote(row, 1));
    }
    return notes;
}

}  // namespace tarvex::host
