// The framing of DATA: a server takes exactly the message that the text means. The first byte chooses the form.

#include "platform/net/framing.h"

#include "fuzz/fuzz.h"
#include "tests/support/data_receiver.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const DataForm form = input.Choice(2) == 0 ? DataForm::Fetched : DataForm::NotStuffed;
    fuzz::RequireNoFault(testing::FramingFault(input.Rest(), form));
    return 0;
}
