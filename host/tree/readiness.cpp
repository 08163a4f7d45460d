// What loading the tree said of each profile, and what the system says of the files that a run will read and write.

#include "host/tree/readiness.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "host/language/tr.h"
#include "host/settings/file_names.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/error_words.h"
#include "host/system/paths.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

// For what a run adds to a file: a list grows by the ids of the mailbox's new messages.
constexpr std::uintmax_t kGrowthBytes = 1 << 20;

std::string CannotRead(const CString& path, const std::string& why) {
    return Tr("cannot read \"{0}\": {1}", ShowPath(path), why);
}

std::string CannotWrite(const CString& path, const std::string& why) {
    return Tr("cannot write \"{0}\": {1}", ShowPath(path), why);
}

// Why the system refused the last call.
std::string Refusal() { return std::generic_category().message(errno); }

// Reads it to its end: that it can be opened does not say that the disk gives it back.
std::string WhyListUnreadable(const CString& path) {
    std::error_code error;
    const fs::file_type type = fs::status(NativePath(path), error).type();
    if (type == fs::file_type::not_found) return {};
    if (error) return CannotRead(path, WordsOf(error));
    if (type != fs::file_type::regular) return CannotRead(path, Tr("it is no regular file"));
    std::ifstream file(NativePath(path), std::ios::binary);
    if (!file) return CannotRead(path, Refusal());
    std::array<char, 1 << 14> piece;
    while (file.read(piece.data(), piece.size())) {
    }
    return file.bad() ? CannotRead(path, Refusal()) : std::string();
}

// Room is taken where a save writes first: a kill leaves nothing that is ever read or stays.
std::string WhyFileUnwritable(const CString& path) {
    std::error_code error;
    fs::path file = fs::weakly_canonical(NativePath(path), error);
    std::uintmax_t bytes = kGrowthBytes;
    if (fs::exists(file, error)) {
        if (!std::fstream(file, std::ios::in | std::ios::out | std::ios::binary)) {
            return CannotWrite(path, Refusal());
        }
        bytes += fs::file_size(file, error);
    }
    file += ".new";
    error = ReserveRoom(file, bytes);
    return error ? CannotWrite(path, WordsOf(error)) : std::string();
}

std::string WhyRulesUnknown(const CPopProfile& profile) {
    try {
        static_cast<void>(RulesOf(profile));
        return {};
    } catch (const CommandError& error) {
        return error.what();
    }
}

}  // namespace

std::string WhyNotLoaded(const CLoaded& loaded) {
    if (loaded.whole) return {};
    if (loaded.path.empty()) return Tr("not enough memory to load it");
    return CannotRead(loaded.path, ShowUtf8Text(Tr(loaded.reason.c_str())));
}

std::string WhyNotLoaded(const CPopProfile& profile) {
    std::string why = WhyNotLoaded(profile.setting_loaded);
    if (why.empty()) why = WhyNotLoaded(profile.addresses_loaded);
    for (const auto& address : profile.forward_addresses) {
        if (why.empty()) why = WhyNotLoaded(address->setting_loaded);
        if (why.empty()) why = WhyNotLoaded(address->schedule_loaded);
    }
    return why;
}

void LoadAgain(CPopProfile& profile) {
    profile.SetPath(CString(profile.path));
    if (profile.LoadSetting() == 0 && profile.setting_loaded.whole) {
        profile.setting_loaded = {false, FileIn(profile.path, kProfileFile), Marked("it is missing")};
    }
    ApplyRules(profile);
}

void LoadAgain(CUser& user) {
    user.LoadSetting();
    ApplyRules(user);
}

std::string WhyUnreadable(const CPopProfile& profile) {
    std::string why = WhyNotLoaded(profile);
    if (why.empty()) why = WhyRulesUnknown(profile);
    for (const auto& address : profile.forward_addresses) {
        if (why.empty()) why = WhyListUnreadable(FileIn(address->path, kListFile));
    }
    return why;
}

std::string WhyNotRunnable(const CPopProfile& profile) {
    std::string why = WhyUnreadable(profile);
    if (why.empty()) why = WhyFileUnwritable(FileIn(profile.path, kProfileFile));
    for (const auto& address : profile.forward_addresses) {
        if (why.empty()) why = WhyFileUnwritable(FileIn(address->path, kListFile));
    }
    return why;
}

std::vector<std::string> WhatIsNotListed(const CRootPath& root) {
    std::vector<std::string> sentences;
    const auto add = [&sentences](const CLoaded& loaded) {
        if (!loaded.whole) sentences.push_back(WhyNotLoaded(loaded));
    };
    add(root.users_loaded);
    for (const auto& user : root.users) add(user->profiles_loaded);
    return sentences;
}

}  // namespace tarvex::host
