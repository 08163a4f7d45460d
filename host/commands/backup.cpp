// `tarvex backup` and `restore`: a tree with all that it knows, as one file.

#include "host/backup/backup.h"

#include <CLI/CLI.hpp>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/file_in_making.h"
#include "host/system/paths.h"
#include "host/system/process.h"
#include "host/system/tree_owner.h"
#include "host/terminal/wording.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

constexpr const char* kStandardStream = "-";

void Print(std::string_view bytes) {
    if (!std::cout.write(bytes.data(), static_cast<std::streamsize>(bytes.size()))) {
        throw CommandError(kCannotWrite, Tr("cannot write to standard output"));
    }
}

// A superuser may write where the owner of the tree may not, and must not read the tree but as that owner: a database
// would get files that its owner cannot use.
int BackUpTree(const Context& context, const std::string& file) {
    const std::string directory = RootDirectory(context.root_option);
    const bool to_output = file == kStandardStream;
    if (to_output) PassBytesToOutput();
    std::optional<FileInMaking> made;
    if (!to_output) made.emplace(TreePath(file));
    ArchiveWriter archive([&](std::string_view bytes) { to_output ? Print(bytes) : made->Write(bytes); },
                          std::time(nullptr));
    BackedUp what;
    {
        const AsOwnerOf owner(directory);
        CRootPath root;
        OpenTree(root, directory);
        what = BackUp(root, archive);
    }
    for (const std::string& name : what.left_out)
        PrintNote(Tr("not in the backup, since it is no part of a tree: {0}", name));
    if (to_output) return kDone;
    made->Keep();
    const std::string size = TrN("{0} file, {1}", "{0} files, {1}", static_cast<std::int64_t>(archive.Files()),
                                 ShowBytes(static_cast<std::int64_t>(archive.Bytes())));
    std::cout << TrN("Saved {0} profile of {1} in {2} ({3}).", "Saved {0} profiles of {1} in {2} ({3}).",
                     static_cast<std::int64_t>(what.profiles), ShowPath(directory), ShowUtf8Text(file), size)
              << ' ' << Tr("It holds the passwords: keep it where nobody else can read it.") << '\n';
    return kDone;
}

int RestoreTree(const Context& context, const std::string& file, const std::string& given) {
    if (context.root_option && !given.empty()) throw CommandError(kBadUsage, Tr("give either --root or a directory"));
    const std::string directory = WholePath(given.empty() ? RootDirectory(context.root_option) : TreePath(given));
    std::uint64_t files = 0;
    if (file == kStandardStream) {
        PassBytesFromInput();
        files = Restore(std::cin, directory);
    } else {
        const auto cannot_read = [&](const std::string& why) {
            return CommandError(kNotFound, Tr("cannot read \"{0}\": {1}", ShowUtf8Text(file), why));
        };
        const std::filesystem::path path = NativePath(TreePath(file));
        std::error_code error;
        if (std::filesystem::is_directory(path, error)) throw cannot_read(Tr("it is a directory"));
        std::ifstream input(path, std::ios::binary);
        if (!input) throw cannot_read(std::generic_category().message(errno));
        files = Restore(input, directory);
    }
    std::cout << TrN("Restored {0} file to {1}.", "Restored {0} files to {1}.", static_cast<std::int64_t>(files),
                     ShowPath(directory))
              << '\n'
              << Tr("What was handled after the backup was made, and is still on the server, is sent again by the next "
                    "run: `tarvex plan` names it, and `tarvex forward catch-up` lets an address skip it.")
              << '\n';
    return kDone;
}

}  // namespace

void AddBackupCommands(CLI::App& app, Context& context) {
    auto file = std::make_shared<std::string>();
    auto directory = std::make_shared<std::string>();
    CLI::App* const backup = app.add_subcommand(
        "backup", Tr("Save the tree, with all that it knows, in one file, while a service or runs go on."));
    backup
        ->add_option("FILE", *file,
                     Tr("A tar archive, for its owner alone since it holds passwords; - for standard output"))
        ->required()
        ->option_text(" ");
    backup->callback([&context, file] { context.command = [&context, file] { return BackUpTree(context, *file); }; });

    CLI::App* const restore = app.add_subcommand("restore", Tr("Make the tree of a backup, where there is none."));
    restore->add_option("FILE", *file, Tr("What `tarvex backup` has made; - for standard input"))
        ->required()
        ->option_text(" ");
    restore
        ->add_option("ROOT", *directory,
                     Tr("Where: a directory that is empty, or missing. Without it the root of this command"))
        ->option_text(" ");
    restore->callback([&context, file, directory] {
        context.command = [&context, file, directory] { return RestoreTree(context, *file, *directory); };
    });
}

}  // namespace tarvex::host
