// Reads files whole.

#include "host/system/durable_files.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"

namespace tarvex::host {

std::optional<std::string> ReadWholeFile(const std::string& path) {
    const auto cannot_read = [&path](const std::string& why) {
        return CommandError(kCannotWrite, Tr("cannot read \"{0}\": {1}", ShowPath(path), why));
    };
    std::error_code error;
    const std::filesystem::file_type type = std::filesystem::status(NativePath(path), error).type();
    // A link that leads nowhere is something that is there.
    if (type == std::filesystem::file_type::not_found && !std::filesystem::is_symlink(NativePath(path), error)) {
        return std::nullopt;
    }
    if (error) throw cannot_read(error.message());
    if (type != std::filesystem::file_type::regular) throw cannot_read(Tr("it is no regular file"));
    std::ifstream file(NativePath(path), std::ios::binary);
    if (!file) throw cannot_read(std::generic_category().message(errno));
    std::string content{std::istreambuf_iterator<char>(file), {}};
    if (file.bad()) throw cannot_read(std::generic_category().message(errno));
    return content;
}

}  // namespace tarvex::host
