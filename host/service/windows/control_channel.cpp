// The named pipe on which the service listens. The system tells of the end of each operation by the completion port of
// the orders, so that one wait is for everything.

#include "host/service/control_channel.h"

#include <windows.h>

#include <algorithm>
#include <cstdlib>
#include <system_error>
#include <utility>

#include "host/service/windows/control_pipe.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/error_words.h"
#include "host/system/windows/accounts.h"
#include "host/system/windows/handle.h"
#include "host/system/windows/kept_orders.h"
#include "host/system/windows/pipes.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kReadPiece_bytes = 64 << 10;
constexpr std::size_t kWritePiece_bytes = 1 << 20;
constexpr std::size_t kWaitingPipes = 8;  // for commands that come at the same time

std::system_error Failure() { return {static_cast<int>(GetLastError()), std::system_category()}; }

// Something that the system does, and the room it does it in. It lives until the port has told of its end, also when
// nobody waits for that any more.
class Operation : public OVERLAPPED, public std::enable_shared_from_this<Operation> {
public:
    Operation() : OVERLAPPED{} {}

    std::string bytes;

    bool IsUnderWay() const { return kept_ != nullptr; }

    // `start` is given the operation and says whether it was begun. False when it was not.
    template <class Start>
    bool Begin(Start start) {
        static_cast<OVERLAPPED&>(*this) = {};
        kept_ = shared_from_this();
        if (start() || GetLastError() == ERROR_IO_PENDING) return true;
        kept_ = nullptr;
        return false;
    }

    void End(bool is_well, DWORD count) {
        has_failed_ = !is_well;
        count_ = count;
        has_ended_ = true;
        const std::shared_ptr<Operation> last = std::move(kept_);
    }

    bool HasEnded() const { return has_ended_; }
    bool TakeEnd() { return std::exchange(has_ended_, false); }  // once after each end
    bool HasFailed() const { return has_failed_; }
    std::size_t Count() const { return count_; }

private:
    std::shared_ptr<Operation> kept_;  // itself, while it is under way
    bool has_ended_ = false;
    bool has_failed_ = false;
    DWORD count_ = 0;
};

// Takes the news of one end, or of an order, off the port. False when there is none in that time.
bool TakeNews(HANDLE port, DWORD milliseconds) {
    DWORD count = 0;
    ULONG_PTR key = 0;
    OVERLAPPED* ended = nullptr;
    const bool is_well = GetQueuedCompletionStatus(port, &count, &key, &ended, milliseconds) != 0;
    if (ended) static_cast<Operation*>(ended)->End(is_well, count);
    return is_well || ended;
}

class PipeConnection : public ControlConnection {
public:
    explicit PipeConnection(Handle pipe) : pipe_(std::move(pipe)) {
        reading_->bytes.resize(kReadPiece_bytes);
        BeginReading();
    }
    ~PipeConnection() override { CancelIoEx(pipe_.Get(), nullptr); }

    Taken Read(std::string& bytes) override {
        if (is_broken_) return Taken::Gone;
        if (!reading_->TakeEnd()) return Taken::Nothing;
        if (reading_->HasFailed()) return Taken::Gone;
        bytes.append(reading_->bytes, 0, reading_->Count());
        has_read_ = true;
        BeginReading();
        return Taken::Some;
    }

    bool Write(std::string& bytes) override {
        if (writing_->IsUnderWay()) return true;
        if (writing_->TakeEnd()) {
            if (writing_->HasFailed()) return false;
            bytes.erase(0, writing_->Count());
        }
        if (bytes.empty()) return true;
        writing_->bytes.assign(bytes, 0, kWritePiece_bytes);
        return writing_->Begin([this] {
            return WriteFile(pipe_.Get(), writing_->bytes.data(), static_cast<DWORD>(writing_->bytes.size()), nullptr,
                             writing_.get()) != 0;
        });
    }

    bool IsWriting() const { return writing_->IsUnderWay(); }

    // Also where the port has not told of it yet.
    bool HasLeft() override {
        return is_broken_ || (HasOverlappedIoCompleted(reading_.get()) && static_cast<LONG>(reading_->Internal) < 0);
    }

    // The system knows who it is once something has been read.
    std::optional<bool> IsAllowed() override {
        if (!has_read_) return std::nullopt;
        if (!is_known_) LookAtPeer();
        return is_allowed_;
    }

    ControlPeer Peer() override { return {-1, user_.empty() ? "" : AccountName(user_)}; }

private:
    void BeginReading() {
        is_broken_ = !reading_->Begin([this] {
            return ReadFile(pipe_.Get(), reading_->bytes.data(), kReadPiece_bytes, nullptr, reading_.get()) != 0;
        });
    }

    // This thread is the client for as long as it takes to look.
    void LookAtPeer() {
        is_known_ = true;
        if (!ImpersonateNamedPipeClient(pipe_.Get())) return;
        HANDLE token = nullptr;
        const bool has_token = OpenThreadToken(GetCurrentThread(), TOKEN_QUERY, TRUE, &token) != 0;
        if (!RevertToSelf()) std::abort();
        if (!has_token) return;
        const Handle client(token);
        user_ = UserOfToken(client.Get());
        is_allowed_ = !user_.empty() && (user_ == OwnUser() || user_ == kSystemUser || IsAdministrator(client.Get()));
    }

    Handle pipe_;
    std::shared_ptr<Operation> reading_ = std::make_shared<Operation>();
    std::shared_ptr<Operation> writing_ = std::make_shared<Operation>();
    bool is_broken_ = false;
    bool has_read_ = false;
    bool is_known_ = false;
    bool is_allowed_ = false;
    std::string user_;
};

// An instance of the pipe that waits for a command.
struct WaitingPipe {
    Handle pipe;
    std::shared_ptr<Operation> connecting = std::make_shared<Operation>();
};

}  // namespace

struct ControlChannel::Listener {
    std::wstring name;
    HANDLE port = nullptr;
    std::vector<WaitingPipe> waiting;
    bool is_closed = false;

    void AddPipe(bool first);
};

// Throws std::system_error.
void ControlChannel::Listener::AddPipe(bool first) {
    WaitingPipe waits;
    waits.pipe = MakePipe(name, first);
    if (!CreateIoCompletionPort(waits.pipe.Get(), port, 1, 0)) throw Failure();
    const bool begins =
        waits.connecting->Begin([&waits] { return ConnectNamedPipe(waits.pipe.Get(), waits.connecting.get()) != 0; });
    // Whoever was quicker is there already, and the port does not tell of it.
    if (!begins && GetLastError() != ERROR_PIPE_CONNECTED) throw Failure();
    if (!begins) {
        waits.connecting->End(true, 0);
        PostQueuedCompletionStatus(port, 0, 0, nullptr);
    }
    waiting.push_back(std::move(waits));
}

ControlChannel::ControlChannel(const std::string& root, const Orders& orders)
    : listener_(std::make_unique<Listener>()) {
    listener_->name = PipeName(root);
    listener_->port = orders.Watched().port;
    try {
        listener_->AddPipe(true);
    } catch (const std::system_error& error) {
        throw CommandError(kCannotMake, "cannot listen on \"" + Utf8(listener_->name) + "\" for \"" + ShowPath(root) +
                                            "\": " + WordsOf(error.code()));
    }
}

ControlChannel::~ControlChannel() {
    Close();
    while (TakeNews(listener_->port, 0)) continue;
}

std::unique_ptr<ControlConnection> ControlChannel::Accept() {
    if (listener_->is_closed) return nullptr;
    while (listener_->waiting.size() < kWaitingPipes) listener_->AddPipe(false);
    const auto connected =
        std::ranges::find_if(listener_->waiting, [](const WaitingPipe& one) { return one.connecting->TakeEnd(); });
    if (connected == listener_->waiting.end()) return nullptr;
    Handle pipe = std::move(connected->pipe);
    listener_->waiting.erase(connected);
    return std::make_unique<PipeConnection>(std::move(pipe));
}

// The port tells of what is under way, and of nothing else: an answer that is to be sent, and whoever has connected
// while there was no room for him, are not waited for.
void ControlChannel::Wait(bool for_more, const std::vector<Watched>& watched, Clock::time_point until) {
    constexpr std::int64_t kMost_ms = 60'000;
    const bool can_accept = for_more && std::ranges::any_of(listener_->waiting, [](const WaitingPipe& one) {
                                return one.connecting->HasEnded();
                            });
    const bool can_send = std::ranges::any_of(watched, [](const Watched& one) {
        return one.to_write && !static_cast<const PipeConnection*>(one.connection)->IsWriting();
    });
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now()).count();
    const auto time = static_cast<DWORD>(can_accept || can_send ? 0 : std::clamp<std::int64_t>(left, 0, kMost_ms));
    if (!TakeNews(listener_->port, time)) return;
    while (TakeNews(listener_->port, 0)) continue;
}

void ControlChannel::Close() {
    listener_->is_closed = true;
    for (const WaitingPipe& one : listener_->waiting) CancelIoEx(one.pipe.Get(), nullptr);
    listener_->waiting.clear();
}

}  // namespace tarvex::host
