// Takes descriptors away from the test process, by its limit.

#include "tests/support/shortage.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

namespace tarvex::testing {

struct NoDescriptors::Impl {
    rlimit old{};
};

NoDescriptors::NoDescriptors() : impl_(std::make_unique<Impl>()) {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &impl_->old), 0);
    const rlimit none{1, impl_->old.rlim_max};  // the one is standard input; poll watches no more than the limit
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
}

NoDescriptors::~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &impl_->old); }

}  // namespace tarvex::testing
