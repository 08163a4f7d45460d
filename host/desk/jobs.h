#pragma once

// What takes longer than a page may wait: an edit that waits for a run, a look at servers. Each has a thread, and
// whoever began it asks how far it is.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "host/edit/edit.h"
#include "host/terminal/json.h"

namespace tarvex::host {

// How far a job is. Texts are UTF-8, fit to be shown.
struct JobState {
    std::string what;     // "check"
    std::string about;    // the path of what it is about
    std::string printed;  // so far
    std::string begun;    // the step that goes on behind that, in a word or two; empty where there are none
    std::string error;    // when it went wrong
    int exit_code = 0;
    bool done = false;
    Json found;                        // for a page of its own; null where there is nothing but what was printed
    std::optional<EditRequest> draft;  // what was tried, and is not saved; with its passwords
};

// What a job does: prints, and asks whether it is to end early.
class JobVoice {
public:
    virtual ~JobVoice() = default;
    virtual void Print(std::string_view text) = 0;
    virtual void Begin(const std::string& step) = 0;  // until something is printed
    virtual void Show(Json found) = 0;
    virtual bool Stops() const = 0;
};

// From any thread.
class Jobs {
public:
    using Clock = std::chrono::steady_clock;
    // Returns the exit code, and a sentence where that is not 0.
    using Work = std::function<std::pair<int, std::string>(JobVoice&)>;

    static constexpr std::size_t kMostOfOwner = 4;      // under way
    static constexpr std::size_t kMostKeptOfOwner = 8;  // of those that have ended; the oldest go
    static constexpr std::size_t kMost = 32;            // the oldest of all that have ended go for a new one
    static constexpr std::size_t kMostPrinted_bytes = 1 << 20;
    static constexpr std::chrono::minutes kRemembered{10};  // after its end

    explicit Jobs(std::chrono::milliseconds remembered = kRemembered);
    ~Jobs();  // tells all to stop, and waits for them
    Jobs(const Jobs&) = delete;
    Jobs& operator=(const Jobs&) = delete;

    // Returns the name of a job, which nobody can guess; empty when there are too many, or no thread can be had. Waits
    // up to `patience` for its end.
    std::string Begin(const std::string& owner, JobState state, Work work, std::chrono::milliseconds patience);

    // Forgets what has ended long enough ago, passwords included. Begin and Of do, too.
    void ForgetOld();

    // Nothing for one that is not the owner's.
    std::optional<JobState> Of(const std::string& owner, const std::string& name);

private:
    struct Job;

    void ForgetOldLocked();
    void MakeRoom(const std::string& owner);
    bool ForgetOldest(std::size_t but, const std::string* owner);

    const std::chrono::milliseconds remembered_;
    std::mutex mutex_;
    std::map<std::string, std::shared_ptr<Job>> jobs_;
};

}  // namespace tarvex::host
