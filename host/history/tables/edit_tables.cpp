// Edits are few: they are written one by one, and looked through from the newest on.

#include "host/history/tables/edit_tables.h"

#include <algorithm>
#include <string_view>

namespace tarvex::host {
namespace {

constexpr std::size_t kMostKeys = 1000;  // of an edit
constexpr std::size_t kMostTextBytes = 1000;
constexpr std::int64_t kAtOnce = 200;

std::string_view Cut(std::string_view text) { return text.substr(0, kMostTextBytes); }

std::vector<EditedKey> KeysOf(Database& database, std::int64_t id) {
    std::vector<EditedKey> keys;
    const Database::Kept row =
        database.Lend("SELECT key, before, after FROM edit_changes WHERE edit = ? ORDER BY place");
    for (row->With(id); row->Next();) keys.push_back({row->Text(0), row->Text(1), row->Text(2)});
    return keys;
}

}  // namespace

void InsertEdit(Database& database, const MadeEdit& edit) {
    database.Lend("INSERT INTO edits (made, uid, user, caller, command, name) VALUES (?, ?, ?, ?, ?, ?)")
        ->With(edit.made, edit.by.uid, Cut(edit.by.user), Cut(edit.by.caller), Cut(edit.command), Cut(edit.name))
        .Run();
    const std::int64_t id = database.LastId();
    for (std::size_t i = 0; i < std::min(edit.keys.size(), kMostKeys); ++i) {
        const EditedKey& key = edit.keys[i];
        database.Lend("INSERT INTO edit_changes VALUES (?, ?, ?, ?, ?)")
            ->With(id, i, Cut(key.key), Cut(key.before), Cut(key.after))
            .Run();
    }
}

bool DropOldEdits(Database& database, CTime oldest) {
    const auto are_old = [&] {
        const Database::Kept first = database.Lend("SELECT made FROM edits ORDER BY id LIMIT 1");
        return first->With().Next() && first->Number(0) < oldest;
    };
    if (!are_old()) return false;
    database.Lend("DELETE FROM edits WHERE made < ?1 AND id IN (SELECT id FROM edits ORDER BY id LIMIT ?2)")
        ->With(oldest, kAtOnce)
        .Run();
    return true;
}

std::vector<MadeEdit> FindEdits(Database& database, const HistorySearch& search) {
    std::vector<MadeEdit> edits;
    const Database::Kept row = database.Lend(
        "SELECT id, made, uid, user, caller, command, name FROM edits WHERE made >= ?1"
        " AND (?2 = '' OR name = ?2 OR substr(name, 1, length(?2) + 1) = ?2 || '/') ORDER BY id DESC LIMIT ?3");
    for (row->With(search.since, search.name, search.most); row->Next();) {
        edits.push_back({row->Number(1),
                         {row->Number(2), row->Text(3), row->Text(4)},
                         row->Text(5),
                         row->Text(6),
                         KeysOf(database, row->Number(0))});
    }
    return edits;
}

}  // namespace tarvex::host
