// Settings and command lines of the measured programs.

#include "bench/peers.h"

#include <stdexcept>

#include "tarvex/tarvex.h"
#include "testing/temp_dir.h"

namespace tarvex::bench {
namespace {

using testing::WriteFile;

constexpr const char* kSender = "forwarder@example.test";
constexpr const char* kRecipient = "phone@mobile.example.test";

}  // namespace

void TarvexPeer::Prepare(const Task& task, const std::filesystem::path& folder) const {
    CRootPath root;
    if (root.SetRootPath((folder / "tree").string()) != 1) throw std::runtime_error("no root");
    CPopProfile* profile = root.CreateNewUser("user", "", 0)->CreateNewPopProfile("mailbox", kSender);
    CPopProfileSetting& setting = profile->setting;
    setting.popserver = "127.0.0.1";
    setting.popport = task.pop_port;
    setting.popuser = task.mailbox.user;
    setting.poppassword = task.mailbox.password;
    setting.smtpport = task.smtp_port;
    setting.timer = 0;
    if (profile->SaveSetting() != 1 || profile->CreateNewForwardAddress("phone", kRecipient) == nullptr) {
        throw std::runtime_error("no profile");
    }
    if (rules_ == Rules::With) WriteFile(folder / "tree" / "host.def", "[setaside]\r\n1\r\n");
}

Program TarvexPeer::Command(const std::filesystem::path& folder) const {
    return {.words = {TARVEX_HOST, "run", "--root", (folder / "tree").string(), "--quiet"}};
}

void FetchmailPeer::Prepare(const Task& task, const std::filesystem::path& folder) const {
    const std::string settings = "set no bouncemail\nset no spambounce\nset postmaster \"" + std::string(kSender) +
                                 "\"\nset idfile \"" + (folder / "ids").string() + "\"\npoll 127.0.0.1 service " +
                                 std::to_string(task.pop_port) + " proto pop3 uidl timeout 60\n  user \"" +
                                 task.mailbox.user + "\" password \"" + task.mailbox.password + "\" is \"" +
                                 kRecipient + "\" here\n  smtphost \"127.0.0.1/" + std::to_string(task.smtp_port) +
                                 "\" smtpname \"" + kRecipient + "\"\n  keep no rewrite no mimedecode sslproto \"\"\n";
    WriteFile(folder / "fetchmailrc", settings);
    std::filesystem::permissions(folder / "fetchmailrc",
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

Program FetchmailPeer::Command(const std::filesystem::path& folder) const {
    Program program{.words = {"fetchmail", "--silent", "--fetchmailrc", (folder / "fetchmailrc").string(), "--pidfile",
                              (folder / "pid").string()},
                    .environment = {"FETCHMAILHOME=" + folder.string()}};
    if (delay_ == Delay::None) program.environment.emplace_back("LD_PRELOAD=" NO_DELAY_SHIM);
    return program;
}

void FdmPeer::WriteConfiguration(const Task& task, const std::filesystem::path& folder, const std::string& action) {
    WriteFile(folder / "fdm.conf",
              "set maximum-size 100M\nset lock-file \"" + (folder / "lock").string() + "\"\n" +
                  "set no-received\nset unmatched-mail keep\naccount \"mailbox\" pop3 server \"127.0.0.1\" port " +
                  std::to_string(task.pop_port) + " user \"" + task.mailbox.user + "\" pass \"" +
                  task.mailbox.password + "\" new-only cache \"" + (folder / "cache").string() +
                  "\" no-apop keep\naction \"forward\" " + action + "\nmatch all action \"forward\"\n");
}

void FdmPeer::Prepare(const Task& task, const std::filesystem::path& folder) const {
    WriteConfiguration(task, folder,
                       "smtp server \"127.0.0.1\" port " + std::to_string(task.smtp_port) + " from \"" + kSender +
                           "\" to \"" + kRecipient + "\"");
}

void FdmPeer::PrepareToRemember(const Task& task, const std::filesystem::path& folder) {
    WriteConfiguration(task, folder, "drop");
}

// As root it would split itself into processes of several users; the folder belongs to an ordinary one.
Program FdmPeer::Command(const std::filesystem::path& folder) const {
    return {.words = {"fdm", "-f", (folder / "fdm.conf").string(), "fetch"},
            .environment = {"HOME=" + folder.string()},
            .ordinary_account = true};
}

void GetmailPeer::Prepare(const Task& task, const std::filesystem::path& folder) const {
    WriteFile(folder / "getmailrc",
              "[retriever]\ntype = SimplePOP3Retriever\nserver = 127.0.0.1\nport = " + std::to_string(task.pop_port) +
                  "\nusername = " + task.mailbox.user + "\npassword = " + task.mailbox.password +
                  "\n[destination]\ntype = MDA_lmtp\nhost = 127.0.0.1\nport = " + std::to_string(task.lmtp_port) +
                  "\noverride = " + kRecipient +
                  "\n[options]\nread_all = false\ndelete = false\ndelivered_to = false\n"
                  "received = false\nverbose = 0\n");
}

Program GetmailPeer::Command(const std::filesystem::path& folder) const {
    return {.words = {"getmail", "-g", folder.string(), "-r", (folder / "getmailrc").string()}};
}

}  // namespace tarvex::bench
