// Looks for unknown keys and malformed numbers in settings files, and for files that everybody may read.

#include "host/tree/remarks.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/settings/keys.h"
#include "host/settings/settings_sections.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/durable_files.h"
#include "host/system/paths.h"
#include "host/system/tree_owner.h"
#include "host/terminal/wording.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kValueColumns = 60;

// What there is to say about one file.
class FileRemarks {
public:
    FileRemarks(CString path, std::vector<std::string>& remarks)
        : path_(std::move(path)), remarks_(remarks), file_(TextOf(path_)) {}

    template <class Record>
    void AddAllOf() {
        std::vector<std::string_view> names = {"version"};
        for (const Key<Record>& key : Keys<Record>()) names.emplace_back(key.name);
        AddUnknown(names);
        for (const Key<Record>& key : Keys<Record>()) AddNumber(key);
    }

    void AddOpen() {
        if (EverybodyMayRead(path_))
            remarks_.push_back(
                Tr("\"{0}\" can be read by every user of the machine, and may hold a password", ShowPath(path_)));
    }

    void AddRules() {
        if (Has("smtppassword") || Has("alert_password")) AddOpen();
        AddAllOf<HostRules>();
    }

    bool Has(std::string_view key) const { return file_.Find(key) != nullptr; }

    void AddUnknown(std::span<const std::string_view> names) {
        for (const std::string& header : file_.HeadersBut(names))
            remarks_.push_back(Tr("\"{0}\" has an unknown key: {1}", ShowPath(path_), OneLine(header, kValueColumns)));
    }

private:
    static std::string TextOf(const CString& path) {
        try {
            return ReadWholeFile(path).value_or("");
        } catch (const CommandError&) {
            return {};  // the loading has said so
        }
    }

    // Digits to the last one are read, and anything else is 0.
    void AddNumber(const KeyInfo& key) {
        const SettingsSection* const section = key.type == KeyType::Number ? file_.Find(key.name) : nullptr;
        if (!section) return;
        const std::string value = section->Value().value();
        const std::string_view digits = std::string_view(value).substr(value.starts_with('+') ? 1 : 0);
        int number = 0;
        const auto [rest, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error != std::errc() || rest != digits.data() + digits.size()) {
            remarks_.push_back(Tr("\"{0}\" has no number for {1} but \"{2}\"", ShowPath(path_), key.name,
                                  OneLine(value, kValueColumns)));
        } else if (number < key.lowest || number > key.highest) {
            remarks_.push_back(
                Tr("\"{0}\" has {1} for {2}, which can be {3}", ShowPath(path_), number, key.name, AllowedValues(key)));
        }
    }

    const CString path_;
    std::vector<std::string>& remarks_;
    const SettingsSections file_;
};

std::vector<std::string> RemarksAbove(const CString& user) {
    std::vector<std::string> remarks;
    for (const CString& folder : {ParentOf(user), user}) FileRemarks(folder + kHostSettingFile, remarks).AddRules();
    FileRemarks of_user(user + "\\userset.def", remarks);
    of_user.AddOpen();
    of_user.AddAllOf<CUserSetting>();
    return remarks;
}

}  // namespace

std::vector<std::string> RemarksOn(const CPopProfile& profile) {
    std::vector<std::string> remarks = RemarksAbove(ParentOf(profile.path));
    std::ranges::move(RemarksOnItsOwn(profile), std::back_inserter(remarks));
    return remarks;
}

std::vector<std::string> RemarksOn(const CUser& user) { return RemarksAbove(user.path); }

std::vector<std::string> RemarksOnItsOwn(const CPopProfile& profile) {
    std::vector<std::string> remarks;
    FileRemarks(profile.path + kHostSettingFile, remarks).AddRules();
    FileRemarks of_profile(profile.path + "\\popprofile.def", remarks);
    of_profile.AddOpen();
    of_profile.AddAllOf<CPopProfileSetting>();
    for (const auto& forward : profile.forward_addresses) {
        FileRemarks(forward->path + "\\forwardaddress.def", remarks).AddAllOf<CForwardAddressSetting>();
        constexpr std::array<std::string_view, 2> kScheduleKeys = {"version", "schedule"};
        FileRemarks(forward->path + "\\schedule.def", remarks).AddUnknown(kScheduleKeys);
        if (!HasMailbox(*forward)) {
            remarks.push_back(Tr("\"{0}\" has an address without \"@\": \"{1}\"", ShowPath(forward->path),
                                 OneLine(forward->setting.address, kValueColumns)));
        }
    }
    return remarks;
}

}  // namespace tarvex::host
