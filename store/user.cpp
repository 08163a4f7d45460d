// One user with his POP profiles.

#include "platform/os/shield.h"
#include "store/children.h"
#include "store/loaded.h"
#include "store/tree_loading.h"
#include "tarvex/tree.h"

namespace tarvex {
namespace {

int LoadSettingOf(CUser& user) {
    user.setting_loaded = {};
    return LoadRecord(user.setting, user.path, user.setting_loaded);
}

}  // namespace

void Open(CUser& user, const CString& path) {
    user.Reset();
    user.path = path;
    LoadSettingOf(user);
    AppendChildren<CPopProfile>(user.profiles, user.profiles_loaded, path, kPopProfile, Open);
}

}  // namespace tarvex

using namespace tarvex;

CUser::~CUser() = default;

void CUser::SetPath(CString new_path) {
    if (Shielded([&] { Open(*this, new_path); })) return;
    path.clear();
    NoteNoMemory(setting_loaded);
    NoteNoMemory(profiles_loaded);
}

void CUser::Reset() { profiles.clear(); }

int CUser::LoadSetting() {
    return Shielded(
        0, [&] { return LoadSettingOf(*this); }, [this](const char*) { NoteNoMemory(setting_loaded); });
}

int CUser::SaveSetting() {
    return Shielded(0, [&] { return setting.Save(path); });
}

int CUser::SeekPopProfile() {
    const bool listed =
        Shielded([&] { AppendChildren<CPopProfile>(profiles, profiles_loaded, path, kPopProfile, Open); });
    if (!listed) NoteNoMemory(profiles_loaded);
    return 1;
}

CPopProfile* CUser::CreateNewPopProfile(CString nickname, CString address) {
    const auto fill = [&](CPopProfileSetting& new_setting, bool) {
        new_setting.nickname = nickname;
        new_setting.address = address;
    };
    return Shielded<CPopProfile*>(nullptr,
                                  [&] { return CreateChild<CPopProfile>(profiles, path, kPopProfile, Open, fill); });
}

int CUser::DeletePopProfile(CPopProfile* profile) { return DeleteChild(profiles, kPopProfile, profile); }
