// The address that RCPT names, out of an address with display name, brackets and comment.

#include "transfer/recipient.h"

#include <cstddef>

#include "platform/os/shield.h"
#include "tarvex/tarvex.h"

namespace tarvex {

CString PlainRecipient(CString address) {
    std::erase(address, ' ');

    const std::size_t open = address.find('<');
    const std::size_t close = address.find('>');
    if (open != CString::npos && close != CString::npos && open < close) {
        address = address.substr(open + 1, close - open - 1);
    }

    const std::size_t comment = address.find('(');
    const std::size_t comment_end = address.find(')');
    if (comment != CString::npos && comment_end != CString::npos && comment < comment_end) {
        address.erase(comment, comment_end - comment + 1);
    }
    return address;
}

}  // namespace tarvex

CString RecipientOf(std::string_view address) {
    return tarvex::Shielded(CString(), [address] { return tarvex::PlainRecipient(CString(address)); });
}
