// Finds whom alerts do not reach.

#include "host/alerts/untold.h"

#include <set>
#include <utility>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"

namespace tarvex::host {
namespace {

std::map<std::string, FailingAlert> Failing(const std::string& directory) {
    try {
        return FailingAlerts(directory);
    } catch (const DatabaseError&) {
        return {};
    }
}

}  // namespace

std::map<std::string, std::vector<UntoldReader>> UntoldReaders(const CRootPath& root, const std::string& directory) {
    std::map<std::string, std::vector<UntoldReader>> untold;
    const std::map<std::string, FailingAlert> failing = Failing(directory);
    if (failing.empty()) return untold;
    const auto add = [&](const std::string& name, const auto& rules_of) {
        try {
            for (Reader& reader : ReadersOf(rules_of().value_or(HostRules()))) {
                const auto alert = failing.find(reader.Key());
                if (alert != failing.end()) untold[name].push_back({std::move(reader), alert->second});
            }
        } catch (const CommandError&) {
            return;  // that the rules cannot be read is said elsewhere
        }
    };
    add("", [&] { return RulesOf(root.path); });
    for (const NamedProfile& named : AllProfiles(root))
        add(ShownName(root, named.profile->path), [&] { return RulesOf(*named.profile); });
    return untold;
}

std::vector<std::string> LinesOn(const std::map<std::string, std::vector<UntoldReader>>& untold) {
    std::vector<std::string> lines;
    std::set<std::string> seen;
    for (const auto& [name, readers] : untold) {
        for (const auto& [reader, alert] : readers) {
            if (!seen.insert(reader.Key()).second) continue;
            lines.push_back(Tr("The alert to {0} does not go out since {1}, it is tried again at {2}: {3}",
                               reader.Name(), ShowTime(alert.since), ShowTime(alert.next_try), alert.words));
        }
    }
    return lines;
}

}  // namespace tarvex::host
