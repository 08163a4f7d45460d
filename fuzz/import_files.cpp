// The configuration files of other mail clients, and their lists of ids. The first byte says which: a small letter for
// a configuration file, a capital for a list.

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/fuzz.h"
#include "host/import/imported.h"
#include "host/system/command_error.h"

using tarvex::host::ImportKind;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    if (input.empty()) return 0;
    const char kind = static_cast<char>(input[0] | 0x20);
    const ImportKind meant = kind == 'f'   ? ImportKind::Fetchmailrc
                             : kind == 'g' ? ImportKind::Getmailrc
                                           : ImportKind::Mpoprc;
    try {
        if ((input[0] & 0x20) == 0) {
            tarvex::host::ImportedMailbox mailbox;
            mailbox.values = {{"popserver", "host"}, {"popuser", "user"}};
            const auto ids = tarvex::host::ReadOldIds(meant, input.substr(1), mailbox);
            for (const std::string& id : ids) {
                tarvex::fuzz::Require(input.find(id) != std::string_view::npos, "an id is of the list");
            }
            return 0;
        }
        for (const auto& mailbox : tarvex::host::ReadImport(meant, input.substr(1)).mailboxes) {
            tarvex::fuzz::Require(mailbox.line >= 1, "a mailbox has a line");
        }
    } catch (const tarvex::host::CommandError& error) {
        tarvex::fuzz::Require(std::string_view(error.what()).substr(0, 5) == "line ", "an error names its line");
    }
    return 0;
}
