// Starts a service, hears when it is ready, and reads what the system says of it.

#include "bench/scale/service_process.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace tarvex::bench {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = 30min;

int Listen(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) throw std::runtime_error(path + " is too long");
    std::ranges::copy(path, address.sun_path);
    const int listener = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot listen on " + path);
    return listener;
}

}  // namespace

ServiceProcess::ServiceProcess(const std::string& root)
    : notices_(Listen(folder_ / "notices")),
      program_({TARVEX_HOST, "--root", root, "serve"}, testing::ChildProcess::Output::Together,
               {"NOTIFY_SOCKET=" + folder_ / "notices", "LD_PRELOAD=" SYNC_COUNT_SHIM,
                "TARVEX_SYNC_COUNT=" + folder_ / "syncs"}) {}

void ServiceProcess::WaitUntilReady() {
    WaitUntil([this] {
        std::array<char, 512> notice;
        const ssize_t count = recv(notices_, notice.data(), notice.size(), 0);
        return count > 0 && std::string_view(notice.data(), static_cast<std::size_t>(count)).find("READY=1") !=
                                std::string_view::npos;
    });
}

void ServiceProcess::LoadAgain() {
    program_.Signal(SIGHUP);
    WaitUntilReady();
}

void ServiceProcess::Stop() {
    program_.Signal(SIGTERM);
    if (!program_.WaitFor(kPatience) || program_.ExitCode() != 0) throw std::runtime_error("the end: " + Last());
}

void ServiceProcess::WaitUntil(const std::function<bool()>& condition) {
    for (const auto end = Clock::now() + kPatience; !condition();) {
        if (Clock::now() > end || program_.WaitFor(2ms)) throw std::runtime_error("the service: " + Last());
    }
}

std::string ServiceProcess::Facts(const char* file) const {
    return "/proc/" + std::to_string(program_.Number()) + '/' + file;
}

double ServiceProcess::Number_kB(const char* name) const {
    std::ifstream status(Facts("status"));
    double number = 0;
    for (std::string word; status >> word;) {
        if (word == name && status >> number) return number;
    }
    throw std::runtime_error(std::string("there is no ") + name);
}

double ServiceProcess::Processor_s() const {
    std::ostringstream line;
    line << std::ifstream(Facts("stat")).rdbuf();
    std::istringstream fields(line.str().substr(line.str().rfind(')') + 1));
    std::string skipped;
    for (int i = 0; i < 11; ++i) fields >> skipped;
    double user = 0, system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

std::ptrdiff_t ServiceProcess::Threads() const {
    const std::filesystem::directory_iterator threads(Facts("task"));
    return std::distance(begin(threads), end(threads));
}

DiskUse ServiceProcess::Disk() const {
    DiskUse use;
    std::ifstream io(Facts("io"));
    for (std::string word; io >> word;) {
        if (word == "write_bytes:") io >> use.written_bytes;
    }
    std::ifstream(folder_.Path() / "syncs", std::ios::binary)
        .read(reinterpret_cast<char*>(&use.syncs), sizeof use.syncs);
    return use;
}

std::string ServiceProcess::Last() const {
    const std::string& all = program_.Printed();
    return all.substr(all.size() - std::min<std::size_t>(all.size(), 500));
}

}  // namespace tarvex::bench
