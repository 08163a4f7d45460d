// `tarvex demo --console`: a service and its console for a browser, between two servers on this machine.
//
// The service and the console are programs of their own, as they are on a real machine; what they say goes into files
// of the demo's folder. The server knows no such recipient as the office, and refuses one of the mails: so there is
// something to decide about.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "host/commands/commands.h"
#include "host/commands/demo/mails.h"
#include "host/commands/demo/tree.h"
#include "host/desk/login/sessions.h"
#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/process.h"
#include "loopback/mail_servers.h"
#include "tarvex/tarvex.h"

extern char** environ;

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr const char* kAdministrator = "admin";
constexpr auto kLook = 50ms;
constexpr auto kStartPatience = 30s;
constexpr auto kEndPatience = 20s;
constexpr auto kBetweenMails = 20s;

// A new folder that goes away with everything in it.
class Folder {
public:
    Folder() : path_(MakeNewFolder(TemporaryDirectory() + "\\tarvex-demo-")) {}
    ~Folder() {
        std::error_code ignored;
        fs::remove_all(NativePath(path_), ignored);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    const std::string& Path() const { return path_; }

private:
    std::string path_;
};

// Another program, which ends with this object at the latest.
class Program {
public:
    Program(std::vector<std::string> words, std::string output) : output_(std::move(output)) {
        std::vector<char*> arguments;
        for (std::string& word : words) arguments.push_back(word.data());
        arguments.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
        const int error = posix_spawn(&number_, arguments.front(), &actions, nullptr, arguments.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (error != 0) throw std::system_error(error, std::generic_category(), words.front());
    }
    ~Program() {
        if (!IsRunning()) return;
        kill(number_, SIGTERM);
        for (const auto deadline = Clock::now() + kEndPatience; IsRunning();) {
            if (Clock::now() > deadline) kill(number_, SIGKILL);
            std::this_thread::sleep_for(kLook);
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    bool IsRunning() {
        if (number_ > 0 && waitpid(number_, nullptr, WNOHANG) != 0) number_ = 0;
        return number_ > 0;
    }

    std::string Printed() const {
        std::ifstream file(output_);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    std::string output_;
    pid_t number_ = 0;  // 0 once it has ended
};

// Where it says so of itself, a program that has ended says why.
void RequireRunning(Program& program) {
    if (program.IsRunning() || CaughtSignal() != 0) return;
    throw CommandError(kUnavailable, Tr("a part of the demo has ended: {0}", ShowText(program.Printed())));
}

// Until `is_there`; false when a signal came before.
template <class IsThere>
bool WaitFor(Program& program, const IsThere& is_there) {
    for (const auto deadline = Clock::now() + kStartPatience; !is_there(); std::this_thread::sleep_for(kLook)) {
        RequireRunning(program);
        if (CaughtSignal() != 0) return false;
        if (Clock::now() > deadline) throw CommandError(kUnavailable, Tr("a part of the demo does not start"));
    }
    return true;
}

std::string ConsoleProgram() {
    const std::string program = PathAsUtf8(ProgramDirectory() + "\\tarvex-console");
    if (access(program.c_str(), X_OK) == 0) return program;
    throw CommandError(kUnavailable, Tr("tarvex-console is not installed beside {0}; it is a package of its own",
                                        PathAsUtf8(ProgramDirectory() + "\\tarvex")));
}

// The first line of what the console prints ends with its address.
std::string AddressIn(const std::string& printed) {
    const std::size_t start = printed.find("http://");
    const std::size_t end = printed.find('\n', start);
    return end == std::string::npos || start == std::string::npos ? "" : printed.substr(start, end - start);
}

class DemoOffice {
public:
    DemoOffice() {
        sink_.SetFault([office = "<" + std::string(kDemoOffice) + ">"](const std::string& command) {
            return command.find("RCPT TO:" + office) == std::string::npos ? "" : "550 5.1.1 no such user here";
        });
        sink_.SetJudge([](const loopback::DeliveredMail& mail) {
            return mail.text.find(kUnwantedPart) == std::string::npos ? "" : "554 5.7.1 we do not want this";
        });
        for (const DemoMail& mail : FirstDemoMails()) mailbox_.Add({mail.uidl, mail.whole});
        later_ = LastDemoMails();
        later_.push_back(LaterDemoMail());
    }

    void MakeTree(const std::string& path, const std::string& password) {
        CRootPath root;
        if (!root.SetRootPath(path)) throw std::runtime_error("cannot use " + path);
        BuildDemoTree(root, mailbox_.Port(), sink_.Port());
        CUserSetting& user = root.users.front()->setting;
        user.administrator = 0;
        user.password = password;
        root.users.front()->SaveSetting();
        if (!root.CreateNewUser(kAdministrator, password, 1)) throw std::runtime_error("no user could be made");
    }

    // Another mail has come, each time the next of a few.
    void Receive() {
        const DemoMail& mail = later_[received_++ % later_.size()];
        mailbox_.Add({mail.uidl + "-" + std::to_string(received_), mail.whole});
    }

private:
    loopback::MailboxServer mailbox_{kDemoUser, kDemoPassword};
    loopback::SinkServer sink_{kDemoUser, kDemoPassword};
    std::vector<DemoMail> later_;
    std::size_t received_ = 0;
};

void Explain(const std::string& address, const std::string& password) {
    const auto line = [](const std::string& name, const std::string& value) {
        std::cout << "  " << name << "  " << value << '\n';
    };
    std::cout << Tr("Open this in a browser on this machine:") << "\n\n  " << address << "\n\n";
    line(Tr("log in as an administrator:"), kAdministrator);
    line(Tr("or as the mailbox's user:  "), kDemoUser);
    line(Tr("password of both:          "), password);
    std::cout << '\n'
              << Tr("A mail comes every {0} seconds. Some are refused: they wait under \"Held mail\".",
                    std::chrono::seconds(kBetweenMails).count())
              << '\n'
              << Tr("Ctrl+C ends it all, and leaves nothing behind.") << std::endl;
}

}  // namespace

int DemoInBrowser(int port) {
    const std::string console_program = ConsoleProgram();
    CatchTermination();
    const Folder folder;
    const std::string root = PathAsUtf8(folder.Path() + "\\root");
    const std::string desk = PathAsUtf8(folder.Path() + "\\desk");
    const std::string password = NewSecret().substr(0, 12);
    DemoOffice office;
    office.MakeTree(folder.Path() + "\\root", password);

    Program service(
        {PathAsUtf8(ProgramDirectory() + "\\tarvex"), "--root", root, "serve", "--every", "1", "--console", desk},
        PathAsUtf8(folder.Path() + "\\service.log"));
    if (!WaitFor(service, [&desk] { return fs::exists(desk); })) return kDone;
    Program console({console_program, "--desk", desk, "--listen", "127.0.0.1:" + std::to_string(port)},
                    PathAsUtf8(folder.Path() + "\\console.log"));
    if (!WaitFor(console, [&console] { return !AddressIn(console.Printed()).empty(); })) return kDone;
    Explain(AddressIn(console.Printed()), password);

    for (auto next = Clock::now(); CaughtSignal() == 0; std::this_thread::sleep_for(kLook)) {
        RequireRunning(service);
        RequireRunning(console);
        if (Clock::now() < next) continue;
        office.Receive();
        next = Clock::now() + kBetweenMails;
    }
    return kDone;
}

}  // namespace tarvex::host
