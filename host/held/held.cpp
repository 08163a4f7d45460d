// Sets messages aside, and keeps what is set aside.
//
// The order in which the files of a new message are written decides what a crash leaves:
//
//     make held/       write and sync 7.mail     write and sync 7.def.tmp     rename it to 7.def     sync held/
//     sync its parent
//     ------------ nothing that counts: CleanUp removes it ------------|---- there, whole ----|---- there for good
//
// Only after the last step the message counts as handled. A message that is removed loses its record first.

#include "host/held/held.h"

#include "host/language/tr.h"

#include <algorithm>
#include <charconv>
#include <map>

namespace tarvex::host {
namespace {

using Entries = std::vector<PrivateFolder::Entry>;

constexpr std::string_view kMail = ".mail";
constexpr std::string_view kRecord = ".def";
constexpr std::string_view kUnfinished = ".def.tmp";
constexpr int kMostId = 999'999'999;
constexpr std::int64_t kShareOfUnasked = 4;  // of the limits: one in so many

std::string FileOf(int id, std::string_view ending) { return std::to_string(id) + std::string(ending); }

// The id of "7.mail" for ".mail"; 0 for the name of anything else.
int IdIn(std::string_view name, std::string_view ending) {
    int id = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), id);
    return error == std::errc() && id > 0 && id <= kMostId && name == FileOf(id, ending) ? id : 0;
}

// What the folder holds, by id. A record counts by its name alone, also where a link or a pipe stands for it.
struct Found {
    bool has_record = false;
    bool has_mail = false;
    std::int64_t mail_bytes = -1;  // -1 when there is no plain file
};

std::map<int, Found> Sorted(const Entries& entries) {
    std::map<int, Found> found;
    for (const PrivateFolder::Entry& entry : entries) {
        if (const int id = IdIn(entry.name, kRecord)) found[id].has_record = true;
        if (const int id = IdIn(entry.name, kUnfinished)) found[id];
        if (const int id = IdIn(entry.name, kMail)) {
            found[id].has_mail = true;
            if (entry.is_file) found[id].mail_bytes = entry.bytes;
        }
    }
    return found;
}

HeldRecord Damaged(int id, std::string why) {
    HeldRecord record;
    record.id = id;
    record.damage = std::move(why);
    return record;
}

void Count(HeldLimits& used, std::int64_t bytes) {
    ++used.messages;
    used.bytes += std::max<std::int64_t>(bytes, 0);
}

bool HasRoom(const HeldLimits& limits, const HeldLimits& used, std::int64_t bytes, std::int64_t share) {
    return used.messages < (limits.messages + share - 1) / share && bytes <= limits.bytes / share - used.bytes;
}

bool IsSame(const HeldAddress& one, const HeldAddress& other) {
    return one.address == other.address || (!one.made.empty() && one.made == other.made);
}

// Whether one of the folders stands for another address in the record: one that was removed since.
bool NamesOthers(const HeldRecord& record, const std::vector<HeldAddress>& addresses) {
    return std::ranges::any_of(addresses, [&](const HeldAddress& address) {
        const auto waiting = std::ranges::find(record.addresses, address.folder, &HeldAddress::folder);
        return waiting != record.addresses.end() && !IsSame(*waiting, address);
    });
}

// False when all of them wait already.
bool AddAddresses(HeldRecord& record, const std::vector<HeldAddress>& addresses) {
    const std::size_t before = record.addresses.size();
    for (const HeldAddress& address : addresses) {
        if (std::ranges::count(record.addresses, address.folder, &HeldAddress::folder) == 0) {
            record.addresses.push_back(address);
        }
    }
    return record.addresses.size() > before;
}

}  // namespace

HoldOutcome HeldStore::Hold(std::string_view text, HeldRecord record, const HeldLimits& limits) const {
    const auto entries = folder_.Entries();
    if (!entries) return HoldOutcome::Failed;
    HeldLimits used{0, 0};
    HeldLimits unasked{0, 0};  // of those that the server was not asked to take
    int last_id = 0;
    for (const auto& [id, found] : Sorted(*entries)) {
        last_id = id;
        if (!found.has_record) continue;
        Count(used, found.mail_bytes);
        std::optional<HeldRecord> held = RecordOf(id, found.mail_bytes);
        if (held && held->damage.empty() && held->kind != HeldKind::Refused) Count(unasked, found.mail_bytes);
        if (!held || !held->damage.empty() || held->digest != record.digest || held->kind != record.kind) continue;
        if (NamesOthers(*held, record.addresses)) continue;
        // Synced also when nothing is added: whoever wrote the record may have been killed before that.
        const bool kept = AddAddresses(*held, record.addresses) ? WriteRecord(*held) : folder_.Sync();
        return kept && folder_.Make() ? HoldOutcome::Held : HoldOutcome::Failed;
    }
    record.bytes = static_cast<std::int64_t>(text.size());
    if (!HasRoom(limits, used, record.bytes, 1)) return HoldOutcome::AtLimit;
    if (record.kind != HeldKind::Refused && !HasRoom(limits, unasked, record.bytes, kShareOfUnasked))
        return HoldOutcome::AtLimit;
    if (last_id == kMostId) return HoldOutcome::Failed;
    record.id = last_id + 1;
    return HoldNew(record.id, text, record) ? HoldOutcome::Held : HoldOutcome::Failed;
}

bool HeldStore::HoldNew(int id, std::string_view text, const HeldRecord& record) const {
    if (!folder_.Make() || !folder_.WriteNew(FileOf(id, kMail), text)) return false;
    if (WriteRecord(record)) return true;
    // Should this fail as well, the message stays set aside and is fetched again: it may be sent twice.
    [[maybe_unused]] const bool removed = Remove(id);
    return false;
}

bool HeldStore::WriteRecord(const HeldRecord& record) const {
    const std::string unfinished = FileOf(record.id, kUnfinished);
    if (!folder_.Remove(unfinished) || !folder_.WriteNew(unfinished, TextOf(record))) return false;
    if (folder_.Rename(unfinished, FileOf(record.id, kRecord))) return folder_.Sync();
    [[maybe_unused]] const bool removed = folder_.Remove(unfinished);
    return false;
}

std::optional<HeldRecord> HeldStore::RecordOf(int id, std::int64_t mail_bytes) const {
    bool missing = false;
    const std::optional<std::string> text = folder_.Read(FileOf(id, kRecord), missing);
    if (!text && missing) return std::nullopt;
    if (!text) return Damaged(id, Tr("its record cannot be read"));
    HeldRecord record = RecordIn(*text);
    record.id = id;
    if (!record.damage.empty()) return record;
    if (mail_bytes < 0) mail_bytes = MailBytes(id);  // a listing may miss what is made meanwhile
    if (mail_bytes < 0) {
        record.damage = Tr("the message itself is missing");
    } else if (mail_bytes != record.bytes) {
        record.damage = Tr("the message has {0} bytes instead of {1}", mail_bytes, record.bytes);
    }
    return record;
}

std::int64_t HeldStore::MailBytes(int id) const {
    const auto entries = folder_.Entries();
    return entries ? Sorted(*entries)[id].mail_bytes : -1;
}

std::optional<std::vector<HeldRecord>> HeldStore::List() const {
    const auto entries = folder_.Entries();
    if (!entries) return std::nullopt;
    std::vector<HeldRecord> records;
    for (const auto& [id, found] : Sorted(*entries)) {
        if (!found.has_record) continue;
        if (auto record = RecordOf(id, found.mail_bytes)) records.push_back(*std::move(record));
    }
    return records;
}

std::optional<HeldRecord> HeldStore::Find(int id) const {
    const std::int64_t mail_bytes = MailBytes(id);
    return RecordOf(id, mail_bytes);
}

std::optional<std::string> HeldStore::Text(int id, std::size_t most_bytes) const {
    bool missing = false;
    return folder_.Read(FileOf(id, kMail), missing, most_bytes);
}

bool HeldStore::Update(const HeldRecord& record) const { return WriteRecord(record); }

bool HeldStore::Remove(int id) const {
    return folder_.Remove(FileOf(id, kRecord)) && folder_.Sync() && folder_.Remove(FileOf(id, kMail)) && folder_.Sync();
}

void HeldStore::CleanUp() const {
    const auto entries = folder_.Entries();
    if (!entries) return;
    for (const auto& [id, found] : Sorted(*entries)) {
        [[maybe_unused]] bool removed = folder_.Remove(FileOf(id, kUnfinished));
        if (!found.has_record) removed = folder_.Remove(FileOf(id, kMail));
    }
}

}  // namespace tarvex::host
