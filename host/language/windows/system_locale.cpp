// The locale of the system: the language of its windows.

#include <windows.h>

#include "host/language/language.h"

namespace tarvex::host {

std::string SystemLocale() { return PRIMARYLANGID(GetUserDefaultUILanguage()) == LANG_JAPANESE ? "ja" : ""; }

}  // namespace tarvex::host
