#pragma once

// What receivers will make of a profile's mail, as far as the DNS tells.

#include <string>
#include <vector>

#include "host/receivers/published.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// Whether a run may send text mail: to one of the addresses that are switched on.
[[nodiscard]] bool MakesTextMail(const CPopProfile& profile);

// Sentences for people, in UTF-8; none when there is nothing to mind. `published`: of the domain of the profile's
// address. `name`: what the profile is called.
[[nodiscard]] std::vector<std::string> NotesOnReceivers(const CPopProfile& profile, const Published& published,
                                                        const std::string& name);

}  // namespace tarvex::host
