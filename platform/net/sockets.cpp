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

void CBaseSocket::AskForSockets(SocketGiver giver) { connection_->AskForSockets(std::move(giver)); }

const Failure& CBaseSocket::Keep(Failure failure) {
    last_failure_ = std::move(failure);
    timed_out = last_failure_.kind == FailureKind::TimedOut ? 1 : 0;
    return last_failure_;
}

bool CBaseSocket::IsSafeArgument(std::string_view argument) {
    return argument.find_first_of(std::string_view("\r\n\0", 3)) == std::string_view::npos;
}

int CSocketX::Create(unsigned port, int type, const char* address) {
    const bool supported = port == 0 && type == kStreamSocket && (address == nullptr || *address == '\0');
    if (supported && connection_->Reserve()) return 1;
    Keep({FailureKind::Local, "no socket could be made"});
    return 0;
}

void CSocketX::Close() { connection_->Close(); }

}  // namespace tarvex
