#pragma once

// The service's side of what commands ask. Nothing here waits for a client, and what a client may send, and for how
// long, has its limits.

#include <chrono>
#include <list>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <variant>
#include <vector>

#include "host/history/tables/edit_tables.h"
#include "host/service/control_channel.h"
#include "host/service/control_messages.h"

namespace tarvex::host {

// A connection as the service sees it.
class ControlClient {
public:
    using Clock = std::chrono::steady_clock;

    ControlClient(std::unique_ptr<ControlConnection> connection, Clock::time_point deadline)
        : connection_(std::move(connection)), deadline_(deadline) {
        RefuseStranger();
    }

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

    bool HasLeft() const { return connection_->HasLeft(); }

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
    void RefuseStranger();
    void Refuse(int exit_code, const std::string& why);
    void Finish(const ControlReply& reply);

    std::unique_ptr<ControlConnection> connection_;
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

    ControlServer(const std::string& root, const Orders& orders) : channel_(root, orders) {}  // see ControlChannel

    // Until the next Work may find something to do, there is an order, or it is time.
    void Wait(Clock::time_point until);

    // Accepts, reads and writes what can be. True when a request has come in, or one that waits was given up.
    bool Work();

    std::vector<ControlClient*> Waiting();  // the oldest first; valid until the next Work
    bool IsIdle() const { return clients_.empty(); }

    // Whoever asks from now on, or has asked and got no answer, is told by the end of the connection.
    void Close();

private:
    void Accept();

    ControlChannel channel_;
    Clock::time_point accept_from_{};  // later than now while the system has no room to spare
    std::list<ControlClient> clients_;
};

}  // namespace tarvex::host
