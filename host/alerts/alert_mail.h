#pragma once

// An alert as a mail.

#include <string>

#include "host/alerts/alert_text.h"
#include "host/language/language.h"

namespace tarvex::host {

// In the form in which a message comes from POP3. `from` and `to` are plain addresses. Japanese goes as ISO-2022-JP,
// in which "?" stands for what it does not have; other text beyond ASCII as UTF-8 in Base64.
std::string AlertMail(const AlertText& text, Language language, const std::string& from, const std::string& to,
                      CTime now);

}  // namespace tarvex::host
