#pragma once

// Advice to the user about a server that cannot be used.

#include <string>

#include "host/advice/field_names.h"
#include "host/settings/host_setting.h"
#include "tarvex/probe.h"
#include "tarvex/settings.h"

namespace tarvex::host {

enum class Protocol { Pop, Smtp };

// The server's name that a run uses.
const CString& ServerOf(const CPopProfileSetting& setting, Protocol protocol);

// The name of a step in the reader's language: "find the server".
std::string ShowStep(int kind);

// Why a run goes without a login, and what to do, for a greeting (an answer to EHLO, or to HELO) after which the server
// was not asked to authenticate though smtpauth is on.
std::string AdviceOnMissingLogin(const CString& hello_reply, const CPopProfileSetting& setting,
                                 Reader reader = Reader::Terminal);

// One or two sentences about a step that failed, in plain English, fit to be shown.
// `rules`: those of the profile, for encryption and tokens.
std::string Advice(const CProbeStep& step, Protocol protocol, const CPopProfileSetting& setting,
                   const HostRules& rules = {}, Reader reader = Reader::Terminal);

}  // namespace tarvex::host
