// Addresses beyond ASCII: none is read that was not in the input.

#include "platform/codec/address_text.h"

#include <algorithm>
#include <set>

#include "fuzz/fuzz.h"
#include "platform/codec/japanese.h"

using namespace tarvex;

namespace {

// The words that hold an "@", as Shift-JIS shows them.
std::set<std::string> AddressesIn(std::string_view list, bool all) {
    std::set<std::string> addresses;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find_first_of(" <>(),;:\""), list.size());
        const std::string_view word = list.substr(0, end);
        const auto same = Utf8ToSameSJis(word);
        if (word.find('@') != std::string_view::npos && (all || same))
            addresses.insert(same.value_or(std::string(word)));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return addresses;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::Input(data, size).Rest();
    if (!IsUtf8(text)) return 0;
    std::string shown = WithUnmistakableAddresses(text);
    fuzz::Require(IsUtf8(shown), "UTF-8 stays UTF-8");
    Utf8ToSJis(&shown, &shown);
    SJisToUtf8(&shown, &shown);
    const std::set<std::string> sent = AddressesIn(text, false);
    for (const std::string& address : AddressesIn(shown, true)) {
        const bool is_marked = address.find("xn--") != std::string::npos || address.ends_with(".invalid");
        fuzz::Require(is_marked || sent.contains(address), "no address that was not in the input");
    }
    return 0;
}
