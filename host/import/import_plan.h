#pragma once

// What an import would write into a tree: worked out, and refused, before anything is written.

#include <map>
#include <string>
#include <vector>

#include "host/edit/edit.h"
#include "host/import/imported.h"

namespace tarvex::host {

// What the command line says for all mailboxes of the file.
struct ImportChoices {
    std::string user;                           // path or login name; empty: the only one of the tree
    std::string address;                        // the mailbox's own; for a file with one
    std::vector<std::string> forwards;          // in the place of those of the file
    std::map<std::string, std::string> values;  // by key of popprofile.def, in the place of those of the file
    std::map<std::string, std::string> rules;   // by key of host.def, where the file does not say how TLS is spoken
    std::map<std::string, std::string> secrets;
    bool plain = false;  // a password may go to another machine in clear
    bool again = false;  // also mailboxes from which a profile fetches already
};

struct PlannedProfile {
    ImportedMailbox mailbox;
    EditRequest profile;
    std::vector<std::string> forwards;  // addresses
    CPopProfileSetting setting;         // as it will be
};

struct ImportPlan {
    std::string new_user;  // login name; empty where there is one already
    std::vector<PlannedProfile> profiles;
    std::vector<ImportNote> notes;

    // Everything that will be written, line by line; of a password, that there is one.
    std::string Shown() const;
};

// Throws CommandError for what cannot be imported as it is; then the sentence says which option helps.
ImportPlan PlanImport(const CRootPath& root, Imported imported, const ImportChoices& choices);

}  // namespace tarvex::host
