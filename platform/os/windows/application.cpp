// The one static object that stands for the library, and Windows Sockets.

#include <openssl/crypto.h>
#include <winsock2.h>

#include "platform/net/tls.h"
#include "platform/os/system_thread.h"

namespace {

class Application {
public:
    // The system's manual wants this done after the load; a failure is to fail the load, and every system does it here.
    Application() {
        WSADATA data;
        started_ = WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }
    ~Application() {
        if (started_ && !tarvex::OtherThreadsAreGone()) WSACleanup();
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    bool IsInitialized() const { return started_; }

private:
    bool started_ = false;
};

const Application application;

}  // namespace

// Fails the load of the library when it could not be initialised. When the library is unloaded, and not at the end of
// the process, OpenSSL gives back what it holds; no thread is in here then.
extern "C" BOOL WINAPI DllMain(HINSTANCE /*library*/, DWORD reason, void* process_ends) {
    if (reason == DLL_PROCESS_DETACH && process_ends == nullptr) {
        tarvex::ForgetTrustStore();
        OPENSSL_cleanup();
    }
    return reason != DLL_PROCESS_ATTACH || application.IsInitialized();
}
