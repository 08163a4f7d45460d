// Remembers two numbers: where the round has got to, and the highest one that was ever fetched.

#include "host/rules/rotation.h"

#include <algorithm>
#include <charconv>

namespace tarvex::host {
namespace {

const CString kPosition = "position";
const CString kSeen = "seen";

std::int64_t Recall(ProfileMemory& memory, const CString& what) {
    const std::optional<Note> note = memory.Find(Matter::Rotation, what);
    return note ? note->count : 0;
}

void Remember(ProfileMemory& memory, const CString& what, std::int64_t number, CTime now) {
    if (Recall(memory, what) != number) memory.Put(Matter::Rotation, what, {number, now, now, now, {}}, now);
}

}  // namespace

// A mailbox that has become smaller has nothing behind what was fetched that could be known to be new.
void Rotation::Begin(std::vector<std::int64_t> numbers) {
    is_needed_ = !numbers.empty();
    if (!is_needed_) return;
    std::ranges::sort(numbers);
    seen_ = std::min(Recall(memory_, kSeen), numbers.back());
    position_ = Recall(memory_, kPosition);
    if (position_ >= numbers.back()) position_ = 0;
    const auto first_new = std::ranges::upper_bound(numbers, seen_);
    last_old_ = first_new == numbers.begin() ? 0 : *(first_new - 1);
    fetched_old_ = position_;
    fetched_new_ = seen_;
}

void Rotation::Fetches(std::int64_t number) {
    std::int64_t& fetched = IsOld(number) ? fetched_old_ : fetched_new_;
    fetched = std::max(fetched, number);
}

void Rotation::Save(CTime now) {
    if (!is_needed_) return;
    Remember(memory_, kPosition, fetched_old_ >= last_old_ ? fetched_new_ : fetched_old_, now);
    Remember(memory_, kSeen, fetched_new_, now);
}

void Rotation::Forget(CTime now) {
    memory_.Drop(Matter::Rotation, kPosition, now);
    memory_.Drop(Matter::Rotation, kSeen, now);
}

std::int64_t NumberOf(const CMailOnServer& mail) {
    std::int64_t number = 0;
    const char* const end = mail.number.data() + mail.number.size();
    const auto [stop, error] = std::from_chars(mail.number.data(), end, number);
    return error == std::errc() && stop == end ? number : 0;
}

}  // namespace tarvex::host
