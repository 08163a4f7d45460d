// The one table from the kinds of failure to the names that the front door has for them.

#include "transfer/failure_meaning.h"

#include <array>
#include <cstddef>

namespace tarvex {
namespace {

using K = FailureKind;
using C = CFailureClass;
using R = CProbeReason;

constexpr std::array kMeanings = {
    FailureMeaning{K::None, C::None, PROBE_REFUSED, R::None},
    FailureMeaning{K::NoSuchServer, C::Connection, PROBE_NO_SUCH_SERVER, R::None},
    FailureMeaning{K::NotListening, C::Connection, PROBE_NO_CONNECTION, R::NotListening},
    FailureMeaning{K::NoRoute, C::Connection, PROBE_NO_CONNECTION, R::NoRoute},
    FailureMeaning{K::NoConnection, C::Connection, PROBE_NO_CONNECTION, R::None},
    FailureMeaning{K::TimedOut, C::TimeOut, PROBE_TIMED_OUT, R::None},
    FailureMeaning{K::NoTls, C::Connection, PROBE_NO_TLS, R::None},
    FailureMeaning{K::TlsRefused, C::Connection, PROBE_NO_TLS, R::TlsRefused},
    FailureMeaning{K::CertificateOfOther, C::Connection, PROBE_BAD_CERTIFICATE, R::OtherName},
    FailureMeaning{K::CertificateOutOfDate, C::Connection, PROBE_BAD_CERTIFICATE, R::OutOfDate},
    FailureMeaning{K::CertificateNotTrusted, C::Connection, PROBE_BAD_CERTIFICATE, R::NotTrusted},
    FailureMeaning{K::CertificateNotAccepted, C::Connection, PROBE_BAD_CERTIFICATE, R::None},
    FailureMeaning{K::Protocol, C::Protocol, PROBE_WRONG_PROTOCOL, R::None},
    FailureMeaning{K::Lost, C::Connection, PROBE_LOST, R::None},
    FailureMeaning{K::Interrupted, C::Local, PROBE_LOST, R::None},
    FailureMeaning{K::Local, C::Local, PROBE_LOCAL, R::None},
};

constexpr bool EachKindHasItsRow() {
    for (std::size_t i = 0; i < kMeanings.size(); ++i) {
        if (kMeanings[i].kind != static_cast<K>(i)) return false;
    }
    return kMeanings.back().kind == K::Local;  // the last kind
}
static_assert(EachKindHasItsRow());

}  // namespace

const FailureMeaning& MeaningOf(FailureKind kind) { return kMeanings[static_cast<std::size_t>(kind)]; }

}  // namespace tarvex
