// forwardaddress.def: the settings of a forwarding address.

#include <array>

#include "platform/os/files.h"
#include "platform/os/shield.h"
#include "store/record.h"
#include "store/tree_loading.h"
#include "tarvex/settings.h"

namespace tarvex {
namespace {

using R = CForwardAddressSetting;

// The spare integer has no key, so no operation of the table touches it.
constexpr std::array kKeys = {
    Key<R>{"[version]", NoField{}},
    Key<R>{"[nickname]", TextField<R>{&R::nickname}},
    Key<R>{"[address]", TextField<R>{&R::address}},
    Key<R>{"[status]", IntegerField<R>{&R::status}},
    Key<R>{"[textonly]", IntegerField<R>{&R::textonly}},
    Key<R>{"[cutwhite]", IntegerField<R>{&R::cutwhite}},
    Key<R>{"[htmltotext]", IntegerField<R>{&R::htmltotext}},
    Key<R>{"[compress_words]", TextField<R>{&R::compress_words}},
};
constexpr RecordFormat<R> kFormat{"\\forwardaddress.def", LineTrimming::BlanksAtBothEnds, kKeys};

}  // namespace

int LoadRecord(CForwardAddressSetting& setting, const CString& directory, CLoaded& loaded) {
    CForwardAddressSetting draft;
    AssignFields(draft, setting, kFormat);
    // The directory's own name stands in for an address that the file does not give, also when there is no file.
    draft.address = LastComponent(directory);
    const int result = ReadRecord(draft, directory, kFormat, loaded);
    SwapAllFields(setting, draft, kFormat);
    return result;
}

void AssignRecord(CForwardAddressSetting& target, const CForwardAddressSetting& source) {
    AssignFields(target, source, kFormat);
}

}  // namespace tarvex

using namespace tarvex;

CForwardAddressSetting::CForwardAddressSetting() = default;

CForwardAddressSetting::CForwardAddressSetting(const CForwardAddressSetting& other) : spare(other.spare) {
    Shielded([&] { CopyAllFields(*this, other, kFormat); });
}

CForwardAddressSetting& CForwardAddressSetting::operator=(const CForwardAddressSetting& other) {
    Shielded([&] { AssignRecord(*this, other); });
    return *this;
}

CForwardAddressSetting::~CForwardAddressSetting() = default;

void CForwardAddressSetting::Initialize() {
    CForwardAddressSetting defaults;
    SwapAllFields(*this, defaults, kFormat);
    spare = 0;
}

int CForwardAddressSetting::Load(CString directory) {
    CLoaded ignored;
    return Shielded(0, [&] { return LoadRecord(*this, directory, ignored); });
}

int CForwardAddressSetting::Save(CString directory) const {
    return Shielded(0, [&] { return WriteRecord(*this, directory, kFormat) ? 1 : 0; });
}

int CForwardAddressSetting::operator==(const CForwardAddressSetting& other) const {
    return SameFields(*this, other, kFormat) ? 1 : 0;
}
