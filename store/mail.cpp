// What one run holds of the mailbox.

#include "tarvex/mail.h"

#include "platform/codec/keyed_hash.h"
#include "platform/os/shield.h"

using tarvex::Shielded;

CReceiveMail::~CReceiveMail() = default;

std::size_t CUidlHash::operator()(std::string_view id) const {
    return static_cast<std::size_t>(tarvex::KeyedHash(tarvex::ProcessHashKey(), id));
}

bool CCheckedMail::Contains(const CString& id) const { return index_of_.contains(id); }

int CCheckedMail::Add(const CString& id) {
    return Shielded(-1, [&] {
        const auto [entry, added] = index_of_.try_emplace(id, GetSize());
        if (!added) return entry->second;
        try {
            ids_.push_back(id);
        } catch (...) {
            index_of_.erase(entry);
            throw;
        }
        return entry->second;
    });
}

void CCheckedMail::RemoveLast() {
    if (ids_.empty()) return;
    index_of_.erase(ids_.back());
    ids_.pop_back();
}

void CCheckedMail::RemoveAll() {
    CStringArray().swap(ids_);
    index_of_.clear();
}
