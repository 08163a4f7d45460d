/* A host in C: one pass over the root that its argument names, as tarvex/tarvex_c.h shows it. It says what it sees. With
   a second argument it waits that many milliseconds, and ends without closing the root. */

#include <stdio.h>
#include <stdlib.h>

#include "tarvex/tarvex_c.h"

int main(int argc, char** argv) {
    tarvex_root* root = tarvex_open(argc > 1 ? argv[1] : NULL);
    if (!root) {
        fprintf(stderr, "%s\n", tarvex_last_error());
        return 1;
    }
    printf("started %d\n", tarvex_run(root));
    printf("finished %d\n", tarvex_wait(root, argc > 2 ? atoi(argv[2]) : 60000));
    if (argc > 2) return 0;
    for (int i = 0; i < tarvex_ended(root); i++) {
        const tarvex_result* run = tarvex_ended_run(root, i);
        printf("%s ended %d, delivered %d, %s\n", run->profile, run->ending, run->messages_delivered,
               run->delivery->reply);
    }
    printf("running %d\n", tarvex_running(root));
    printf("stopped %d\n", tarvex_stop(root));
    tarvex_close(root);
    return 0;
}
