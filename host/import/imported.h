#pragma once

// The configuration files of three other mail clients, read as the mailboxes that they name. What is in a file is
// taken for what its client's manual says; nothing in it is run.

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::host {

struct ImportedMailbox {
    int line = 0;                                // where it begins in the file
    std::map<std::string, std::string> values;   // by key of popprofile.def, as they would be typed
    std::map<std::string, std::string> rules;    // by key of host.def
    std::map<std::string, std::string> secrets;  // passwords by key
    std::vector<std::string> forwards;           // addresses
    bool tls_if_offered = false;                 // the client takes STARTTLS where a server offers it, else none
};

struct ImportNote {
    int line = 0;
    std::string text;  // never a value of the file: it might be a password
};

struct Imported {
    std::vector<ImportedMailbox> mailboxes;
    std::vector<ImportNote> notes;  // what was not taken over, in the order of the lines
};

// Which file it is.
enum class ImportKind { Fetchmailrc, Getmailrc, Mpoprc };

// Throw CommandError (kBadData) with the line of what makes the text no such file.
Imported ReadFetchmailrc(std::string_view text);
Imported ReadGetmailrc(std::string_view text);
Imported ReadMpoprc(std::string_view text);
Imported ReadImport(ImportKind kind, std::string_view text);

// The ids that the client has fetched from the mailbox, out of the file in which it keeps them: fetchmail's idfile
// (~/.fetchids), one of getmail's oldmail files, which is about one mailbox, or mpop's uidls_file. Throws CommandError
// for a line of another form.
std::vector<std::string> ReadOldIds(ImportKind kind, std::string_view text, const ImportedMailbox& mailbox);

}  // namespace tarvex::host
