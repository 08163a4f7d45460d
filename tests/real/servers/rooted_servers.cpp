// Exim, OpenSMTPD and Solid POP3 in a root directory of their own.

#include "tests/real/servers/rooted_servers.h"

#include <fstream>
#include <stdexcept>

namespace tarvex::testing {
namespace {

namespace fs = std::filesystem;

constexpr const char* kServers = TARVEX_SERVERS;
constexpr const char* kListener = "/usr/bin/systemd-socket-activate";  // starts a program for each connection

// Arguments: the root directory, the account of the mail, what is to become the server.
constexpr const char* kStart = R"sh(
exim=$(sed -n 's/^Debian-exim:x:\([0-9]*:[0-9]*\):.*/\1/p' "$1/etc/passwd")
cd "$1" && chown -R 0:0 . && chown -R "$2" home && chown -R "$exim" var/spool/exim4 var/log/exim4 || exit 1
mknod -m 666 dev/null c 1 3 && eval "$3"
)sh";

}  // namespace

std::string RootedServer::Missing() {
    if (!fs::exists(fs::path(kServers) / ".complete")) return "Exim and others are not unpacked (./dev test does it)";
    if (!fs::exists(kListener)) return "systemd-socket-activate is not installed (package systemd)";
    if (!CanStartAsRoot()) return "chroot has to be called by root, and sudo does not do it without asking";
    return "";
}

RootedServer::RootedServer() : port_(FreePorts(1).front()) {
    fs::copy(kServers, folder_ / "root", fs::copy_options::recursive | fs::copy_options::copy_symlinks);
}

std::string RootedServer::Output() const { return ReadFile(folder_ / "output"); }

void RootedServer::Start(const std::string& script, const std::string& greeting) {
    const ServerAccount account = AccountForServers();
    const std::string owner = std::to_string(account.uid) + ":" + std::to_string(account.gid);
    process_ = std::make_unique<ServerProcess>(
        ServerProcess::Command{.words = {"/bin/sh", "-c", kStart, "start", (*this / "").string(), owner, script},
                               .privilege = Privilege::Root,
                               .output = folder_ / "output",
                               .left_over = {folder_ / "root"}});
    const bool ready = WaitUntil([&] { return !process_->Running() || Answers(port_, greeting); });
    if (!ready || !process_->Running()) throw std::runtime_error("a server did not start: " + script + Output());
}

// It need not deliver as the superuser, for there are no local recipients; and the next server may be on this machine.
EximServer::EximServer(int relay_port, const std::string& settings) {
    std::string package = ReadFile(*this / "etc/exim4/exim4.conf.template");
    constexpr std::string_view kNextServer = "  route_list = * DCsmarthost byname\n";
    package.insert(package.find(kNextServer), "  self = send\n");
    WriteFile(*this / "etc/exim4/exim4.conf",
              "MAIN_LOCAL_DOMAINS = @:localhost\nMAIN_RELAY_TO_DOMAINS =\nMAIN_RELAY_NETS = 127.0.0.1\n"
              "ETC_MAILNAME = relay.example.test\nDC_minimaldns = 1\n"
              "MAIN_HARDCODE_PRIMARY_HOSTNAME = relay.example.test\n"
              "DCconfig_smarthost = 1\nDCsmarthost = 127.0.0.1::" +
                  std::to_string(relay_port) + "\ndeliver_drop_privilege\n" + settings + "\n" + package);
    Start("exec chroot . /usr/sbin/exim4 -bdf -oX 127.0.0.1." + std::to_string(Port()), "220");
}

OpenSmtpdServer::OpenSmtpdServer(int relay_port, const std::string& settings) {
    WriteFile(*this / "etc/smtpd.conf",
              settings + "\nlisten on 127.0.0.1 port " + std::to_string(Port()) +
                  "\naction \"relay\" relay host smtp://127.0.0.1:" + std::to_string(relay_port) +
                  "\nmatch from local for any action \"relay\"\n");
    Start("exec chroot . /usr/sbin/smtpd -d", "220");
}

SolidPopServer::SolidPopServer(Mailbox kind) : kind_(kind) {
    const ServerAccount account = AccountForServers();
    std::ofstream(*this / "etc/passwd", std::ios::app)
        << "alice:x:" << account.uid << ':' << account.gid << "::/home/alice:/bin/sh\n";
    const std::string type = kind == Mailbox::Maildir ? "maildir" : "mailbox";
    WriteFile(*this / "etc/spop3d.conf",
              "<Global>\nMailDropName \"/home/alice/mail\"\nMailDropType " + type + "\n</Global>\n");
    fs::create_directories(*this / "home/alice");
    Deliver({});
    Start(std::string(kListener) + " --inetd -a -l 127.0.0.1:" + std::to_string(Port()) +
              " chroot . /usr/sbin/solid-pop3d",
          "+OK");
}

void SolidPopServer::Deliver(const std::vector<GeneratedMail>& mails) {
    if (kind_ == Mailbox::Maildir) {
        Maildir mailbox(Path());
        for (const GeneratedMail& mail : mails) mailbox.Add(mail);
    } else {
        std::ofstream mailbox(Path(), std::ios::app);
        for (const GeneratedMail& mail : mails) {
            mailbox << "From sender@example.test Mon Jan  5 10:00:00 2026\n";
            for (char character : mail.text) {
                if (character != '\r') mailbox << character;
            }
            mailbox << '\n';
        }
    }
    folder_.GiveAway(Path());
}

void SolidPopServer::ForbidWriting() const {
    using fs::perms;
    for (const char* name : {"cur", "new"}) {
        fs::permissions(Path() / name, perms::owner_write, fs::perm_options::remove);
    }
}

int SolidPopServer::Count() const { return Maildir(Path()).Count(); }

}  // namespace tarvex::testing
