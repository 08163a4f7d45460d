// The most memory that one `tarvex serve` holds while it forwards what is large.
//
//   memory_use [CASE...] [--no-rules] [--group DIRECTORY]
//
//   crowd      six profiles, a message of 60 MiB each
//   mailbox    40 messages of 25 MB in one mailbox
//   message    one message of 255 MiB, for an address that gets a text mail of 1,000 bytes
//   rewritten  the same with a sender that is replaced, refused by the relay, so that it is set aside
//   listing    a mailbox whose list of ids has 61 MiB and a million entries, of which two thirds are handled
//
// All of them unless told. The program is the host that was built with this one, or $TARVEX_HOST. `--group`: the
// service joins this control group of the system first, so that the kernel limits it.

#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvex/tarvex.h"
#include "testing/child_process.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"

namespace tarvex::bench {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::ChildProcess;

constexpr auto kPatience = 10min;
constexpr std::size_t kMiB = std::size_t{1} << 20;

// A mailbox that makes each message when it is asked for.
class Mailbox {
public:
    Mailbox(std::size_t messages, std::size_t message_bytes, std::size_t id_bytes = 20)
        : messages_(messages), id_bytes_(id_bytes) {
        const std::string line = std::string(70, 'x') + "\r\n";
        while (body_.size() < message_bytes) body_ += line;
        for (std::size_t i = 1; i <= messages; ++i) {
            const std::string number = std::to_string(i);
            ids_ += number + ' ' + Id(i) + "\r\n";
            sizes_ += number + ' ' + std::to_string(body_.size()) + "\r\n";
        }
    }

    int Port() const { return server_.Port(); }
    int Quits() const { return quits_; }
    std::size_t ListBytes() const { return ids_.size(); }
    std::string Id(std::size_t index) const {
        const std::string number = std::to_string(index);
        return std::string(id_bytes_ - number.size(), 'i') + number;
    }

private:
    void Serve(testing::Peer& peer) {
        peer.SendUnrecorded("+OK ready\r\n");
        while (true) {
            const std::string command = peer.ReadLine();
            if (command == "UIDL" || command == "LIST") {
                peer.SendUnrecorded("+OK\r\n" + (command == "UIDL" ? ids_ : sizes_) + ".\r\n");
            } else if (command.starts_with("RETR ")) {
                peer.SendUnrecorded("+OK\r\nFrom: a@example.org\r\nSubject: " + command + "\r\n\r\n");
                peer.SendUnrecorded(body_);
                peer.SendUnrecorded(".\r\n");
            } else {
                if (command == "QUIT") ++quits_;
                peer.SendUnrecorded("+OK\r\n");
            }
        }
    }

    const std::size_t messages_;
    const std::size_t id_bytes_;
    std::string body_;
    std::string ids_;
    std::string sizes_;
    std::atomic<int> quits_ = 0;
    testing::ScriptedServer server_{[this](testing::Peer& peer) { Serve(peer); }};
};

// Takes everything, or refuses everything at its end; may be slow to say that it is ready.
class Relay {
public:
    explicit Relay(bool refuses = false, std::chrono::milliseconds pause = {}) : refuses_(refuses), pause_(pause) {}

    int Port() const { return server_.Port(); }
    int Taken() const { return taken_; }  // or refused

private:
    void Serve(testing::Peer& peer) {
        peer.Pause(pause_);
        peer.SendUnrecorded("220 ready\r\n");
        while (true) {
            const std::string command = peer.ReadLine();
            peer.SendUnrecorded(command == "DATA" ? "354 go on\r\n" : "250 fine\r\n");
            if (command != "DATA") continue;
            peer.ReadMessage();
            ++taken_;
            peer.SendUnrecorded(refuses_ ? "554 not this one\r\n" : "250 taken\r\n");
        }
    }

    const bool refuses_;
    const std::chrono::milliseconds pause_;
    std::atomic<int> taken_ = 0;
    testing::ScriptedServer server_{[this](testing::Peer& peer) { Serve(peer); }};
};

struct Options {
    bool rules = true;
    std::string group;
    std::string host = TARVEX_HOST;
};

struct Tree {
    testing::TempDir folder;
    CRootPath root;

    explicit Tree(bool rules) {
        std::filesystem::create_directory(folder / "tree");
        if (rules) testing::WriteFile(folder / "tree/host.def", "[setaside]\r\n1\r\n");
        if (!root.SetRootPath(folder / "tree")) throw std::runtime_error("there is no tree");
        root.CreateNewUser("user", "secret", 0);
    }

    CPopProfile& Add(const Mailbox& mailbox, const Relay& relay) {
        const std::string name = "p" + std::to_string(root.users.back()->profiles.size());
        CPopProfile& profile = *root.users.back()->CreateNewPopProfile(name, name + "@example.org");
        profile.setting.popserver = profile.setting.smtpserver = "127.0.0.1";
        profile.setting.popport = mailbox.Port();
        profile.setting.smtpport = relay.Port();
        profile.setting.popuser = "user";
        profile.setting.poppassword = "secret";
        profile.setting.timer = 1440;
        profile.setting.lasttime = 0;
        profile.setting.timeout = 300;
        profile.SaveSetting();
        profile.CreateNewForwardAddress("a", "a@example.net");
        return profile;
    }
};

class Service {
public:
    Service(const Tree& tree, const Options& options) : program_(Words(tree, options), ChildProcess::Output::Together) {
        if (!program_.WaitForOutput("serving ", 20s)) throw std::runtime_error(program_.Printed());
    }

    bool WaitUntil(const std::function<bool()>& condition) {
        for (const auto end = Clock::now() + kPatience; !condition();) {
            if (program_.WaitFor(20ms)) return false;
            if (Clock::now() > end) throw std::runtime_error("the service is not ready: " + program_.Printed());
        }
        return true;
    }

    double MiB(const std::string& field) const {
        std::ifstream file("/proc/" + std::to_string(program_.Number()) + "/status");
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with(field + ":")) return std::strtod(line.c_str() + field.size() + 1, nullptr) / 1024;
        }
        return 0;
    }

    int ExitCode() const { return program_.ExitCode(); }
    std::string Printed() const { return program_.Printed(); }

private:
    static std::vector<std::string> Words(const Tree& tree, const Options& options) {
        std::vector<std::string> words{options.host, "--root", tree.folder / "tree", "serve", "--every", "1"};
        if (!options.group.empty()) {
            words.insert(words.begin(),
                         {"/bin/sh", "-c", "echo $$ >\"$0/cgroup.procs\" && exec \"$@\"", options.group});
        }
        return words;
    }

    ChildProcess program_;
};

void Measure(const char* name, const Tree& tree, const Options& options, const std::function<bool()>& is_done) {
    const auto start = Clock::now();
    Service service(tree, options);
    double most = 0;
    const bool lived = service.WaitUntil([&] {
        most = std::max(most, service.MiB("VmHWM"));
        return is_done();
    });
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (!lived) {
        std::printf("%-10s killed with %.0f MiB resident after %.1f s (%d)\n", name, most, seconds, service.ExitCode());
        return;
    }
    const auto calm = Clock::now() + 3s;  // memory is given back when the last run has ended
    service.WaitUntil([&] { return Clock::now() > calm; });
    std::printf("%-10s %6.0f MiB at most, %4.0f MiB afterwards, %5.1f s\n", name, service.MiB("VmHWM"),
                service.MiB("VmRSS"), seconds);
    std::fflush(stdout);
}

void Crowd(const Options& options) {
    const Mailbox mailbox(1, 60 * kMiB);
    const Relay relay(false, 15s);  // so that all have fetched before one delivers
    Tree tree(options.rules);
    for (int i = 0; i < 6; ++i) tree.Add(mailbox, relay);
    Measure("crowd", tree, options, [&] { return relay.Taken() == 6; });
}

void FullMailbox(const Options& options) {
    const Mailbox mailbox(40, 25'000'000);
    const Relay relay;
    Tree tree(options.rules);
    tree.Add(mailbox, relay);
    Measure("mailbox", tree, options, [&] { return relay.Taken() == 40; });
}

void Message(const Options& options) {
    const Mailbox mailbox(1, 255 * kMiB);
    const Relay relay;
    Tree tree(options.rules);
    CPopProfile& profile = tree.Add(mailbox, relay);
    CForwardAddress& address = *profile.forward_addresses.front();
    address.setting.textonly = 1000;
    address.SaveSetting();
    Measure("message", tree, options, [&] { return relay.Taken() == 1; });
}

void Rewritten(const Options& options) {
    const Mailbox mailbox(1, 255 * kMiB);
    const Relay relay(true);
    Tree tree(options.rules);
    CPopProfile& profile = tree.Add(mailbox, relay);
    profile.setting.replacefrom = 1;
    profile.SaveSetting();
    Measure("rewritten", tree, options, [&] { return relay.Taken() == 1; });
}

void Listing(const Options& options) {
    constexpr std::size_t kEntries = 1'000'000;
    const Mailbox mailbox(kEntries, 10, 54);
    const Relay relay;
    Tree tree(options.rules);
    CPopProfile& profile = tree.Add(mailbox, relay);
    std::string path = profile.forward_addresses.front()->path;
    std::ranges::replace(path, '\\', '/');
    std::string known;
    for (std::size_t i = 1; i <= kEntries; ++i) known += mailbox.Id(i) + "\r\n";
    testing::WriteFile(path + "/uidl.def", known);
    std::printf("%-10s %.1f MiB\n", "", static_cast<double>(mailbox.ListBytes()) / static_cast<double>(kMiB));
    Measure("listing", tree, options, [&] { return mailbox.Quits() == 1; });
}

const std::vector<std::pair<std::string, void (*)(const Options&)>> kCases = {
    {"crowd", Crowd}, {"mailbox", FullMailbox}, {"message", Message}, {"rewritten", Rewritten}, {"listing", Listing}};

}  // namespace
}  // namespace tarvex::bench

int main(int count, char** arguments) try {
    using namespace tarvex::bench;
    Options options;
    if (const char* const host = std::getenv("TARVEX_HOST")) options.host = host;
    std::vector<std::string> words(arguments + 1, arguments + count);
    std::vector<std::string> wanted;
    for (std::size_t i = 0; i < words.size(); ++i) {
        if (words[i] == "--no-rules") {
            options.rules = false;
        } else if (words[i] == "--group" && i + 1 < words.size()) {
            options.group = words[++i];
        } else {
            wanted.push_back(words[i]);
        }
    }
    for (const auto& [name, measure] : kCases) {
        if (wanted.empty() || std::ranges::count(wanted, name) != 0) measure(options);
    }
    return EXIT_SUCCESS;
} catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return EXIT_FAILURE;
}
