// Dovecot as a POP3 server for one test.

#include <unistd.h>

#include <stdexcept>

#include "tests/real/servers/real_servers.h"

namespace tarvex::testing {
namespace {

constexpr const char* kDovecot = "/usr/sbin/dovecot";

std::string UsersFile(const std::vector<Login>& logins) {
    std::string lines;
    for (const Login& login : logins) lines += login.user + ":{PLAIN}" + login.password + "::::::\n";
    return lines;
}

// Below it the servers make sockets, whose names the system limits to 107 bytes.
std::filesystem::path ShortParent() {
    constexpr std::size_t kMostBytes = 40;
    std::filesystem::path parent = std::filesystem::temp_directory_path();
    return parent.native().size() <= kMostBytes ? parent : "/tmp";
}

}  // namespace

ServerFolder::ServerFolder() : folder_(ShortParent()) {
    using std::filesystem::perms;
    std::filesystem::permissions(folder_.Path(), perms::owner_all | perms::group_exec | perms::group_read |
                                                     perms::others_exec | perms::others_read);
}

void ServerFolder::MakeFolder(const std::string& name) const {
    std::filesystem::create_directories(*this / name);
    GiveAway(*this / name);
}

void ServerFolder::GiveAway(const std::filesystem::path& path) const {
    if (geteuid() != 0) return;
    const ServerAccount account = AccountForServers();
    const auto give = [&](const std::filesystem::path& entry) {
        if (lchown(entry.c_str(), account.uid, account.gid) != 0) {
            throw std::runtime_error("cannot give away " + entry.string());
        }
    };
    give(path);
    if (!std::filesystem::is_directory(path)) return;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) give(entry.path());
}

std::string PopServer::Missing() {
    if (!std::filesystem::exists(kDovecot) || !std::filesystem::exists("/usr/lib/dovecot/pop3")) {
        return "Dovecot is not installed (packages dovecot-core and dovecot-pop3d)";
    }
    if (AccountForServers().user.empty()) return "Dovecot needs a user with a name";
    return "";
}

PopServer::PopServer(const TlsOptions& certificate) {
    const TlsIdentity identity = MakeTlsIdentity(certificate);
    WriteFile(folder_ / "ca.pem", identity.ca_certificate);
    WriteFile(folder_ / "server.pem", identity.certificate);
    WriteFile(folder_ / "server.key", identity.key);
    for (const char* name : {"ca.pem", "server.pem", "server.key"}) folder_.GiveAway(folder_ / name);
    tls_port_ = FreePorts(1).front();
    Start({kAlice, kBob});
}

void PopServer::Start(const std::vector<Login>& logins) {
    for (const char* name : {"run", "state", "mail"}) folder_.MakeFolder(name);
    WriteFile(folder_ / "users", UsersFile(logins));
    WriteFile(folder_ / "dovecot.log", "");
    for (const char* name : {"users", "dovecot.log"}) folder_.GiveAway(folder_ / name);
    for (const Login& login : logins) Maildir make(MailboxPath(login));
    folder_.GiveAway(folder_ / "mail");

    port_ = FreePorts(1).front();
    WriteFile(folder_ / "dovecot.conf", Configuration(tls_port_ == 0 ? "" : folder_.TakeTokens()));
    process_ = std::make_unique<ServerProcess>(ServerProcess::Command{
        .words = {kDovecot, "-F", "-c", (folder_ / "dovecot.conf").string()}, .output = folder_ / "dovecot.out"});
    const bool ready = WaitUntil([&] { return !process_->Running() || Answers(port_, "+OK"); });
    if (!ready || !process_->Running()) {
        throw std::runtime_error("Dovecot did not start: " + ReadFile(folder_ / "dovecot.out") + Log());
    }
}

// Every process runs under one ordinary account, so nothing may change its root folder. A refused login is answered at
// once, and flags that only mail readers want are not kept, so that messages are not renamed.
std::string PopServer::Configuration(const std::string& tokens) const {
    const ServerAccount account = AccountForServers();
    const std::string base = (folder_ / "").string();
    return "base_dir = " + base + "run\nstate_dir = " + base + "state\nlog_path = " + base + "dovecot.log\n" +
           "default_internal_user = " + account.user + "\ndefault_internal_group = " + account.group +
           "\ndefault_login_user = " + account.user + "\nfirst_valid_uid = 1\nfirst_valid_gid = 1\n" +
           "passdb {\n  driver = passwd-file\n  args = scheme=PLAIN username_format=%u " + base + "users\n}\n" +
           "userdb {\n  driver = static\n  args = uid=" + std::to_string(account.uid) +
           " gid=" + std::to_string(account.gid) + " home=" + base + "mail/%u\n}\nmail_location = maildir:~\n" +
           "service pop3-login {\n  chroot =\n  service_count = 0\n  process_min_avail = 1\n  process_limit = 4\n"
           "  inet_listener pop3 {\n    port = " +
           std::to_string(port_) + "\n  }\n  inet_listener pop3s {\n    port = " + std::to_string(tls_port_) +
           "\n    ssl = yes\n  }\n}\n" + tokens +
           (tls_port_ == 0 ? "ssl = no\n"
                           : "ssl = yes\nssl_cert = <" + base + "server.pem\nssl_key = <" + base + "server.key\n") +
           (tokens.empty() ? "auth_mechanisms = plain apop\n" : "auth_mechanisms = plain apop xoauth2 oauthbearer\n") +
           R"(protocols = pop3
listen = 127.0.0.1
disable_plaintext_auth = no
auth_failure_delay = 0
auth_verbose = yes
shutdown_clients = yes
mail_fsync = never
mail_max_userip_connections = 0
pop3_no_flag_updates = yes
service pop3 {
  service_count = 0
  process_limit = 200
}
service auth {
  client_limit = 2000
}
service anvil {
  chroot =
  client_limit = 2000
  unix_listener anvil-auth-penalty {
    mode = 0
  }
}
service stats {
  chroot =
  client_limit = 2000
}
)";
}

std::filesystem::path PopServer::MailboxPath(const Login& login) const { return folder_ / ("mail/" + login.user); }

void PopServer::Deliver(const Login& login, const std::vector<GeneratedMail>& mails) {
    Maildir mailbox(MailboxPath(login));
    for (const GeneratedMail& mail : mails) mailbox.Add(mail);
    folder_.GiveAway(mailbox.Path());
}

void PopServer::Remove(const Login& login, int number) { Maildir(MailboxPath(login)).Remove(number); }

void PopServer::Renumber(const Login& login) {
    for (const auto& entry : std::filesystem::directory_iterator(MailboxPath(login))) {
        if (!entry.is_directory()) std::filesystem::remove(entry.path());
    }
}

int PopServer::Count(const Login& login) const { return Maildir(MailboxPath(login)).Count(); }

std::string PopServer::Log() const { return ReadFile(folder_ / "dovecot.log"); }

}  // namespace tarvex::testing
