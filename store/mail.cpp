// A fetched message, and a list of unique ids that is searched by hash.

#include "tarvex/mail.h"

#include <algorithm>

#include "platform/codec/keyed_hash.h"
#include "platform/os/shield.h"

using tarvex::Shielded;

namespace {

constexpr int kFree = -1;
constexpr std::size_t kFewestSlots = 16;

std::uint32_t Hash(std::string_view id) { return static_cast<std::uint32_t>(CUidlHash()(id)); }

}  // namespace

CReceiveMail::~CReceiveMail() = default;

std::size_t CUidlHash::operator()(std::string_view id) const {
    return static_cast<std::size_t>(tarvex::KeyedHash(tarvex::ProcessHashKey(), id));
}

bool CCheckedMail::Contains(const CString& id) const {
    if (ids_.empty()) return false;
    if (next_ >= ids_.size() || ids_[next_] != id) {
        const int index = slots_[SlotOf(id, Hash(id))];
        if (index == kFree) return false;
        next_ = static_cast<std::size_t>(index);
    }
    ++next_;
    return true;
}

int CCheckedMail::Add(const CString& id) {
    return Shielded(-1, [&] {
        if (slots_.size() < 2 * (ids_.size() + 1)) MakeSlots(std::max(kFewestSlots, 2 * slots_.size()));
        const std::uint32_t hash = Hash(id);
        int& index = slots_[SlotOf(id, hash)];
        if (index == kFree) {
            hashes_.resize(ids_.size());  // there is one too many after a removal, or when memory ran out meanwhile
            hashes_.push_back(hash);
            ids_.push_back(id);
            index = GetSize() - 1;
        }
        return index;
    });
}

void CCheckedMail::RemoveLast() {
    if (ids_.empty()) return;
    // No other id was ever pushed aside by the last one, so its slot simply becomes free.
    slots_[SlotOf(ids_.back(), hashes_[ids_.size() - 1])] = kFree;
    ids_.pop_back();
}

void CCheckedMail::RemoveAll() {
    CStringArray().swap(ids_);
    std::vector<std::uint32_t>().swap(hashes_);
    std::vector<int>().swap(slots_);
}

std::size_t CCheckedMail::SlotOf(std::string_view id, std::uint32_t hash) const {
    const std::size_t mask = slots_.size() - 1;  // the number of slots is a power of two
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
        const int index = slots_[slot];
        if (index == kFree || (hashes_[static_cast<std::size_t>(index)] == hash && GetAt(index) == id)) return slot;
    }
}

void CCheckedMail::MakeSlots(std::size_t count) {
    std::vector<int>(count, kFree).swap(slots_);
    for (int index = 0; index < GetSize(); ++index) {
        std::size_t slot = hashes_[static_cast<std::size_t>(index)] & (count - 1);
        while (slots_[slot] != kFree) slot = (slot + 1) & (count - 1);
        slots_[slot] = index;
    }
}
