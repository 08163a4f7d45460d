// Where settings and trees are on Windows.

#include "host/system/tree_owner.h"

#include <windows.h>

#include <shellapi.h>

#include <cstddef>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "host/system/windows/managed_process.h"
#include "host/system/windows/service_handle.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

// Every account has them; their values are in the system's code page.
std::string FolderOf(const char* variable) {
    const char* const value = std::getenv(variable);
    return std::string(value ? value : "C:") + "\\Tarvex";
}

}  // namespace

std::string ConfigurationDirectory() { return FolderOf("APPDATA"); }

std::string UsualRootDirectory() {
    const std::string served = ServiceRootDirectory();
    return served.empty() ? FolderOf("LOCALAPPDATA") : served;
}

std::wstring ServiceCommandLine(const wchar_t* name) {
    const ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return {};
    const ServiceHandle service(OpenServiceW(manager.get(), name, SERVICE_QUERY_CONFIG));
    if (!service) return {};
    DWORD bytes = 0;
    QueryServiceConfigW(service.get(), nullptr, 0, &bytes);
    std::vector<std::byte> buffer(bytes);
    auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
    if (!QueryServiceConfigW(service.get(), configuration, bytes, &bytes)) return {};
    return configuration->lpBinaryPathName;
}

// Of a command line of the form that `tarvex service install` gives it.
std::string ServiceRootDirectory() {
    const std::wstring line = ServiceCommandLine(kServiceName);
    if (line.empty()) return {};
    int count = 0;
    wchar_t** const words = CommandLineToArgvW(line.c_str(), &count);
    std::string root;
    for (int i = 0; i + 1 < count; ++i) {
        if (std::wstring_view(words[i]) == L"--root") root = Narrow(CP_ACP, words[i + 1]);
    }
    LocalFree(static_cast<void*>(words));
    return root;
}

void WorkAsOwnerOf(const std::string&) {}

AsOwnerOf::AsOwnerOf(const std::string&) {}

AsOwnerOf::~AsOwnerOf() = default;

bool GiveToOwnerOf(const std::string&, const std::string&) { return true; }

bool EverybodyMayRead(const std::string&) { return false; }

std::string RemarkOnOtherTrees() { return {}; }

}  // namespace tarvex::host
