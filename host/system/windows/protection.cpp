// Secrets under the data protection of Windows (DPAPI).

#include "host/system/protection.h"

#include <windows.h>

#include <wincrypt.h>
// Behind it.
#include <dpapi.h>

#include <algorithm>
#include <charconv>
#include <span>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/hexadecimal.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

constexpr std::string_view kStart = "dpapi:";  // and the digits behind it

DATA_BLOB BlobOf(std::string_view bytes) {
    return {static_cast<DWORD>(bytes.size()), reinterpret_cast<BYTE*>(const_cast<char*>(bytes.data()))};
}

// The system's memory, wiped and given back.
std::string Taken(DATA_BLOB blob) {
    std::string bytes(reinterpret_cast<const char*>(blob.pbData), blob.cbData);
    SecureZeroMemory(blob.pbData, blob.cbData);
    LocalFree(blob.pbData);
    return bytes;
}

std::optional<std::string> BytesOf(std::string_view digits) {
    std::string bytes;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        unsigned char byte = 0;
        const char* const end = digits.data() + std::min(at + 2, digits.size());
        if (std::from_chars(digits.data() + at, end, byte, 16).ptr != end || digits.size() % 2 != 0)
            return std::nullopt;
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

}  // namespace

std::string Protect(std::string_view secret) {
    DATA_BLOB in = BlobOf(secret);
    DATA_BLOB out{};
    if (!CryptProtectData(&in, L"Tarvex", nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out))
        throw CommandError(kCannotWrite, Tr("Windows does not protect a secret: {0}", SystemMessage(GetLastError())));
    const std::string bytes = Taken(out);
    return std::string(kStart) + Hexadecimal({reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size()});
}

std::optional<std::string> Unprotect(std::string_view kept) {
    if (!kept.starts_with(kStart)) return std::string(kept);
    const auto bytes = BytesOf(kept.substr(kStart.size()));
    if (!bytes) return std::nullopt;
    DATA_BLOB in = BlobOf(*bytes);
    DATA_BLOB out{};
    if (!CryptUnprotectData(&in, nullptr, nullptr, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out))
        return std::nullopt;
    return Taken(out);
}

}  // namespace tarvex::host
