// Asks the desk at its named pipe.

#include "tests/host/desk/desk_client.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <future>

#include "host/system/windows/pipes.h"
#include "tests/host/service/served_tree.h"

namespace tarvex::testing {

struct DeskClient::Connection {
    host::Handle pipe;
    host::Handle done{CreateEventW(nullptr, TRUE, FALSE, nullptr)};

    // How many bytes were moved; 0 when the other side has gone, or nothing happens for a long time.
    template <class Start>
    DWORD Move(Start start) {
        constexpr DWORD kPatience_ms = 20'000;
        OVERLAPPED overlapped{};
        overlapped.hEvent = done.Get();
        if (!start(&overlapped) && GetLastError() != ERROR_IO_PENDING) return 0;
        if (WaitForSingleObject(done.Get(), kPatience_ms) != WAIT_OBJECT_0) CancelIoEx(pipe.Get(), &overlapped);
        DWORD count = 0;
        return GetOverlappedResult(pipe.Get(), &overlapped, &count, TRUE) ? count : 0;
    }
};

std::string DeskClient::Place(const TempDir& folder) { return "tarvex-" + folder.Path().filename().string(); }

DeskClient::DeskClient(const std::string& place) : connection_(std::make_unique<Connection>()) {
    EXPECT_TRUE(Eventually([&] {
        connection_->pipe = host::OpenPipe(host::PipePath(place));
        return connection_->pipe.IsOpen();
    })) << GetLastError();
}

DeskClient::DeskClient(DeskClient&&) noexcept = default;
DeskClient::~DeskClient() = default;

std::string DeskClient::Exchange(const std::string& bytes) {
    const HANDLE pipe = connection_->pipe.Get();
    const DWORD sent = connection_->Move([&](OVERLAPPED* overlapped) {
        return WriteFile(pipe, bytes.data(), static_cast<DWORD>(bytes.size()), nullptr, overlapped);
    });
    EXPECT_EQ(sent, bytes.size());
    std::string answer;
    char piece[4096];
    constexpr std::size_t kLength = 4;
    std::size_t whole = kLength;  // who has all of it closes first
    while (answer.size() < whole) {
        const DWORD count = connection_->Move(
            [&](OVERLAPPED* overlapped) { return ReadFile(pipe, piece, sizeof piece, nullptr, overlapped); });
        if (count == 0) break;
        answer.append(piece, count);
        if (whole != kLength || answer.size() < kLength) continue;
        whole = 0;
        for (std::size_t i = 0; i < kLength; ++i) whole = whole << 8 | static_cast<unsigned char>(answer[i]);
        whole += kLength;
    }
    return answer;
}

}  // namespace tarvex::testing
