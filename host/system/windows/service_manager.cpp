// Nobody manages the service yet: it is started in a console.

#include "host/system/service_manager.h"

namespace tarvex::host {

struct ServiceManager::Line {};

ServiceManager::ServiceManager() = default;
ServiceManager::~ServiceManager() = default;

void ServiceManager::Ready() const {}
void ServiceManager::Reloading() const {}
void ServiceManager::Holding() const {}
void ServiceManager::Stopping() const {}
void ServiceManager::KeepAlive() const {}

std::optional<std::chrono::microseconds> ServiceManager::KeepAliveInterval() const { return std::nullopt; }

}  // namespace tarvex::host
