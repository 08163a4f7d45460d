// What somebody knows of the age of a tree.

#include "host/commands/arguments/expected_generation.h"

#include "host/commands/arguments/usage.h"
#include "host/generation/generation.h"
#include "host/language/tr.h"

namespace tarvex::host {

ExpectedGeneration::ExpectedGeneration(CLI::App& command)
    : option_(command
                  .add_option("--expect-generation", number_,
                              Tr("The generation that the tree should have at least; an older copy is not run"))
                  ->type_name("N")
                  ->check(WholeNumber(0, kHighestGeneration - 1))) {}

std::optional<std::int64_t> ExpectedGeneration::Number() const {
    return option_->count() > 0 ? std::optional(number_) : std::nullopt;
}

}  // namespace tarvex::host
