#pragma once

// The file of a backup: a tar archive (POSIX ustar) of plain files, which `tar` lists and unpacks. Its first entry says
// what it is; its last one holds the SHA-256 of every byte before it, so that an archive that was cut short or damaged
// is known as such. It is no signature: who can write the file can write another sum.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <istream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tarvex/text.h"

struct evp_md_ctx_st;

namespace tarvex::host {

// The largest file that an archive takes.
inline constexpr std::uint64_t kMostEntryBytes = (std::uint64_t{1} << 31) - 1;

// Whether a file of a tree may have that name below its root, parts divided by "/": what this program keeps there and
// what every system can name. What a backup leaves out has none.
bool IsNameOfTree(std::string_view name);

// Throws std::bad_alloc alone.
class Checksum {
public:
    Checksum();
    void Add(std::string_view bytes);
    std::string Hex() const;  // of what was added until now

private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> context_;
};

class ArchiveWriter {
public:
    // `write` gets the bytes of the archive, and throws when it cannot take them. `now` is the date of all entries.
    ArchiveWriter(std::function<void(std::string_view)> write, CTime now);

    // Throws CommandError (kBadData) for a name or size that does not fit.
    void Add(const std::string& name, std::string_view content);
    void Finish();

    std::uint64_t Files() const { return files_; }
    std::uint64_t Bytes() const { return bytes_; }  // of the archive up to now

private:
    void AddAny(const std::string& name, std::string_view content);
    void Put(std::string_view bytes);

    const std::function<void(std::string_view)> write_;
    const CTime now_;
    Checksum checksum_;
    std::uint64_t files_ = 0;
    std::uint64_t bytes_ = 0;
};

struct ArchiveEntry {
    std::string name;  // one that IsNameOfTree
    std::string content;
};

// Reads what an ArchiveWriter has written, and refuses everything else with CommandError (kBadData): links, devices,
// names that lead elsewhere, sizes that are not true. Whoever acts on an entry must undo that when a later one is bad.
class ArchiveReader {
public:
    explicit ArchiveReader(std::istream& input);

    // Nothing at the end, when the whole archive is as it was written.
    std::optional<ArchiveEntry> Next();

private:
    std::string ReadHeader();
    ArchiveEntry ReadEntry(const std::string& header);
    std::string Read(std::size_t bytes);
    void RequireEnd();

    std::istream& input_;
    Checksum checksum_;
};

}  // namespace tarvex::host
