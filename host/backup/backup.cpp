// Copies a tree while runs and edits go on. No lock is taken: the order of reading makes the copy one that loses no
// mail.
//
//     1  the lists of ids        what counts as handled
//     2  held mail               what was set aside before 1 is here, or has been sent since
//     3  sent.recent, databases  what was sent before 1 is remembered here, and more
//     4  settings
//     5  the marker files, of addresses, then profiles, then users
//
// A message that a list calls handled was sent, or set aside, before the list was saved. Read the other way round, an
// id could be in the list whose message had not been set aside yet when held/ was read: it would be lost.
//
// `tar` unpacks in the same order: what counts in a tree are the marker files, so a profile counts once its lists are
// there. Only an address that counted before its list was read is taken, and only while its folder is still the same
// one: another may have been made under the same name.

#include "host/backup/backup.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>
#include <system_error>

#include "host/generation/generation.h"
#include "host/history/database.h"
#include "host/language/tr.h"
#include "host/memory/list_notes.h"
#include "host/settings/file_names.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/durable_files.h"
#include "host/system/paths.h"
#include "host/system/private_folder.h"
#include "host/tree/readiness.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr auto kPatience = 5000ms;  // with another process that has a database
constexpr int kReads = 5;

CommandError CannotRead(const CString& path) { return {kCannotWrite, Tr("cannot read \"{0}\"", ShowPath(path))}; }

// A folder of the tree with its marker file.
struct Part {
    CString path;
    const char* marker;
    std::string identity;

    Part(const CString& folder, const char* its_marker)
        : path(folder), marker(its_marker), identity(DirectoryIdentity(folder)) {}

    // Also when the folder was removed meanwhile, or another one has its name.
    bool Counts() const {
        std::error_code error;
        return fs::exists(NativePath(FileIn(path, marker)), error) && DirectoryIdentity(path) == identity;
    }
};

class Copier {
public:
    Copier(const CRootPath& root, ArchiveWriter& archive) : root_(root), archive_(archive) {}

    BackedUp Copy() {
        RequireReadable();
        FindParts();
        for (const Part& forward : forwards_) AddFile(FileIn(forward.path, kListFile));
        for (const Part& profile : profiles_) AddHeld(profile);
        AddMemory();
        AddSettings();
        for (const auto* const parts : {&forwards_, &profiles_, &users_}) {
            for (const Part& part : *parts) AddMarker(part);
        }
        archive_.Finish();
        return {profiles_.size(), LeftOut()};
    }

private:
    void RequireReadable() const {
        const auto require = [](const std::string& why) {
            if (!why.empty()) throw CommandError(kCannotWrite, Tr("{0}; nothing was saved", why));
        };
        for (const std::string& why : WhatIsNotListed(root_)) require(why);
        for (const auto& user : root_.users) {
            require(WhyNotLoaded(user->setting_loaded));
            for (const auto& profile : user->profiles) require(WhyNotLoaded(*profile));
        }
    }

    static void Find(const CString& path, const char* marker, std::vector<Part>& parts) {
        Part part(path, marker);
        if (part.Counts()) parts.push_back(std::move(part));
    }

    void FindParts() {
        for (const auto& user : root_.users) {
            Find(user->path, kUserFile, users_);
            for (const auto& profile : user->profiles) {
                Find(profile->path, kProfileFile, profiles_);
                for (const auto& forward : profile->forward_addresses) Find(forward->path, kForwardFile, forwards_);
            }
        }
    }

    std::string NameOf(const CString& path) const {
        std::string name = PathAsUtf8(path.substr(root_.path.size() + 1));
        std::ranges::replace(name, '\\', '/');
        return name;
    }

    void AddFile(const CString& path) {
        if (const auto content = ReadWholeFile(path)) archive_.Add(NameOf(path), *content);
    }

    void AddMarker(const Part& part) {
        const auto content = ReadWholeFile(FileIn(part.path, part.marker));
        if (content && part.Counts()) archive_.Add(NameOf(FileIn(part.path, part.marker)), *content);
    }

    void AddSettings() {
        AddFile(root_.path + kHostSettingFile);
        AddFolder(root_.path + "\\providers.d", ".def");
        AddFolder(root_.path + "\\.tarvex\\tokens", ".json");
        AddFolder(root_.path + "\\.tarvex\\console", ".code");
        for (const Part& user : users_) AddFile(user.path + kHostSettingFile);
        for (const Part& profile : profiles_) {
            AddFile(profile.path + kHostSettingFile);
            AddFile(FileIn(profile.path, kLogFile));
        }
        for (const Part& forward : forwards_) AddFile(FileIn(forward.path, "schedule.def"));
    }

    void AddFolder(const CString& path, std::string_view ending) {
        const auto entries = PrivateFolder(path).Entries();
        if (!entries) throw CannotRead(path);
        for (const PrivateFolder::Entry& entry : *entries) {
            if (entry.is_file && entry.name.ends_with(ending)) AddFile(path + '\\' + entry.name);
        }
    }

    void AddHeld(const Part& profile) {
        const CString path = profile.path + "\\held";
        const PrivateFolder folder(path);
        const auto entries = folder.Entries();
        if (!entries) throw CannotRead(path);
        for (const PrivateFolder::Entry& entry : *entries) {
            if (entry.is_file && entry.name.ends_with(".def")) AddHeldMail(path, folder, entry.name);
        }
    }

    // A record with its own message: the number of one that has gone may be used again meanwhile. One that has gone was
    // sent, or dropped by a person.
    void AddHeldMail(const CString& path, const PrivateFolder& folder, const std::string& record_name) {
        const std::string mail_name = record_name.substr(0, record_name.rfind('.')) + ".mail";
        for (int read = 0; read < kReads; ++read) {
            bool missing = false;
            const auto record = folder.Read(record_name, missing);
            if (!record && missing) return;
            if (!record) throw CannotRead(path + '\\' + record_name);
            const auto mail = folder.Read(mail_name, missing);
            if (!mail && !missing) throw CannotRead(path + '\\' + mail_name);
            if (folder.Read(record_name, missing) != record) continue;
            if (mail) archive_.Add(NameOf(path + '\\' + mail_name), *mail);
            archive_.Add(NameOf(path + '\\' + record_name), *record);
            return;
        }
        throw CommandError(kTryLater, Tr("\"{0}\" keeps changing; try again", ShowPath(path + '\\' + record_name)));
    }

    // Lines go from the journal into the database: it comes first, or they could be missed in both.
    void AddMemory() {
        AddFile(root_.path + "\\.tarvex\\sent.recent");
        if (const std::int64_t generation = ReadableGeneration(root_.path).value_or(0); generation != 0)
            archive_.Add(".tarvex/generation", std::to_string(generation) + '\n');
        AddDatabase(root_.path + "\\.tarvex\\sent.db", ForgetLists);
        AddDatabase(root_.path + "\\.tarvex\\history.db", {});
    }

    void AddDatabase(const CString& path, const std::function<void(Database&)>& change) {
        std::error_code error;
        if (fs::status(NativePath(path), error).type() == fs::file_type::not_found) return;
        if (!fs::is_regular_file(NativePath(path), error)) throw CannotRead(path);
        try {
            archive_.Add(NameOf(path), Database(PathAsUtf8(path), Database::Use::Read, kPatience).Snapshot(change));
        } catch (const DatabaseError& failure) {
            throw CommandError(kCannotWrite, Tr("cannot read \"{0}\": {1}", ShowPath(path), failure.what()));
        }
    }

    // A folder without its marker file does not count, and is no part of the tree.
    std::vector<std::string> LeftOut() const {
        std::vector<std::string> names;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(NativePath(root_.path), error)) {
            const std::string name = entry.path().filename().string();
            const bool is_known =
                name.starts_with(".tarvex") || name == "host.def" || name == "providers.d" ||
                std::ranges::any_of(users_, [&](const Part& user) { return NameOf(user.path) == name; });
            if (!is_known) names.push_back(ShowUtf8Text(name));
        }
        std::ranges::sort(names);
        return names;
    }

    const CRootPath& root_;
    ArchiveWriter& archive_;
    std::vector<Part> users_, profiles_, forwards_;
};

}  // namespace

BackedUp BackUp(const CRootPath& root, ArchiveWriter& archive) { return Copier(root, archive).Copy(); }

}  // namespace tarvex::host
