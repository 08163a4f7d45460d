#pragma once

// Finds out what an edit has changed, for the history.

#include <map>
#include <optional>
#include <string>

#include "host/edit/edit.h"
#include "host/history/tables/edit_tables.h"

namespace tarvex::host {

// Made before the edit, which it outlives: notes how what it names is now. On the thread that owns the tree.
class EditRecord {
public:
    EditRecord(CRootPath& root, const EditRequest& request);

    // What the edit has changed by now; nothing when it was not made, or everything is as it was. Of passwords it says
    // that they were changed, and no more; of programs not their arguments.
    std::optional<MadeEdit> After(int exit_code, EditedBy by);

private:
    using Values = std::map<std::string, std::string>;  // by key

    Values ValuesNow();
    Values ValuesAfter();
    Values OfSchedule();
    std::string NameOfNew() const;

    CRootPath& root_;
    const EditRequest& request_;
    std::string name_;  // user0/from0; empty: the tree, or not known
    Values before_;
};

}  // namespace tarvex::host
