#pragma once

// mailutils-pop3d, a server that writes an answer in two pieces and holds the second back until the first is
// acknowledged. Who does not acknowledge at once waits 40 ms for each message.

#include <memory>
#include <string>
#include <vector>

#include "tests/real/servers/mailbox_generator.h"
#include "tests/real/servers/real_servers.h"
#include "tests/real/servers/server_process.h"

namespace tarvex::bench {

class MailutilsServer {
public:
    // Why it cannot run here; empty when it can.
    static std::string Missing();

    // Serves one mailbox with these messages.
    explicit MailutilsServer(const std::vector<testing::GeneratedMail>& mails);

    testing::Login Mailbox() const { return {"small@bench", "secret"}; }
    int Port() const { return port_; }
    pid_t Pid() const { return process_->Pid(); }

private:
    testing::ServerFolder folder_;
    int port_ = 0;
    std::unique_ptr<testing::ServerProcess> process_;
};

}  // namespace tarvex::bench
