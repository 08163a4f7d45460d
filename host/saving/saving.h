#pragma once

// Saving what an edit has changed. A save that fails has left the old content in place; or the new one, which a power
// failure may take back. Then the change stands, in memory as on disk, and whoever asked for it has to be told.

#include <vector>

#include "host/settings/keys.h"
#include "host/system/durable_files.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

// In the directory. For the settings of users, profiles and forwarding addresses, of which these keys were changed.
template <class Record>
Saved Save(const Record& record, const std::vector<const Key<Record>*>& changed, const CString& directory);
Saved Save(const CScheduleSetting& schedule, const CString& directory);

// Gives the target all that the source holds, also what an assignment leaves out.
void Assign(CUserSetting& target, const CUserSetting& source);
void Assign(CPopProfileSetting& target, const CPopProfileSetting& source);
void Assign(CForwardAddressSetting& target, const CForwardAddressSetting& source);

}  // namespace tarvex::host
