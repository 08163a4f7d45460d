// Tells Windows' event log where the texts of our entries are.

#include "host/service/log/windows/event_source.h"

#include <windows.h>

#include <memory>
#include <string>
#include <type_traits>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

const std::wstring kKey = std::wstring(L"SYSTEM\\CurrentControlSet\\Services\\EventLog\\Application\\") + kEventSource;

struct CloseKey {
    void operator()(HKEY key) const { RegCloseKey(key); }
};
using Key = std::unique_ptr<std::remove_pointer_t<HKEY>, CloseKey>;

void Require(LSTATUS status) {
    if (status == ERROR_SUCCESS) return;
    throw CommandError(
        status == ERROR_ACCESS_DENIED ? kNotAllowed : kCannotWrite,
        Tr("cannot change the sources of the event log: {0}", SystemMessage(static_cast<DWORD>(status))));
}

void SetText(const Key& key, const wchar_t* name, const std::wstring& text) {
    Require(RegSetValueExW(key.get(), name, 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                           static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))));
}

void SetNumber(const Key& key, const wchar_t* name, DWORD number) {
    Require(RegSetValueExW(key.get(), name, 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), sizeof number));
}

}  // namespace

void AddEventSource() {
    HKEY opened = nullptr;
    Require(RegCreateKeyExW(HKEY_LOCAL_MACHINE, kKey.c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr, &opened, nullptr));
    const Key key(opened);
    const std::wstring program = ProgramFile();
    SetText(key, L"EventMessageFile", program);
    SetText(key, L"CategoryMessageFile", program);
    SetNumber(key, L"CategoryCount", kEventCategories);
    SetNumber(key, L"TypesSupported", EVENTLOG_ERROR_TYPE | EVENTLOG_WARNING_TYPE | EVENTLOG_INFORMATION_TYPE);
}

void RemoveEventSource() {
    const LSTATUS status = RegDeleteKeyW(HKEY_LOCAL_MACHINE, kKey.c_str());
    if (status != ERROR_FILE_NOT_FOUND) Require(status);
}

}  // namespace tarvex::host
