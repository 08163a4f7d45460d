// The configuration of mailutils-pop3d, with a user and a mailbox of its own.

#include "bench/mailutils_server.h"

#include <filesystem>
#include <stdexcept>

namespace tarvex::bench {
namespace {

using testing::ServerProcess;
using testing::WriteFile;

constexpr const char* kProgram = "/usr/sbin/pop3d";

// The password "secret".
constexpr const char* kHash = "$5$ofthebench$i3Yb65i00oxICO1PrvU5eiVWMCCK3FeL73a5WX7XXA3";

// A mailbox in one file: LF line ends, "From " lines between the messages.
std::string MailboxFile(const std::vector<testing::GeneratedMail>& mails) {
    std::string file;
    for (const testing::GeneratedMail& mail : mails) {
        file += "From sender@example.test Mon Jan  1 00:00:00 2024\n";
        for (const char c : mail.text) {
            if (c != '\r') file += c;
        }
        file += "\n";
    }
    return file;
}

}  // namespace

// It takes the group of the mail, which only root may.
std::string MailutilsServer::Missing() {
    if (!std::filesystem::exists(kProgram)) return "mailutils-pop3d is not installed";
    return testing::CanStartAsRoot() ? "" : "mailutils-pop3d can only be started as root";
}

MailutilsServer::MailutilsServer(const std::vector<testing::GeneratedMail>& mails)
    : port_(testing::FreePorts(1).front()) {
    const testing::ServerAccount account = testing::AccountForServers();
    const std::string home = (folder_ / "home").string();
    for (const char* name : {"home", "domains"}) folder_.MakeFolder(name);
    WriteFile(folder_ / "home" / "INBOX", MailboxFile(mails));
    WriteFile(folder_ / "domains" / "bench", std::string("small:") + kHash + ":" + std::to_string(account.uid) + ":" +
                                                 std::to_string(account.gid) + "::" + home + ":/bin/sh\n");
    for (const char* name : {"home", "domains"}) folder_.GiveAway(folder_ / name);
    WriteFile(folder_ / "conf",
              "mode daemon;\nforeground yes;\nlogging { syslog no; };\nmandatory-locking { enable no; };\n"
              "virtdomain { passwd-dir " +
                  (folder_ / "domains").string() +
                  "; };\nauth {\n  authentication clear;\n  authentication generic;\n  authorization clear;\n"
                  "  authorization virtdomain;\n};\nmailbox { mail-spool " +
                  home + "; };\npidfile " + (folder_ / "pid").string() +
                  ";\nserver 127.0.0.1:" + std::to_string(port_) + " { };\n");
    process_ = std::make_unique<ServerProcess>(
        ServerProcess::Command{.words = {kProgram, "--config-file=" + (folder_ / "conf").string()},
                               .privilege = testing::Privilege::Root,
                               .output = folder_ / "output"});
    if (!testing::WaitUntil([&] { return !process_->Running() || testing::Answers(port_, "+OK"); }) ||
        !process_->Running()) {
        throw std::runtime_error("mailutils-pop3d did not start: " + testing::ReadFile(folder_ / "output"));
    }
}

}  // namespace tarvex::bench
