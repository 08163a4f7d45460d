#pragma once

// Whether the settings files give back what is written to them: some texts they cannot hold.

#include <vector>

#include "host/settings/keys.h"
#include "tarvex/text.h"

namespace tarvex::host {

// Throws CommandError when the value of one of the keys would be read back as another one: saves the record in a
// scratch folder below the directory, and loads it. In a root this is for the holder of its lock.
template <class Record>
void RequireSurvival(const Record& record, const std::vector<const Key<Record>*>& keys, const CString& directory);

}  // namespace tarvex::host
