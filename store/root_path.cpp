// The root of the tree.

#include "platform/os/files.h"
#include "platform/os/shield.h"
#include "store/children.h"
#include "store/loaded.h"
#include "store/tree_loading.h"
#include "tarvex/tree.h"

using namespace tarvex;

CRootPath::~CRootPath() {
    RefreshThread();
    KillThread();
    DeleteAllUser();
}

int CRootPath::SetRootPath(CString root) {
    return Shielded(0, [&] {
        if (!PathExists(root) && !CreateOneDirectory(root)) return 0;
        std::vector<std::unique_ptr<CUser>> found;
        AppendChildren<CUser>(found, users_loaded, root, kUser, Open);
        users.swap(found);
        path.swap(root);
        return 1;
    });
}

CString CRootPath::GetRootPath() const {
    return Shielded(CString(), [&] { return path; });
}

void CRootPath::SeekUser() {
    if (!Shielded([&] { AppendChildren<CUser>(users, users_loaded, path, kUser, Open); })) NoteNoMemory(users_loaded);
}

void CRootPath::DeleteAllUser() { users.clear(); }

CUser* CRootPath::CreateNewUser(CString login_name, CString password, int administrator) {
    const auto fill = [&](CUserSetting& setting, bool taken_over) {
        setting.loginname = login_name;
        setting.password = password;
        // Taking over a directory that is there already makes nobody an administrator (B26).
        if (!taken_over) setting.administrator = administrator;
    };
    return Shielded<CUser*>(nullptr, [&] { return CreateChild<CUser>(users, path, kUser, Open, fill); });
}

int CRootPath::DeleteUser(CUser* user) { return DeleteChild(users, kUser, user); }
