#pragma once

// Messages, remembered and set aside, as the commands print them with --json and the console gets them.

#include <string>
#include <vector>

#include "host/held/held_record.h"
#include "host/history/tables/mail_tables.h"
#include "host/terminal/json.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// What became of a copy, in words.
std::string Say(CopyFate fate);

Json JsonOf(const FoundMail& found);

// What a profile has set aside; an address that was changed since is known by its new one. Throws CommandError.
std::vector<HeldRecord> HeldRecordsOf(const CPopProfile& profile);

// Of these what is set aside of a message, by its id on the server: for that address, or for any.
std::vector<HeldRecord> HeldOf(const CPopProfile& profile, const CString& uidl, const CForwardAddress* address);

// `profile`: what it is called.
Json JsonOf(const std::string& profile, const HeldRecord& record);

}  // namespace tarvex::host
