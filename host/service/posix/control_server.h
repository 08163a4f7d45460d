#pragma once

// The service's side of the control socket. Nothing here waits for a client, and what a client may send, and for how
// long, has its limits.

#include <poll.h>
#include <sys/types.h>

#include <chrono>
#include <list>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "host/history/tables/edit_tables.h"
#include "host/service/control_messages.h"
#include "host/service/posix/control_socket.h"
#include "host/system/posix/descriptor.h"

namespace tarvex::host {

// A connection as the service sees it.
class ControlClient {
public:
    using Clock = std::chrono::steady_clock;

    ControlClient(Descriptor socket, Clock::time_point deadline) : socket_(std::move(socket)), deadline_(deadline) {}

    // What is asked, once it is there whole and until it is answered: an edit, runs, something about held mail, or else
    // how far the runs are.
    bool IsWaiting() const { return state_ == State::Waiting; }
    const EditRequest* Edit() const { return std::get_if<EditRequest>(&request_); }
    const RunRequest* Run() const { return std::get_if<RunRequest>(&request_); }
    Language ReadsIn() const { return language_; }  // what its user reads
    const HeldRequest* Held() const { return std::get_if<HeldRequest>(&request_); }

    // Of the runs that it asked for, once they have been started.
    struct AwaitedRuns {
        std::set<CString> paths;  // of the profiles whose runs have not ended
        std::string printed;
        RunTroubles troubles;
        bool in_full = false;
        RunsInBrief in_brief;
    };
    std::optional<AwaitedRuns> awaited;
    CString awaited_held;  // the profile whose held mail is being sent for it

    bool HasLeft() const;

    // Who asks, by the system; `caller` is who that one says to do it for.
    EditedBy WhoAsks(const std::string& caller) const;

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
    void Finish(const ControlReply& reply);

    Descriptor socket_;
    Clock::time_point deadline_;  // for sending the request, for taking the answer
    State state_ = State::Reading;
    std::string in_;
    std::string out_;
    std::string note_;
    ControlRequest request_;
    Language language_ = Language::English;
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

    // Whoever asks from now on, or has asked and got no answer, is told by the end of the connection.
    void Close();

private:
    void Accept();

    std::string path_;
    dev_t device_ = 0;  // of the socket that was made there
    ino_t number_ = 0;
    Descriptor listener_;
    Clock::time_point accept_from_{};  // later than now while the process has no descriptor to spare
    std::list<ControlClient> clients_;
};

}  // namespace tarvex::host
