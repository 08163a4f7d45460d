#pragma once

// The HTTP server: reads requests, lets the site decide, puts questions to the desk, writes the answers. One thread.

#include <functional>
#include <string>

#include "console/place.h"
#include "console/site.h"

namespace tarvex::console {

struct ServerOptions {
    Place place;              // where it listens
    std::string group;        // who may connect to a Unix socket there
    std::string desk;         // the path of its socket; on Windows the name of its pipe
    std::string certificate;  // PEM files, or both empty: HTTP in clear
    std::string key;
};

// Serves what connects until an order to stop. One to load again is for the certificate. Tells when it listens, and at
// which port, 0 for a Unix socket. Throws CommandError when it cannot listen or load the certificate at the start.
void Serve(const ServerOptions& options, const Site& site, const std::function<void(int port)>& listens);

}  // namespace tarvex::console
