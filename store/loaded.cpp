// Notes which file or directory of an object could not be read.

#include "store/loaded.h"

namespace tarvex {

void NoteUnread(CLoaded& loaded, const std::string& path, const std::string& reason) {
    if (loaded.whole) loaded = {false, path, reason};
}

void NoteNoMemory(CLoaded& loaded) noexcept {
    loaded.whole = false;
    loaded.path.clear();
    loaded.reason.clear();
    constexpr std::string_view kReason = "out of memory";  // short enough for a string to hold without allocating
    loaded.reason.append(kReason);
}

}  // namespace tarvex
