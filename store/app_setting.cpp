// appset.def: the application-wide settings.

#include <array>

#include "platform/os/files.h"
#include "platform/os/shield.h"
#include "store/record.h"
#include "tarvex/settings.h"

namespace tarvex {
namespace {

using R = CAppSetting;

constexpr std::array kKeys = {
    Key<R>{"[version]", NoField{}},
    Key<R>{"[rootpath]", TextField<R>{&R::rootpath}},
    Key<R>{"[allowcreatenewuser]", IntegerField<R>{&R::allowcreatenewuser}},
};
constexpr RecordFormat<R> kFormat{"\\appset.def", LineTrimming::BlanksAtBothEnds, kKeys};

}  // namespace
}  // namespace tarvex

using namespace tarvex;

CAppSetting::CAppSetting() {
    Shielded([this] { rootpath = GetApplicationPath() + "\\TarvexRoot"; });
}

CAppSetting::CAppSetting(const CAppSetting& other) : CAppSetting() { *this = other; }

CAppSetting& CAppSetting::operator=(const CAppSetting& other) {
    Shielded([&] { AssignFields(*this, other, kFormat); });
    return *this;
}

CAppSetting::~CAppSetting() = default;

void CAppSetting::Initialize() {
    CAppSetting defaults;
    SwapAllFields(*this, defaults, kFormat);
}

int CAppSetting::Load(CString directory) {
    CLoaded ignored;
    return Shielded(0, [&] { return ReadRecord(*this, directory, kFormat, ignored); });
}

int CAppSetting::Save(CString directory) const {
    return Shielded(0, [&] { return WriteRecord(*this, directory, kFormat) ? 1 : 0; });
}

int CAppSetting::operator==(const CAppSetting& other) const {
    return rootpath == other.rootpath || allowcreatenewuser == other.allowcreatenewuser ? 1 : 0;
}
