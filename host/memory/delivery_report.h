#pragma once

// Reports that mail servers send about mail that they could not deliver.

#include <optional>
#include <span>

#include "host/memory/mail_header.h"
#include "tarvex/text.h"

namespace tarvex::host {

// The one of these addresses that the message is a delivery report about (RFC 3464, or an automatic answer with a null
// return path that names the address); nothing when it is none.
std::optional<CString> ReportedAddress(const SplitMail& mail, std::span<const CString> addresses);

}  // namespace tarvex::host
