// Windows has no server of figures; `tarvex metrics` writes them to a file.

#include "host/metrics/metrics_server.h"

#include "host/system/command_error.h"

namespace tarvex::host {

class MetricsServer::Sockets {};

MetricsServer::MetricsServer(const std::string& /*root*/, const std::string& /*place*/) {
    throw CommandError(kBadUsage,
                       "metrics are not served on Windows; `tarvex metrics --output FILE` writes them to a file");
}

MetricsServer::~MetricsServer() = default;

void MetricsServer::Tell(std::vector<MeasuredProfile> /*profiles*/) {}

const std::string& MetricsServer::Place() const {
    static const std::string nowhere;
    return nowhere;
}

}  // namespace tarvex::host
