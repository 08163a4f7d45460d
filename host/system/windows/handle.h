#pragma once

#include <windows.h>

#include <utility>

namespace tarvex::host {

// A handle that is closed with its object; null for none.
class Handle {
public:
    explicit Handle(HANDLE handle = nullptr) : handle_(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
    ~Handle() {
        if (handle_) CloseHandle(handle_);
    }
    Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(handle_, other.handle_);
        return *this;
    }

    HANDLE Get() const { return handle_; }
    bool IsOpen() const { return handle_ != nullptr; }
    HANDLE Release() { return std::exchange(handle_, nullptr); }  // it is the caller's to close

private:
    HANDLE handle_;
};

}  // namespace tarvex::host
