// The lock of a root that two machines have: a refused command names the machine of its holder.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <string>

#include "host/edit/root_lock.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class OtherMachine : public ::testing::Test {
protected:
    OtherMachine() {
        host_.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.status = 0; });
        EXPECT_EQ(chmod(host_.Root().c_str(), 0700), 0);
    }

    std::string Refusal() const {
        ChildProcess service = host_.StartCommand({"serve"});
        service.Wait();
        EXPECT_EQ(service.ExitCode(), 75);
        return service.Errors();
    }

    Host host_;
};

// A machine of another name, as far as a process can be one: a name of its own, and the same file system. False when
// that is not allowed.
bool HoldAs(const char* machine, const std::string& root, pid_t& holder) {
    int ready[2];
    if (pipe(ready) != 0) return false;
    holder = fork();
    if (holder == 0) {
        if (unshare(CLONE_NEWUTS) != 0 || sethostname(machine, std::string(machine).size()) != 0) _exit(1);
        const host::RootLock lock = host::RootLock::Take(root, "serve", 5s);
        static_cast<void>(write(ready[1], "x", 1));
        for (;;) pause();
    }
    close(ready[1]);
    char byte = 0;
    const bool held = read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    return held;
}

void Kill(pid_t process) {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

TEST_F(OtherMachine, HoldsTheLockAndIsNamed) {
    pid_t holder = -1;
    if (!HoldAs("mail2", host_.Root(), holder)) {
        Kill(holder);
        GTEST_SKIP() << "this process may not give itself another host name";
    }
    const std::string refusal = Refusal();
    EXPECT_THAT(refusal, HasSubstr("tarvex serve (process " + std::to_string(holder) + " on mail2)"));
    Kill(holder);
    // What it left says nothing once the lock is free.
    host_.Tell({"run"});
}

TEST_F(OtherMachine, IsNamedByTheNoteAlone) {
    const host::RootLock lock = host::RootLock::Take(host_.Root(), "serve", 0ms);
    EXPECT_THAT(Refusal(),
                AllOf(HasSubstr("tarvex serve (process " + std::to_string(getpid()) + ")"), Not(HasSubstr(" on "))));
    const std::string file = host_.Root() + "/.tarvex.lock";
    WriteFile(file, "4711 serve mail-of-elsewhere\n");
    EXPECT_THAT(Refusal(), HasSubstr("tarvex serve (process 4711 on mail-of-elsewhere)"));
    WriteFile(file, "4711 serve\n");  // as older versions write it
    EXPECT_THAT(Refusal(), HasSubstr("tarvex serve (process 4711)"));
    WriteFile(file, "4711 serve \x1B[31m\n");
    EXPECT_THAT(Refusal(), Not(HasSubstr("\x1B")));
    WriteFile(file, "");
    EXPECT_THAT(Refusal(), HasSubstr("another tarvex"));
}

}  // namespace
}  // namespace tarvex::testing
