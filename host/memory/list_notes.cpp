// Compares lists of ids with what is remembered of them.
//
// The newest ids tell an older list: it lacks them. They are noted as hashes in one text, 16 letters each:
//
//     note      on 2026-11-22 10:15 the end of the list was  u7 u8 u9
//     list      u1 u2 u3         the server lists u2 u3 u7 u9 u10: the list lacks u7 and u9, and is older
//     list      u1 u7 u9         the server lists u1 u7 u9: nothing is wrong, u8 is gone from both

#include "host/memory/list_notes.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "host/history/database.h"
#include "host/system/display.h"
#include "host/system/hexadecimal.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kNewest = 16;  // of a list
constexpr std::size_t kLetters = 16;
static_assert(kNewest * kLetters <= kMostWordsBytes);

std::string HashOf(std::string_view id) {  // FNV-1a
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const char c : id) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    std::array<unsigned char, kLetters / 2> bytes{};
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(hash >> 56U);
        hash <<= 8U;
    }
    return Hexadecimal(bytes);
}

CString FolderOf(const CForwardAddress& address) { return address.path.substr(address.path.rfind('\\') + 1); }

// The address in its folder: the list of another one says nothing.
CString SubjectOf(const CForwardAddress& address) { return FolderOf(address) + ' ' + address.setting.address; }

// As POP3 wants ids to be. One with a blank before it or a line end is not read back from its list as it was written.
bool IsProper(std::string_view id) {
    return !id.empty() && std::ranges::all_of(id, [](char c) { return c > ' ' && c <= '~'; });
}

std::vector<std::string_view> NewestOf(const CForwardAddress& address) {
    std::vector<std::string_view> newest;
    for (auto id = address.uidls.rbegin(); id != address.uidls.rend() && newest.size() < kNewest; ++id) {
        if (IsProper(*id)) newest.push_back(*id);
    }
    return newest;
}

CString HashesOf(std::span<const std::string_view> ids) {
    CString hashes;
    for (const std::string_view id : ids) hashes += HashOf(id);
    return hashes;
}

// How many of the noted ids the list lacks, though the server lists them. Ids that are the numbers of their messages
// are others by now.
std::int64_t CountMissing(const CForwardAddress& address, const Note& note, std::span<const CMailOnServer> listing) {
    std::set<std::string> missing;
    for (std::size_t at = 0; at + kLetters <= note.words.size(); at += kLetters)
        missing.insert(note.words.substr(at, kLetters));
    for (const CString& id : address.uidls) {
        if (missing.empty()) return 0;
        missing.erase(HashOf(id));
    }
    return std::ranges::count_if(listing, [&](const CMailOnServer& mail) {
        return mail.uidl != mail.number && missing.contains(HashOf(mail.uidl));
    });
}

std::string Words(const CForwardAddress& address, const Note& note, std::int64_t missing) {
    return "uidl.def of " + ShowText(FolderOf(address)) + " (" + ShowText(address.setting.address) +
           ") is older than what is remembered of it: at " + ShowTime(note.last) + " it held " +
           ShowCount(missing, "message") + " that the server still has and that it lacks now";
}

}  // namespace

std::optional<std::string> ListNotes::WhyOlder(const CPopProfile& profile,
                                               std::span<const CMailOnServer> listing) const {
    for (const auto& address : profile.forward_addresses) {
        if (address->uidls.empty()) continue;
        const std::optional<Note> note = memory_.Find(Matter::Listed, SubjectOf(*address));
        if (!note || note->words == HashesOf(NewestOf(*address))) continue;
        const std::int64_t missing = CountMissing(*address, *note, listing);
        if (missing > 0) return Words(*address, *note, missing);
    }
    return std::nullopt;
}

void ListNotes::BeforeRun(const CPopProfile& profile, std::span<const std::string_view> listed, CTime now) {
    for (const auto& address : profile.forward_addresses) {
        std::optional<Note> note = memory_.Find(Matter::Listed, SubjectOf(*address));
        if (!note) continue;
        std::vector<std::string_view> stays = NewestOf(*address);
        std::erase_if(stays, [&](std::string_view id) { return !std::ranges::binary_search(listed, id); });
        if (CString words = HashesOf(stays); words != note->words) {
            note->words = std::move(words);
            memory_.Put(Matter::Listed, SubjectOf(*address), *std::move(note), now);
        }
    }
}

void ListNotes::BeforeDeletion(const CPopProfile& profile, std::string_view id, CTime now) {
    const std::string hash = HashOf(id);
    for (const auto& address : profile.forward_addresses) {
        std::optional<Note> note = memory_.Find(Matter::Listed, SubjectOf(*address));
        for (std::size_t at = 0; note && at < note->words.size(); at += kLetters) {
            if (note->words.compare(at, kLetters, hash) != 0) continue;
            note->words.erase(at, kLetters);
            memory_.Put(Matter::Listed, SubjectOf(*address), *note, now);
        }
    }
}

void ListNotes::AfterRun(const CPopProfile& copy, CTime now) {
    KeepNotesOf(copy, now);
    for (std::size_t i = 0; i < std::min(copy.forward_addresses.size(), copy.result.addresses.size()); ++i) {
        if (copy.result.addresses[i].list != CSaved::Saved) continue;
        const CForwardAddress& address = *copy.forward_addresses[i];
        const std::optional<Note> note = memory_.Find(Matter::Listed, SubjectOf(address));
        CString words = HashesOf(NewestOf(address));
        if (note ? note->words == words : words.empty()) continue;
        memory_.PutLater(Matter::Listed, SubjectOf(address), {1, now, now, now, std::move(words)});
    }
}

void ListNotes::KeepNotesOf(const CPopProfile& profile, CTime now) {
    std::map<CString, Note> gone = memory_.Notes(Matter::Listed);
    for (const auto& address : profile.forward_addresses) gone.erase(SubjectOf(*address));
    for (const auto& [subject, note] : gone) memory_.Drop(Matter::Listed, subject, now);
}

void ListNotes::Forget(const CForwardAddress& address, CTime now) {
    memory_.Drop(Matter::Listed, SubjectOf(address), now);
}

void ForgetLists(Database& copy) {
    if (copy.Number("SELECT count(*) FROM sqlite_schema WHERE name = 'notes'") == 0) return;
    copy.Run(("DELETE FROM notes WHERE matter = " + std::to_string(static_cast<int>(Matter::Listed))).c_str());
}

}  // namespace tarvex::host
