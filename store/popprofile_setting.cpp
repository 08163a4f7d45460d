// popprofile.def: the settings of a POP profile.

#include <array>

#include "platform/os/clock.h"
#include "platform/os/shield.h"
#include "store/record.h"
#include "store/tree_loading.h"
#include "tarvex/settings.h"

namespace tarvex {
namespace {

using R = CPopProfileSetting;

// In the order of the file, which is not that of the members (B12).
constexpr std::array kKeys = {
    Key<R>{"[version]", IntegerField<R>{&R::version}, Assigned::No},
    Key<R>{"[nickname]", TextField<R>{&R::nickname}},
    Key<R>{"[address]", TextField<R>{&R::address}},
    Key<R>{"[popuser]", TextField<R>{&R::popuser}},
    Key<R>{"[popserver]", TextField<R>{&R::popserver}},
    Key<R>{"[poppassword]", PasswordField<R>{&R::poppassword}},
    Key<R>{"[smtpuser]", TextField<R>{&R::smtpuser}},
    Key<R>{"[smtpserver]", TextField<R>{&R::smtpserver}},
    Key<R>{"[smtppassword]", PasswordField<R>{&R::smtppassword}},
    Key<R>{"[timer]", IntegerField<R>{&R::timer}},
    Key<R>{"[deletemail]", IntegerField<R>{&R::deletemail}},
    Key<R>{"[apop]", IntegerField<R>{&R::apop}},
    Key<R>{"[esmtp]", IntegerField<R>{&R::esmtp}},
    Key<R>{"[smtpauth]", IntegerField<R>{&R::smtpauth}},
    Key<R>{"[logmode]", IntegerField<R>{&R::logmode}},
    Key<R>{"[logsize]", IntegerField<R>{&R::logsize}},
    Key<R>{"[status]", IntegerField<R>{&R::status}},
    Key<R>{"[popport]", IntegerField<R>{&R::popport}},
    Key<R>{"[smtpport]", IntegerField<R>{&R::smtpport}},
    Key<R>{"[sslpop]", IntegerField<R>{&R::sslpop}},
    Key<R>{"[sslsmtp]", IntegerField<R>{&R::sslsmtp}},
    Key<R>{"[lasttime]", TimeField<R>{&R::lasttime}, Assigned::No},
    Key<R>{"[timeout]", IntegerField<R>{&R::timeout}},
    Key<R>{"[replacefrom]", IntegerField<R>{&R::replacefrom}},
    Key<R>{"[replaceto]", IntegerField<R>{&R::replaceto}},
    Key<R>{"[smtpauth_mode]", IntegerField<R>{&R::smtpauth_mode}},
};
constexpr RecordFormat<R> kFormat{"\\popprofile.def", LineTrimming::LeadingWhiteSpace, kKeys};

}  // namespace

int LoadRecord(CPopProfileSetting& setting, const CString& directory, CLoaded& loaded) {
    return ReadRecord(setting, directory, kFormat, loaded);
}

void AssignRecord(CPopProfileSetting& target, const CPopProfileSetting& source) {
    AssignFields(target, source, kFormat);
}

}  // namespace tarvex

using namespace tarvex;

// A new profile counts as having just run.
CPopProfileSetting::CPopProfileSetting() : lasttime(CurrentTime()) {}

CPopProfileSetting::CPopProfileSetting(const CPopProfileSetting& other) : CPopProfileSetting() {
    Shielded([&] { CopyAllFields(*this, other, kFormat); });
}

CPopProfileSetting& CPopProfileSetting::operator=(const CPopProfileSetting& other) {
    Shielded([&] { AssignRecord(*this, other); });
    return *this;
}

CPopProfileSetting::~CPopProfileSetting() = default;

void CPopProfileSetting::Initialize() {
    CPopProfileSetting defaults;
    SwapAllFields(*this, defaults, kFormat);
}

int CPopProfileSetting::Load(CString directory) {
    CLoaded ignored;
    return Shielded(0, [&] { return LoadRecord(*this, directory, ignored); });
}

int CPopProfileSetting::Save(CString directory) const {
    return Shielded(0, [&] { return WriteRecord(*this, directory, kFormat) ? 1 : 0; });
}

int CPopProfileSetting::operator==(const CPopProfileSetting& other) const {
    return SameFields(*this, other, kFormat) ? 1 : 0;
}
