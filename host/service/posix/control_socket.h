#pragma once

// How a command speaks to the service that owns the tree: over the Unix socket ROOT/.tarvex.sock, which is its owner's
// alone; who connects must be the service's user or the superuser. One request and one reply for each connection, with
// notes before the reply. Each message is a JSON text behind its length in bytes (four bytes, the highest first). A
// string holds a byte in each character (U+0000 to U+00FF), for passwords and ids on servers need not be UTF-8.
//
// Nothing here waits for a client, and what a client may send, and for how long, has its limits.

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/edit/edit.h"
#include "host/service/posix/descriptor.h"
#include "host/service/run_reports.h"
#include "host/service/service_connection.h"

namespace tarvex::host {

// A connection as the service sees it.
class ControlClient {
public:
    using Clock = std::chrono::steady_clock;

    ControlClient(Descriptor socket, Clock::time_point deadline) : socket_(std::move(socket)), deadline_(deadline) {}

    // What is asked, once it is there whole and until it is answered: an edit, runs, or else how far the runs are.
    bool IsWaiting() const { return state_ == State::Waiting; }
    const std::optional<EditRequest>& Edit() const { return edit_; }
    const std::optional<RunRequest>& Run() const { return run_; }

    // Of the runs that it asked for, once they have been started.
    struct AwaitedRuns {
        std::set<CString> paths;  // of the profiles whose runs have not ended
        std::string printed;
        RunTroubles troubles;
    };
    std::optional<AwaitedRuns> awaited;

    bool HasLeft() const;

    void Note(const std::string& text);  // the same one is sent only once
    void Answer(int exit_code, const Reply& reply);
    void Answer(const ServiceReport& report);

private:
    friend class ControlServer;
    enum class State { Reading, Waiting, Answering };

    bool Work(Clock::time_point now);  // false when it is over
    bool Read();
    bool TakeRequest();
    bool Write();
    void Refuse(int exit_code, const std::string& why);
    void Finish(const std::string& message);

    Descriptor socket_;
    Clock::time_point deadline_;  // for sending the request, for taking the answer
    State state_ = State::Reading;
    std::string in_;
    std::string out_;
    std::string note_;
    std::optional<EditRequest> edit_;
    std::optional<RunRequest> run_;
};

// The side of the service: every operation returns at once.
class ControlServer {
public:
    using Clock = ControlClient::Clock;

    // Listens in the root, in the place of a socket that was left over: by whoever holds the lock of the root, and
    // before there are other threads. Throws CommandError.
    explicit ControlServer(const std::string& root);
    ~ControlServer();
    ControlServer(const ControlServer&) = delete;
    ControlServer& operator=(const ControlServer&) = delete;

    // What to wait for before the next Work, and until when.
    void AddTo(std::vector<pollfd>& watched) const;
    std::optional<Clock::time_point> Deadline() const;

    // Accepts, reads and writes what can be. True when a request has come in, or one that waits was given up.
    bool Work();

    std::vector<ControlClient*> Waiting();  // the oldest first; valid until the next Work
    bool IsIdle() const { return clients_.empty(); }

private:
    void Accept();

    std::string path_;
    dev_t device_ = 0;  // of the socket that was made there
    ino_t number_ = 0;
    Descriptor listener_;
    Clock::time_point accept_from_{};  // later than now while the process has no descriptor to spare
    std::list<ControlClient> clients_;
};

// Whether a command or a service of the one user trusts the other side, which is the peer's.
bool IsAllowedPeer(uid_t peer, uid_t own);

}  // namespace tarvex::host
