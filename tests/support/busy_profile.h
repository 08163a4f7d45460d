#pragma once

// A profile whose run does not end by itself.

#include "testing/scripted_server.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {

// A server that takes connections and never says a word.
class SilentServer {
public:
    int Port() const { return server_.Port(); }
    bool WaitForConnections(int count) { return connections_.WaitFor(count); }

private:
    Counter connections_;
    ScriptedServer server_{[this](Peer& peer) {
        connections_.Add();
        peer.WaitForClose();
    }};
};

// A profile with one address, whose POP3 server is at the port.
inline CPopProfile& AddBusyProfile(DataTree& tree, int pop_port) {
    CPopProfile& profile = tree.AddProfile(pop_port, UnusedPort());
    AddAddress(profile, "a@example.org");
    return profile;
}

}  // namespace tarvex::testing
