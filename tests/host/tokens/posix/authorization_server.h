#pragma once

// A provider's server on loopback: HTTP or HTTPS, one request a connection, answered by the test.

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "testing/scripted_server.h"

namespace tarvex::testing {

struct ProviderRequest {
    std::string path;
    std::map<std::string, std::string> form;
};

struct ProviderAnswer {
    int status = 200;
    std::string body;
    std::string more_header = {};
};

class AuthorizationServer {
public:
    // Nothing: the connection stays open without an answer until the client closes it. Called on the server's thread.
    using Handler = std::function<std::optional<ProviderAnswer>(const ProviderRequest&)>;

    explicit AuthorizationServer(Handler handler, std::optional<TlsIdentity> identity = std::nullopt);
    ~AuthorizationServer();

    std::string Url(const std::string& path) const;

    // Those that came so far.
    std::vector<ProviderRequest> Requests() const;

    // The file of a provider whose server this is.
    std::string ProviderFile() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::testing
