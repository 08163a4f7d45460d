// Signals: SIGTERM and SIGINT end the console, SIGHUP has it load its certificate again.

#include <utility>  // Boost.Asio 1.74 leaves it out

#include "console/order_line.h"

#include <boost/asio/signal_set.hpp>
#include <csignal>

namespace tarvex::console {

using boost::system::error_code;

struct OrderLine::Line {
    Line(boost::asio::io_context& context, std::function<void(host::Order)> told_to)
        : signals(context, SIGTERM, SIGINT, SIGHUP), told(std::move(told_to)) {}

    boost::asio::signal_set signals;
    std::function<void(host::Order)> told;

    void Await() {
        signals.async_wait([this](error_code error, int signal) {
            if (error) return;
            told(signal == SIGHUP ? host::Order::Reload : host::Order::Stop);
            Await();
        });
    }
};

OrderLine::OrderLine(boost::asio::io_context& context, std::function<void(host::Order)> told)
    : line_(std::make_unique<Line>(context, std::move(told))) {
    line_->Await();
}

OrderLine::~OrderLine() = default;

}  // namespace tarvex::console
