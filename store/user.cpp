// One user with his POP profiles.

#include "platform/os/shield.h"
#include "store/children.h"
#include "store/loading.h"
#include "store/records.h"
#include "tarvex/tree.h"

namespace tarvex {

void Open(CUser& user, const CString& path) {
    user.Reset();
    user.path = path;
    LoadRecord(user.setting, path);
    AppendChildren<CPopProfile>(user.profiles, path, kPopProfile, Open);
}

}  // namespace tarvex

using namespace tarvex;

CUser::~CUser() = default;

void CUser::SetPath(CString new_path) {
    if (!Shielded([&] { Open(*this, new_path); })) path.clear();
}

void CUser::Reset() { profiles.clear(); }

int CUser::LoadSetting() {
    return Shielded(0, [&] { return LoadRecord(setting, path); });
}

int CUser::SaveSetting() {
    return Shielded(0, [&] { return setting.Save(path); });
}

int CUser::SeekPopProfile() {
    Shielded([&] { AppendChildren<CPopProfile>(profiles, path, kPopProfile, Open); });
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
