// The plain recipient of a forwarding address.

#include "transfer/recipient.h"

#include "fuzz/fuzz.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const CString address(fuzz::Input(data, size).Rest());
    const CString recipient = PlainRecipient(address);
    fuzz::Require(recipient.find(' ') == CString::npos, "without blanks");
    fuzz::Require(recipient.size() <= address.size(), "never longer than the address");
    return 0;
}
