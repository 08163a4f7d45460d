// The one static object that stands for the library, and Windows Sockets.

#include <winsock2.h>

namespace {

class Application {
public:
    Application() {
        WSADATA data;
        started_ = WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }
    ~Application() {
        if (started_) WSACleanup();
    }
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    bool IsInitialized() const { return started_; }

private:
    bool started_ = false;
};

const Application application;

}  // namespace

// Fails the load of the library when it could not be initialised.
extern "C" BOOL WINAPI DllMain(HINSTANCE /*library*/, DWORD reason, void* /*reserved*/) {
    return reason != DLL_PROCESS_ATTACH || application.IsInitialized();
}
