#pragma once

// The system's service manager, where there is one that Tarvex knows: systemd.

#include <memory>
#include <string>

namespace tarvex::host {

// Enables and starts the service of a tree. The superuser alone can, and works as the owner of the tree by then: a
// child process that is made at once keeps the rights for that one purpose.
class ServiceStarter {
public:
    // Before the process has other threads, and before it works as another user. `systemd_folder`: is there while
    // systemd runs.
    explicit ServiceStarter(const std::string& tree, const std::string& systemd_folder = "/run/systemd/system");
    ~ServiceStarter();
    ServiceStarter(const ServiceStarter&) = delete;
    ServiceStarter& operator=(const ServiceStarter&) = delete;

    // The unit that serves the tree, "tarvex" or "tarvex@shop"; empty where Start cannot work.
    const std::string& Unit() const { return unit_; }

    // False when systemctl fails, which says why on standard error.
    [[nodiscard]] bool Start();

private:
    struct Helper;

    std::string unit_;
    std::unique_ptr<Helper> helper_;
};

}  // namespace tarvex::host
