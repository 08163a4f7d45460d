// Takes a text mail apart again.

#include "host/view/phone_text.h"

#include <string_view>

#include "host/system/display.h"
#include "tarvex/conversion.h"

namespace tarvex::host {

PhoneText PhoneTextOf(const CString& text_mail, std::size_t most_bytes) {
    constexpr std::string_view kBreak = "\r\n\r\n", kEnd = "\r\n.\r\n";
    const std::string_view mail = text_mail;
    const std::size_t end = mail.ends_with(kEnd) ? mail.size() - kEnd.size() : mail.size();
    const std::size_t head = mail.find(kBreak);
    const std::size_t begin = head == std::string_view::npos ? 0 : head + kBreak.size();
    const CHeadlines headlines = HeadlinesOf(mail);
    PhoneText phone{ShowText(headlines.from), ShowText(headlines.subject), {}, 0};
    if (begin >= end) return phone;
    CString sjis = TextFromJis(mail.substr(begin, end - begin));
    phone.bytes = sjis.size();
    std::erase(sjis, '\r');  // no character of Shift-JIS has this byte
    phone.text = ShowText(sjis.substr(0, most_bytes));
    return phone;
}

}  // namespace tarvex::host
