#pragma once

// A file that is written piece by piece and takes its name once it is whole.

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace tarvex::host {

enum class FileReaders { OwnerAlone, Everybody };

class FileInMaking {
public:
    // Makes a file beside that path (of the tree's form), which may name a plain file or nothing. Throws CommandError,
    // as do the other operations.
    explicit FileInMaking(const std::string& path, FileReaders readers = FileReaders::OwnerAlone);
    ~FileInMaking();  // removes what was not kept
    FileInMaking(const FileInMaking&) = delete;
    FileInMaking& operator=(const FileInMaking&) = delete;

    void Write(std::string_view bytes);

    // Whole, and on disk: from now on it has its name. What had the name before is gone.
    void Keep();

private:
    static constexpr std::intptr_t kNoFile = -1;

    std::filesystem::path file_;
    std::filesystem::path fresh_;
    std::intptr_t opened_ = kNoFile;  // a descriptor or handle of the system
};

}  // namespace tarvex::host
