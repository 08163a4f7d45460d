// POP3 (RFC 1939).
//
// A reply is negative when its first character is "-", else positive, whatever it says. A bare LF ends a reply line as
// well; the end of a multi-line answer is told by its CR LFs alone, since a bare LF may stand inside a message.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/codec/digest.h"
#include "platform/net/connection.h"
#include "platform/net/limits.h"
#include "platform/net/sockets.h"

namespace tarvex {

namespace {

constexpr std::string_view kTerminator = "\r\n.\r\n";
constexpr std::string_view kTerminatorLine = ".\r\n";

// Finds the end of a multi-line answer that arrives in chunks, however they cut it, and looks at each byte once.
class TerminatorFinder {
public:
    // How many bytes of the chunk belong to the answer when it ends in it, else npos.
    std::size_t EndIn(std::string_view chunk) {
        std::string seam = tail_;
        seam += chunk.substr(0, kOverlap);
        std::size_t end = std::string_view::npos;
        if (const std::size_t at = seam.find(kTerminator); at != std::string::npos) {
            end = at + kTerminator.size() - tail_.size();
        } else if (const std::size_t inside = chunk.find(kTerminator); inside != std::string_view::npos) {
            end = inside + kTerminator.size();
        }
        tail_ += chunk.substr(chunk.size() - std::min(chunk.size(), kOverlap));
        tail_.erase(0, tail_.size() - std::min(tail_.size(), kOverlap));
        return end;
    }

private:
    static constexpr std::size_t kOverlap = kTerminator.size() - 1;
    std::string tail_ = "\r\n";  // of the status line
};

// Whether an answer brings as much as it must within each span of time. Looked at whenever something has come: silence
// has a time-out of its own.
class LeastRate {
public:
    LeastRate(std::int64_t bytes, std::chrono::milliseconds span)
        : least_bytes_(static_cast<std::size_t>(bytes)), span_(span), end_(span) {}

    bool IsMissed(std::size_t bytes_so_far) {
        if (least_bytes_ == 0 || !end_.HasPassed()) return false;
        const bool missed = bytes_so_far - bytes_before_ < least_bytes_;
        bytes_before_ = bytes_so_far;
        end_ = Deadline(span_);
        return missed;
    }

private:
    std::size_t least_bytes_;
    std::chrono::milliseconds span_;
    Deadline end_;
    std::size_t bytes_before_ = 0;
};

bool IsNegative(std::string_view reply) { return reply.starts_with('-'); }

std::string OverLimit(std::string_view what, std::size_t limit, std::string_view unit = "bytes") {
    return std::string(what) + " is over the limit of " + std::to_string(limit) + " " + std::string(unit);
}

}  // namespace

std::string CPopSocket::PopConnect(const std::string& server, int port) {
    Keep({});
    if (!connection_->Open(server, port, TimeOut())) return WhyNot();
    connection_->Announce(ConnectStep::Greeting);
    return ReadStatus(Deadline(TimeOut()), AnswerForm::OneLine);
}

std::string CPopSocket::SendAPOP(const std::string& user, const std::string& password, const std::string& timestamp) {
    return Exchange("APOP ", user + " " + Md5Hex(timestamp + password));
}

std::string CPopSocket::SendUser(const std::string& user) { return Exchange("USER ", user); }

std::string CPopSocket::SendPassWord(const std::string& password) { return Exchange("PASS ", password); }

std::string CPopSocket::SendDelete(const std::string& number) { return Exchange("DELE ", number); }

std::string CPopSocket::SendQuit() {
    std::string reply = Exchange("QUIT", "");
    connection_->Close();  // nothing follows, however the server goes
    return reply;
}

void CPopSocket::SendUidl(std::string* reply) { FetchListing("UIDL", reply); }

void CPopSocket::SendList(std::string* reply) { FetchListing("LIST", reply); }

void CPopSocket::FetchListing(std::string_view command, std::string* reply) {
    *reply = Exchange(command, "", AnswerForm::ManyLines);
    if (IsNegative(*reply)) return;
    // A listing without end is not worth its connection.
    const std::string what = "the answer to " + std::string(command);
    switch (CollectLines(kMaxListingBytes, OnTooLong::Stop, reply)) {
        case Collected::Whole:
            return;
        case Collected::TooLong:
            connection_->Fail({FailureKind::Protocol, OverLimit(what, kMaxListingBytes)});
            break;
        case Collected::TooManyLines:
            connection_->Fail({FailureKind::Protocol, OverLimit(what, kMaxListingLines, "lines")});
            break;
        case Collected::Lost:
            break;
    }
    WhyNot().swap(*reply);
}

void CPopSocket::SendRetr(const std::string& number, std::string* text) {
    text->assign(std::string_view(Exchange("RETR ", number, AnswerForm::ManyLines)));  // it keeps its memory
    if (IsNegative(*text)) return;
    switch (CollectLines(kMaxMessageBytes, OnTooLong::Skip, text)) {
        case Collected::Whole:
            return;
        case Collected::TooLong:
            *text = "-ERR " + Keep({FailureKind::Protocol, OverLimit("the message", kMaxMessageBytes)}).reason;
            return;
        case Collected::TooManyLines:  // of listings alone
        case Collected::Lost:
            WhyNot().swap(*text);
    }
}

std::string CPopSocket::SendTop(const std::string& number, std::size_t limit_bytes, const Deadline& end,
                                std::string* header) {
    header->clear();
    std::string reply = Exchange("TOP ", number + " 0");
    if (IsNegative(reply)) return reply;
    switch (CollectLines(limit_bytes, OnTooLong::Cut, header, &end)) {
        case Collected::Whole:
            header->resize(header->size() - kTerminatorLine.size());
            return reply;
        case Collected::TooLong:
            header->resize(limit_bytes);
            return reply;
        case Collected::TooManyLines:  // of listings alone
        case Collected::Lost:
            break;
    }
    return WhyNot();
}

std::string CPopSocket::Exchange(std::string_view verb, std::string_view argument, AnswerForm form) {
    if (!connection_->IsUsable()) return WhyNot();
    if (!IsSafeArgument(argument)) return "-ERR " + Keep(UnsafeArgument()).reason;
    Keep({});
    std::string command(verb);
    command += argument;
    command += "\r\n";
    const Deadline deadline(TimeOut());
    if (!connection_->SendCommand(command, deadline)) return WhyNot();
    return ReadStatus(deadline, form);
}

std::string CPopSocket::ReadStatus(const Deadline& deadline, AnswerForm form) {
    std::string_view line;
    if (!connection_->ReadLine(line, deadline)) return WhyNot();
    std::string status(line);
    if (form == AnswerForm::ManyLines && !IsNegative(status)) status += "\r\n";
    return status;
}

// Appends the answer after its status line, as it comes.
CPopSocket::Collected CPopSocket::CollectLines(std::size_t limit_bytes, OnTooLong on_too_long, std::string* answer,
                                               const Deadline* end_of_all) {
    TerminatorFinder terminator;
    std::size_t lines = 0;  // of a listing
    LeastRate rate(least_bytes_, least_span_);
    for (std::size_t bytes = 0;;) {
        const std::string_view received = connection_->Received();
        const std::size_t end = terminator.EndIn(received);
        const std::string_view chunk = received.substr(0, end);
        bytes += chunk.size();
        const bool too_long = bytes > limit_bytes + kTerminatorLine.size();
        if (on_too_long == OnTooLong::Stop) lines += static_cast<std::size_t>(std::ranges::count(chunk, '\n'));
        if (lines > kMaxListingLines + 1) return Collected::TooManyLines;  // the terminator is one more
        if (!too_long) {
            *answer += chunk;
        } else if (on_too_long == OnTooLong::Stop) {
            return Collected::TooLong;
        } else if (on_too_long == OnTooLong::Cut) {
            if (answer->size() < limit_bytes) *answer += chunk;
        } else {
            std::string().swap(*answer);  // gives the memory back
        }
        connection_->Take(chunk.size());
        if (end != std::string_view::npos) return too_long ? Collected::TooLong : Collected::Whole;
        const bool is_late = end_of_all != nullptr && end_of_all->HasPassed();
        if (is_late || rate.IsMissed(bytes)) connection_->Fail({FailureKind::TimedOut, "the answer comes too slowly"});
        if (!connection_->ReceiveMore(Deadline(TimeOut()))) return Collected::Lost;
    }
}

std::string CPopSocket::WhyNot() {
    const Failure& failure = Keep(connection_->Why());
    return (failure.kind == FailureKind::TimedOut ? "-ERR Timeout: " : "-ERR Disconnected: ") + failure.reason;
}

}  // namespace tarvex
