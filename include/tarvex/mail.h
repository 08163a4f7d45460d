#pragma once

// What one run holds of the mailbox.

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "tarvex/text.h"

class CForwardAddress;

// One fetched message. Owned by the array that holds it.
class TARVEX_API CReceiveMail {
public:
    CReceiveMail() = default;
    virtual ~CReceiveMail();

    // The message as POP3 delivered it: the CR LF of the status line first, dot-stuffed, with its "." line at the end.
    CString text;
    // The unique id on the server; empty when the server has no UIDL command.
    CString uidl;
    // As CMailOnServer::size_bytes.
    std::int64_t listed_bytes = -1;
    // The forwarding addresses that are to receive the message; not owned.
    CArray<CForwardAddress*, CForwardAddress*> destinations;
};

// Hashes unique ids. They come from servers, so the hash has a key that is another one in every process: nobody can
// make up ids that collide. Not noexcept, for then the containers keep each hash instead of computing it again.
struct TARVEX_API CUidlHash {
    std::size_t operator()(std::string_view id) const;
};

// A set of unique ids that keeps the order in which they were added. The name was given: it holds ids, no mail. A run
// keeps two: the ids that are handled and those that are present.
class TARVEX_API CCheckedMail {
public:
    int GetSize() const { return static_cast<int>(ids_.size()); }
    const CString& GetAt(int index) const { return ids_[static_cast<std::size_t>(index)]; }

    // Whether the id is in the list.
    bool Contains(const CString& id) const;

    // The index of the id, which is appended when it is not in the list yet; -1 when memory runs out.
    int Add(const CString& id);

    // Removes the last id; does nothing when the list is empty.
    void RemoveLast();

    void RemoveAll();

private:
    // The slot that holds the id's index, or the free one where it belongs.
    std::size_t SlotOf(std::string_view id, std::uint32_t hash) const;
    void MakeSlots(std::size_t count);

    CStringArray ids_;
    std::vector<std::uint32_t> hashes_;  // of ids_
    // A hash table with open addressing: indexes of ids_, -1 where free; never more than half full.
    std::vector<int> slots_;
    // The entry behind the one that Contains found last: ids are mostly asked for in the order of the list.
    mutable std::size_t next_ = 0;
};
