// What can be seen of a run over TLS from outside: no port of this machine listens for it, and the settings of its
// profile stay as they were.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <set>
#include <sstream>
#include <string>

#include "testing/scripted_server.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;

// "socket:[1234]" of each TCP socket of the machine that listens.
std::set<std::string> ListeningSockets() {
    std::set<std::string> found;
    for (const char* const file : {"/proc/net/tcp", "/proc/net/tcp6"}) {
        std::ifstream table(file);
        std::string line;
        std::getline(table, line);
        while (std::getline(table, line)) {
            std::istringstream columns(line);
            std::string number, local, remote, state, queues, timer, retransmit, user, timeout, inode;
            columns >> number >> local >> remote >> state >> queues >> timer >> retransmit >> user >> timeout >> inode;
            if (state == "0A") found.insert("socket:[" + inode + ']');
        }
    }
    return found;
}

// Those that the process has open and this one has not: what a child has inherited is not its own.
std::set<std::string> OwnSocketsOf(int process) {
    const auto open = [](const std::string& of) {
        std::set<std::string> sockets;
        for (const auto& entry : fs::directory_iterator("/proc/" + of + "/fd")) {
            std::error_code gone;
            const std::string target = fs::read_symlink(entry.path(), gone).string();
            if (target.starts_with("socket:")) sockets.insert(target);
        }
        return sockets;
    };
    std::set<std::string> own = open(std::to_string(process));
    for (const std::string& inherited : open("self")) own.erase(inherited);
    return own;
}

std::string WithoutLastTime(std::string settings) {
    const std::size_t begin = settings.find("[lasttime]");
    return settings.erase(begin, settings.find("\r\n\r\n", begin) - begin);
}

TEST(TlsPorts, RunListensNowhereAndLeavesTheSettingsAsTheyWere) {
    const TlsIdentity identity = MakeTlsIdentity();
    std::promise<void> under_way;
    std::promise<void> looked_at;
    const ScriptedServer server([&](Peer& peer) {
        if (!peer.StartTls(identity)) return;
        peer.Send("+OK ready\r\n");
        peer.Expect("USER user");
        under_way.set_value();
        looked_at.get_future().wait_for(std::chrono::seconds(20));
        peer.Send("+OK\r\n");
        peer.Expect("PASS secret");
        peer.Send("+OK\r\n");
        peer.Expect("UIDL");
        peer.Send("+OK\r\n.\r\n");
        peer.Expect("QUIT");
        peer.Send("+OK\r\n");
        peer.WaitForClose();
    });
    SinkServer sink;
    Host host;
    const std::string profile = host.AddProfile(server.Port(), sink.Port(), [](CPopProfile& adapted) {
        adapted.setting.popserver = "localhost";
        adapted.setting.apop = 0;
    });
    WriteFile(host.Root() + "/ca.pem", identity.ca_certificate);
    WriteFile(host.Root() + "/host.def", "[pop_tls]\r\n1\r\n[tls_authority]\r\n" + host.Root() + "/ca.pem\r\n");
    const std::string before = ReadFile(profile + "/popprofile.def");

    ChildProcess run = host.Start();
    ASSERT_EQ(under_way.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    const std::set<std::string> sockets = OwnSocketsOf(run.Number());
    const std::set<std::string> listening = ListeningSockets();
    looked_at.set_value();
    run.Wait();

    EXPECT_EQ(run.ExitCode(), 0) << run.Printed() << run.Errors();
    EXPECT_GE(sockets.size(), 3U) << "the wire and both ends of the pair";
    for (const std::string& socket : sockets) EXPECT_FALSE(listening.contains(socket));
    EXPECT_EQ(WithoutLastTime(ReadFile(profile + "/popprofile.def")), WithoutLastTime(before));
}

}  // namespace
}  // namespace tarvex::testing
