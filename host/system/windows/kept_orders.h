#pragma once

#include <windows.h>

#include <atomic>
#include <deque>
#include <mutex>

#include "host/system/orders.h"

namespace tarvex::host {

struct Orders::Kept {
    HANDLE port = nullptr;  // a completion port: gets a packet with the key 0 for each order
    std::mutex mutex;
    std::deque<GivenOrder> given;
    std::atomic<bool> is_released{false};
};

// From any thread, the service manager's and the console's among them. False when there are no Orders: nobody would
// carry it out.
bool GiveOrder(const GivenOrder& given);

}  // namespace tarvex::host
