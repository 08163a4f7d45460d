// Postfix as an SMTP server for one test.

#include <unistd.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "tests/real/servers/real_servers.h"

namespace tarvex::testing {
namespace {

constexpr const char* kDovecot = "/usr/sbin/dovecot";
constexpr const char* kMaster = "/usr/lib/postfix/sbin/master";

// Makes the queue's folders with the owners that Postfix wants to see and becomes Postfix's master process, leaving out
// the checks of the "postfix start" script. Argument: the folder of the server.
constexpr const char* kStartMaster = R"sh(
cd "$1" && : >postfix.log && chmod 644 postfix.log || exit 1
mkdir -p queue/pid data
for name in active bounce corrupt defer deferred flush hold incoming private saved trace; do
  mkdir -p -m 700 "queue/$name" && chown postfix "queue/$name" || exit 1
done
mkdir -p -m 730 queue/maildrop && mkdir -p -m 710 queue/public || exit 1
chown postfix:postdrop queue/maildrop queue/public && chown postfix data && chown -R root etc || exit 1
MAIL_CONFIG=$1/etc exec /usr/lib/postfix/sbin/master -c "$1/etc" -d
)sh";

constexpr const char* kServices = R"(pickup     unix  n - n 60 1 pickup
cleanup    unix  n - n - 0 cleanup
qmgr       unix  n - n 300 1 qmgr
tlsmgr     unix  - - n 1000? 1 tlsmgr
rewrite    unix  - - n - - trivial-rewrite
bounce     unix  - - n - 0 bounce
defer      unix  - - n - 0 bounce
trace      unix  - - n - 0 bounce
verify     unix  - - n - 1 verify
flush      unix  n - n 1000? 0 flush
proxymap   unix  - - n - - proxymap
proxywrite unix  - - n - 1 proxymap
showq      unix  n - n - - showq
error      unix  - - n - - error
retry      unix  - - n - - error
virtual    unix  - n n - - virtual
smtp       unix  - - n - - smtp
anvil      unix  - - n - 1 anvil
postlog    unix-dgram n - n - 1 postlogd
)";

// The value of a header line "Name: <value>" at the start of the text, which is taken off with its line.
std::string TakeAddress(std::string& text, const std::string& name) {
    if (!text.starts_with(name + ": ")) return "(no " + name + ")";
    const std::size_t line_end = text.find('\n');
    std::string value = text.substr(name.size() + 2, line_end - name.size() - 2);
    text.erase(0, line_end + 1);
    if (value.starts_with('<') && value.ends_with('>')) value = value.substr(1, value.size() - 2);
    return value;
}

// Takes off the first header field with its continuation lines when it has that name.
void TakeField(std::string& text, const std::string& name) {
    if (!text.starts_with(name + ":")) return;
    std::size_t end = text.find('\n');
    while (end + 1 < text.size() && (text[end + 1] == ' ' || text[end + 1] == '\t')) end = text.find('\n', end + 1);
    text.erase(0, end + 1);
}

std::string WithCrLf(const std::string& text) {
    std::string result;
    for (char character : text) result += character == '\n' ? std::string("\r\n") : std::string(1, character);
    return result;
}

ArrivedMail ReadArrived(const std::filesystem::path& file) {
    const std::string whole = ReadFile(file);
    std::string text = whole;
    ArrivedMail mail;
    mail.sender = TakeAddress(text, "Return-Path");
    mail.recipient = TakeAddress(text, "X-Original-To");
    TakeField(text, "Delivered-To");
    TakeField(text, "Received");
    mail.added = whole.substr(0, whole.size() - text.size());
    mail.text = WithCrLf(text);
    return mail;
}

}  // namespace

std::string SmtpServer::Missing() {
    if (!std::filesystem::exists(kMaster)) return "Postfix is not installed (package postfix)";
    if (!std::filesystem::exists(kDovecot)) return "Dovecot is not installed (package dovecot-core)";
    if (AccountForServers().user.empty()) return "Dovecot needs a user with a name";
    if (!CanStartAsRoot()) return "Postfix has to be started by root, and sudo does not do it without asking";
    return "";
}

SmtpServer::SmtpServer(const Options& options) : ports_(FreePorts(5)) {
    for (const char* name : {"auth", "mail", "etc"}) folder_.MakeFolder(name);
    for (const char* name : {"cur", "new", "tmp"}) folder_.MakeFolder(std::string("mail/") + name);
    WriteUsers(options.logins);
    WriteCertificates(options.certificate);
    StartAuthentication(options.tokens);
    WriteConfiguration(options.settings);
    StartPostfix();
}

SmtpServer::~SmtpServer() = default;

void SmtpServer::WriteUsers(const std::vector<Login>& logins) const {
    std::string lines;
    for (const Login& login : logins) lines += login.user + ":{PLAIN}" + login.password + "::::::\n";
    WriteFile(folder_ / "users", lines);
    folder_.GiveAway(folder_ / "users");
}

void SmtpServer::WriteCertificates(const TlsOptions& options) const {
    const TlsIdentity identity = MakeTlsIdentity(options);
    WriteFile(folder_ / "ca.pem", identity.ca_certificate);
    WriteFile(folder_ / "server.pem", identity.certificate);
    WriteFile(folder_ / "server.key", identity.key);
    WriteFile(folder_ / "other-ca.pem", MakeTlsIdentity().ca_certificate);
}

// Only Dovecot's authentication, on a socket that Postfix's processes may connect to.
void SmtpServer::StartAuthentication(bool with_tokens) {
    const ServerAccount account = AccountForServers();
    const std::string base = (folder_ / "").string();
    WriteFile(folder_ / "auth.log", "");
    folder_.GiveAway(folder_ / "auth.log");
    WriteFile(folder_ / "auth.conf",
              "base_dir = " + base + "auth\nstate_dir = " + base + "auth\nlog_path = " + base + "auth.log\n" +
                  "default_internal_user = " + account.user + "\ndefault_internal_group = " + account.group +
                  "\ndefault_login_user = " + account.user +
                  "\npassdb {\n  driver = passwd-file\n  args = scheme=PLAIN username_format=%u " + base +
                  "users\n}\n" +
                  (with_tokens ? folder_.TakeTokens() + "auth_mechanisms = xoauth2 oauthbearer\n"
                               : "auth_mechanisms = cram-md5 login plain\n") +
                  R"(protocols =
ssl = no
disable_plaintext_auth = no
auth_failure_delay = 0
userdb {
  driver = static
  args = uid=1 gid=1 home=/nonexistent
}
service auth {
  client_limit = 2000
  unix_listener auth-client {
    mode = 0666
  }
}
service anvil {
  chroot =
  unix_listener anvil-auth-penalty {
    mode = 0
  }
}
service stats {
  chroot =
}
)");
    authentication_ = std::make_unique<ServerProcess>(ServerProcess::Command{
        .words = {kDovecot, "-F", "-c", (folder_ / "auth.conf").string()}, .output = folder_ / "auth.out"});
    const auto socket = folder_ / "auth/auth-client";
    const bool ready = WaitUntil([&] { return !authentication_->Running() || std::filesystem::exists(socket); });
    if (!ready || !authentication_->Running()) {
        throw std::runtime_error("Dovecot's authentication did not start: " + ReadFile(folder_ / "auth.out"));
    }
}

// Header lines stay as they came: nothing is rewritten, added or dropped but the lines at the top. There is no limit on
// what a test may do.
void SmtpServer::WriteConfiguration(const std::string& more_settings) const {
    const ServerAccount account = AccountForServers();
    const std::string base = (folder_ / "").string();
    WriteFile(folder_ / "etc/main.cf",
              "queue_directory = " + base + "queue\ndata_directory = " + base + "data\nmaillog_file = " + base +
                  "postfix.log\nmaillog_file_prefixes = " + base + "\nvirtual_mailbox_base = " + base +
                  "\nvirtual_uid_maps = static:" + std::to_string(account.uid) +
                  "\nvirtual_gid_maps = static:" + std::to_string(account.gid) + "\nsmtpd_tls_cert_file = " + base +
                  "server.pem\nsmtpd_tls_key_file = " + base + "server.key\nsmtpd_sasl_path = " + base +
                  "auth/auth-client\n" +
                  R"(compatibility_level = 3.6
command_directory = /usr/sbin
daemon_directory = /usr/lib/postfix/sbin
mail_owner = postfix
setgid_group = postdrop
myhostname = smtp.example.test
mydomain = example.test
mydestination =
mynetworks = 127.0.0.0/8
inet_interfaces = 127.0.0.1
inet_protocols = ipv4
biff = no
alias_maps =
alias_database =
local_recipient_maps =
smtputf8_enable = no
append_dot_mydomain = no
message_size_limit = 52428800
mailbox_size_limit = 0
virtual_mailbox_limit = 0
default_transport = virtual
virtual_transport = virtual
virtual_mailbox_domains = static:all
virtual_mailbox_maps = static:mail/
virtual_minimum_uid = 1
local_header_rewrite_clients =
message_drop_headers =
hopcount_limit = 1000
in_flow_delay = 0
smtpd_peername_lookup = no
smtpd_client_connection_rate_limit = 0
smtpd_client_connection_count_limit = 0
smtpd_error_sleep_time = 0
smtpd_hard_error_limit = 1000
smtpd_relay_restrictions = permit_mynetworks, reject
smtpd_recipient_restrictions =
smtpd_tls_security_level = none
smtpd_sasl_type = dovecot
smtpd_sasl_security_options = noanonymous
smtpd_sasl_auth_enable = no
)" + more_settings +
                  "\n");
    WriteFile(folder_ / "etc/no-ehlo", "/^EHLO/ UNKNOWN\n");
    WriteFile(folder_ / "etc/master.cf", MasterTable());
    // Postfix waits a while when its configuration has been written in this very moment.
    for (const auto& file : std::filesystem::directory_iterator(folder_ / "etc")) {
        std::filesystem::last_write_time(file, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
    }
}

std::string SmtpServer::MasterTable() const {
    const auto listener = [](int port, const std::string& options) {
        return "127.0.0.1:" + std::to_string(port) + " inet n - n - 100 smtpd" + options + "\n";
    };
    const std::string auth =
        " -o smtpd_sasl_auth_enable=yes -o smtpd_relay_restrictions=permit_sasl_authenticated,reject";
    return listener(AuthPort(), auth + " -o syslog_name=auth -o smtpd_tls_security_level=may") +
           listener(TlsPort(), auth + " -o syslog_name=tls -o smtpd_tls_wrappermode=yes") +
           listener(PlainPort(), " -o syslog_name=plain") +
           listener(AuthLastPort(), auth +
                                        " -o syslog_name=auth-last -o smtpd_discard_ehlo_keywords="
                                        "enhancedstatuscodes,8bitmime,dsn,chunking,silent-discard") +
           listener(NoEhloPort(),
                    " -o syslog_name=no-ehlo -o smtpd_command_filter=regexp:" + (folder_ / "etc/no-ehlo").string()) +
           kServices;
}

void SmtpServer::StartPostfix() {
    postfix_ = std::make_unique<ServerProcess>(ServerProcess::Command{
        .words = {"/bin/sh", "-c", kStartMaster, "start", (folder_ / "").parent_path().string()},
        .privilege = Privilege::Root,
        .output = folder_ / "postfix.out",
        .left_over = {folder_ / "queue", folder_ / "data", folder_ / "etc", folder_ / "postfix.log"}});
    const auto answering = [&] {
        return Answers(PlainPort(), "220") &&
               std::all_of(ports_.begin(), ports_.end(), [](int port) { return Answers(port, ""); });
    };
    const bool ready = WaitUntil([&] { return !postfix_->Running() || answering(); });
    if (!ready || !postfix_->Running()) {
        throw std::runtime_error("Postfix did not start: " + ReadFile(folder_ / "postfix.out") + Log());
    }
}

std::vector<ArrivedMail> SmtpServer::WaitForMails(std::size_t count) const {
    const auto files = [&] {
        std::vector<std::filesystem::path> paths;
        for (const auto& entry : std::filesystem::directory_iterator(folder_ / "mail/new")) paths.push_back(entry);
        return paths;
    };
    WaitUntil([&] { return files().size() >= count; });
    std::vector<ArrivedMail> mails;
    for (const auto& file : files()) mails.push_back(ReadArrived(file));
    return mails;
}

std::string SmtpServer::Log() const { return ReadFile(folder_ / "postfix.log"); }

bool SmtpServer::WaitForLog(std::string_view text) const {
    return WaitUntil([&] { return Log().find(text) != std::string::npos; });
}

}  // namespace tarvex::testing
