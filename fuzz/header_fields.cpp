// Finding and replacing a field of a fetched message: all other bytes stay.

#include "fuzz/fuzz.h"
#include "tarvex/tree.h"

using namespace tarvex;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static CPopProfile profile;
    CReceiveMail mail;
    mail.text = fuzz::Input(data, size).Rest();
    CString before = mail.text;
    int start = 0;
    int end = 0;
    const int found = profile.FindHeader(&before, "To:", &start, &end);
    fuzz::Require(before == mail.text, "a look changes nothing");
    CString expected = before;
    if (found != 0) {
        const auto begin = static_cast<std::size_t>(start);
        fuzz::Require(before.compare(begin, 5, "\r\nTo:") == 0, "the field begins with its name");
        expected = before.substr(0, begin) + "\r\nTo: a@b";
        if (end >= 0) {
            const CString rest = before.substr(static_cast<std::size_t>(end));
            fuzz::Require(rest.starts_with("\r\n"), "a line end follows");
            expected += rest;
        }
    }
    profile.ReplaceTo(&mail, "a@b");
    fuzz::Require(mail.text == expected, "all other bytes stay");
    return 0;
}
