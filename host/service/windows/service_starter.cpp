// Starts the service that is installed on Windows.

#include "host/service/service_starter.h"

#include <iostream>

#include "host/service/windows/installed_service.h"
#include "host/system/command_error.h"
#include "host/system/paths.h"
#include "host/system/tree_owner.h"

namespace tarvex::host {

struct ServiceStarter::Helper {};

// The service manager keeps its rights to itself: no helper is needed.
ServiceStarter::ServiceStarter(const std::string& tree, const std::string& /*systemd_folder*/) {
    if (NativePath(WholePath(tree)) == NativePath(ServiceRootDirectory())) unit_ = "Tarvex";
}

ServiceStarter::~ServiceStarter() = default;

bool ServiceStarter::Start() try {
    StartInstalledService(kServiceName);
    return true;
} catch (const CommandError& error) {
    std::cerr << "tarvex: " << error.what() << '\n';
    return false;
}

}  // namespace tarvex::host
