#pragma once

// The HTTP server: reads requests, lets the site decide, puts questions to the desk, writes the answers. One thread.

#include <string>

#include "console/site.h"
#include "host/system/posix/descriptor.h"

namespace tarvex::console {

struct ServerOptions {
    std::string desk;         // the path of its socket
    std::string certificate;  // PEM files, or both empty: HTTP in clear
    std::string key;
};

// Serves what connects to the listening socket until SIGTERM or SIGINT. SIGHUP loads the
// certificate anew. Throws CommandError when the certificate cannot be loaded at the start.
void Serve(const host::Descriptor& listener, const ServerOptions& options, const Site& site);

}  // namespace tarvex::console
