#pragma once

// Loads and assigns the objects of the tree and their records. These do the work of the operations of the same kind on
// the front door, but throw std::bad_alloc and then leave the target as it was: what holds its defaults only because it
// could not be loaded must never be saved over its own files.

#include "tarvex/loaded.h"
#include "tarvex/schedule.h"
#include "tarvex/settings.h"
#include "tarvex/tree.h"

namespace tarvex {

// As SetPath.
void Open(CForwardAddress& address, const CString& path);
void Open(CPopProfile& profile, const CString& path);
void Open(CUser& user, const CString& path);

// As the objects' assignment.
void Assign(CForwardAddress& target, const CForwardAddress& source);
void Assign(CPopProfile& target, const CPopProfile& source);

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
