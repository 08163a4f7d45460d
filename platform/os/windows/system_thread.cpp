// Threads of the C runtime, each of which holds a reference to the library until its last instruction in here.

#include "platform/os/system_thread.h"

#include <openssl/crypto.h>
#include <process.h>
#include <windows.h>
#include <winternl.h>

#include <memory>
#include <new>

extern "C" BOOLEAN NTAPI RtlDllShutdownInProgress(void);

namespace tarvex {

namespace {

constexpr unsigned kStackBytes = 512 * 1024;

struct Task {
    void (*procedure)(void*);
    void* parameter;
    HMODULE library;
};

// Null when the system does not let it.
HMODULE HoldLibrary() {
    HMODULE library = nullptr;
    GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&HoldLibrary), &library);
    return library;
}

unsigned __stdcall ThreadMain(void* task) {
    HMODULE library = nullptr;
    {
        const std::unique_ptr<Task> own(static_cast<Task*>(task));
        library = own->library;
        own->procedure(own->parameter);
    }
    OPENSSL_thread_stop();  // it is not told of the end of a thread by the system
    FreeLibraryAndExitThread(library, 0);
}

}  // namespace

std::optional<SystemThread> SystemThread::Start(void (*procedure)(void*), void* parameter) noexcept {
    std::unique_ptr<Task> task(new (std::nothrow) Task{procedure, parameter, nullptr});
    if (!task) return std::nullopt;
    task->library = HoldLibrary();
    if (task->library == nullptr) return std::nullopt;
    const std::uintptr_t thread =
        _beginthreadex(nullptr, kStackBytes, ThreadMain, task.get(), STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    if (thread == 0) {
        FreeLibrary(task->library);
        return std::nullopt;
    }
    static_cast<void>(task.release());  // the thread's own
    return SystemThread(thread);
}

// Does not wait: the end of a thread may need a lock of the system's that the caller holds, where it is loading or
// unloading a library.
void SystemThread::Free() { CloseHandle(reinterpret_cast<HANDLE>(handle_)); }

void SystemThread::Leave() { Free(); }

std::uint64_t ProcessNumber() { return GetCurrentProcessId(); }

bool OtherThreadsAreGone() { return RtlDllShutdownInProgress() != FALSE; }

void GiveMemoryBack() {
    const auto all = static_cast<SIZE_T>(-1);
    ::SetProcessWorkingSetSize(::GetCurrentProcess(), all, all);
}

}  // namespace tarvex
