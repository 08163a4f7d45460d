// Messages of many equal pieces: the reduction of a large one must not take long, whatever the piece is. Up to the
// first
// "~" the beginning of the message, then the piece.

#include "fuzz/fuzz.h"
#include "tarvex/tree.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::size_t kMessageBytes = 131'072;
    const std::string_view text = fuzz::Input(data, size).Rest();
    const std::size_t end = text.find('~');
    if (end == std::string_view::npos || end + 1 == text.size()) return 0;
    CString message(text.substr(0, end));
    while (message.size() < kMessageBytes) message += text.substr(end + 1);
    message += "\r\n\r\n.\r\n";
    // The time limit of a run is the requirement.
    CPopProfile().CutAsTextmail(&message, 1000, 1, 1, "- ,");
    return 0;
}
