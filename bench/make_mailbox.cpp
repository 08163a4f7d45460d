// make_mailbox DIR COUNT SIZE_BYTES [FIRST]: fills a Maildir with ordinary messages. make_mailbox DIR awkward: with one
// message of each awkward kind.

#include <cstdlib>
#include <iostream>

#include "tests/real/servers/mailbox_generator.h"

int main(int argc, char** argv) {
    using namespace tarvex::testing;
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() < 2 || (words[1] != "awkward" && words.size() < 3)) {
        std::cerr << "usage: make_mailbox DIR COUNT SIZE_BYTES [FIRST] | make_mailbox DIR awkward\n";
        return 2;
    }
    Maildir mailbox(words[0]);
    const int first = words.size() > 3 ? std::atoi(words[3].c_str()) : 1;
    const std::vector<GeneratedMail> mails =
        words[1] == "awkward"
            ? MakeAwkwardMails()
            : MakeOrdinaryMails(std::atoi(words[1].c_str()), std::strtoul(words[2].c_str(), nullptr, 10), first);
    std::size_t size_bytes = 0;
    for (const GeneratedMail& mail : mails) {
        mailbox.Add(mail);
        size_bytes += mail.text.size();
    }
    std::cout << mails.size() << " messages, " << size_bytes << " bytes on the wire\n";
}
