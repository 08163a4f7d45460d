// A command's end of the named pipe.

#include "host/service/command_channel.h"

#include <windows.h>

#include <algorithm>
#include <utility>

#include "host/language/tr.h"
#include "host/service/windows/control_pipe.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/windows/pipes.h"

namespace tarvex::host {
namespace {

constexpr DWORD kPiece_bytes = 64 << 10;
constexpr std::chrono::milliseconds kConnectPatience{1000};

// One operation at a time, which may take its time.
class PipeChannel : public CommandChannel {
public:
    explicit PipeChannel(Handle pipe) : pipe_(std::move(pipe)), done_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}
    ~PipeChannel() override { GiveUp(); }

    bool Send(std::string_view bytes) override {
        while (!bytes.empty()) {
            OVERLAPPED writing{};
            writing.hEvent = done_.Get();
            const DWORD size = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), kPiece_bytes));
            DWORD sent = 0;
            const bool begins = WriteFile(pipe_.Get(), bytes.data(), size, nullptr, &writing) != 0;
            if (!begins && GetLastError() != ERROR_IO_PENDING) return HasGone();
            if (!GetOverlappedResult(pipe_.Get(), &writing, &sent, TRUE)) return HasGone();
            bytes.remove_prefix(sent);
        }
        return true;
    }

    // What comes meanwhile is kept.
    bool HasMore(std::chrono::milliseconds time) override {
        return !came_.empty() || !Read() || Ends(static_cast<DWORD>(time.count()));
    }

    std::optional<std::string> Receive(std::size_t size) override {
        while (came_.size() < size) {
            if (!Read() || !Ends(patience_)) return std::nullopt;
            DWORD count = 0;
            is_reading_ = false;
            if (!GetOverlappedResult(pipe_.Get(), &reading_, &count, FALSE)) return std::nullopt;
            came_.append(piece_, 0, count);
        }
        std::string bytes = came_.substr(0, size);
        came_.erase(0, size);
        return bytes;
    }

    void SetPatience(std::chrono::milliseconds patience) override { patience_ = static_cast<DWORD>(patience.count()); }

private:
    static bool HasGone() {
        const DWORD error = GetLastError();
        return error == ERROR_BROKEN_PIPE || error == ERROR_NO_DATA || error == ERROR_PIPE_NOT_CONNECTED;
    }

    // Begins to, unless it has. False when nothing will come any more.
    bool Read() {
        if (is_reading_) return true;
        reading_ = {};
        reading_.hEvent = done_.Get();
        is_reading_ = ReadFile(pipe_.Get(), piece_.data(), kPiece_bytes, nullptr, &reading_) != 0 ||
                      GetLastError() == ERROR_IO_PENDING;
        return is_reading_;
    }

    bool Ends(DWORD milliseconds) const { return WaitForSingleObject(done_.Get(), milliseconds) == WAIT_OBJECT_0; }

    // The system must not write into the room of what has gone.
    void GiveUp() {
        DWORD count = 0;
        if (!is_reading_) return;
        CancelIoEx(pipe_.Get(), &reading_);
        GetOverlappedResult(pipe_.Get(), &reading_, &count, TRUE);
    }

    Handle pipe_;
    Handle done_;
    OVERLAPPED reading_{};
    std::string piece_ = std::string(kPiece_bytes, '\0');
    bool is_reading_ = false;
    std::string came_;
    DWORD patience_ = INFINITE;
};

// Waits while all of them are taken.
Handle OpenFreePipe(const std::wstring& name) {
    const auto deadline = std::chrono::steady_clock::now() + kConnectPatience;
    for (;;) {
        Handle pipe = OpenPipe(name);
        if (pipe.IsOpen() || GetLastError() != ERROR_PIPE_BUSY) return pipe;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0 || !WaitNamedPipeW(name.c_str(), static_cast<DWORD>(left.count())))
            throw CommandError(kTryLater, Tr("the service that owns the tree does not answer"));
    }
}

}  // namespace

std::unique_ptr<CommandChannel> CommandChannel::Open(const std::string& root) {
    const std::wstring name = PipeName(root);
    if (name.empty()) return nullptr;
    Handle pipe = OpenFreePipe(name);
    if (!pipe.IsOpen()) {
        if (GetLastError() != ERROR_ACCESS_DENIED) return nullptr;
        throw CommandError(kNotAllowed, Tr("the service of \"{0}\" takes nothing from this user: it is for its own and "
                                           "for administrators (\"Run as administrator\")",
                                           ShowPath(root)));
    }
    if (!HasTrustedServer(pipe.Get()))
        throw CommandError(kNotAllowed,
                           Tr("what answers for the service of \"{0}\" is another user's", ShowPath(root)));
    return std::make_unique<PipeChannel>(std::move(pipe));
}

}  // namespace tarvex::host
