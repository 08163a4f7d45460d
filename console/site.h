#pragma once

// The console without its sockets: what is done with a request, and with the desk's answer.

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "console/desk/wire.h"
#include "console/http/message.h"
#include "console/http/router.h"

namespace tarvex::console {

// A request on its way: either there is a question for the desk, or the response is ready.
struct Work {
    HttpRequest request;
    const Route* route = nullptr;
    std::string question;  // as it goes to the desk; empty when there is none
    HttpResponse response;
    std::string log;  // what the journal shall hold, a line; empty for nothing
};

class Site {
public:
    struct Settings {
        std::vector<std::string> names;  // the hosts that it answers to, in lower case
        unsigned trusted_proxies = 0;
        bool is_encrypted = false;  // browsers come over TLS
    };

    Site(Settings settings, std::span<const Route> routes);

    // Never throws for what is in a request.
    Work Begin(const RawRequest& raw) const;
    void Finish(Work& work, const DeskOutcome& outcome) const;

    // The answer to what the server has to turn away before it is a request.
    Work TurnAway(int status, const Fields& headers, std::string_view peer) const;

private:
    void Recognise(const Fields& headers, std::string_view peer, HttpRequest& request) const;
    void Decide(const RawRequest& raw, Work& work) const;
    void AskDesk(Work& work) const;
    void Complete(Work& work, std::string_view user) const;

    Settings settings_;
    std::span<const Route> routes_;
};

}  // namespace tarvex::console
