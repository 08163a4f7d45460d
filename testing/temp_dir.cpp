// The temporary folder, and whole files in one call.

#include "testing/temp_dir.h"

#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <system_error>

namespace tarvex::testing {

namespace fs = std::filesystem;

namespace {

std::string RandomName() {
    static constexpr char kDigits[] = "0123456789abcdefghijklmnopqrstuv";
    std::random_device random;
    std::string name = "tarvex-";
    for (int i = 0; i < 16; ++i) name += kDigits[random() % 32];
    return name;
}

// A test may have taken away permissions without which an ordinary user cannot delete what is inside.
void AllowDeletion(const fs::path& directory) {
    std::error_code error;
    fs::permissions(directory, fs::perms::owner_all, fs::perm_options::add, error);
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        if (entry->symlink_status(error).type() == fs::file_type::directory) AllowDeletion(entry->path());
    }
}

}  // namespace

TempDir::TempDir(const fs::path& parent) {
    for (int attempt = 0; attempt < 100; ++attempt) {
        path_ = parent / RandomName();
        if (!fs::create_directory(path_)) continue;
        constexpr fs::perms kOthersMayWrite = fs::perms::group_write | fs::perms::others_write;
        fs::permissions(path_, kOthersMayWrite, fs::perm_options::remove);  // which no tree is allowed
        return;
    }
    throw std::runtime_error("no temporary folder can be made");
}

TempDir::~TempDir() {
    std::error_code error;
    fs::remove_all(path_, error);
    if (!error) return;
    AllowDeletion(path_);
    fs::remove_all(path_, error);
}

std::string ReadFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WriteFile(const fs::path& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    file.close();
    if (!file) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace tarvex::testing
