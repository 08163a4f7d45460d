#pragma once

// Operations on a UIDL list: the ordered list of unique ids that a forwarding address has received. Ids are compared
// byte for byte. A list may hold an id more than once. These names were given; a host needs none of them, and the
// engine itself works on whole lists (engine/bookkeeping.h).

#include "tarvex/text.h"

// The index of the first entry equal to the id, which is appended when there is none; -1 when memory runs out.
TARVEX_API int FindOrAppendUidl(CStringArray& list, const CString& id);

// Removes the first entry equal to the id. Returns 1 when there was one, else 0.
TARVEX_API int RemoveOneUidl(CStringArray& list, const CString& id);

// Removes every entry that does not occur in the other list; the order of the rest stays. Linear in both lengths. When
// memory runs out, the list stays as it is.
TARVEX_API void KeepOnlyUidl(CStringArray& list, const CStringArray& other);

// Empties the list.
TARVEX_API void RemoveAllUidl(CStringArray& list);
