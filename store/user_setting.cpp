// userset.def: the login of a user.

#include <array>

#include "platform/os/shield.h"
#include "store/record.h"
#include "store/tree_loading.h"
#include "tarvex/settings.h"

namespace tarvex {
namespace {

using R = CUserSetting;

constexpr std::array kKeys = {
    Key<R>{"[version]", IntegerField<R>{&R::version}, Assigned::No},
    Key<R>{"[loginname]", TextField<R>{&R::loginname}},
    Key<R>{"[password]", PasswordField<R>{&R::password}},
    Key<R>{"[status]", IntegerField<R>{&R::status}},
    Key<R>{"[administrator]", IntegerField<R>{&R::administrator}},
};
constexpr RecordFormat<R> kFormat{"\\userset.def", LineTrimming::LeadingWhiteSpace, kKeys};

}  // namespace

int LoadRecord(CUserSetting& setting, const CString& directory, CLoaded& loaded) {
    // Unlike a POP profile, a user does not ask for a password to be rewritten.
    return ReadRecord(setting, directory, kFormat, loaded) != 0 ? 1 : 0;
}

}  // namespace tarvex

using namespace tarvex;

CUserSetting::CUserSetting() = default;

CUserSetting::CUserSetting(const CUserSetting& other) {
    Shielded([&] { CopyAllFields(*this, other, kFormat); });
}

CUserSetting& CUserSetting::operator=(const CUserSetting& other) {
    Shielded([&] { AssignFields(*this, other, kFormat); });
    return *this;
}

CUserSetting::~CUserSetting() = default;

void CUserSetting::Initialize() {
    CUserSetting defaults;
    SwapAllFields(*this, defaults, kFormat);
}

int CUserSetting::Load(CString directory) {
    CLoaded ignored;
    return Shielded(0, [&] { return LoadRecord(*this, directory, ignored); });
}

int CUserSetting::Save(CString directory) const {
    return Shielded(0, [&] { return WriteRecord(*this, directory, kFormat) ? 1 : 0; });
}

int CUserSetting::operator==(const CUserSetting& other) const { return SameFields(*this, other, kFormat) ? 1 : 0; }
