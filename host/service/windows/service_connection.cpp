// Windows has no service, so there is none to connect to.

#include "host/service/service_connection.h"

namespace tarvex::host {

std::unique_ptr<ServiceConnection> ServiceConnection::Try(const std::string&) { return nullptr; }  // there are none

}  // namespace tarvex::host
