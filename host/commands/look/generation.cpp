// `tarvex generation`: the number that tells copies of a tree apart.

#include "host/generation/generation.h"

#include <CLI/CLI.hpp>
#include <iostream>

#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {

void AddGenerationCommand(CLI::App& app, Context& context) {
    CLI::App* const generation =
        app.add_subcommand("generation", Tr("Print how often a service was started on the tree."));
    generation->footer(Tr(
        "The number is raised at each start of `tarvex serve`, so that it tells an old copy of a tree from the tree "
        "that went on: see --expect-generation of serve, run and accept. Runs without a service leave it as it is."));
    generation->callback([&context] {
        context.command = [&context] {
            const std::string directory = RootDirectory(context.root_option);
            RequireRoot(directory);
            std::cout << GenerationOf(directory) << '\n';
            return kDone;
        };
    });
}

}  // namespace tarvex::host
