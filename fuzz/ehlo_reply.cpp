// The list of authentication methods in an EHLO reply.

#include "transfer/ehlo_reply.h"

#include "fuzz/fuzz.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view reply = fuzz::Input(data, size).Rest();
    const std::string_view list = AuthList(reply);
    fuzz::Require(list.empty() || (list.data() >= reply.data() && list.data() + list.size() + 2 <= reply.data() + size),
                  "a view of the reply that a line end follows");
    fuzz::Require(!list.starts_with(' '), "without leading blanks");
    return 0;
}
