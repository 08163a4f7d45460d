#pragma once

// A folder that lives as long as the object.

#include <filesystem>
#include <string>

namespace tarvex::testing {

class TempDir {
public:
    explicit TempDir(const std::filesystem::path& parent = std::filesystem::temp_directory_path());
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& Path() const { return path_; }
    std::string String() const { return path_.string(); }
    std::string operator/(const std::string& name) const { return (path_ / name).string(); }

private:
    std::filesystem::path path_;
};

std::string ReadFile(const std::filesystem::path& path);                        // empty when it cannot be read
void WriteFile(const std::filesystem::path& path, const std::string& content);  // bytes as they are

}  // namespace tarvex::testing
