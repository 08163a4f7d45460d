// Windows has no service of Tarvex: a program of its own serves a tree there.

#include "host/service/service_starter.h"

namespace tarvex::host {

struct ServiceStarter::Helper {};

ServiceStarter::ServiceStarter(const std::string& /*tree*/, const std::string& /*systemd_folder*/) {}

ServiceStarter::~ServiceStarter() = default;

bool ServiceStarter::Start() { return false; }

}  // namespace tarvex::host
