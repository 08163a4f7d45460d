#pragma once

// The mailbox of the demo.

#include <string>
#include <vector>

namespace tarvex::host {

struct DemoMail {
    std::string uidl;
    std::string title;    // what it is, UTF-8
    std::string whole;    // CR LF line ends, not dot-stuffed
    std::string reduced;  // the text mail that an address gets instead, in the same form
};

// Plain ASCII, ISO-2022-JP, UTF-8 with HTML beside it, HTML alone, one over the limit of the text mail, an attachment
// of some 100 KB, lines that begin with dots, a repeated subject.
std::vector<DemoMail> FirstDemoMails();

// The mail that arrives later.
DemoMail LaterDemoMail();

// The two that arrive last, and of which the server refuses the first: it knows it by this part.
std::vector<DemoMail> LastDemoMails();
inline constexpr const char* kUnwantedPart = "https://prize.example/";

}  // namespace tarvex::host
