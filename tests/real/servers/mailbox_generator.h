#pragma once

// Messages for a mailbox, made from numbers: the same arguments give the same bytes on every machine.
//
// Ordinary kinds are what people and machines send every day, of about the size asked for; awkward kinds are legal,
// half legal and illegal mail as it is found in real mailboxes, each of a size of its own.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::testing {

struct GeneratedMail {
    int number = 0;
    std::string kind;
    std::string text;  // as sent: CR LF line ends, not dot-stuffed, no terminator
};

std::vector<std::string_view> OrdinaryKinds();
std::vector<std::string_view> AwkwardKinds();

// One message. The number goes into its subject, its date and its Message-ID.
GeneratedMail MakeMail(std::string_view kind, int number, std::size_t size_bytes);

// `count` messages of the ordinary kinds in turn, the first with that number.
std::vector<GeneratedMail> MakeOrdinaryMails(int count, std::size_t size_bytes, int first_number = 1);

// One message of each awkward kind.
std::vector<GeneratedMail> MakeAwkwardMails(int first_number = 1);

// A Maildir as a mail server keeps it: LF line ends, and the sizes in the file names so that the server need not read a
// message to know them. The order of the numbers is the order of the messages.
class Maildir {
public:
    explicit Maildir(std::filesystem::path path);  // makes the folders that are missing

    void Add(const GeneratedMail& mail);
    void Remove(int number);
    int Count() const;  // messages in new/ and cur/

    const std::filesystem::path& Path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace tarvex::testing
