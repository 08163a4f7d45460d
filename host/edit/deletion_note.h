#pragma once

// What an edit means for mail on the server.

#include <string>

#include "tarvex/tree.h"

namespace tarvex::host {

// Which addresses the deletion of mail waits for, in a line; empty where nothing is deleted.
std::string NoteOnDeletion(const CPopProfile& profile);

}  // namespace tarvex::host
