// The memory of copies and ids: a row each, looked up by what they are about.

#include <algorithm>
#include <cstdint>
#include <unordered_set>
#include <vector>

#include "host/memory/memory.h"
#include "host/memory/memory_state.h"

namespace tarvex::host {
namespace {

constexpr CTime kDay = 86400;
constexpr CTime kRefreshAfter = 7 * kDay;  // what is still in the mailbox
constexpr CTime kRefusalsKept = 30 * kDay;
constexpr std::size_t kMostIdBytes = 1000;

bool IsUsable(const CString& uidl) { return !uidl.empty() && uidl.size() <= kMostIdBytes; }

std::optional<MailDigest> ReadDigest(const Statement& row, int column) {
    MailDigest digest;
    if (row.Bytes(column).size() != digest.bytes.size()) return std::nullopt;
    std::ranges::copy(row.Bytes(column), digest.bytes.begin());
    return digest;
}

std::int64_t AddAddress(Database& file, RememberedProfile& profile, const std::string& mailbox) {
    if (const std::int64_t id = FindAddress(file, profile, mailbox); id != 0) return id;
    file.Lend("INSERT INTO addresses (profile, mailbox) VALUES (?, ?)")->With(profile.id, mailbox).Run();
    return profile.addresses[mailbox] = file.LastId();
}

// When the message was seen, or the copy sent, last; nothing when there is none.
std::optional<CTime> FindCopy(Database& file, RememberedProfile& profile, const CopyName& copy) {
    const std::int64_t address = FindAddress(file, profile, copy.first);
    if (address == 0) return std::nullopt;
    auto row = file.Lend("SELECT seen FROM copies WHERE digest = ? AND address = ?");
    if (!row->With(copy.second.bytes, address).Next()) return std::nullopt;
    return row->Number(0);
}

void KeepCopy(MemoryState& state, RememberedProfile& profile, const CopyName& copy, std::optional<CTime> moment) {
    profile.copies[copy] = moment;
    state.NoteWaiting(profile);
}

using Listing = std::unordered_set<std::string_view>;

std::vector<CString> SubjectsOf(const RememberedProfile& profile, Matter matter) {
    std::vector<CString> subjects;
    for (auto note = profile.notes.lower_bound({matter, CString()});
         note != profile.notes.end() && note->first.first == matter; ++note) {
        subjects.push_back(note->first.second);
    }
    return subjects;
}

void ForgetGoneIds(MemoryState& state, RememberedProfile& profile, std::span<const std::string_view> present) {
    std::optional<Listing> listing;  // is made where it is needed
    for (const Matter matter : {Matter::NotFetched, Matter::NotDeleted}) {
        for (const CString& uidl : SubjectsOf(profile, matter)) {
            if (!listing) listing.emplace(present.begin(), present.end());
            if (!listing->contains(uidl)) state.DropNote(profile, matter, uidl);
        }
    }
}

void ForgetOldRefusals(MemoryState& state, RememberedProfile& profile, CTime now) {
    for (const CString& subject : SubjectsOf(profile, Matter::Refused)) {
        if (state.FindNote(profile, Matter::Refused, subject)->last >= now - kRefusalsKept) continue;
        state.DropNote(profile, Matter::Refused, subject);
    }
}

void RefreshIds(Database& file, std::int64_t profile, std::span<const std::string_view> uidls, CTime now) {
    for (const std::string_view uidl : uidls) {
        file.Lend("UPDATE ids SET seen = ? WHERE profile = ? AND uidl = ?")->With(now, profile, uidl).Run();
        file.Lend("UPDATE copies SET seen = ? WHERE digest = (SELECT digest FROM ids WHERE profile = ? AND uidl = ?)")
            ->With(now, profile, uidl)
            .Run();
    }
}

}  // namespace

std::int64_t FindAddress(Database& file, RememberedProfile& profile, const std::string& mailbox) {
    if (const auto known = profile.addresses.find(mailbox); known != profile.addresses.end()) return known->second;
    auto row = file.Lend("SELECT id FROM addresses WHERE profile = ? AND mailbox = ?");
    const bool found = row->With(FindId(file, profile), mailbox).Next();
    return profile.addresses[mailbox] = found ? row->Number(0) : 0;
}

// ---- copies

bool ProfileMemory::WasSent(std::string_view address, const MailDigest& digest, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    const CopyName copy(MailboxOf(address), digest);
    if (const auto found = profile_->copies.find(copy); found != profile_->copies.end())
        return found->second.has_value();
    if (profile_->forgotten_addresses.contains(copy.first)) return false;
    std::optional<CTime> seen;
    state_->Look([&](Database& file) { seen = FindCopy(file, *profile_, copy); });
    if (!seen) return false;
    if (*seen < now - kRefreshAfter && state_->MakeRoom(now)) KeepCopy(*state_, *profile_, copy, now);
    return true;
}

void ProfileMemory::RecordSent(std::span<const CString> addresses, const MailDigest& digest, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    if (!state_->MakeRoom(now)) return;
    std::vector<SentCopy> sent;
    for (const CString& address : addresses) {
        const CopyName copy(MailboxOf(address), digest);
        KeepCopy(*state_, *profile_, copy, now);
        if (state_->HasNotes(*profile_, Matter::Refused))
            state_->DropNote(*profile_, Matter::Refused, RefusalSubject(copy.first, digest));
        sent.push_back({profile_->name, copy.first, digest, now});
    }
    if (!state_->journal.Add(sent)) state_->Save(now);
}

bool ProfileMemory::HasSentAny(std::string_view address) {
    const std::scoped_lock lock(state_->mutex);
    const std::string mailbox = MailboxOf(address);
    const auto is_sent = [&](const auto& copy) { return copy.first.first == mailbox && copy.second; };
    if (std::ranges::any_of(profile_->copies, is_sent)) return true;
    if (profile_->forgotten_addresses.contains(mailbox)) return false;
    bool has_sent = false;
    state_->Look([&](Database& file) {
        const std::int64_t address_id = FindAddress(file, *profile_, mailbox);
        auto row = file.Lend("SELECT 1 FROM copies WHERE address = ? LIMIT 1");
        has_sent = address_id != 0 && row->With(address_id).Next();
    });
    return has_sent;
}

void ProfileMemory::Forget(std::string_view address, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    const std::string mailbox = MailboxOf(address);
    std::erase_if(profile_->copies, [&](const auto& copy) { return copy.first.first == mailbox; });
    profile_->forgotten_addresses.insert(mailbox);
    state_->NoteWaiting(*profile_);
    state_->Save(now);
}

void ProfileMemory::Forget(std::string_view address, const MailDigest& digest, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    KeepCopy(*state_, *profile_, CopyName(MailboxOf(address), digest), std::nullopt);
    state_->Save(now);
}

// Copies of a forgotten address belong to nobody from then on, and are removed with those that are too old.
void WriteCopies(Database& file, RememberedProfile& profile) {
    for (const std::string& mailbox : profile.forgotten_addresses) {
        file.Lend("DELETE FROM addresses WHERE profile = ? AND mailbox = ?")->With(profile.id, mailbox).Run();
        profile.addresses.erase(mailbox);
    }
    for (const auto& [copy, moment] : profile.copies) {
        const std::int64_t address = AddAddress(file, profile, copy.first);
        if (!moment) {
            file.Lend("DELETE FROM copies WHERE digest = ? AND address = ?")->With(copy.second.bytes, address).Run();
            continue;
        }
        file.Lend("INSERT INTO copies VALUES (?1, ?2, ?3, ?3) ON CONFLICT DO UPDATE SET seen = excluded.seen")
            ->With(copy.second.bytes, address, *moment)
            .Run();
    }
}

// Digests are as good as random, so a process may begin anywhere.
void CleanCopies(Database& file, MailDigest& cleaned_up_to, CTime now) {
    constexpr int kAtOnce = 200;
    MailDigest last;
    int looked_at = 0;
    {
        auto row = file.Lend("SELECT digest FROM copies WHERE digest >= ? ORDER BY digest LIMIT ?");
        for (row->With(cleaned_up_to.bytes, kAtOnce); row->Next(); ++looked_at) {
            last = ReadDigest(*row, 0).value_or(last);
        }
    }
    if (looked_at < kAtOnce) last.bytes.fill(0xFF);
    file.Lend(
            "DELETE FROM copies WHERE digest BETWEEN ? AND ? AND"
            " (seen < ? OR address NOT IN (SELECT id FROM addresses))")
        ->With(cleaned_up_to.bytes, last.bytes, now - kCopiesKept)
        .Run();
    cleaned_up_to = looked_at < kAtOnce ? MailDigest() : last;
}

// ---- ids

std::optional<MailDigest> ProfileMemory::DigestOfId(const CString& uidl) {
    const std::scoped_lock lock(state_->mutex);
    if (const auto found = profile_->ids.find(uidl); found != profile_->ids.end()) return found->second.digest;
    std::optional<MailDigest> digest;
    state_->Look([&](Database& file) {
        auto row = file.Lend("SELECT digest FROM ids WHERE profile = ? AND uidl = ?");
        if (row->With(FindId(file, *profile_), uidl).Next()) digest = ReadDigest(*row, 0);
    });
    return digest;
}

std::int64_t ProfileMemory::SizeOfId(const CString& uidl) {
    const std::scoped_lock lock(state_->mutex);
    if (const auto found = profile_->ids.find(uidl); found != profile_->ids.end()) return found->second.size_bytes;
    std::int64_t size = -1;
    state_->Look([&](Database& file) {
        auto row = file.Lend("SELECT size FROM ids WHERE profile = ? AND uidl = ?");
        if (row->With(FindId(file, *profile_), uidl).Next()) size = row->Number(0);
    });
    return size;
}

void ProfileMemory::RecordId(const CString& uidl, const MailDigest& digest, CTime now, std::int64_t size_bytes) {
    const std::scoped_lock lock(state_->mutex);
    if (!IsUsable(uidl) || !state_->MakeRoom(now)) return;
    profile_->ids[uidl] = {digest, size_bytes, now};
    state_->NoteWaiting(*profile_);
}

void WriteIds(Database& file, RememberedProfile& profile) {
    for (const auto& [uidl, recorded] : profile.ids) {
        file.Lend(
                "INSERT INTO ids (profile, uidl, digest, seen, size) VALUES (?, ?, ?, ?, ?) ON CONFLICT DO UPDATE"
                " SET digest = excluded.digest, seen = excluded.seen, size = excluded.size")
            ->With(profile.id, uidl, recorded.digest.bytes, recorded.seen, recorded.size_bytes)
            .Run();
    }
}

// Takes the lock anew for each step, so that other runs do not wait for a large mailbox.
void ProfileMemory::Seen(std::span<const std::string_view> uidls, CTime now) {
    constexpr std::size_t kAtOnce = 500;
    if (!BeginSeen(uidls, now)) return;
    for (std::size_t i = 0; i < uidls.size(); i += kAtOnce) {
        const std::scoped_lock lock(state_->mutex);
        const auto some = uidls.subspan(i, std::min(kAtOnce, uidls.size() - i));
        if (!state_->Change([&](Database& file) { RefreshIds(file, profile_->id, some, now); })) return;
    }
    const std::scoped_lock lock(state_->mutex);
    state_->Change([&](Database& file) {
        file.Lend("DELETE FROM ids WHERE profile = ? AND seen < ?")->With(profile_->id, now - kCopiesKept).Run();
    });
    ForgetOldRefusals(*state_, *profile_, now);
    state_->PutNote(*profile_, Matter::Refreshed, {}, {1, now, now, now + kRefreshAfter, {}}, now);
}

// Whether there is something to refresh.
bool ProfileMemory::BeginSeen(std::span<const std::string_view> uidls, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    if (uidls.empty()) return false;  // a server that lists nothing once
    ForgetGoneIds(*state_, *profile_, uidls);
    const Note* const refreshed = state_->FindNote(*profile_, Matter::Refreshed, {});
    if (refreshed && now < refreshed->next && now >= refreshed->last) return false;
    return state_->Save(now) && profile_->id != 0;
}

}  // namespace tarvex::host
