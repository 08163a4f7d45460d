#pragma once

// The source "Tarvex" of Windows' event log.

#include "host/service/log/log_entry.h"
#include "host/system/windows/event_text.h"

namespace tarvex::host {

// That events.mc has, from 1 on.
inline constexpr unsigned short kEventCategories = 9;

// The numbers that it gives names and texts to.
constexpr unsigned short EventCategory(LogMatter matter) { return static_cast<unsigned short>(matter) + 1; }
constexpr unsigned EventId(LogMatter matter) { return 100u + EventCategory(matter); }

// Tells the event log that this program has the texts of the source. Throws CommandError.
void AddEventSource();

// Entries that were made stay in the log, without their texts. Throws CommandError.
void RemoveEventSource();

}  // namespace tarvex::host
