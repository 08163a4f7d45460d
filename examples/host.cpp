// A small host: runs what is due in a data tree, looking every minute, and says how each run ended, until Ctrl-C.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <string>

#include "tarvex/tarvex.h"

static volatile std::sig_atomic_t stopped = 0;

static std::string HowItEnded(const CRunResult& run) {
    switch (run.ending) {
        case CRunEnding::NotEnded:
        case CRunEnding::CouldNotBegin:
            return "could not begin";
        case CRunEnding::NobodyTakesPart:
            return "no address takes part now";
        case CRunEnding::MailboxFailed:
            return "the mailbox failed: " + run.mailbox.reply + run.mailbox.reason;
        case CRunEnding::NothingNew:
            return "nothing new";
        case CRunEnding::Delivered:
            return "delivered " + std::to_string(run.messages_delivered) + " messages in " +
                   std::to_string(run.copies) + " copies";
        case CRunEnding::DeliveryFailed:
            return "the delivery of " + run.delivery.uidl + " failed: " + run.delivery.reply + run.delivery.reason;
        case CRunEnding::Exception:
            break;
    }
    return "ended early: " + run.exception;
}

// Takes the copies whose runs have ended out of the list. One that ends meanwhile stays for the next time.
static void TellEndedRuns(CRootPath& root) {
    std::erase_if(root.running_copies, [](const auto& copy) {
        if (copy->worker_thread.load()) return false;
        std::cout << copy->path << ": " << HowItEnded(copy->result) << std::endl;
        return true;
    });
}

// As Tarvex(&root) does, which however frees what has ended since its result was looked for.
static void StartDueRuns(CRootPath& root) {
    for (const auto& user : root.users) {
        for (const auto& profile : user->profiles) {
            if (!profile->JudgeDoOperation()) continue;
            if (StartRun(root, *profile) == CStartResult::CouldNotBegin) {
                std::cout << profile->path << ": could not begin" << std::endl;
            }
        }
    }
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: host ROOT\n";
        return 64;
    }
    // The lock of the kernel that the command `tarvex` takes as well: one program at a time owns a tree.
    const int lock = open((std::string(argv[1]) + "/.tarvex.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock < 0 || flock(lock, LOCK_EX | LOCK_NB) != 0) {
        std::cerr << "host: " << argv[1] << (lock < 0 ? " cannot be used\n" : " is in use\n");
        return lock < 0 ? 66 : 75;
    }
    CRootPath root;  // its destruction ends what still runs; what was delivered is on disk then
    if (!root.SetRootPath(argv[1])) {
        std::cerr << "host: cannot use " << argv[1] << '\n';
        return 66;
    }
    std::signal(SIGINT, [](int) { stopped = 1; });
    std::signal(SIGTERM, [](int) { stopped = 1; });
    while (!stopped) {
        TellEndedRuns(root);
        StartDueRuns(root);  // returns at once; each due profile runs in a thread of its own
        sleep(60);           // a signal ends it early
    }
    std::cout << "stopped\n";
}
