// The settings files: what was read and saved is read again, and no value forges another one. The first byte chooses
// the record, the rest is its file, or a value.

#include <algorithm>

#include "fuzz/fuzz.h"
#include "tarvex/tarvex.h"
#include "testing/temp_dir.h"

using namespace tarvex;

namespace {

// CAppSetting's own comparison is too kind.
bool Same(const CAppSetting& left, const CAppSetting& right) {
    return left.rootpath == right.rootpath && left.allowcreatenewuser == right.allowcreatenewuser;
}
template <class Record>
bool Same(const Record& left, const Record& right) {
    return (left == right) != 0;
}

// The first saving may change what only a hand-written file holds: a lone CR becomes a blank.
template <class Record>
void RequireStable(const CString& directory, const char* file, std::string_view text) {
    testing::WriteFile(directory + "/" + file, std::string(text));
    Record first;
    Record second;
    Record third;
    fuzz::Require(first.Load(directory) != 0, "every file is read");
    fuzz::Require(first.Save(directory) != 0 && second.Load(directory) != 0, "what was saved is read");
    fuzz::Require(second.Save(directory) != 0 && third.Load(directory) != 0, "what was saved is read");
    fuzz::Require(Same(second, third), "what was saved comes back");
}

void RequireNoForgery(const CString& directory, std::string_view value) {
    CPopProfileSetting setting;
    const CPopProfileSetting defaults;
    setting.nickname = value;
    setting.smtppassword = value;
    setting.smtpuser = value;
    CPopProfileSetting loaded;
    fuzz::Require(setting.Save(directory) != 0 && loaded.Load(directory) != 0, "what was saved is read");
    // Bytes of 0xFF at the end of a password do not survive; and one that begins with NUL may have a stored form that
    // begins with "//", which reads as a comment.
    const std::string_view kept = value.substr(0, value.find_last_not_of('\xFF') + 1);
    fuzz::Require(loaded.smtppassword == kept || (value.starts_with('\0') && loaded.smtppassword.empty()),
                  "a password comes back");
    loaded.nickname = loaded.smtppassword = loaded.smtpuser = "";
    fuzz::Require((loaded == defaults) != 0, "no value forges another");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const testing::TempDir folder;
    static const CString directory = folder.String();
    fuzz::Input input(data, size);
    switch (input.Choice(5)) {
        case 0:
            RequireStable<CPopProfileSetting>(directory, "popprofile.def", input.Rest());
            break;
        case 1:
            RequireStable<CForwardAddressSetting>(directory, "forwardaddress.def", input.Rest());
            break;
        case 2:
            RequireStable<CUserSetting>(directory, "userset.def", input.Rest());
            break;
        case 3:
            RequireStable<CAppSetting>(directory, "appset.def", input.Rest());
            break;
        default:
            RequireNoForgery(directory, input.Rest());
            break;
    }
    return 0;
}
