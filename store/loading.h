#pragma once

// Loads the objects of the tree from their directories. These do the work of SetPath but throw std::bad_alloc, so that
// an object that was half loaded is dropped and never saved over its own files.

#include "tarvex/tree.h"

namespace tarvex {

void Open(CForwardAddress& address, const CString& path);
void Open(CPopProfile& profile, const CString& path);
void Open(CUser& user, const CString& path);

// The objects' assignment. The target stays as it was when this throws.
void Assign(CForwardAddress& target, const CForwardAddress& source);
void Assign(CPopProfile& target, const CPopProfile& source);

}  // namespace tarvex
