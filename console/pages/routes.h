#pragma once

// All pages and changes there are.

#include <span>

#include "console/http/router.h"

namespace tarvex::console {

// The one list of them. A path with a place stands behind those that have a word there.
std::span<const Route> Routes();

}  // namespace tarvex::console
