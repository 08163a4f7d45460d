// The notes: what is remembered of each in words and numbers, and the rules that say when something is tried again.

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <utility>

#include "host/memory/memory.h"
#include "host/memory/memory_state.h"

namespace tarvex::host {
namespace {

constexpr std::ptrdiff_t kMostNotes = 1000;  // of one matter and profile
constexpr std::size_t kMostSubjectBytes = 1000;

constexpr CTime kMinute = 60;
constexpr CTime kHour = 60 * kMinute;
constexpr CTime kDay = 24 * kHour;

Note ReadNote(const Statement& row, int first_column) {
    Note note;
    int column = first_column;
    for (std::int64_t* const number : {&note.count, &note.since, &note.last, &note.next}) {
        *number = row.Number(column++);
    }
    note.words = row.Text(column);
    return note;
}

// A note of the future shows that the clock was set back. How long it waits by the new clock is not known: it is over.
bool IsOver(const Note& note, CTime now) { return now >= note.next || now < note.last; }

Matter LoginMatter(MailServer server) { return server == MailServer::Pop3 ? Matter::Login : Matter::SmtpLogin; }

// Another folder has the place of the one that is remembered. Where somebody brought back a copy of it, its lists are
// older than they were; those of a profile that was made anew lack nothing, or are empty.
void InheritLists(Database& file, RememberedProfile& profile) {
    auto row = file.Lend(
        "SELECT subject, count, since, last, next, words FROM notes WHERE matter = ? AND profile ="
        " (SELECT id FROM profiles WHERE path = ? AND gone IS NULL)");
    for (row->With(static_cast<std::int64_t>(Matter::Listed), profile.name.path); row->Next();) {
        const Subject subject(Matter::Listed, row->Text(0));
        if (profile.changed_notes.insert(subject).second) profile.notes[subject] = ReadNote(*row, 1);
    }
}

// One of the profile's notes, locked for as long as this lives.
class NoteAccess {
public:
    NoteAccess(MemoryState& state, RememberedProfile& profile, Matter matter, CString subject)
        : lock_(state.mutex), state_(state), profile_(profile), matter_(matter), subject_(std::move(subject)) {}

    const Note* Find() const { return state_.FindNote(profile_, matter_, subject_); }
    bool MayTry(CTime now) const { return !Find() || IsOver(*Find(), now); }
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

CString RefusalSubject(const std::string& mailbox, const MailDigest& digest) { return mailbox + '\n' + digest.Hex(); }

std::string_view AddressOfRefusal(std::string_view subject) { return subject.substr(0, subject.rfind('\n')); }

// What was noted before they could be loaded is newer.
void LoadNotes(Database& file, RememberedProfile& profile) {
    auto row = file.Lend("SELECT matter, subject, count, since, last, next, words FROM notes WHERE profile = ?");
    for (row->With(FindId(file, profile)); row->Next();) {
        const Subject subject(static_cast<Matter>(row->Number(0)), row->Text(1));
        if (!profile.changed_notes.contains(subject)) profile.notes[subject] = ReadNote(*row, 2);
    }
    if (FindId(file, profile) == 0) InheritLists(file, profile);
}

bool MemoryState::HasNotes(const RememberedProfile& profile, Matter matter) const {
    const auto first = profile.notes.lower_bound({matter, CString()});
    return first != profile.notes.end() && first->first.first == matter;
}

const Note* MemoryState::FindNote(const RememberedProfile& profile, Matter matter, const CString& subject) const {
    const auto found = profile.notes.find({matter, subject});
    return found == profile.notes.end() ? nullptr : &found->second;
}

void MemoryState::PutNote(RememberedProfile& profile, Matter matter, const CString& subject, Note note, CTime now) {
    PutNoteLater(profile, matter, subject, std::move(note));
    Save(now);
}

void MemoryState::PutNoteLater(RememberedProfile& profile, Matter matter, const CString& subject, Note note) {
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
}

bool MemoryState::DropNote(RememberedProfile& profile, Matter matter, const CString& subject) {
    if (profile.notes.erase({matter, subject}) == 0) return false;
    profile.changed_notes.insert({matter, subject});
    NoteWaiting(profile);
    return true;
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

int ProfileMemory::CountRefusal(std::string_view address, const MailDigest& digest, std::string_view reply, CTime now) {
    NoteAccess note(*state_, *profile_, Matter::Refused, RefusalSubject(MailboxOf(address), digest));
    return static_cast<int>(note.Count(reply, 0, now));
}

int ProfileMemory::CountInARow(std::string_view words, const MailDigest& digest, CTime now) {
    if (WordsInARow() != words) EndRow();
    NoteAccess note(*state_, *profile_, Matter::InARow, CString(words));
    const bool counted = note.Find() && note.Find()->words == digest.Hex();
    return static_cast<int>(counted ? note.CountSoFar() : note.Count(digest.Hex(), 0, now));
}

CString ProfileMemory::WordsInARow() {
    const std::map<CString, Note> row = Notes(Matter::InARow);
    return row.empty() ? CString() : row.begin()->first;
}

void ProfileMemory::EndRow() { NoteAccess(*state_, *profile_, Matter::InARow, WordsInARow()).Drop(); }

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
    if (!HasAny(Matter::Parked)) return false;
    return NoteAccess(*state_, *profile_, Matter::Parked, MailboxOf(address)).Find() != nullptr;
}

CString ProfileMemory::ReplyOfParked(std::string_view address) {
    const NoteAccess note(*state_, *profile_, Matter::Parked, MailboxOf(address));
    return note.Find() ? note.Find()->words : CString();
}

bool ProfileMemory::MayAsk(std::string_view address, CTime now) {
    return NoteAccess(*state_, *profile_, Matter::Parked, MailboxOf(address)).MayTry(now);
}

int ProfileMemory::CountBounce(std::string_view address, CTime now) {
    NoteAccess note(*state_, *profile_, Matter::Bouncing, MailboxOf(address));
    if (note.Find() && note.Find()->last + kBouncesKept < now) note.Drop();
    return static_cast<int>(note.Count({}, 0, now));
}

void ProfileMemory::ClearBounces(CTime now) {
    for (const auto& [mailbox, note] : Notes(Matter::Bouncing)) Drop(Matter::Bouncing, mailbox, now);
}

void ProfileMemory::KeepNotesOf(std::span<const CString> addresses, CTime now) {
    std::set<std::string> mailboxes;
    for (const CString& address : addresses) mailboxes.insert(MailboxOf(address));
    for (const Matter matter : {Matter::Parked, Matter::Bouncing}) {
        for (const auto& [mailbox, note] : Notes(matter)) {
            if (!mailboxes.contains(mailbox)) Drop(matter, mailbox, now);
        }
    }
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

void ProfileMemory::RecordFailedLogin(MailServer server, std::string_view words, CTime interval_s, CTime now) {
    constexpr CTime kLongestPause = 4 * kHour;
    NoteAccess note(*state_, *profile_, LoginMatter(server), {});
    CTime pause = std::min(std::max(interval_s, kMinute), kLongestPause);
    for (std::int64_t i = 0; i <= note.CountSoFar() && pause < kLongestPause; ++i) pause *= 2;
    note.Count(words, std::min(pause, kLongestPause), now);
}

void ProfileMemory::RecordLogin(MailServer server) { NoteAccess(*state_, *profile_, LoginMatter(server), {}).Drop(); }

bool ProfileMemory::MayLogIn(MailServer server, CTime now) {
    return NoteAccess(*state_, *profile_, LoginMatter(server), {}).MayTry(now);
}

void ProfileMemory::RecordSmtp(bool worked, std::string_view words, CTime now) {
    NoteAccess note(*state_, *profile_, Matter::Smtp, {});
    if (worked) {
        note.Drop();
    } else {
        note.Count(words, 0, now);
    }
}

bool ProfileMemory::HasSmtpFailed() { return NoteAccess(*state_, *profile_, Matter::Smtp, {}).Find() != nullptr; }

void ProfileMemory::RecordSizes(bool told, std::string_view words, CTime now) {
    NoteAccess note(*state_, *profile_, Matter::Sizes, {});
    if (told) {
        note.Drop();
    } else {
        note.Count(words, kDay, now);
    }
}

bool ProfileMemory::MayAskForSizes(CTime now) { return NoteAccess(*state_, *profile_, Matter::Sizes, {}).MayTry(now); }

void ProfileMemory::Wait(std::string_view why, CTime now) {
    NoteAccess(*state_, *profile_, Matter::Waiting, {}).Count(why, 0, now);
}

bool ProfileMemory::IsWaiting() { return NoteAccess(*state_, *profile_, Matter::Waiting, {}).Find() != nullptr; }

void ProfileMemory::Answer(WaitAnswer answer, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    state_->DropNote(*profile_, Matter::Waiting, {});
    state_->PutNote(*profile_, Matter::Answer, {}, {static_cast<std::int64_t>(answer), now, now, now, {}}, now);
}

std::optional<WaitAnswer> ProfileMemory::GivenAnswer() {
    const NoteAccess note(*state_, *profile_, Matter::Answer, {});
    if (!note.Find()) return std::nullopt;
    return static_cast<WaitAnswer>(note.CountSoFar());
}

void ProfileMemory::UseUpAnswer() { NoteAccess(*state_, *profile_, Matter::Answer, {}).Drop(); }

bool ProfileMemory::HasAny(Matter matter) {
    const std::scoped_lock lock(state_->mutex);
    return state_->HasNotes(*profile_, matter);
}

std::map<CString, Note> ProfileMemory::Notes(Matter matter) {
    const std::scoped_lock lock(state_->mutex);
    std::map<CString, Note> notes;
    for (auto note = profile_->notes.lower_bound({matter, CString()});
         note != profile_->notes.end() && note->first.first == matter; ++note) {
        notes.emplace(note->first.second, note->second);
    }
    return notes;
}

std::optional<Note> ProfileMemory::Find(Matter matter, const CString& subject) {
    const std::scoped_lock lock(state_->mutex);
    const Note* const note = state_->FindNote(*profile_, matter, subject);
    return note ? std::optional<Note>(*note) : std::nullopt;
}

void ProfileMemory::Put(Matter matter, const CString& subject, Note note, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    state_->PutNote(*profile_, matter, subject, std::move(note), now);
}

void ProfileMemory::PutLater(Matter matter, const CString& subject, Note note) {
    const std::scoped_lock lock(state_->mutex);
    state_->PutNoteLater(*profile_, matter, subject, std::move(note));
}

// The journal will do: what is in it comes into the file later. A line end in it says nothing.
bool ProfileMemory::CanRemember(CTime now) {
    const std::scoped_lock lock(state_->mutex);
    return (state_->MakeRoom(now) && state_->journal.Touch()) || state_->WriteNow(*profile_, now);
}

void ProfileMemory::Drop(Matter matter, const CString& subject, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    if (state_->DropNote(*profile_, matter, subject)) state_->Save(now);
}

RuleMemoryReader::RuleMemoryReader(const std::string& root) : database_(kMemoryDatabase, root) {}

NotesByMatter RuleMemoryReader::Notes(const CString& profile_path) {
    NotesByMatter notes;
    const auto profile = database_.FindProfile(profile_path);
    if (!profile) return notes;
    const Database::Kept row =
        database_.Get()->Lend("SELECT matter, subject, count, since, last, next, words FROM notes WHERE profile = ?");
    for (row->With(*profile); row->Next();)
        notes[static_cast<Matter>(row->Number(0))].emplace(row->Text(1), ReadNote(*row, 2));
    return notes;
}

std::map<std::string, std::int64_t> RuleMemoryReader::HowMany(Matter matter) {
    std::map<std::string, std::int64_t> counts;
    if (!database_.Get()) return counts;
    Statement row = database_.Get()->Prepare(
        "SELECT path, count(*) FROM notes JOIN profiles ON profiles.id = notes.profile"
        " WHERE gone IS NULL AND matter = ? GROUP BY path");
    for (row.With(static_cast<std::int64_t>(matter)); row.Next();) counts[row.Text(0)] = row.Number(1);
    return counts;
}

}  // namespace tarvex::host
