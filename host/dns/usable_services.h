#pragma once

// What both systems do with the services that they found.

#include "host/dns/lookup.h"

namespace tarvex::host {

// As LookUpServices returns them.
[[nodiscard]] ServiceAnswer UsableServices(std::vector<ServiceRecord> records);

}  // namespace tarvex::host
