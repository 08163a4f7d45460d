#pragma once

// Notes which file or directory of an object could not be read.

#include <string>

#include "tarvex/loaded.h"

namespace tarvex {

// Keeps the first path that could not be read. Throws std::bad_alloc.
void NoteUnread(CLoaded& loaded, const std::string& path, const std::string& reason);

void NoteNoMemory(CLoaded& loaded) noexcept;

}  // namespace tarvex
