#include "host/choice.h"

#include <algorithm>

namespace tarvex::host {

std::vector<NamedProfile> ChosenProfiles(const CRootPath& root, const std::vector<std::string>& names) {
    if (names.empty()) return AllProfiles(root);
    std::vector<NamedProfile> chosen;
    for (const std::string& name : names) {
        const NamedProfile found = FindProfile(root, name);
        const bool known = std::ranges::any_of(
            chosen, [&found](const NamedProfile& earlier) { return earlier.profile == found.profile; });
        if (!known) chosen.push_back(found);
    }
    return chosen;
}

}  // namespace tarvex::host
