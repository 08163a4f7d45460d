// A line of the journal, with its parts between tabs:
//
//     <digest> 1795312345 user0/from0 <directory> taro@example.org .
//
// It begins with a line end, so that it stands apart from one that could not be written whole, and ends with a dot, so
// that one cut short is known.

#include "host/memory/copy_journal.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string_view>
#include <system_error>

#include "host/system/paths.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kParts = 6;

std::string LineOf(const SentCopy& copy) {
    return '\n' + copy.digest.Hex() + '\t' + std::to_string(copy.sent) + '\t' + copy.profile.path + '\t' +
           copy.profile.directory + '\t' + copy.address + "\t.\n";
}

bool FitsALine(const SentCopy& copy) {
    const auto fits = [](const std::string& part) {
        return std::ranges::none_of(part, [](char letter) { return letter == '\t' || letter == '\n'; });
    };
    return fits(copy.profile.path) && fits(copy.profile.directory) && fits(copy.address);
}

std::optional<SentCopy> CopyOf(std::string_view line) {
    std::array<std::string_view, kParts> parts;
    for (std::size_t i = 0; i < kParts; ++i) {
        const std::size_t tab = std::min(line.find('\t'), line.size());
        if ((tab == line.size()) != (i == kParts - 1)) return std::nullopt;
        parts[i] = line.substr(0, tab);
        line.remove_prefix(std::min(tab + 1, line.size()));
    }
    const auto digest = MailDigest::FromHex(parts[0]);
    CTime sent = 0;
    const auto [end, error] = std::from_chars(parts[1].data(), parts[1].data() + parts[1].size(), sent);
    if (!digest || error != std::errc() || parts[5] != ".") return std::nullopt;
    return SentCopy{{std::string(parts[2]), std::string(parts[3])}, std::string(parts[4]), *digest, sent};
}

}  // namespace

CopyJournal::CopyJournal(const std::string& root) : folder_(root + "\\.tarvex"), path_(folder_ + "\\sent.recent") {}

std::vector<SentCopy> CopyJournal::Read() {
    std::vector<SentCopy> copies;
    std::error_code error;
    if (!fs::is_regular_file(NativePath(path_), error)) return copies;
    std::ifstream file(NativePath(path_), std::ios::binary);
    for (std::string line; std::getline(file, line);) {
        if (auto copy = CopyOf(line)) copies.push_back(*std::move(copy));
    }
    return copies;
}

bool CopyJournal::Add(std::span<const SentCopy> copies) {
    std::string lines;
    for (const SentCopy& copy : copies) {
        if (!FitsALine(copy)) return false;
        lines += LineOf(copy);
    }
    return Write(lines);
}

bool CopyJournal::Touch() { return Write("\n"); }

bool CopyJournal::Write(std::string_view lines) {
    if (!file_.is_open() && !Open(std::ios::app)) return false;
    is_empty_ = false;
    if (file_.write(lines.data(), static_cast<std::streamsize>(lines.size()))) return true;
    file_.close();
    return false;
}

void CopyJournal::Empty() {
    if (is_empty_) return;
    file_.close();
    std::error_code error;
    is_empty_ = !fs::exists(NativePath(path_), error) || Open(std::ios::trunc);
}

// For its owner alone, and without a buffer.
bool CopyJournal::Open(std::ios::openmode mode) {
    const fs::path path = NativePath(path_);
    std::error_code error;
    const fs::file_type type = fs::status(path, error).type();
    if (type != fs::file_type::regular && type != fs::file_type::not_found) return false;
    if (MakeOwnDirectories(folder_)) return false;
    file_ = std::ofstream();
    file_.rdbuf()->pubsetbuf(nullptr, 0);
    file_.open(path, std::ios::binary | mode);
    if (!file_.is_open()) return false;
    if (type == fs::file_type::not_found) {
        fs::permissions(path, fs::perms::owner_read | fs::perms::owner_write, error);
    }
    return true;
}

}  // namespace tarvex::host
