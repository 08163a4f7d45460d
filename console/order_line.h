#pragma once

// What the system asks of the console while it serves: to end, or to load its certificate again.

#include <boost/asio/io_context.hpp>
#include <functional>
#include <memory>

#include "host/system/orders.h"

namespace tarvex::console {

class OrderLine {
public:
    // Each order is told on the context's thread. One in a process, and before there are other threads.
    OrderLine(boost::asio::io_context& context, std::function<void(host::Order)> told);
    ~OrderLine();
    OrderLine(const OrderLine&) = delete;
    OrderLine& operator=(const OrderLine&) = delete;

private:
    struct Line;
    std::unique_ptr<Line> line_;
};

}  // namespace tarvex::console
