// The locale of the system: there is none besides what the environment says.

#include "host/language/language.h"

namespace tarvex::host {

std::string SystemLocale() { return {}; }

}  // namespace tarvex::host
