// What one `tarvex serve` needs for many profiles: memory, threads and processor time, when the runs of all go on at
// once and when none does; how long an edit takes then, and the service's end while all of them run.
//
//   service_size [PROFILES]    1,000 unless told
//
// Each profile has three addresses, and each address knows the 100 messages that the mailbox holds.

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "tarvex/tarvex.h"
#include "testing/child_process.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"

namespace tarvex::bench {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::ChildProcess;

constexpr int kAddresses = 3;
constexpr int kMessages = 100;
constexpr int kProfilesOfAUser = 10;
constexpr auto kPatience = 2min;

// A mailbox in which nothing is new. It keeps its list back until it is told to show it.
class Mailbox {
public:
    Mailbox() {
        for (int i = 1; i <= kMessages; ++i) ids_ += std::to_string(i) + " id-" + std::to_string(i) + "\r\n";
    }
    ~Mailbox() { Show(); }

    int Port() const { return server_.Port(); }
    int Asked() const { return asked_; }  // how often the list was asked for
    void Show() {
        if (!std::exchange(is_shown_, true)) show_.set_value();
    }

private:
    void Serve(testing::Peer& peer) {
        peer.SendUnrecorded("+OK ready\r\n");
        while (true) {
            const std::string command = peer.ReadLine();
            if (command == "UIDL") {
                ++asked_;
                shown_.wait();
            }
            peer.SendUnrecorded(command == "UIDL" ? "+OK\r\n" + ids_ + ".\r\n" : "+OK\r\n");
        }
    }

    std::string ids_;
    std::atomic<int> asked_ = 0;
    bool is_shown_ = false;
    std::promise<void> show_;
    std::shared_future<void> shown_ = show_.get_future().share();
    testing::ScriptedServer server_{[this](testing::Peer& peer) { Serve(peer); }};
};

// Profiles that are due once.
void MakeTree(const std::string& directory, int profiles, int pop_port) {
    CRootPath root;
    if (!root.SetRootPath(directory)) throw std::runtime_error("there is no " + directory);
    std::string ids;
    for (int i = 1; i <= kMessages; ++i) ids += "id-" + std::to_string(i) + "\r\n";
    for (int i = 0; i < profiles; ++i) {
        if (i % kProfilesOfAUser == 0) root.CreateNewUser("user" + std::to_string(i), "secret", 0);
        CPopProfile& profile =
            *root.users.back()->CreateNewPopProfile("p" + std::to_string(i), "me" + std::to_string(i) + "@example.org");
        profile.setting.popserver = profile.setting.smtpserver = "127.0.0.1";
        profile.setting.popport = pop_port;
        profile.setting.popuser = "user";
        profile.setting.poppassword = "secret";
        profile.setting.timeout = 600;
        profile.setting.timer = 1440;
        profile.setting.lasttime = 0;
        profile.SaveSetting();
        for (int k = 0; k < kAddresses; ++k) {
            CForwardAddress& address = *profile.CreateNewForwardAddress("", "a" + std::to_string(k) + "@example.net");
            std::string path = address.path;
            std::ranges::replace(path, '\\', '/');
            testing::WriteFile(path + "/uidl.def", ids);
        }
    }
}

class Service {
public:
    explicit Service(const std::string& root)
        : program_({TARVEX_HOST, "--root", root, "serve", "--every", "1"}, ChildProcess::Output::Together) {
        if (!program_.WaitForOutput("serving ", kPatience)) throw std::runtime_error(program_.Printed());
    }

    std::ptrdiff_t Threads() const { return CountOf("task"); }
    std::ptrdiff_t Descriptors() const { return CountOf("fd"); }

    double Resident_MB() const {
        std::size_t pages = 0;
        std::ifstream(Facts() / "statm") >> pages >> pages;
        return static_cast<double>(pages) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1e6;
    }

    double Processor_s() const {
        std::ostringstream line;
        line << std::ifstream(Facts() / "stat").rdbuf();
        std::istringstream fields(line.str().substr(line.str().rfind(')') + 1));
        std::string skipped;
        for (int i = 0; i < 11; ++i) fields >> skipped;
        double user = 0, system = 0;
        fields >> user >> system;
        return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
    }

    // What it prints is read meanwhile, so that it need not wait for that.
    template <class Condition>
    void WaitUntil(Condition condition) {
        for (const auto end = Clock::now() + kPatience; !condition();) {
            if (Clock::now() > end || program_.WaitFor(20ms)) throw std::runtime_error("the service: no " + Last());
        }
    }

    double SecondsToStop() {
        const auto start = Clock::now();
        program_.Signal(SIGTERM);
        if (!program_.WaitFor(kPatience) || program_.ExitCode() != 0) throw std::runtime_error("the end: " + Last());
        return std::chrono::duration<double>(Clock::now() - start).count();
    }

private:
    std::filesystem::path Facts() const { return "/proc/" + std::to_string(program_.Number()); }
    std::ptrdiff_t CountOf(const char* directory) const {
        const std::filesystem::directory_iterator entries(Facts() / directory);
        return std::distance(begin(entries), end(entries));
    }
    std::string Last() const {
        const std::string& all = program_.Printed();
        return all.substr(all.size() - std::min<std::size_t>(all.size(), 500));
    }

    ChildProcess program_;
};

void Print(const char* when, const Service& service) {
    std::printf("%-22s %6.0f MB resident, %5td threads, %5td descriptors, %6.2f s of processor time\n", when,
                service.Resident_MB(), service.Threads(), service.Descriptors(), service.Processor_s());
    std::fflush(stdout);
}

double SecondsOfAnEdit(const std::string& root, Service& service) {
    const auto start = Clock::now();
    ChildProcess edit({TARVEX_HOST, "--root", root, "profile", "set", "user0/from0", "--nickname", "other"});
    service.WaitUntil([&] { return edit.WaitFor(1ms); });
    if (edit.ExitCode() != 0) throw std::runtime_error(edit.Errors());
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// A tree whose profiles have all begun a run and wait for their mailbox.
struct Waiting {
    explicit Waiting(int profiles) : service((MakeTree(root, profiles, mailbox.Port()), root)) {
        service.WaitUntil([&] { return mailbox.Asked() == profiles; });
    }

    testing::TempDir folder;
    std::string root = folder / "tree";
    Mailbox mailbox;
    Service service;
};

void Measure(int profiles) {
    std::printf("%d profiles of %d addresses, each of which knows %d messages\n", profiles, kAddresses, kMessages);
    {
        Waiting tree(profiles);
        Print("all run at once", tree.service);
        tree.mailbox.Show();
        tree.service.WaitUntil([&] { return tree.service.Threads() == 1; });
        const auto calm = Clock::now() + 3s;  // memory is given back at the next look for due profiles
        tree.service.WaitUntil([&] { return Clock::now() > calm; });
        Print("none runs any more", tree.service);
        std::printf("%-22s %6.2f s\n", "an edit", SecondsOfAnEdit(tree.root, tree.service));
    }
    Waiting tree(profiles);
    std::printf("%-22s %6.2f s\n", "SIGTERM while all run", tree.service.SecondsToStop());
}

}  // namespace
}  // namespace tarvex::bench

int main(int count, char** arguments) try {
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    descriptors.rlim_cur = descriptors.rlim_max;
    setrlimit(RLIMIT_NOFILE, &descriptors);
    tarvex::bench::Measure(count > 1 ? std::atoi(arguments[1]) : 1000);
    return EXIT_SUCCESS;
} catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return EXIT_FAILURE;
}
