#pragma once

// Edits of the tree as a whole: a person decides that an old copy is to be run.

#include <cstdint>
#include <optional>

#include "host/edit/edit.h"
#include "host/generation/generation.h"

namespace tarvex::host {

// `expected`: the generation that the tree should have, when the person knows it; else the service must.
EditRequest AcceptanceOfTree(EditVerb verb, std::optional<std::int64_t> expected);

// As Edit, for kind Tree.
int EditTree(TreeAge& age, const EditRequest& request, Reply& reply);

}  // namespace tarvex::host
