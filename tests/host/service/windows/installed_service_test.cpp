// `tarvex service`: the service that the service manager starts, asks and stops.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/sha.h>
#include <windows.h>
// Behind it.
#include <winsvc.h>

#include <chrono>
#include <cstring>
#include <cwctype>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/service/log/windows/event_source.h"
#include "host/service/windows/installed_service.h"
#include "host/system/command_error.h"
#include "host/system/windows/accounts.h"
#include "host/system/windows/managed_process.h"
#include "host/system/windows/wide.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using namespace std::chrono_literals;
using host::AskForService;
using host::InstalledService;
using host::LogMatter;
using host::Utf8;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using State = InstalledService::State;

bool Soon(const std::function<bool()>& happened) {
    for (const auto deadline = std::chrono::steady_clock::now() + 60s; !happened(); std::this_thread::sleep_for(20ms)) {
        if (std::chrono::steady_clock::now() > deadline) return false;
    }
    return true;
}

bool Control(DWORD control) {
    const SC_HANDLE manager = OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT);
    const SC_HANDLE service = OpenServiceW(manager, host::kServiceName, SERVICE_ALL_ACCESS);
    SERVICE_STATUS status;
    const bool done = ControlService(service, control, &status) != 0;
    CloseServiceHandle(service);
    CloseServiceHandle(manager);
    return done;
}

class ServiceOfWindows : public ::testing::Test {
protected:
    ServiceOfWindows() { profile_ = host_.AddProfile(mailbox_.Port(), sink_.Port()); }
    ~ServiceOfWindows() override { Tell({"service", "remove"}); }

    // What it prints; the expected exit code is checked.
    std::string Tell(const std::vector<std::string>& words, int exit_code = 0) {
        ChildProcess command = host_.StartCommand(words);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), exit_code) << ::testing::PrintToString(words) << command.Errors();
        return command.Printed() + command.Errors();
    }

    void Forwards(int number) {
        mailbox_.Add(MailNumber(number));
        Tell({"run", "--now"});
        const std::vector<DeliveredMail> mails = sink_.Delivered();
        ASSERT_FALSE(mails.empty());
        EXPECT_THAT(mails.back().text, HasSubstr(MailNumber(number).uidl));
    }

    MailboxServer mailbox_{"user", "secret"};
    SinkServer sink_;
    Host host_;
    std::string profile_;
};

TEST_F(ServiceOfWindows, ForwardsIsAskedEditedHeldBackAndStopped) {
    Tell({"service", "install", "--no-console"});
    EXPECT_EQ(AskForService().state, State::Stopped);
    mailbox_.Add(MailNumber(1));
    Tell({"service", "start"});
    EXPECT_EQ(AskForService().state, State::Running);
    EXPECT_TRUE(Soon([this] { return sink_.Delivered().size() == 1; }));
    Forwards(2);
    Tell({"user", "add", "taro"});
    EXPECT_THAT(Tell({"user", "list"}), HasSubstr("taro"));
    EXPECT_TRUE(Control(SERVICE_CONTROL_PARAMCHANGE));

    EXPECT_TRUE(Control(SERVICE_CONTROL_PAUSE));
    EXPECT_TRUE(Soon([] { return AskForService().state == State::Paused; }));
    EXPECT_THAT(Tell({"service", "status"}), HasSubstr("paused"));
    const int listed = mailbox_.Received("UIDL");
    mailbox_.Add(MailNumber(3));
    EXPECT_THAT(Tell({"run", "--now"}, host::kTryLater), HasSubstr("is paused"));
    EXPECT_THAT(Tell({"status"}, host::kSomethingFails), HasSubstr("is paused"));
    EXPECT_THAT(Tell({"user", "set", "taro", "--loginname", "jiro"}), HasSubstr("jiro"));
    EXPECT_EQ(mailbox_.Received("UIDL"), listed);
    EXPECT_TRUE(Control(SERVICE_CONTROL_CONTINUE));
    EXPECT_TRUE(Soon([] { return AskForService().state == State::Running; }));
    EXPECT_TRUE(Soon([this] { return sink_.Delivered().size() == 3; }));
    Forwards(4);

    Tell({"service", "stop"});
    EXPECT_EQ(AskForService().state, State::Stopped);
    EXPECT_EQ(AskForService().exit_code, 0u);
    Tell({"service", "remove"});
    EXPECT_EQ(AskForService().state, State::Missing);
}

TEST_F(ServiceOfWindows, CrashIsNoCleanStop) {
    Tell({"service", "install", "--no-console"});
    Tell({"service", "start"});
    const HANDLE process = OpenProcess(PROCESS_TERMINATE, FALSE, AskForService().process);
    EXPECT_TRUE(TerminateProcess(process, 0));
    CloseHandle(process);
    EXPECT_TRUE(Soon([] { return AskForService().state == State::Stopped; }));
    EXPECT_THAT(Tell({"service", "status"}, 1), HasSubstr("ended with code"));
}

TEST_F(ServiceOfWindows, SaysWhyItCannotStartAndEndsWithThatCode) {
    Tell({"service", "install", "--no-console"});
    std::filesystem::remove_all(host_.Root());
    EXPECT_THAT(Tell({"service", "start"}, kUnavailable), HasSubstr("code 66"));
}

TEST_F(ServiceOfWindows, WritesTheLogThatItWasInstalledWithAlsoAfterAnUpgrade) {
    const TempDir folder;
    Tell({"service", "install", "--no-console", "--log-format", "json", "--log-file", folder / "log"});
    Tell({"service", "install", "--no-console"});
    Tell({"service", "start"});
    Tell({"service", "stop"});
    EXPECT_THAT(ReadFile(folder / "log"), StartsWith("{\"time\":\"2"));
    EXPECT_THAT(ReadFile(folder / "log"), HasSubstr("\"message\":\"stopped\""));
}

TEST_F(ServiceOfWindows, IsFoundWithoutNamingTheTree) {
    Tell({"service", "install", "--no-console"});
    ChildProcess list({TARVEX_HOST, "user", "list"});
    list.Wait();
    EXPECT_THAT(list.Printed(), HasSubstr("user")) << list.Errors();
}

TEST(ServiceCommands, SayWhatIsWrongWhereThereIsNoService) {
    const Host host;
    for (const char* const verb : {"start", "stop", "status"}) {
        ChildProcess command = host.StartCommand({"service", verb});
        command.Wait();
        EXPECT_EQ(command.ExitCode(), 66);
        EXPECT_THAT(command.Errors(), HasSubstr("tarvex service install"));
    }
    ChildProcess serve = host.StartCommand({"serve", "--service"});
    serve.Wait();
    EXPECT_EQ(serve.ExitCode(), kBadUsage);
    EXPECT_THAT(serve.Errors(), HasSubstr("tarvex service start"));
}

// "S-1-5-80-" and the SHA-1 of the name in capitals and UTF-16, as five numbers.
std::string NumberOfAccount(std::wstring_view service) {
    std::wstring name(service);
    for (wchar_t& letter : name) letter = static_cast<wchar_t>(std::towupper(letter));
    unsigned char digest[SHA_DIGEST_LENGTH];
    SHA1(reinterpret_cast<const unsigned char*>(name.data()), name.size() * sizeof(wchar_t), digest);
    std::string number = "S-1-5-80";
    for (int i = 0; i < SHA_DIGEST_LENGTH; i += 4) {
        std::uint32_t part = 0;
        std::memcpy(&part, digest + i, sizeof part);
        number += '-' + std::to_string(part);
    }
    return number;
}

TEST(ServiceAccounts, HaveTheNumbersThatWindowsComputesOfTheirNames) {
    EXPECT_EQ(NumberOfAccount(host::kServiceName), host::kServiceUser);
    EXPECT_EQ(NumberOfAccount(host::kConsoleServiceName), host::kConsoleUser);
}

// The event log makes it out of the file of the program.
std::string Message(unsigned id, int language, std::vector<std::wstring> texts) {
    const HMODULE program = LoadLibraryExW(host::Wide(CP_UTF8, TARVEX_HOST).c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    std::vector<DWORD_PTR> pointers;
    for (const std::wstring& text : texts) pointers.push_back(reinterpret_cast<DWORD_PTR>(text.c_str()));
    wchar_t message[2048];
    const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, program, id,
                                        MAKELANGID(static_cast<WORD>(language), SUBLANG_DEFAULT), message,
                                        std::size(message), reinterpret_cast<va_list*>(pointers.data()));
    FreeLibrary(program);
    return Utf8(std::wstring_view(message, length));
}

TEST(EventLog, EveryEntryHasItsTextInBothLanguages) {
    for (int i = 0; i < host::kEventCategories; ++i) {
        const auto matter = static_cast<LogMatter>(i);
        for (const int language : {LANG_ENGLISH, LANG_JAPANESE}) {
            EXPECT_NE(Message(host::EventCategory(matter), language, {}), "");
            EXPECT_THAT(Message(host::EventId(matter), language, {L"it said", L"p", L"r", L"a", L"u", L"k"}),
                        StartsWith("it said"));
        }
    }
    const unsigned failed = host::EventId(LogMatter::RunFailed);
    const std::vector<std::wstring> texts = {L"it failed", L"user0", L"mailbox failed", L"a@b", L"", L""};
    EXPECT_THAT(Message(failed, LANG_ENGLISH, texts), HasSubstr("Profile: user0"));
    EXPECT_THAT(Message(failed, LANG_JAPANESE, texts), HasSubstr("プロファイル: user0"));
}

}  // namespace
}  // namespace tarvex::testing
