// One forwarding address of a profile.

#include <new>
#include <optional>

#include "platform/codec/text.h"
#include "platform/os/files.h"
#include "platform/os/shield.h"
#include "store/loading.h"
#include "store/records.h"
#include "tarvex/tree.h"

namespace tarvex {
namespace {

constexpr const char* kUidlFile = "\\uidl.def";

// The list of uidl.def: one id per line, in order, without any comment syntax. Nothing when the file cannot be read.
std::optional<CStringArray> ReadUidlFile(const CString& path) {
    std::optional<CStringArray> ids = ReadTextLines(path + kUidlFile);
    if (!ids) return std::nullopt;
    for (CString& id : *ids) id.erase(0, id.size() - TrimLeadingBlanks(id).size());
    std::erase_if(*ids, [](const CString& id) { return id.empty(); });
    return ids;
}

}  // namespace

void Open(CForwardAddress& address, const CString& path) {
    address.path = path;
    LoadRecord(address.setting, path);
    address.schedule.Load(path);
}

void Assign(CForwardAddress& target, const CForwardAddress& source) {
    CString path = source.path;
    CStringArray uidls = ReadUidlFile(path).value_or(CStringArray());
    CScheduleSetting schedule(source.schedule);
    if (!(schedule == source.schedule)) throw std::bad_alloc();
    AssignRecord(target.setting, source.setting);

    target.path.swap(path);
    target.uidls.swap(uidls);
    target.schedule.terms.swap(schedule.terms);
}

}  // namespace tarvex

using namespace tarvex;

CForwardAddress::~CForwardAddress() = default;

CForwardAddress& CForwardAddress::operator=(const CForwardAddress& other) {
    if (this != &other) Shielded([&] { Assign(*this, other); });
    return *this;
}

void CForwardAddress::SetPath(CString new_path) {
    if (!Shielded([&] { Open(*this, new_path); })) path.clear();
}

int CForwardAddress::LoadSetting() {
    return Shielded(0, [&] { return LoadRecord(setting, path); });
}

int CForwardAddress::SaveSetting() {
    return Shielded(0, [&] { return setting.Save(path); });
}

int CForwardAddress::LoadScheduleSetting() {
    return Shielded(0, [&] { return schedule.Load(path); });
}

int CForwardAddress::SaveScheduleSetting() {
    return Shielded(0, [&] { return schedule.Save(path); });
}

int CForwardAddress::LoadUidlSetting() {
    RemoveAllUidl(uidls);
    return Shielded(0, [&] {
        std::optional<CStringArray> ids = ReadUidlFile(path);
        if (!ids) return 0;
        uidls.swap(*ids);
        return 1;
    });
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
