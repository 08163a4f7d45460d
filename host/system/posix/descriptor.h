#pragma once

#include <unistd.h>

#include <utility>

namespace tarvex::host {

// A file descriptor that is closed with its object; negative for none.
class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    ~Descriptor() {
        if (number_ >= 0) close(number_);
    }
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    int Get() const { return number_; }
    bool IsOpen() const { return number_ >= 0; }

private:
    int number_;
};

}  // namespace tarvex::host
