// Makes texts fit for the event log.

#include "host/system/windows/event_text.h"

#include <algorithm>

#include "host/system/windows/wide.h"

namespace tarvex::host {

std::wstring EventText(std::string_view text) {
    constexpr std::size_t kMostUnits = 31'000;  // the system takes 31,839
    std::wstring wide;
    for (const wchar_t unit : Wide(CP_UTF8, text)) {
        const bool is_digit = unit >= L'0' && unit <= L'9';
        if (is_digit && wide.ends_with(L'%')) wide += L' ';
        wide += unit;
    }
    wide.resize(std::min(wide.size(), kMostUnits));
    return wide;
}

}  // namespace tarvex::host
