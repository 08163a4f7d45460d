/* Takes the place of the system's sockets: their start ends with the error that a variable holds. */

#include <stdlib.h>

int __stdcall WSAStartup(unsigned short version, void* data) {
    const char* const error = getenv("TARVEX_START_OF_SOCKETS");
    (void)version;
    (void)data;
    return error ? atoi(error) : 0;
}

int __stdcall WSACleanup(void) { return 0; }

/* Is never called. */
void Nothing(void) {}
