// The memory of loops: which messages passed a profile within the last hour. All of a profile are one row, for so many
// that live for an hour would take longer.

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

#include "host/memory/memory.h"
#include "host/memory/memory_state.h"

namespace tarvex::host {
namespace {

constexpr CTime kMarksKept = 3600;

// Not one of the future either, which a clock that was set back has left.
bool IsRecent(const Passage& passage, CTime now) {
    return passage.time >= now - kMarksKept && passage.time <= now + kMarksKept;
}

// A passage in bytes: the digests of letter, message and way, then the numbers, their lowest byte first.
class PassageWriter {
public:
    void Add(const MailDigest& letter, const Passage& passage) {
        for (const MailDigest& digest : {letter, passage.message, passage.way.last}) {
            bytes_.insert(bytes_.end(), digest.bytes.begin(), digest.bytes.end());
        }
        Add(static_cast<std::uint64_t>(passage.time));
        Add(passage.way.length);
    }

    std::span<const unsigned char> Bytes() const { return bytes_; }

private:
    void Add(std::uint64_t number) {
        for (int i = 0; i < 8; ++i, number >>= 8) bytes_.push_back(static_cast<unsigned char>(number));
    }

    std::vector<unsigned char> bytes_;
};

class PassageReader {
public:
    static constexpr std::size_t kBytes = 3 * sizeof(MailDigest::bytes) + 2 * 8;

    explicit PassageReader(std::span<const unsigned char> bytes) : bytes_(bytes) {}

    bool HasMore() const { return bytes_.size() >= kBytes; }

    MailDigest Digest() {
        MailDigest digest;
        std::ranges::copy(Take(digest.bytes.size()), digest.bytes.begin());
        return digest;
    }

    std::uint64_t Number() {
        std::uint64_t number = 0;
        const auto bytes = Take(8);
        for (auto byte = bytes.rbegin(); byte != bytes.rend(); ++byte) number = number << 8 | *byte;
        return number;
    }

private:
    std::span<const unsigned char> Take(std::size_t count) {
        const auto taken = bytes_.first(count);
        bytes_ = bytes_.subspan(count);
        return taken;
    }

    std::span<const unsigned char> bytes_;
};

}  // namespace

bool ProfileMemory::HasPassed(const LoopMark& mark, const MailDigest& message, CTime now) {
    const std::scoped_lock lock(state_->mutex);
    state_->NeedMarks(*profile_);
    if (const auto known = profile_->marks.find(mark.Letter()); known != profile_->marks.end()) {
        const Passage& before = known->second;
        if (IsRecent(before, now) && before.message == message) return false;
        if (IsRecent(before, now) && mark.Continues(before.way)) return true;
    }
    if (!state_->MakeRoom(now)) return false;
    profile_->marks[mark.Letter()] = {message, now, mark.Way()};
    profile_->marks_changed = true;
    state_->NoteWaiting(*profile_);
    return false;
}

void LoadMarks(Database& file, RememberedProfile& profile) {
    auto row = file.Lend("SELECT passages FROM marks WHERE profile = ?");
    if (!row->With(FindId(file, profile)).Next()) return;
    PassageReader reader(row->Bytes(0));
    while (reader.HasMore()) {
        const MailDigest letter = reader.Digest();
        Passage passage;
        passage.message = reader.Digest();
        passage.way.last = reader.Digest();
        passage.time = static_cast<CTime>(reader.Number());
        passage.way.length = static_cast<std::size_t>(reader.Number());
        profile.marks.emplace(letter, passage);
    }
}

void WriteMarks(Database& file, RememberedProfile& profile, CTime now) {
    if (!profile.marks_changed) return;
    std::erase_if(profile.marks, [&](const auto& mark) { return mark.second.time < now - kMarksKept; });
    PassageWriter writer;
    for (const auto& [letter, passage] : profile.marks) writer.Add(letter, passage);
    file.Lend("INSERT OR REPLACE INTO marks VALUES (?, ?)")->With(profile.id, writer.Bytes()).Run();
}

}  // namespace tarvex::host
