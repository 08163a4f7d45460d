#pragma once

#include "host/system/orders.h"
#include "host/system/posix/descriptor.h"

namespace tarvex::host {

struct Orders::Kept {
    Descriptor signals;  // can be read when there is one
};

}  // namespace tarvex::host
