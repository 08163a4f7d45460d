#pragma once

// The POP3 (RFC 1939) and SMTP (RFC 5321) sockets: they format each command, send it, and read the reply.
//
// Time. Connecting (every address of the name, in turn), each TLS handshake and each single-line exchange must end
// within the time-out. A multi-line answer and a message being sent must make progress within it. A time-out sets
// `timed_out` to 1 and ends the connection.
//
// Failures are replies, so that conversations have one way to fail:
//     connection refused, lost, not resolved, interrupted    "-ERR Disconnected: <reason>"    "421 <reason>"
//     time-out                                               "-ERR Timeout: <reason>"         "421 <reason>"
//     an argument with CR, LF or NUL, which is not sent      "-ERR ..."                       "501 ..."
// After the first two the connection has ended, and every later command gets the same reply without waiting. Bytes that
// arrive between a complete reply and the next command are a protocol error and end the connection. Limits: limits.h.
//
// A reply comes from the server and is untrusted. A socket is used by one thread; TerminateThread interrupts a worker's
// sockets. Nothing throws but std::bad_alloc. Destruction closes.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/net/connect_step.h"
#include "platform/net/failure.h"
#include "platform/net/given_socket.h"

namespace tarvex {

class Connection;
class Deadline;

class CBaseSocket {
public:
    CBaseSocket();
    virtual ~CBaseSocket();
    CBaseSocket(const CBaseSocket&) = delete;
    CBaseSocket& operator=(const CBaseSocket&) = delete;

    void SetTimeOut(int seconds);  // 0 or less counts as 30

    // What a multi-line answer of POP3 must bring within each span; what is slower ends as by time-out. 0: no such
    // rule.
    void SetLeastRate(std::int64_t bytes, std::chrono::milliseconds span = std::chrono::minutes(1)) {
        least_bytes_ = bytes;
        least_span_ = span;
    }

    // Has each step of connecting announced before it begins.
    void AnnounceSteps(OnConnectStep on_step);

    // Has whoever gives sockets asked for each connection.
    void AskForSockets(SocketGiver giver);

    // Why the last operation has no answer of the server: its reply was made here from the reason. None when the reply
    // is the server's own.
    const Failure& LastFailure() const { return last_failure_; }

    int timed_out = 0;  // 1 when the last exchange ended by time-out
    int ssl = 0;        // SMTP: 0 plain, 2 STARTTLS, anything else TLS from the first byte

protected:
    std::chrono::milliseconds TimeOut() const;
    const Failure& Keep(Failure failure);  // as the last; none forgets it
    static bool IsSafeArgument(std::string_view argument);
    static Failure UnsafeArgument() { return {FailureKind::Local, "an argument with CR, LF or NUL was not sent"}; }

    std::unique_ptr<Connection> connection_;
    std::int64_t least_bytes_ = 0;
    std::chrono::milliseconds least_span_{};

private:
    Failure last_failure_;
    int timeout_s_;
};

class CSocketX : public CBaseSocket {
public:
    // Reserves a stream socket (type 1; port 0, no address). Non-zero means success.
    int Create(unsigned port, int type, const char* address);
    void Close();
};

class CPopSocket : public CSocketX {
public:
    // Each returns the reply line without its line end.
    std::string PopConnect(const std::string& server, int port);
    std::string SendAPOP(const std::string& user, const std::string& password, const std::string& timestamp);
    std::string SendUser(const std::string& user);
    std::string SendPassWord(const std::string& password);
    std::string SendDelete(const std::string& number);
    std::string SendQuit();

    // Fill `reply` with the whole answer: status line, lines, "." line, each ended by CR LF. A negative answer is its
    // status line alone.
    void SendUidl(std::string* reply);
    void SendList(std::string* reply);

    // Fills `text` with the whole answer, dot-stuffed as it came, ending in CR LF "." CR LF. A message over the limit
    // is read to its end and answered with a negative line; the conversation goes on.
    void SendRetr(const std::string& number, std::string* text);

    // Returns the reply line and fills `header` as the answer to TOP has it, without its "." line. A header over the
    // limit is cut there and read to its end; an answer that goes on after `end` ends the connection as by time-out.
    std::string SendTop(const std::string& number, std::size_t limit_bytes, const Deadline& end, std::string* header);

private:
    enum class AnswerForm { OneLine, ManyLines };
    enum class OnTooLong { Stop, Skip, Cut };
    enum class Collected { Whole, TooLong, TooManyLines, Lost };

    std::string Exchange(std::string_view verb, std::string_view argument, AnswerForm form = AnswerForm::OneLine);
    std::string ReadStatus(const Deadline& deadline, AnswerForm form);
    void FetchListing(std::string_view command, std::string* reply);
    Collected CollectLines(std::size_t limit_bytes, OnTooLong on_too_long, std::string* answer,
                           const Deadline* end_of_all = nullptr);
    std::string WhyNot();
};

// How a text that is handed to SendData is framed.
enum class DataForm {
    Fetched,     // as POP3 delivered it: dot-stuffed, with its "." line
    NotStuffed,  // plain lines, with a "." line
};

class CSmtpSocket : public CSocketX {
public:
    // Each returns the reply: every line of it, joined by CR LF, without a last line end.
    // SmtpConnect returns the greeting. With `ssl` 2 it greets for itself and upgrades (or fails) before it hands the
    // greeting on, so the caller's EHLO is the one after the upgrade. TLS is 1.2 or newer, and chain and host name are
    // always verified against the system's trust store.
    std::string SmtpConnect(const std::string& server, int port);
    std::string SendEHello(std::string* host);
    std::string SendHello(std::string* host);
    std::string SendReset();
    std::string SendQuit();
    std::string SendAuth(const std::string& method);
    std::string SendUser(const std::string& encoded_user);
    std::string SendPassWord(const std::string& encoded_password);
    std::string SendMD5Auth(const std::string& user, const std::string& password,
                            const std::string& challenge);  // RFC 2195
    std::string SendCommand(const std::string& line);       // the line with its CR LF, unchanged
    std::string SendMailFrom(std::string* sender);          // "<address>"
    std::string SendRcptTo(std::string* recipient);         // "<address>"

    // DATA, the message, its end; returns the reply to the message, or to DATA when that was not 354 (a success there
    // becomes "554 ...", since nothing was sent). Whatever the text holds, the server takes exactly one message from
    // it: see FrameData. What the server says before the end of the message is returned when it is a refusal, else it
    // is a protocol error; both end the connection.
    std::string SendData(const std::string* text, DataForm form = DataForm::Fetched);

    // How long the answer to a whole message may take; 0 or less counts as the time-out.
    void SetEndOfDataTimeOut(int seconds) { end_of_data_s_ = seconds; }

    int message_sent = 0;  // 1 when the last SendData sent all of the message: then the server may have taken it,
                           // whatever the reply

private:
    std::string Exchange(std::string_view verb, std::string_view argument);
    std::string ReadReply(Deadline deadline);
    std::string ReadEarlyReply();
    std::string Upgrade(const std::string& greeting);
    std::string UpgradeFailed(const std::string& reason);
    std::string WhyNot();

    int end_of_data_s_ = 0;
};

}  // namespace tarvex
