// The named pipe of the desk. Its access list decides who may connect: this user, administrators, and the account of
// the console's service.

#include "host/desk/desk_channel.h"

#include <windows.h>

#include <algorithm>
#include <functional>
#include <mutex>
#include <new>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include "host/language/tr.h"
#include "host/system/error_words.h"
#include "host/system/windows/accounts.h"
#include "host/system/windows/pipes.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

using Clock = DeskConnection::Clock;

constexpr std::size_t kPiece_bytes = 64 << 10;

// Something that the system does with a pipe. It ends with the object at the latest.
class Operation {
public:
    // Throws std::bad_alloc.
    explicit Operation(HANDLE pipe) : pipe_(pipe) {
        if (!done_.IsOpen()) throw std::bad_alloc();
        overlapped_.hEvent = done_.Get();
    }
    ~Operation() {
        if (!is_under_way_) return;
        CancelIoEx(pipe_, &overlapped_);
        Count();
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    // `start` is given what the system wants and says whether it is done already.
    template <class Start>
    bool Begin(Start start) {
        is_under_way_ = start(&overlapped_) || GetLastError() == ERROR_IO_PENDING;
        return is_under_way_;
    }

    HANDLE Done() const { return done_.Get(); }

    // How many bytes were moved; none when it has failed. Waits for the end.
    std::optional<DWORD> Count() {
        DWORD count = 0;
        is_under_way_ = false;
        if (!GetOverlappedResult(pipe_, &overlapped_, &count, TRUE)) return std::nullopt;
        return count;
    }

private:
    HANDLE pipe_;
    Handle done_{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    OVERLAPPED overlapped_{};
    bool is_under_way_ = false;
};

class PipeConnection : public DeskConnection {
public:
    // `closing` is called before it is closed.
    PipeConnection(Handle pipe, std::function<void()> closing) : pipe_(std::move(pipe)), closing_(std::move(closing)) {}
    ~PipeConnection() override { closing_(); }

    bool Read(std::size_t bytes, Clock::time_point deadline, std::string& text) override {
        while (text.size() < bytes) {
            std::string piece(std::min(kPiece_bytes, bytes - text.size()), '\0');
            const auto count = Move(deadline, [&](OVERLAPPED* overlapped) {
                return ReadFile(pipe_.Get(), piece.data(), static_cast<DWORD>(piece.size()), nullptr, overlapped) != 0;
            });
            if (!count) return false;
            text.append(piece, 0, *count);
        }
        return true;
    }

    // What is still in the pipe goes with it: the other side has taken all when it closes.
    void Write(std::string_view text, Clock::time_point deadline) override {
        while (!text.empty()) {
            const auto size = static_cast<DWORD>(std::min(text.size(), kPiece_bytes));
            const auto count = Move(deadline, [&](OVERLAPPED* overlapped) {
                return WriteFile(pipe_.Get(), text.data(), size, nullptr, overlapped) != 0;
            });
            if (!count) return;
            text.remove_prefix(*count);
        }
        std::string nothing;
        (void)Read(1, deadline, nothing);
    }

private:
    template <class Start>
    std::optional<DWORD> Move(Clock::time_point deadline, Start start) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        Operation operation(pipe_.Get());
        if (left <= 0 || !operation.Begin(start)) return std::nullopt;
        if (WaitForSingleObject(operation.Done(), static_cast<DWORD>(left)) != WAIT_OBJECT_0) return std::nullopt;
        return operation.Count();
    }

    Handle pipe_;
    std::function<void()> closing_;
};

}  // namespace

struct DeskListener::Way {
    std::wstring path;
    Handle stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
    std::mutex mutex;          // of what follows
    std::vector<Handle> free;  // instances of the pipe at which no thread waits for a client

    Handle Instance() {
        const std::lock_guard lock(mutex);
        if (free.empty()) return MakePipe(path, false, kConsoleUser);
        Handle pipe = std::move(free.back());
        free.pop_back();
        return pipe;
    }

    // There is never none: nobody else can take the name, and nobody asks in vain.
    std::unique_ptr<DeskConnection> Take(Handle pipe) {
        return std::make_unique<PipeConnection>(std::move(pipe), [this] {
            try {
                const std::lock_guard lock(mutex);
                free.push_back(MakePipe(path, false, kConsoleUser));
            } catch (const std::exception&) {  // the system has no room for one now
            }
        });
    }
};

DeskListener::DeskListener(const std::string& place, const std::string& /*group*/) : way_(std::make_unique<Way>()) {
    if (place.find_first_of("\\/") != std::string::npos)
        throw CannotListenForConsole(place, Tr("the name of a pipe has no slashes"));
    if (!way_->stop.IsOpen()) throw std::bad_alloc();
    way_->path = PipePath(place);
    try {
        way_->free.push_back(MakePipe(way_->path, true, kConsoleUser));
    } catch (const std::system_error& error) {
        throw CannotListenForConsole(place, WordsOf(error.code()));
    }
}

DeskListener::~DeskListener() = default;

std::unique_ptr<DeskConnection> DeskListener::Accept(std::chrono::milliseconds time,
                                                     const std::function<void()>& rest) {
    constexpr DWORD kMoment_ms = 100;
    while (WaitForSingleObject(way_->stop.Get(), 0) != WAIT_OBJECT_0) {
        Handle pipe;
        try {
            pipe = way_->Instance();
        } catch (const std::system_error&) {  // the system has no room for one now
            WaitForSingleObject(way_->stop.Get(), kMoment_ms);
            continue;
        }
        Operation connecting(pipe.Get());
        const bool begins =
            connecting.Begin([&pipe](OVERLAPPED* overlapped) { return ConnectNamedPipe(pipe.Get(), overlapped) != 0; });
        // Whoever was quicker is there already.
        if (!begins && GetLastError() == ERROR_PIPE_CONNECTED) return way_->Take(std::move(pipe));
        if (!begins) continue;
        const HANDLE either[] = {way_->stop.Get(), connecting.Done()};
        DWORD happened = WAIT_TIMEOUT;
        while (happened == WAIT_TIMEOUT) {
            happened = WaitForMultipleObjects(2, either, FALSE, static_cast<DWORD>(time.count()));
            if (happened == WAIT_TIMEOUT) rest();
        }
        if (happened == WAIT_OBJECT_0) return nullptr;
        if (connecting.Count()) return way_->Take(std::move(pipe));
    }
    return nullptr;
}

void DeskListener::Stop() { SetEvent(way_->stop.Get()); }

}  // namespace tarvex::host
