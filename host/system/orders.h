#pragma once

// What the system asks of a service: signals on POSIX; on Windows events of the console and the controls of the service
// manager.

#include <memory>
#include <optional>
#include <string>

namespace tarvex::host {

enum class Order {
    Stop,
    Reload,    // the tree
    Hold,      // runs back, until Continue
    Continue,  //
};

struct GivenOrder {
    Order order = Order::Stop;
    std::string by;  // "SIGTERM", "Ctrl-C"
};

class Orders {
public:
    // From now on orders do not end the process but are kept for Next. SIGHUP, SIGINT and SIGTERM are, unless they are
    // ignored; SIGPIPE is ignored. One in a process, and before there are other threads.
    Orders();
    ~Orders();
    Orders(const Orders&) = delete;
    Orders& operator=(const Orders&) = delete;

    std::optional<GivenOrder> Next();

    // What has given this order to stop ends the process when it gives it again.
    void Release(const GivenOrder& given);

    struct Kept;  // what to wait for until there is an order: in the posix/ or windows/ folder
    const Kept& Watched() const { return *kept_; }

private:
    std::unique_ptr<Kept> kept_;
};

}  // namespace tarvex::host
