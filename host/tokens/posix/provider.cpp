// Reads the files that describe providers of tokens.

#include "host/tokens/posix/provider.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <set>
#include <string_view>
#include <system_error>

#include "host/settings/settings_sections.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/durable_files.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr const char* kSystemFolder = "/etc/tarvex/providers.d";
constexpr std::string_view kEnding = ".def";

struct ProviderKey {
    const char* name;
    std::string Provider::*field;
    bool is_needed;
    bool is_url;
};
constexpr std::array kKeys = {
    ProviderKey{"client_id", &Provider::client_id, true, false},
    ProviderKey{"client_secret", &Provider::client_secret, false, false},
    ProviderKey{"token_endpoint", &Provider::token_endpoint, true, true},
    ProviderKey{"device_endpoint", &Provider::device_endpoint, false, true},
    ProviderKey{"authorization_endpoint", &Provider::authorization_endpoint, false, true},
    ProviderKey{"scopes", &Provider::scopes, false, false},
    ProviderKey{"authority", &Provider::authority, false, false},
};

std::array<std::string, 2> Folders(const std::string& root) { return {root + "\\providers.d", kSystemFolder}; }

// Nothing that leads elsewhere.
bool IsName(std::string_view name) {
    const auto fits = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
               c == '.';
    };
    return !name.empty() && name.front() != '.' && std::ranges::all_of(name, fits);
}

// Secrets cross the network: in the clear to this machine alone. No user part, which could pass for a host.
bool IsUrl(std::string_view url) {
    if (!std::ranges::all_of(url, [](char c) { return c > ' ' && c < '\x7F'; })) return false;
    const std::size_t slashes = url.find("://");
    if (slashes == std::string_view::npos) return false;
    const std::string_view rest = url.substr(slashes + 3);
    const std::string_view server = rest.substr(0, rest.find_first_of("/?#"));
    if (server.empty() || server.find('@') != std::string_view::npos) return false;
    if (url.starts_with("https://")) return true;
    return url.starts_with("http://") && server.substr(0, server.find(':')) == "127.0.0.1";
}

CommandError Bad(const std::string& path, const std::string& why) {
    return {kBadSettings, '"' + ShowPath(path) + "\" " + why};
}

// What is misspelt would be missing later, at the provider.
void RefuseUnknownKeys(const SettingsSections& file, const std::string& path) {
    std::vector<std::string_view> known = {"version"};
    for (const ProviderKey& key : kKeys) known.emplace_back(key.name);
    const std::vector<std::string> unknown = file.HeadersBut(known);
    if (!unknown.empty()) throw Bad(path, "has a key that is not known: " + OneLine(unknown.front(), 60));
}

Provider ReadProvider(const std::string& path, const std::string& text) {
    const SettingsSections file(text);
    RefuseUnknownKeys(file, path);
    Provider provider;
    for (const ProviderKey& key : kKeys) {
        const SettingsSection* const section = file.Find(key.name);
        if (!section && key.is_needed) throw Bad(path, std::string("lacks ") + key.name);
        if (!section) continue;
        std::string& value = provider.*key.field = section->Value().value();
        if (key.is_url && !IsUrl(value)) {
            throw Bad(path, std::string("has a wrong ") + key.name + ": it must begin with https:// and name a server");
        }
    }
    if (provider.device_endpoint.empty() && provider.authorization_endpoint.empty()) {
        throw Bad(path, "lacks both device_endpoint and authorization_endpoint: nobody could log in");
    }
    return provider;
}

CommandError NoProvider(const std::string& root, const std::string& name) {
    std::string known;
    for (const std::string& other : ProviderNames(root)) known += (known.empty() ? "" : ", ") + other;
    return {kNotFound,
            "no provider \"" + ShowUtf8Text(name) + "\"; there is " +
                (known.empty() ? std::string("none yet: docs/tokens.md says how to describe one in ") + kSystemFolder
                               : known)};
}

}  // namespace

std::vector<std::string> ProviderNames(const std::string& root) {
    std::set<std::string> names;
    for (const std::string& folder : Folders(root)) {
        std::error_code error;
        for (const auto& entry : std::filesystem::directory_iterator(NativePath(folder), error)) {
            std::string name = entry.path().filename();
            if (!name.ends_with(kEnding)) continue;
            name.resize(name.size() - kEnding.size());
            if (IsName(name)) names.insert(name);
        }
    }
    return {names.begin(), names.end()};
}

Provider ProviderNamed(const std::string& root, const std::string& name) {
    if (!IsName(name)) throw NoProvider(root, name);
    for (const std::string& folder : Folders(root)) {
        const std::string path = folder + '\\' + name + std::string(kEnding);
        const std::optional<std::string> text = ReadWholeFile(path);
        if (!text) continue;
        Provider provider = ReadProvider(path, *text);
        provider.name = name;
        return provider;
    }
    throw NoProvider(root, name);
}

}  // namespace tarvex::host
