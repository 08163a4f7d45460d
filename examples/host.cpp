// A host in thirty lines: runs what is due in a data tree, looking every minute, until Ctrl-C.

#include <unistd.h>

#include <csignal>
#include <iostream>

#include "tarvex/tarvex.h"

static volatile std::sig_atomic_t stopped = 0;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: host ROOT\n";
        return 64;
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
