#pragma once

// Pointing the objects of the tree at their directories. These do the work of the members named SetPath, but throw
// std::bad_alloc, so that an object that is half loaded can be dropped instead of being saved over its own files.

#include "tarvex/tree.h"

namespace tarvex {

void Open(CForwardAddress& address, const CString& path);
void Open(CPopProfile& profile, const CString& path);
void Open(CUser& user, const CString& path);

// The objects' assignment. The target stays as it was when this throws.
void Assign(CForwardAddress& target, const CForwardAddress& source);
void Assign(CPopProfile& target, const CPopProfile& source);

}  // namespace tarvex
