// Events of the console window, and controls of the service manager. A thread waits for them.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/order_line.h"

#include <boost/asio/post.hpp>
#include <thread>

#include "host/system/windows/kept_orders.h"

namespace tarvex::console {

struct OrderLine::Line {
    static constexpr ULONG_PTR kEnd = 1;

    boost::asio::io_context& context;
    std::function<void(host::Order)> told;
    host::Orders orders;
    std::thread thread;

    void Wait() {
        DWORD count = 0;
        ULONG_PTR key = 0;
        OVERLAPPED* none = nullptr;
        while (GetQueuedCompletionStatus(orders.Watched().port, &count, &key, &none, INFINITE) && key != kEnd) {
            const auto given = orders.Next();
            if (!given) continue;
            if (given->order == host::Order::Stop) orders.Release(*given);
            boost::asio::post(context, [this, order = given->order] { told(order); });
        }
    }
};

OrderLine::OrderLine(boost::asio::io_context& context, std::function<void(host::Order)> told)
    : line_(std::make_unique<Line>(context, std::move(told))) {
    line_->thread = std::thread([line = line_.get()] { line->Wait(); });
}

OrderLine::~OrderLine() {
    PostQueuedCompletionStatus(line_->orders.Watched().port, 0, Line::kEnd, nullptr);
    line_->thread.join();
}

}  // namespace tarvex::console
