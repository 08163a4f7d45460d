// Loading and unloading the library as a host does that does not link it.

#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>

#include "loopback/mail_servers.h"
#include "tarvex/tarvex_c.h"
#include "testing/child_process.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class Library {
public:
    Library() {
        std::string path = TARVEX_LIBRARY;
        std::ranges::replace(path, '/', '\\');
        module_ = LoadLibraryA(path.c_str());
        if (!module_) throw std::runtime_error(path + " cannot be loaded: " + std::to_string(GetLastError()));
        Find(open, "tarvex_open");
        Find(run, "tarvex_run");
        Find(wait, "tarvex_wait");
        Find(close, "tarvex_close");
        Find(last_error, "tarvex_last_error");
    }
    ~Library() { FreeLibrary(module_); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    static bool IsLoaded() { return GetModuleHandleA("Tarvex.dll") != nullptr; }

    // A worker's last step is to let the library go.
    static bool Goes() {
        const auto end = std::chrono::steady_clock::now() + 20s;
        while (IsLoaded()) {
            if (std::chrono::steady_clock::now() > end) return false;
            std::this_thread::yield();
        }
        return true;
    }

    decltype(&tarvex_open) open;
    decltype(&tarvex_run) run;
    decltype(&tarvex_wait) wait;
    decltype(&tarvex_close) close;
    decltype(&tarvex_last_error) last_error;

private:
    template <class Function>
    void Find(Function& function, const char* name) {
        function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module_, name)));
        if (!function) throw std::runtime_error(std::string("there is no ") + name);
    }

    HMODULE module_;
};

// What a library that is loaded and unloaded again and again must not use up.
struct Holdings {
    DWORD handles = 0;
    DWORD first_free_slot = 0;  // of what threads have for themselves
    std::size_t heap_bytes = 0;

    static Holdings OfProcess() {
        Holdings now;
        GetProcessHandleCount(GetCurrentProcess(), &now.handles);
        now.first_free_slot = TlsAlloc();
        TlsFree(now.first_free_slot);
        std::array<HANDLE, 64> heaps{};
        const DWORD count = GetProcessHeaps(heaps.size(), heaps.data());
        for (DWORD i = 0; i < std::min<DWORD>(count, heaps.size()); ++i) {
            PROCESS_HEAP_ENTRY entry{};
            HeapLock(heaps[i]);
            while (HeapWalk(heaps[i], &entry)) {
                if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) now.heap_bytes += entry.cbData;
            }
            HeapUnlock(heaps[i]);
        }
        return now;
    }
};

// The servers are threads of this process: they have ended as well when this returns.
void LoadForwardAndUnload() {
    MailboxServer pop("alice", "secret");
    pop.Add(Mail("u1"));
    SinkServer smtp;
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
    profile.setting.apop = 1;  // so that OpenSSL is used
    ASSERT_EQ(profile.SaveSetting(), 1);
    AddAddress(profile, "a@example.net");

    MailboxServer other_pop("alice", "secret");
    other_pop.Add(Mail("kept"));
    const TlsIdentity nobodys = MakeTlsIdentity();
    Counter refused;
    ScriptedServer tls([&](Peer& peer) {
        peer.StartTls(nobodys);
        refused.Add();
    });
    CPopProfile& with_tls = tree.AddProfile(other_pop.Port(), tls.Port());
    with_tls.setting.sslsmtp = 1;
    ASSERT_EQ(with_tls.SaveSetting(), 1);
    AddAddress(with_tls, "b@example.net");

    ASSERT_FALSE(Library::IsLoaded());
    {
        const Library library;
        EXPECT_EQ(library.open(nullptr), nullptr);
        EXPECT_STREQ(library.last_error(), "The directory is null.");
        EXPECT_EQ(library.run(nullptr), -1);
        tarvex_root* const root = library.open((tree.Folder() / "root").c_str());
        ASSERT_NE(root, nullptr);
        EXPECT_EQ(library.run(root), 2);
        EXPECT_EQ(library.wait(root, -1), 1);
        EXPECT_TRUE(refused.WaitFor(1));
        library.close(root);
    }
    EXPECT_TRUE(Library::Goes());
    EXPECT_EQ(Arrived(smtp), (Arrivals{{"u1 -> a@example.net", 1}}));
}

TEST(Loading, LibraryForwardsMailIsUnloadedAndCanBeLoadedAgain) {
    LoadForwardAndUnload();
    LoadForwardAndUnload();
    const Holdings before = Holdings::OfProcess();
    LoadForwardAndUnload();
    const Holdings after = Holdings::OfProcess();
    EXPECT_EQ(after.handles, before.handles);
    // The compiler's own library, which is linked in, keeps a slot and some memory for good.
    EXPECT_LE(after.first_free_slot, before.first_free_slot + 1);
    EXPECT_LT(after.heap_bytes, before.heap_bytes + 32 * 1024);
}

TEST(Loading, LibraryTellsItsVersion) {
    DWORD unused = 0;
    std::string information(GetFileVersionInfoSizeA(TARVEX_LIBRARY, &unused), '\0');
    ASSERT_TRUE(GetFileVersionInfoA(TARVEX_LIBRARY, 0, static_cast<DWORD>(information.size()), information.data()));
    void* version = nullptr;
    UINT length = 0;
    ASSERT_TRUE(VerQueryValueA(information.data(), "\\StringFileInfo\\040904b0\\FileVersion", &version, &length));
    EXPECT_STREQ(static_cast<const char*>(version), TARVEX_VERSION);
}

TEST(Loading, LibraryStaysUntilItsLastWorkerHasEnded) {
    MailboxServer pop("alice", "secret");
    Counter asked, answered;
    pop.SetFault([&](const std::string& command) {
        if (command == "QUIT") {
            asked.Add();
            answered.WaitFor(1);
        }
        return "";
    });
    DataTree tree;
    CPopProfile& profile = tree.AddProfile(pop.Port(), UnusedPort());
    AddAddress(profile, "a@example.net");
    {
        const Library library;
        tarvex_root* const root = library.open((tree.Folder() / "root").c_str());
        EXPECT_EQ(library.run(root), 1);
        ASSERT_TRUE(asked.WaitFor(1));
    }  // a host that forgets its root
    EXPECT_TRUE(Library::IsLoaded());
    answered.Add();
    EXPECT_TRUE(Library::Goes());
    EXPECT_NE(LogText(profile).find("---- End Operation at "), std::string::npos);
}

// A copy of a host whose library finds the failing sockets under another name.
class HostWithOtherSockets {
public:
    HostWithOtherSockets() {
        fs::copy_file(TARVEX_C_HOST, folder_.Path() / "host.exe");
        fs::copy_file(TARVEX_FAILING_SOCKETS, folder_.Path() / kOther);
        std::string library = ReadFile(TARVEX_LIBRARY);
        for (std::size_t at = 0; (at = library.find(kSystems, at)) != std::string::npos; ++replaced_) {
            library.replace(at, kSystems.size(), kOther);
        }
        WriteFile(folder_.Path() / "Tarvex.dll", library);
    }

    int Replaced() const { return replaced_; }

    // Runs it without a directory.
    ChildProcess Run(int start_of_sockets) const {
        return ChildProcess({folder_ / "host.exe"}, ChildProcess::Output::Pipe,
                            {"TARVEX_START_OF_SOCKETS=" + std::to_string(start_of_sockets)});
    }

private:
    static constexpr std::string_view kSystems = "WS2_32.dll";
    static constexpr std::string_view kOther = "WS2_no.dll";

    TempDir folder_;
    int replaced_ = 0;
};

TEST(Loading, FailsWhereSocketsCannotBeStarted) {
    constexpr int kNotReady = 10091;  // WSASYSNOTREADY
    const HostWithOtherSockets host;
    ASSERT_GT(host.Replaced(), 0);

    ChildProcess loads = host.Run(0);
    loads.Wait();
    EXPECT_EQ(loads.ExitCode(), 1);
    EXPECT_EQ(loads.Errors(), "The directory is null.\n");

    ChildProcess fails = host.Run(kNotReady);
    fails.Wait();
    EXPECT_EQ(static_cast<unsigned>(fails.ExitCode()), 0xC0000142U);  // STATUS_DLL_INIT_FAILED
    EXPECT_EQ(fails.Errors(), "");
}

}  // namespace
}  // namespace tarvex::testing
