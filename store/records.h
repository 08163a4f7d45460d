#pragma once

// The settings records for the tree, which must tell a file that is missing from memory that ran out: a record that
// holds its defaults only because it could not be loaded must never be saved over the file. These throw std::bad_alloc
// and then leave the record as it was.

#include "tarvex/loaded.h"
#include "tarvex/schedule.h"
#include "tarvex/settings.h"

namespace tarvex {

// As the records' Load. What could not be read is noted in `loaded`.
int LoadRecord(CUserSetting& setting, const CString& directory, CLoaded& loaded);
int LoadRecord(CPopProfileSetting& setting, const CString& directory, CLoaded& loaded);
int LoadRecord(CForwardAddressSetting& setting, const CString& directory, CLoaded& loaded);

// As CScheduleSetting::Load: 1 when the file was read, else 0.
int LoadSchedule(CScheduleSetting& schedule, const CString& directory, CLoaded& loaded);

// As the records' assignment.
void AssignRecord(CPopProfileSetting& target, const CPopProfileSetting& source);
void AssignRecord(CForwardAddressSetting& target, const CForwardAddressSetting& source);

}  // namespace tarvex
