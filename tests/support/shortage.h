#pragma once

// What a system may run out of, taken away for as long as an object lives.

#include <memory>

namespace tarvex::testing {

// No file and no socket can be opened.
class NoDescriptors {
public:
    NoDescriptors();
    ~NoDescriptors();
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::testing
