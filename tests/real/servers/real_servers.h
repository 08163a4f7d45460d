#pragma once

// Real mail servers on loopback, from the system's packages: Dovecot for POP3 and Postfix for SMTP. Each test starts
// its own, without the system's service manager, from a folder of its own and on free ports, and has them stopped at
// its end. Starting one takes a fraction of a second.

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "testing/scripted_server.h"
#include "testing/temp_dir.h"
#include "tests/real/servers/mailbox_generator.h"
#include "tests/real/servers/server_process.h"

namespace tarvex::testing {

struct Login {
    std::string user;
    std::string password;
};

inline const Login kAlice{"alice", "alice's password"};
inline const Login kBob{"bob", "bob pass"};

// Tokens that Dovecot checks by itself: JSON Web Tokens (RFC 7519) with a secret key.
std::string MakeToken(const std::string& user, int seconds);  // that expires then

// A folder that the unprivileged processes of a server can reach.
class ServerFolder {
public:
    ServerFolder();
    std::filesystem::path operator/(const std::string& name) const { return folder_.Path() / name; }
    void MakeFolder(const std::string& name) const;          // belongs to AccountForServers
    void GiveAway(const std::filesystem::path& path) const;  // with everything below, to AccountForServers
    // Writes what a Dovecot needs to check tokens; the lines of its configuration that say so.
    std::string TakeTokens() const;

private:
    TempDir folder_;
};

// Dovecot with Maildirs: USER/PASS and APOP in plain text, UIDL, DELE. Runs without any privilege.
class PopServer {
public:
    // Why it cannot run here; empty when it can.
    static std::string Missing();

    explicit PopServer(const std::vector<Login>& logins = {kAlice, kBob}) { Start(logins); }
    // The same with TLS from the first byte on a further port, and by STLS; takes tokens as well, see MakeToken.
    explicit PopServer(const TlsOptions& certificate);

    int Port() const { return port_; }
    int TlsPort() const { return tls_port_; }
    // A file with the certificate of the authority that signed the server's certificate.
    std::string CaFile() const { return (folder_ / "ca.pem").string(); }
    pid_t Pid() const { return process_->Pid(); }

    // Mail arrives in the user's mailbox.
    void Deliver(const Login& login, const std::vector<GeneratedMail>& mails);
    void Deliver(const Login& login, const GeneratedMail& mail) { Deliver(login, std::vector{mail}); }

    // Somebody else removes a message.
    void Remove(const Login& login, int number);

    // The server's own files are lost, and with them the ids of all messages.
    void Renumber(const Login& login);

    int Count(const Login& login) const;  // messages in the mailbox

    std::string Log() const;

private:
    std::filesystem::path MailboxPath(const Login& login) const;
    std::string Configuration(const std::string& tokens) const;
    void Start(const std::vector<Login>& logins);

    ServerFolder folder_;
    int port_ = 0;
    int tls_port_ = 0;  // 0: none
    std::unique_ptr<ServerProcess> process_;
};

// One message as Postfix delivered it.
struct ArrivedMail {
    std::string sender;     // the envelope's, without brackets
    std::string recipient;  // without brackets
    std::string added;      // the header lines that the server added at the top
    std::string text;       // all below them, CR LF line ends
};

// Postfix with a Dovecot process that checks passwords. Every address is delivered into one Maildir. Its master process
// has to be started by root.
class SmtpServer {
public:
    // Why it cannot run here; empty when it can.
    static std::string Missing();

    struct Options {
        std::vector<Login> logins = {kAlice, kBob};
        TlsOptions certificate = {};
        bool tokens = false;        // in the place of passwords, see MakeToken
        std::string settings = {};  // further lines of main.cf, in the place of those that stand there
    };

    SmtpServer() : SmtpServer(Options()) {}
    explicit SmtpServer(const Options& options);
    ~SmtpServer();

    // STARTTLS and AUTH CRAM-MD5, LOGIN and PLAIN are offered; relays only for those who logged in.
    int AuthPort() const { return ports_[0]; }
    // The same with TLS from the first byte.
    int TlsPort() const { return ports_[1]; }
    // Neither AUTH nor TLS; takes everything.
    int PlainPort() const { return ports_[2]; }
    // As AuthPort without TLS, and AUTH is the last line of the answer to EHLO.
    int AuthLastPort() const { return ports_[3]; }
    // As PlainPort, but EHLO is an unknown command, answered with 500.
    int NoEhloPort() const { return ports_[4]; }

    // A file with the certificate of the authority that signed the server's certificate, and one of another authority.
    std::string CaFile() const { return (folder_ / "ca.pem").string(); }
    std::string OtherCaFile() const { return (folder_ / "other-ca.pem").string(); }

    // Waits until the Maildir holds that many messages (or the patience is at its end) and returns all of them.
    std::vector<ArrivedMail> WaitForMails(std::size_t count) const;

    std::string Log() const;
    // Waits until the log holds the text.
    bool WaitForLog(std::string_view text) const;

private:
    void WriteUsers(const std::vector<Login>& logins) const;
    void WriteCertificates(const TlsOptions& options) const;
    void WriteConfiguration(const std::string& more_settings) const;
    std::string MasterTable() const;
    void StartAuthentication(bool with_tokens);
    void StartPostfix();

    ServerFolder folder_;
    std::vector<int> ports_;
    std::unique_ptr<ServerProcess> authentication_;
    std::unique_ptr<ServerProcess> postfix_;
};

// Postfix's smtp-sink: takes all mail and drops it.
class SmtpSink {
public:
    static std::string Missing();

    // More options of smtp-sink, such as {"-L"} for LMTP.
    explicit SmtpSink(const std::vector<std::string>& options = {});

    int Port() const { return port_; }
    pid_t Pid() const { return process_->Pid(); }
    int Messages() const;  // how many it has taken

private:
    ServerFolder folder_;
    int port_ = 0;
    std::unique_ptr<ServerProcess> process_;
};

}  // namespace tarvex::testing
