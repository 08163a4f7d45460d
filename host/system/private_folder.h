#pragma once

// A folder that holds what must not be lost: whole files, for their owner alone. Whoever can write in the folder beside
// the owner cannot lead a reader elsewhere or keep it waiting: no link is followed, and nothing is opened but plain
// files.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::host {

class PrivateFolder {
public:
    struct Entry {
        std::string name;
        bool is_file = false;    // a plain one: no link, no folder, no pipe
        std::int64_t bytes = 0;  // of a file
    };

    explicit PrivateFolder(std::string path) : path_(std::move(path)) {}  // of the tree

    // Makes the folder unless it is there, in a parent that must be there. True when it would survive a power failure.
    [[nodiscard]] bool Make() const;

    // None when the folder is missing; nothing when it cannot be read.
    std::optional<std::vector<Entry>> Entries() const;

    // The bytes of a plain file. Nothing when it cannot be read; then `missing` says whether that is because there is
    // nothing by this name. Of a longer one than `most_bytes` only the beginning.
    std::optional<std::string> Read(const std::string& name, bool& missing,
                                    std::size_t most_bytes = std::string::npos) const;

    // A file whose name is free, for its owner alone and synced. When it fails, there is no such file.
    [[nodiscard]] bool WriteNew(const std::string& name, std::string_view bytes) const;

    // True also when there is nothing by this name. This and Rename survive a power failure after Sync.
    [[nodiscard]] bool Remove(const std::string& name) const;
    [[nodiscard]] bool Rename(const std::string& from, const std::string& to) const;  // in the place of what is there

    [[nodiscard]] bool Sync() const;

private:
    std::string path_;
};

}  // namespace tarvex::host
