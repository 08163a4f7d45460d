// What the POP3 and the SMTP socket share.

#include "platform/net/sockets.h"

#include <utility>

#include "platform/net/connection.h"
#include "platform/net/limits.h"
#include "platform/os/shield.h"

namespace tarvex {

namespace {

constexpr int kStreamSocket = 1;

}  // namespace

CBaseSocket::CBaseSocket() : connection_(std::make_unique<Connection>()), timeout_s_(kDefaultTimeOutSeconds) {}

// Without memory for the goodbye the connection closes all the same, as it is destroyed.
CBaseSocket::~CBaseSocket() {
    Shielded([this] { connection_->Close(); });
}

void CBaseSocket::SetTimeOut(int seconds) { timeout_s_ = seconds > 0 ? seconds : kDefaultTimeOutSeconds; }

std::chrono::milliseconds CBaseSocket::TimeOut() const { return std::chrono::seconds(timeout_s_); }

void CBaseSocket::AnnounceSteps(OnConnectStep on_step) { connection_->AnnounceSteps(std::move(on_step)); }

void CBaseSocket::KeepFailure() {
    timed_out = connection_->Why().kind == FailureKind::TimedOut ? 1 : 0;
    failed = 1;
}

void CBaseSocket::ForgetFailure() { timed_out = failed = 0; }

bool CBaseSocket::IsSafeArgument(std::string_view argument) {
    return argument.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

int CSocketX::Create(unsigned port, int type, const char* address) {
    const bool supported = port == 0 && type == kStreamSocket && (address == nullptr || *address == '\0');
    return supported && connection_->Reserve() ? 1 : 0;
}

void CSocketX::Close() { connection_->Close(); }

}  // namespace tarvex
