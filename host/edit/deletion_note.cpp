// Says when mail is deleted on the server: by the rule `deletewaits`, and by the engine alone.

#include "host/edit/deletion_note.h"

#include <optional>

#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"

namespace tarvex::host {

std::string NoteOnDeletion(const CPopProfile& profile) {
    if (profile.setting.deletemail == 0) return {};
    std::optional<HostRules> rules;
    try {
        rules = RulesOf(profile);
    } catch (const CommandError&) {
        return {};  // nothing is run, and so nothing is deleted
    }
    if (rules && rules->deletewaits) {
        return Tr("Note: deletemail is on. Mail is deleted on the server when every address that is switched on has "
                  "it: "
                  "one outside its schedule is waited for, one that is switched off is not.") +
               '\n';
    }
    return Tr("Note: deletemail is on. Mail is deleted on the server when the addresses that take part in a run have "
              "it: "
              "one that is switched off or outside its schedule never gets what is deleted meanwhile.") +
           '\n';
}

}  // namespace tarvex::host
