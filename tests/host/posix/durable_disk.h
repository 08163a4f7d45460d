#pragma once

// A disk as a power failure leaves it.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "host/system/posix/descriptor.h"
#include "testing/temp_dir.h"

namespace tarvex::testing {

// What a power failure leaves of a directory in the worst case: of each file the content of its last sync, of each
// directory the entries of its last sync. What was there at the start counts as synced.
class DurableDisk {
public:
    explicit DurableDisk(const std::filesystem::path& root) : root_(Number(root)) {
        Keep(root);
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) Keep(entry.path());
    }

    void Synced(int descriptor) { Keep("/proc/self/fd/" + std::to_string(descriptor)); }

    void RestoreTo(const std::filesystem::path& target) const { Restore(root_, target); }

private:
    struct Entry {
        ino_t number;
        bool is_directory;
    };

    static ino_t Number(const std::filesystem::path& path) {
        struct stat status {};
        EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
        return status.st_ino;
    }

    void Keep(const std::filesystem::path& path) {
        held_.emplace_back(open(path.c_str(), O_RDONLY | O_CLOEXEC));  // so that its number is not used again
        const ino_t number = Number(path);
        if (!std::filesystem::is_directory(path)) {
            files_[number] = ReadFile(path);
            return;
        }
        auto& entries = directories_[number];
        entries.clear();
        for (const auto& entry : std::filesystem::directory_iterator(path)) {
            entries[entry.path().filename()] = {Number(entry.path()), entry.is_directory()};
        }
    }

    void Restore(ino_t number, const std::filesystem::path& target) const {
        const auto directory = directories_.find(number);
        if (directory == directories_.end()) return;
        for (const auto& [name, entry] : directory->second) {
            if (entry.is_directory) {
                std::filesystem::create_directory(target / name);
                Restore(entry.number, target / name);
            } else {
                const auto file = files_.find(entry.number);
                WriteFile(target / name, file == files_.end() ? "" : file->second);
            }
        }
    }

    ino_t root_;
    std::vector<host::Descriptor> held_;
    std::map<ino_t, std::string> files_;
    std::map<ino_t, std::map<std::string, Entry>> directories_;
};

}  // namespace tarvex::testing
