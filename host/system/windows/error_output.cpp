// Writes to standard error on a thread of its own: a console in which somebody selects text, and a pipe that is full,
// keep their writers waiting.

#include "host/system/error_output.h"

#include <windows.h>

#include <condition_variable>
#include <mutex>
#include <string>

namespace tarvex::host {
namespace {

constexpr std::chrono::seconds kPatienceAtTheEnd{1};

void WriteAll(HANDLE output, std::string_view text) {
    while (!text.empty()) {
        DWORD written = 0;
        if (!WriteFile(output, text.data(), static_cast<DWORD>(text.size()), &written, nullptr)) return;
        text.remove_prefix(written);
    }
}

}  // namespace

struct ErrorOutput::Way {
    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    std::string text;  // that is being written
    bool ends = false;
    HANDLE thread = nullptr;

    static DWORD WINAPI Main(void* way) {
        static_cast<Way*>(way)->Work();
        return 0;
    }

    void Work() {
        const HANDLE output = GetStdHandle(STD_ERROR_HANDLE);
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return ends || !text.empty(); });
            if (text.empty()) return;
            lock.unlock();  // nobody changes the text until it is empty
            WriteAll(output, text);
            lock.lock();
            text.clear();
            changed.notify_all();
        }
    }
};

ErrorOutput::ErrorOutput() : way_(std::make_unique<Way>()) {
    way_->thread = CreateThread(nullptr, 0, &Way::Main, way_.get(), 0, nullptr);
}

ErrorOutput::~ErrorOutput() {
    TakesMore(kPatienceAtTheEnd);
    {
        const std::lock_guard lock(way_->mutex);
        way_->ends = true;
    }
    way_->changed.notify_all();
    while (way_->thread && WaitForSingleObject(way_->thread, 10) == WAIT_TIMEOUT) CancelSynchronousIo(way_->thread);
    if (way_->thread) CloseHandle(way_->thread);
}

bool ErrorOutput::TakesMore(std::chrono::milliseconds patience) const {
    std::unique_lock lock(way_->mutex);
    return way_->thread && way_->changed.wait_for(lock, patience, [this] { return way_->text.empty(); });
}

std::size_t ErrorOutput::Write(std::string_view text) {
    {
        const std::lock_guard lock(way_->mutex);
        way_->text = text;
    }
    way_->changed.notify_all();
    return text.size();
}

}  // namespace tarvex::host
