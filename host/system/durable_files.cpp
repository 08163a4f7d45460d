// Reads files whole.

#include "host/system/durable_files.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/error_words.h"
#include "host/system/paths.h"

namespace tarvex::host {

namespace fs = std::filesystem;

std::optional<std::string> ReadWholeFile(const std::string& path) {
    const auto cannot_read = [&path](const std::string& why) {
        return CommandError(kCannotWrite, Tr("cannot read \"{0}\": {1}", ShowPath(path), why));
    };
    const fs::path file_path = NativePath(path);
    std::error_code error;
    fs::file_type type = fs::symlink_status(file_path, error).type();
    if (type == fs::file_type::not_found) return std::nullopt;
    if (type == fs::file_type::symlink) {
        type = fs::status(file_path, error).type();
        // A link that leads nowhere is something that is there.
        if (type == fs::file_type::not_found) error.clear();
    }
    if (error) throw cannot_read(WordsOf(error));
    if (type != fs::file_type::regular) throw cannot_read(Tr("it is no regular file"));
    std::ifstream file(file_path, std::ios::binary);
    if (!file) throw cannot_read(std::generic_category().message(errno));
    std::string content;
    std::array<char, 1 << 12> piece;
    while (file.read(piece.data(), piece.size()) || file.gcount() > 0)
        content.append(piece.data(), static_cast<std::size_t>(file.gcount()));
    if (file.bad()) throw cannot_read(std::generic_category().message(errno));
    return content;
}

}  // namespace tarvex::host
