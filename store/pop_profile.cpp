// One POP3 account with its forwarding addresses, as far as it lives on disk.

#include "platform/os/shield.h"
#include "store/children.h"
#include "store/loaded.h"
#include "store/tree_loading.h"
#include "tarvex/tree.h"

namespace tarvex {
namespace {

// A password that was not scrambled is scrambled in the file at once.
int LoadSettingOf(CPopProfile& profile) {
    profile.setting_loaded = {};
    const int result = LoadRecord(profile.setting, profile.path, profile.setting_loaded);
    if (result == 2) profile.SaveSetting();
    return result != 0 ? 1 : 0;
}

void AppendForwardAddresses(CPopProfile& profile) {
    AppendChildren<CForwardAddress>(profile.forward_addresses, profile.addresses_loaded, profile.path, kForwardAddress,
                                    Open);
}

}  // namespace

void Open(CPopProfile& profile, const CString& path) {
    profile.Reset();
    profile.path = path;
    LoadSettingOf(profile);
    AppendForwardAddresses(profile);
}

void Assign(CPopProfile& target, const CPopProfile& source) {
    CString path = source.path;
    std::vector<std::unique_ptr<CForwardAddress>> addresses;
    addresses.reserve(source.forward_addresses.size());
    for (const auto& address : source.forward_addresses) {
        addresses.push_back(std::make_unique<CForwardAddress>());
        Assign(*addresses.back(), *address);
    }
    CLoaded setting_loaded = source.setting_loaded;
    CLoaded addresses_loaded = source.addresses_loaded;
    AssignRecord(target.setting, source.setting);

    target.setting.lasttime = source.setting.lasttime;
    target.path.swap(path);
    target.forward_addresses.swap(addresses);
    target.setting_loaded = std::move(setting_loaded);
    target.addresses_loaded = std::move(addresses_loaded);
}

}  // namespace tarvex

using namespace tarvex;

CPopProfile::CPopProfile() = default;

CPopProfile::~CPopProfile() = default;

CPopProfile& CPopProfile::operator=(const CPopProfile& other) {
    if (this != &other) Shielded([&] { Assign(*this, other); });
    return *this;
}

void CPopProfile::Reset() {
    worker_thread = nullptr;
    path.clear();
    setting.Initialize();
    forward_addresses.clear();
    result = {};
    setting_loaded = {};
    addresses_loaded = {};
}

void CPopProfile::SetPath(CString new_path) {
    if (Shielded([&] { Open(*this, new_path); })) return;
    Reset();
    NoteNoMemory(setting_loaded);
    NoteNoMemory(addresses_loaded);
}

int CPopProfile::LoadSetting() {
    return Shielded(
        0, [&] { return LoadSettingOf(*this); }, [this](const char*) { NoteNoMemory(setting_loaded); });
}

int CPopProfile::SaveSetting() {
    return Shielded(0, [&] { return setting.Save(path); });
}

int CPopProfile::SeekForwardAddress() {
    if (!Shielded([&] { AppendForwardAddresses(*this); })) NoteNoMemory(addresses_loaded);
    return 1;
}

CForwardAddress* CPopProfile::CreateNewForwardAddress(CString nickname, CString address) {
    const auto fill = [&](CForwardAddressSetting& new_setting, bool) {
        new_setting.nickname = nickname;
        new_setting.address = address;
    };
    return Shielded<CForwardAddress*>(
        nullptr, [&] { return CreateChild<CForwardAddress>(forward_addresses, path, kForwardAddress, Open, fill); });
}

int CPopProfile::DeleteForwardAddress(CForwardAddress* address) {
    return DeleteChild(forward_addresses, kForwardAddress, address);
}
