// The command `tarvex`.

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>

#include "host/process.h"
#include "host/windows/commands.h"

int main(int argc, char** argv) {
    using namespace tarvex::host;

    ShowUtf8();
    CLI::App app("Tarvex fetches mail from POP3 mailboxes and forwards every new message over SMTP.", "tarvex");
    app.set_version_flag("--version", "tarvex " TARVEX_VERSION);
    app.require_subcommand(1);

    std::string root;
    bool quiet = false;
    CLI::App* const run = app.add_subcommand("run", "Run every profile that is due, once, and wait for the end.");
    run->add_option("--root", root, "Root directory of the data tree; created when it is missing")->required();
    run->add_flag("--quiet", quiet, "Do not print what the runs added to their logs");
    app.add_subcommand("demo", "Forward a small mailbox between two servers on this machine, and show it.");

    try {
        app.parse(argc, argv);
        const int code = run->parsed() ? RunOnce(root, quiet) : Demo();
        if (!std::cout.flush()) throw std::runtime_error("cannot write to standard output");
        return code;
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? kDone : kBadUsage;
    } catch (const std::exception& error) {
        std::cerr << "tarvex: " << error.what() << '\n';
        return kBroken;
    }
}
