#pragma once

// What the command line says.

#include <optional>
#include <string>
#include <vector>

#include "console/server.h"
#include "console/site.h"

namespace tarvex::console {

// What is not typed, in which the systems differ.
struct UsualOptions {
    const char* desk;  // of the service
    const char* listen;
    bool is_posix;
};

const UsualOptions& Usual();

// As it was typed.
struct TypedOptions {
    std::optional<std::string> root;
    std::optional<std::string> desk;
    std::string listen = Usual().listen;
    std::string group;
    std::string certificate;
    std::string key;
    std::vector<std::string> hosts;
    std::optional<unsigned> trusted_proxies;
    bool is_service = false;  // the service manager of Windows has started it
};

struct Options {
    ServerOptions server;
    Site::Settings site;
};

// Throws CommandError for what must not be: an address that others can reach without TLS, a certificate without a key.
Options Understand(const TypedOptions& typed);

// The address of the first page, to type into a browser; empty behind a reverse proxy.
std::string FirstPage(const Options& options, int port);

}  // namespace tarvex::console
