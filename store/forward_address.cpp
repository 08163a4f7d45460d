// One forwarding address of a profile: loading, saving, copying, and its list of ids.

#include <new>
#include <optional>
#include <utility>

#include "platform/codec/text.h"
#include "platform/os/files.h"
#include "platform/os/shield.h"
#include "store/loaded.h"
#include "store/tree_loading.h"
#include "tarvex/tree.h"

namespace tarvex {
namespace {

constexpr const char* kUidlFile = "\\uidl.def";

// The list of uidl.def: one id per line, in order, without any comment syntax. Nothing when the file cannot be read.
std::optional<CStringArray> ReadUidlFile(const CString& path, CLoaded& loaded) {
    std::string why;
    std::optional<CStringArray> ids = ReadTextLines(path + kUidlFile, &why);
    if (!why.empty()) NoteUnread(loaded, path + kUidlFile, why);
    if (!ids) return std::nullopt;
    for (CString& id : *ids) id.erase(0, id.size() - TrimLeadingBlanks(id).size());
    std::erase_if(*ids, [](const CString& id) { return id.empty(); });
    return ids;
}

int LoadSettingOf(CForwardAddress& address) {
    address.setting_loaded = {};
    return LoadRecord(address.setting, address.path, address.setting_loaded);
}

int LoadScheduleOf(CForwardAddress& address) {
    address.schedule_loaded = {};
    return LoadSchedule(address.schedule, address.path, address.schedule_loaded);
}

int LoadUidlsOf(CForwardAddress& address) {
    address.uidls_loaded = {};
    std::optional<CStringArray> ids = ReadUidlFile(address.path, address.uidls_loaded);
    if (!ids) return 0;
    address.uidls.swap(*ids);
    return 1;
}

// The result of a reading; 0, noted as not loaded, when memory runs out.
int Noted(CForwardAddress& address, int (*load)(CForwardAddress&), CLoaded& loaded) {
    return Shielded(
        0, [&] { return load(address); }, [&](const char*) { NoteNoMemory(loaded); });
}

}  // namespace

void Open(CForwardAddress& address, const CString& path) {
    address.path = path;
    LoadSettingOf(address);
    LoadScheduleOf(address);
}

void Assign(CForwardAddress& target, const CForwardAddress& source) {
    CString path = source.path;
    CLoaded setting_loaded = source.setting_loaded;
    CLoaded schedule_loaded = source.schedule_loaded;
    CLoaded uidls_loaded;
    CStringArray uidls = ReadUidlFile(path, uidls_loaded).value_or(CStringArray());
    CScheduleSetting schedule(source.schedule);
    if (!(schedule == source.schedule)) throw std::bad_alloc();
    AssignRecord(target.setting, source.setting);

    target.path.swap(path);
    target.uidls.swap(uidls);
    target.schedule.terms.swap(schedule.terms);
    target.setting_loaded = std::move(setting_loaded);
    target.schedule_loaded = std::move(schedule_loaded);
    target.uidls_loaded = std::move(uidls_loaded);
}

}  // namespace tarvex

using namespace tarvex;

CForwardAddress::~CForwardAddress() = default;

CForwardAddress& CForwardAddress::operator=(const CForwardAddress& other) {
    if (this != &other) Shielded([&] { Assign(*this, other); });
    return *this;
}

void CForwardAddress::SetPath(CString new_path) {
    if (Shielded([&] { Open(*this, new_path); })) return;
    path.clear();
    NoteNoMemory(setting_loaded);
    NoteNoMemory(schedule_loaded);
}

int CForwardAddress::LoadSetting() { return Noted(*this, LoadSettingOf, setting_loaded); }

int CForwardAddress::SaveSetting() {
    return Shielded(0, [&] { return setting.Save(path); });
}

int CForwardAddress::LoadScheduleSetting() { return Noted(*this, LoadScheduleOf, schedule_loaded); }

int CForwardAddress::SaveScheduleSetting() {
    return Shielded(0, [&] { return schedule.Save(path); });
}

int CForwardAddress::LoadUidlSetting() {
    RemoveAllUidl(uidls);
    return Noted(*this, LoadUidlsOf, uidls_loaded);
}

int CForwardAddress::SaveUidlSetting() {
    return Shielded(0, [&] {
        std::string text;
        for (const CString& id : uidls) {
            // It would be read back as two ids, and one of them may be that of a message that was never forwarded.
            if (id.find('\n') != CString::npos) continue;
            text += id;
            text += '\n';
        }
        // Most runs find nothing new: a list that has not changed waits for no disk.
        // An empty path is not refused: it names a file in the root of the file system (B30).
        return WriteTextFile(path + kUidlFile, text, Durability::SyncedWhenChanged) ? 1 : 0;
    });
}
