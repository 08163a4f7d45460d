// The container image as it is run: as its own user, with a root that may not be written, by the words that stand in
// it.

#include <gmock/gmock.h>
#include <iconv.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <nlohmann/json.hpp>
#include <set>

#include "loopback/codec.h"
#include "testing/scripted_server.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using Words = std::vector<std::string>;

constexpr auto kPatience = 30s;
constexpr unsigned kUser = 10001;
constexpr int kNoTree = 66;
constexpr int kUnknown = 3;  // of `health`

Words operator+(Words first, const Words& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

const Words kApart = {"/usr/bin/unshare", "--mount", "--pid", "--fork", "--kill-child"};

std::string Said(const Words& words, int exit_code, const std::string& input = {}) {
    ChildProcess program(words, ChildProcess::Output::Pipe, {}, input);
    program.Wait();
    EXPECT_EQ(program.ExitCode(), exit_code) << ::testing::PrintToString(words) << program.Errors();
    return program.Printed() + program.Errors();
}

// One container for all tests, each with a volume of its own.
class Container : public ::testing::Test {
protected:
    // Not for the suite: googletest calls what follows a failure there skipped.
    static void MakeOnce() {
        if (storage_) return;
        storage_ = std::make_unique<TempDir>();
        Said(Buildah({"from", "--quiet", "--name", "tarvex", std::string("docker-archive:") + TARVEX_IMAGE}), 0);
        // Buildah mounts its own volume over one that it is given for the same place.
        Said(Buildah({"config", "--volume", "/data-", "tarvex"}), 0);
        root_ = Said(Buildah({"mount", "tarvex"}), 0);
        root_.erase(root_.find('\n'));
        const auto config = nlohmann::json::parse(Said(Buildah({"inspect", "tarvex"}), 0)).at("Docker").at("config");
        variables_ = config.at("Env").get<Words>();
        entry_ = config.at("Entrypoint").get<Words>();
        command_ = config.at("Cmd").get<Words>();
        check_ = config.at("Healthcheck").at("Test").get<Words>();
        check_.erase(check_.begin());  // "CMD"
    }

    static void TearDownTestSuite() {
        if (storage_) Said(Buildah({"rm", "tarvex"}), 0);
        storage_.reset();
    }

    void SetUp() override {
        if (!fs::exists(TARVEX_IMAGE)) GTEST_SKIP() << "there is no image";
        if (geteuid() != 0) GTEST_SKIP() << "only the superuser may run it here";
        ChildProcess apart(kApart + Words{"true"});
        apart.Wait();
        if (apart.ExitCode() != 0) GTEST_SKIP() << apart.Errors();
        MakeOnce();
        ASSERT_FALSE(check_.empty());
        ASSERT_EQ(chmod(volume_.String().c_str(), 0700), 0);
        ASSERT_EQ(chown(volume_.String().c_str(), kUser, kUser), 0);
    }

    static Words Buildah(const Words& words) {
        return Words{"/usr/bin/env", "buildah",         "--root",           *storage_ / "storage",
                     "--runroot",    *storage_ / "run", "--storage-driver", "vfs"} +
               words;
    }

    // By Buildah alone, whose namespaces are fewer, and which may lose the end of what a program prints.
    Words InIsolation(const Words& words) const {
        return Buildah(Words{"run", "--isolation", "chroot", "--volume", volume_.String() + ":/data", "tarvex", "--"} +
                       words);
    }

    // Nothing but the volume can be written here, and the first word is process 1. All ends with it.
    Words InContainer(const Words& words, const Words& variables = {}) const {
        constexpr const char* kScript =
            "set -e; mount --bind \"$1\" \"$1\"; mount -o remount,bind,ro \"$1\"; mount --bind \"$2\" \"$1/data\";"
            "mount --rbind /dev \"$1/dev\"; mount -t proc proc \"$1/proc\"; shift 2; exec \"$@\"";
        const std::string user = std::to_string(kUser) + ':' + std::to_string(kUser);
        return kApart + Words{"bash", "-c", kScript, "bash", root_, volume_.String(), "/usr/bin/env", "-i"} +
               variables_ + variables + Words{"/usr/sbin/chroot", "--userspec=" + user, root_} + words;
    }

    // What a command says that is given behind the image's name.
    std::string Tell(const Words& words, int exit_code = 0, const std::string& input = {}) const {
        return Said(InContainer(entry_ + words), exit_code, input);
    }

    std::string Check(int exit_code) const { return Said(InContainer(check_), exit_code); }

    static std::set<std::string> Files() {
        std::set<std::string> files;
        for (const auto& entry : fs::recursive_directory_iterator(root_)) files.insert(entry.path().string());
        return files;
    }

    static std::unique_ptr<TempDir> storage_;
    static std::string root_;
    static Words variables_, entry_, command_, check_;
    TempDir volume_;
};

std::unique_ptr<TempDir> Container::storage_;
std::string Container::root_;
Words Container::variables_, Container::entry_, Container::command_, Container::check_;

std::string In(const char* charset, std::string utf8) {
    iconv_t converter = iconv_open(charset, "UTF-8");
    std::string result(4 * utf8.size() + 16, '\0');
    char* in = utf8.data();
    char* out = result.data();
    std::size_t in_bytes = utf8.size();
    std::size_t room = result.size();
    EXPECT_EQ(iconv(converter, &in, &in_bytes, &out, &room), 0U) << charset;
    iconv(converter, nullptr, nullptr, &out, &room);
    iconv_close(converter);
    result.resize(result.size() - room);
    return result;
}

constexpr const char* kJapanese = "会議の資料";

std::vector<StoredMail> MailsOfManyCharsets() {
    constexpr const char* kRussian = "Привет, это письмо";
    constexpr const char* kPolish = "Zażółć gęślą jaźń";
    constexpr std::pair<const char*, const char*> kTexts[] = {
        {"ISO-2022-JP", kJapanese},    {"UTF-8", kJapanese},    {"EUC-KR", "會議 안녕하세요"},
        {"GB18030", "会议资料"},       {"Big5", "會議資料"},    {"KOI8-R", kRussian},
        {"windows-1251", kRussian},    {"ISO-8859-2", kPolish}, {"windows-1250", kPolish},
        {"ISO-8859-1", "Café, Größe"}, {"IBM866", kRussian},    {"TIS-620", "สวัสดี"}};
    std::vector<StoredMail> mails;
    for (const auto& [charset, text] : kTexts) {
        const std::string coded = loopback::ToBase64(In(charset, text));
        mails.push_back({charset, "From: a@example.org\r\nSubject: =?" + std::string(charset) + "?B?" + coded +
                                      "?=\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=" + charset +
                                      "\r\nContent-Transfer-Encoding: base64\r\n\r\n" + coded + "\r\n"});
    }
    return mails;
}

using Speak = std::function<void(const Words& words, const std::string& input)>;

// A profile with an address that gets the whole mail and one that gets a text mail.
void AddProfile(const Speak& speak, int pop_port, int smtp_port) {
    speak({"init"}, "");
    speak({"user", "add", "taro"}, "");
    speak({"profile", "add", "taro", "me@example.org", "--popserver", "127.0.0.1", "--popport",
           std::to_string(pop_port), "--popuser", "user", "--password-stdin", "--plain", "--timer", "always",
           "--smtpserver", "127.0.0.1", "--smtpport", std::to_string(smtp_port)},
          "secret\n");
    speak({"forward", "add", "me@example.org", "phone@example.net", "--all-mail"}, "");
    speak({"forward", "add", "me@example.org", "pager@example.net", "--all-mail", "--textonly", "unlimited"}, "");
}

std::vector<std::string> Texts(const SinkServer& smtp) {
    std::vector<std::string> texts;
    for (const DeliveredMail& mail : smtp.Delivered()) texts.push_back(mail.recipients.at(0) + '\n' + mail.text);
    std::ranges::sort(texts);
    return texts;
}

// What arrives by the command as it was built, outside of any container.
std::vector<std::string> ForwardedOutside(MailboxServer& mailbox) {
    const SinkServer smtp;
    const TempDir folder;
    const Words command = {TARVEX_HOST, "--root", folder / "tree"};
    AddProfile([&](const Words& words, const std::string& input) { Said(command + words, 0, input); }, mailbox.Port(),
               smtp.Port());
    Said(command + Words{"run"}, 0);
    return Texts(smtp);
}

pid_t ChildOf(int process) {
    const std::string number = std::to_string(process);
    pid_t child = 0;
    std::ifstream("/proc/" + number + "/task/" + number + "/children") >> child;
    return child;
}

TEST_F(Container, SaysOnAnEmptyVolumeWhatToTypeAndTakesIt) {
    EXPECT_THAT(Tell(command_, kNoTree), HasSubstr("make one with `tarvex init`"));
    EXPECT_THAT(Check(kUnknown), StartsWith("TARVEX UNKNOWN - there is no data tree"));
    EXPECT_THAT(Tell({"init"}), StartsWith("Made the data tree /data/tree."));
    EXPECT_EQ(Check(0), "TARVEX OK - 0 profiles | profiles=0 failing=0 held=0\n");
}

TEST_F(Container, RunsInTheIsolationOfBuildah) {
    Said(InIsolation(entry_ + command_), kNoTree);
    Said(InIsolation(entry_ + Words{"init"}), 0);
    Said(InIsolation(check_), 0);
    struct stat tree {};
    ASSERT_EQ(stat((volume_ / "tree").c_str(), &tree), 0);
    EXPECT_EQ(tree.st_uid, kUser);
    EXPECT_EQ(tree.st_mode & 07777U, 0700U);
}

TEST_F(Container, ForwardsMailsOfManyCharsetsOnAReadOnlyRoot) {
    MailboxServer mailbox("user", "secret");
    const std::vector<StoredMail> mails = MailsOfManyCharsets();
    for (const StoredMail& mail : mails) mailbox.Add(mail);
    const SinkServer smtp;
    const std::set<std::string> before = Files();
    ASSERT_EQ(chown(volume_.String().c_str(), 0, kUser), 0);  // as Kubernetes gives a volume to a group
    ASSERT_EQ(chmod(volume_.String().c_str(), 02770), 0);
    AddProfile([&](const Words& words, const std::string& input) { Said(InContainer(entry_ + words), 0, input); },
               mailbox.Port(), smtp.Port());
    EXPECT_THAT(Said(InContainer({"/usr/bin/tarvex", "init", "/tmp/tree"}), 73), HasSubstr("Read-only file system"));

    ChildProcess service(InContainer(entry_ + command_), ChildProcess::Output::Together);
    ASSERT_TRUE(service.WaitForOutput("forwarded 12 messages (24 copies)", kPatience)) << service.Printed();
    Said(InContainer(check_), 0);
    Said(InContainer(Words{"/usr/bin/tarvex", "health", "--service"}), 0);  // as an orchestrator asks
    ASSERT_EQ(kill(ChildOf(service.Number()), SIGTERM), 0);
    ASSERT_TRUE(service.WaitFor(kPatience));
    EXPECT_EQ(service.ExitCode(), 0);
    EXPECT_THAT(service.Printed(), EndsWith("stopped\n"));

    EXPECT_EQ(Texts(smtp), ForwardedOutside(mailbox));
    EXPECT_THAT(Texts(smtp), Contains("phone@example.net\n" + mails.front().text));
    EXPECT_THAT(Texts(smtp),
                Contains(AllOf(StartsWith("pager@example.net\n"), HasSubstr(In("ISO-2022-JP", kJapanese)))));
    EXPECT_EQ(Files(), before);
}

TEST_F(Container, CheckTellsAFailureFromThreeOfThem) {
    AddProfile([&](const Words& words, const std::string& input) { Tell(words, 0, input); }, UnusedPort(),
               UnusedPort());
    Tell({"run"}, kUnavailable);
    EXPECT_THAT(Check(1), StartsWith("TARVEX WARNING - user0/from0 fails since"));
    for (int i = 0; i < 2; ++i) Tell({"run", "--now"}, kUnavailable);
    EXPECT_THAT(Check(2), StartsWith("TARVEX CRITICAL - user0/from0 fails since"));
}

TEST_F(Container, TrustsTheAuthoritiesInItsBundle) {
    const TlsIdentity identity = MakeTlsIdentity();
    const ScriptedServer server([&](Peer& peer) {
        if (!peer.StartTls(identity, "+OK ready\r\n")) return;
        while (!peer.ReadLine().starts_with("PASS")) peer.Send("+OK\r\n");
        peer.Send("-ERR no\r\n");
    });
    AddProfile([&](const Words& words, const std::string& input) { Tell(words, 0, input); }, server.Port(),
               UnusedPort());
    Tell({"rules", "set", "me@example.org", "--pop_tls", "tls"});
    const Words check = {"check", "me@example.org", "--no-dns"};
    EXPECT_THAT(Tell(check, kUnavailable), HasSubstr("of an authority that is not trusted here"));
    const fs::path bundle = root_ + "/etc/ssl/certs/ca-certificates.crt";
    const std::string authorities = ReadFile(bundle);
    EXPECT_GT(std::ranges::count(authorities, '-') / 20, 100) << "a certificate has twenty of them";
    WriteFile(bundle, authorities + identity.ca_certificate);
    EXPECT_THAT(Tell(check, kUnavailable), HasSubstr("certificate for localhost"));
    WriteFile(bundle, authorities);
}

TEST_F(Container, KnowsTimeZonesAndJapanese) {
    AddProfile([&](const Words& words, const std::string& input) { Tell(words, 0, input); }, UnusedPort(),
               UnusedPort());
    const Words list = entry_ + Words{"schedule", "list", "user0/from0/forwardto0"};
    EXPECT_THAT(Said(InContainer(list, {"TZ=Asia/Tokyo"}), 0), HasSubstr("Asia/Tokyo (+0900)"));
    EXPECT_THAT(Said(InContainer(entry_ + Words{"--help"}, {"LANG=ja_JP.UTF-8"}), 0), HasSubstr("使い方: "));
}

}  // namespace
}  // namespace tarvex::testing
