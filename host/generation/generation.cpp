// Reads and raises the number of a tree, and compares it with what somebody knows of the tree.

#include "host/generation/generation.h"

#include <algorithm>
#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/private_folder.h"

namespace tarvex::host {
namespace {

constexpr const char* kFolder = "\\.tarvex";
constexpr const char* kFile = "generation";
constexpr const char* kFileInMaking = "generation.new";
constexpr std::int64_t kMostBytes = 32;  // of the file

CommandError CannotRead(const std::string& root, const std::string& why) {
    return {kCannotWrite,
            Tr("cannot read the generation of the tree in \"{0}\": {1}", ShowPath(root + kFolder + '\\' + kFile), why)};
}

std::optional<std::int64_t> NumberIn(std::string_view text) {
    if (text.ends_with('\n')) text.remove_suffix(1);
    std::int64_t number = -1;
    const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool is_number = error == std::errc() && rest == text.data() + text.size();
    return is_number && number >= 0 && number <= kHighestGeneration ? std::optional(number) : std::nullopt;
}

// False when it may not survive a power failure, or is not there at all.
bool Save(const std::string& root, std::int64_t generation) {
    const PrivateFolder folder(root + kFolder);
    return folder.Make() && folder.Remove(kFileInMaking) &&
           folder.WriteNew(kFileInMaking, std::to_string(generation) + '\n') && folder.Rename(kFileInMaking, kFile) &&
           folder.Sync();
}

}  // namespace

std::int64_t GenerationOf(const std::string& root) {
    const PrivateFolder folder(root + kFolder);
    const auto entries = folder.Entries();
    if (!entries) throw CannotRead(root, Tr("the folder cannot be read"));
    const auto entry = std::ranges::find(*entries, kFile, &PrivateFolder::Entry::name);
    if (entry == entries->end()) return 0;
    if (!entry->is_file) throw CannotRead(root, Tr("it is no regular file"));
    bool missing = false;
    const auto text = entry->bytes > kMostBytes ? std::string() : folder.Read(kFile, missing);
    if (!text) throw CannotRead(root, Tr("the file cannot be read"));
    const auto number = NumberIn(*text);
    if (!number) throw CannotRead(root, Tr("it holds no number from 0 to {0}", kHighestGeneration));
    return *number;
}

std::optional<std::int64_t> ReadableGeneration(const std::string& root) {
    try {
        return GenerationOf(root);
    } catch (const CommandError&) {
        return std::nullopt;
    }
}

void RequireOldCopy(const std::string& root, std::optional<std::int64_t> expected) {
    if (!expected) {
        throw CommandError(kNotFound, Tr("nothing says that the tree is an old copy; --expect-generation N says which "
                                         "generation it should have"));
    }
    const auto generation = ReadableGeneration(root);
    if (generation && *generation >= *expected) {
        throw CommandError(kNotFound, Tr("the tree is no old copy: its generation is {0}, and should be {1} at least",
                                         *generation, *expected));
    }
}

std::string WhyHeldBack(const OldCopy& old) {
    if (!old.generation) {
        return Tr(
            "the generation of the tree cannot be read, and should be {0}; nothing is run before `tarvex accept "
            "--send` or `--skip`",
            old.expected);
    }
    return Tr(
        "the tree is an old copy: its generation is {0}, and should be {1}; nothing is run before `tarvex accept "
        "--send` or `--skip`",
        *old.generation, old.expected);
}

TreeAge::TreeAge(std::string root, std::optional<std::int64_t> expected) : root_(std::move(root)), expected_(expected) {
    if (!expected) return;
    const auto generation = ReadableGeneration(root_);
    if (!generation || *generation < *expected) old_ = {generation, *expected};
}

std::optional<std::int64_t> TreeAge::Next() const {
    const auto generation = ReadableGeneration(root_);
    return generation && *generation < kHighestGeneration ? std::optional(*generation + 1) : std::nullopt;
}

void TreeAge::Raise(const Tell& tell) {
    if (is_raised_ || old_) return;
    const auto next = Next();
    is_raised_ = next && Save(root_, *next);
    if (std::exchange(has_failed_, !is_raised_) == !is_raised_) return;
    tell(is_raised_ ? "the generation of the tree is raised again"
                    : "the generation of the tree cannot be raised (see `tarvex generation`, and whether the disk is "
                      "full): a copy that was made before may not be known as an old one; mail is forwarded all the "
                      "same");
}

std::int64_t TreeAge::Accept(std::optional<std::int64_t> expected) {
    const std::optional<std::int64_t> higher = std::max(expected, expected_);  // nothing is less than any number
    RequireOldCopy(root_, higher);
    if (!Save(root_, *higher + 1)) throw CommandError(kCannotWrite, Tr("the generation of the tree cannot be saved"));
    old_.reset();
    is_raised_ = true;
    return *higher + 1;
}

}  // namespace tarvex::host
