// A host in forty lines: runs what is due in a data tree, looking every minute, until Ctrl-C.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <csignal>
#include <iostream>
#include <string>

#include "tarvex/tarvex.h"

static volatile std::sig_atomic_t stopped = 0;

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
        Tarvex(&root);  // returns at once; each due profile runs in a thread of its own
        sleep(60);      // a signal ends it early
    }
    std::cout << "stopped\n";
}
