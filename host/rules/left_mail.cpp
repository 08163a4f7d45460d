// Remembers what was left on the server as if a copy had been sent to nobody.

#include "host/rules/left_mail.h"

namespace tarvex::host {
namespace {

const CString kNobody = "*nobody*";
constexpr CTime kDay = 86400;

}  // namespace

// The count of the note is how many were held then: when there are fewer, there is room.
void LeftMail::Begin(std::int64_t held, CTime now) {
    std::optional<Note> note = memory_.Find(Matter::Left, {});
    knows_some_ = note.has_value();
    if (!note) return;
    rests_ = now < note->next && now >= note->last && held >= note->count;
    if (!rests_) return memory_.Drop(Matter::Left, {}, now);
    if (note->count == held) return;
    note->count = held;
    memory_.Put(Matter::Left, {}, *note, now);
}

bool LeftMail::Knows(std::string_view uidl) {
    if (!knows_some_ || uidl.empty()) return false;
    const std::optional<MailDigest> digest = memory_.DigestOfId(CString(uidl));
    return digest && memory_.WasSent(kNobody, *digest, 0);
}

void LeftMail::Add(const MailDigest& digest, CTime now) {
    memory_.RecordSent({&kNobody, 1}, digest, now);
    if (!memory_.Find(Matter::Left, {})) memory_.Put(Matter::Left, {}, {0, now, now, now + kDay, {}}, now);
}

}  // namespace tarvex::host
