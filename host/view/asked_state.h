#pragma once

// How every profile is doing, with what the service that owns the tree says.

#include <chrono>
#include <string>
#include <vector>

#include "host/state/profile_state.h"

namespace tarvex::host {

// Whether a service owns the tree, and whether it answers.
enum class ServiceState { None, Answers, Silent };

struct AskedState : TreeState {
    ServiceState service = ServiceState::None;
    std::string held_back{};  // why the service runs nothing; every profile that it would run has this as its trouble
};

// Of these profiles of a loaded tree. Waits for the service no longer than `patience`. Throws CommandError for a name
// that there is not.
AskedState AskForState(const CRootPath& root, const std::vector<std::string>& names, const std::string& directory,
                       std::chrono::milliseconds patience = std::chrono::seconds(2));

// The same of profiles that have been chosen: none for none.
AskedState AskForState(const CRootPath& root, const std::vector<NamedProfile>& profiles, const std::string& directory,
                       std::chrono::milliseconds patience = std::chrono::seconds(2));

}  // namespace tarvex::host
