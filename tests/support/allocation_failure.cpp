// The test program's operator new, and when it fails.

#include "tests/support/allocation_failure.h"

#include <cstdlib>
#include <new>

namespace {

thread_local long allocations_left = 0;  // until one fails, that one included; 0: none fails
thread_local bool failures_last = false;
thread_local bool allocation_failed = false;

void Allocate() {
    if (allocations_left == 0 || --allocations_left > 0) return;
    allocation_failed = true;
    if (failures_last) allocations_left = 1;
    throw std::bad_alloc();
}

}  // namespace

void tarvex::testing::FailAllocation(long n, Outage outage) {
    failures_last = outage == Outage::Lasting;
    allocation_failed = false;
    allocations_left = n;
}

bool tarvex::testing::EndAllocationFailure() {
    allocations_left = 0;
    return allocation_failed;
}

// All allocations of the test program; they fail only where a test asks for it.
void* operator new(std::size_t bytes) {
    Allocate();
    if (void* memory = std::malloc(bytes == 0 ? 1 : bytes)) return memory;
    throw std::bad_alloc();
}
void* operator new[](std::size_t bytes) { return operator new(bytes); }
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {  // a sanitizer has its own
    try {
        return operator new(bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
