#pragma once

// Memory that runs out where a test asks for it: on the calling thread alone.

namespace tarvex::testing {

enum class Outage {
    Once,    // one allocation fails
    Lasting  // and all that follow it
};

// Lets the n-th allocation from here on fail, counted from 1.
void FailAllocation(long n, Outage outage = Outage::Once);

// Memory is there again. True when an allocation has failed since FailAllocation.
bool EndAllocationFailure();

}  // namespace tarvex::testing
