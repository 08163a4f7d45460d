#pragma once

// The generation of a tree: the number in ROOT/.tarvex/generation, which a service raises when it starts. It tells
// copies of one tree apart: a copy that was left behind, or that came out of a backup, has a lower number than the tree
// that went on.

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace tarvex::host {

// A higher one is no generation: no tree is started so often.
inline constexpr std::int64_t kHighestGeneration = 1'000'000'000'000;

// 0 for a tree that no service has run yet. Throws CommandError (kCannotWrite) when the file holds no such number or
// cannot be read.
std::int64_t GenerationOf(const std::string& root);

// The same; nothing when it cannot be read.
std::optional<std::int64_t> ReadableGeneration(const std::string& root);

// Why a tree must not be run as it is.
struct OldCopy {
    std::optional<std::int64_t> generation;  // of the tree; nothing when it cannot be read
    std::int64_t expected = 0;               // the tree is known to have had this one
};

// Throws CommandError (kNotFound) when the tree has the expected generation, or when nobody expects one.
void RequireOldCopy(const std::string& root, std::optional<std::int64_t> expected);

// One sentence without a full stop, in the reader's language.
std::string WhyHeldBack(const OldCopy& old);

// The generation of one tree, for the process that holds its lock.
class TreeAge {
public:
    using Tell = std::function<void(const std::string& sentence)>;

    // `expected`: the generation that the tree has had at least; nothing when nobody knows.
    TreeAge(std::string root, std::optional<std::int64_t> expected);

    // Nothing is to be run while there is one.
    const std::optional<OldCopy>& Old() const { return old_; }

    // Raises the number, unless this process has done so or the tree is an old copy. `tell` hears once that it cannot
    // be raised, and once that it was raised after all. Runs do not wait for it: a number that stays too low costs
    // copies of mail at worst.
    void Raise(const Tell& tell);

    // A person decides that the tree is to be run: raises the number above the expected one, which is the higher of
    // what is given here and to the constructor. Returns the number. Throws CommandError when the tree is no old copy
    // (kNotFound), and when the number cannot be saved (kCannotWrite).
    std::int64_t Accept(std::optional<std::int64_t> expected);

private:
    std::optional<std::int64_t> Next() const;  // nothing when there is none

    const std::string root_;
    const std::optional<std::int64_t> expected_;
    std::optional<OldCopy> old_;
    bool is_raised_ = false;
    bool has_failed_ = false;
};

}  // namespace tarvex::host
