#pragma once

// What the log says of runs and edits beside the words.

#include <string>

#include "host/edit/edit.h"
#include "host/history/tables/edit_tables.h"
#include "host/service/log/service_log.h"
#include "tarvex/result.h"

namespace tarvex::host {

// Runs that did nothing are for who looks closely.
LogLevel LevelOf(const CRunResult& result);

// `profile`: its path.
LogFacts FactsOf(const std::string& profile, const CRunResult& result);

LogFacts FactsOf(const EditRequest& request, const EditedBy& by);

// "root", "root for taro"
std::string NameOf(const EditedBy& by);

// ": timer, status by root", behind the name of the edit: what it set, never to what, and who wanted it.
std::string WhatWasSetAndByWhom(const LogFacts& facts);

}  // namespace tarvex::host
