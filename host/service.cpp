#include "host/service.h"

#include <poll.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "host/display.h"
#include "host/log_file.h"
#include "host/names.h"
#include "host/run_log.h"
#include "host/tree_root.h"
#include "host/trouble.h"
#include "host/wording.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

constexpr auto kLook = 50ms;        // for runs that have ended, while there are runs
constexpr auto kCloseLook = 2ms;    // while an edit waits for one
constexpr auto kPatience = 2000ms;  // at the start, with an edit that is being saved
constexpr auto kFarewell = 1000ms;  // at the end, with clients that take their answers
constexpr std::size_t kReasonColumns = 200;

// Keeps profiles out of a call of the entry: in memory they are switched off for so long.
class Hold {
public:
    Hold() = default;
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;
    ~Hold() {
        for (const auto& [profile, status] : held_) profile->setting.status = status;
    }

    void Add(CPopProfile& profile) {
        held_.emplace_back(&profile, profile.setting.status);
        profile.setting.status = 0;
    }

private:
    std::vector<std::pair<CPopProfile*, int>> held_;
};

// The tree has to be there before the service takes its place.
RootLock TakeRoot(const std::string& directory) {
    RequireRoot(directory);
    return RootLock::Take(directory, "serve", kPatience);
}

// What is edited, without what is stored: "profile set user0/from0".
std::string Headline(const EditRequest& request) {
    std::string text = request.words[0] + ' ' + request.words[1];
    if (request.words.size() > 2 && request.words[2].find('=') == std::string::npos) text += ' ' + request.words[2];
    return ShowText(text, "UTF-8");
}

}  // namespace

Service::Service(std::string directory, std::chrono::microseconds every)
    : directory_(std::move(directory)), every_(every), lock_(TakeRoot(directory_)), server_(directory_) {
    OpenTree(root_, directory_);
}

int Service::Run() {
    std::size_t profiles = 0;
    ForEachProfile([&profiles](const CPopProfile&) { ++profiles; });
    log_.Say("serving \"" + ShowPath(directory_) + "\" with " + ShowCount(profiles, "profile"));
    manager_.Ready();
    for (;;) {
        Look();
        MakeEdits();
        if (Clock::now() >= next_tick_) Tick();
        Wait();
        if (server_.Work()) look_at_edits_ = true;
        KeepAlive();
        while (const std::optional<int> signal = signals_.Next()) {
            if (*signal == SIGHUP) {
                Reload();
                continue;
            }
            Stop(*signal);
            return kDone;
        }
    }
}

// Tells of runs that have ended, and frees what they left.
void Service::Look() {
    bool ended = false;
    for (const auto& copy : root_.running_copies) {
        if (copy->worker_thread.load() || running_.erase(copy->path) == 0) continue;
        ended = true;
        if (const std::optional<LoggedRun> run = ThisRun(copy->log)) {
            TellEnd(copy->path, HowItEnded(*run, 1, kReasonColumns), run->ending != Ending::Failed);
        } else if (copy->setting.logmode == 0) {
            TellEnd(copy->path, "its log is off", true);
        } else {
            TellEnd(copy->path, "it could not begin", false);
        }
    }
    if (!ended) return;
    look_at_edits_ = true;
    root_.RefreshThread();
}

void Service::Tick() {
    CallEntry();
    const Clock::time_point now = Clock::now();
    next_tick_ += every_;
    if (next_tick_ < now) next_tick_ = now + every_;  // after a pause of the machine they are not made up for
}

void Service::CallEntry() {
    std::set<CString> told;  // of these runs the start has been told
    {
        // A run may end at any moment: what is taken for running stays so throughout the call, so that a new run of the
        // same profile is not mistaken for it. The judgement is the one that the entry makes of a profile that runs.
        Hold hold;
        ForEachProfile([&](CPopProfile& profile) {
            if (running_.contains(profile.path)) {
                profile.JudgeDoOperation();
                hold.Add(profile);
            } else if (wanted_.contains(profile.path)) {
                hold.Add(profile);
            }
        });
        Tarvex(&root_);
    }
    std::set<CString> gone = running_;
    for (const auto& copy : root_.running_copies) {
        gone.erase(copy->path);
        if (running_.insert(copy->path).second) log_.Say(Name(copy->path) + ": run started");
    }
    // The entry has freed those that ended just before it was called.
    for (const CString& path : gone) {
        running_.erase(path);
        TellEndFromDisk(path);
        look_at_edits_ = true;
    }
}

// Makes the edits that do not have to wait. Until something happens there is no need to ask them again.
void Service::MakeEdits() {
    while (look_at_edits_) {
        look_at_edits_ = false;
        wanted_.clear();
        for (ControlClient* const client : server_.Waiting()) {
            // What was made may have renamed what the others are about.
            if (MakeEdit(*client)) look_at_edits_ = true;
        }
    }
}

bool Service::MakeEdit(ControlClient& client) {
    if (!client.Edit()) {
        client.Answer(RunsNow());
        return false;
    }
    const EditRequest& request = *client.Edit();
    CString running;
    if (HasToWait(request, running)) {
        client.Note("waiting for the run of " + Name(running) + " to end");
        return false;
    }
    const std::string headline = Headline(request);
    EditReply reply;
    const int code = Edit(root_, request, reply);
    code == kDone ? log_.Say(headline) : log_.Warn(headline + ": " + OneLine(reply.error, kReasonColumns));
    client.Answer(code, reply);
    return true;
}

bool Service::HasToWait(const EditRequest& request, CString& running) {
    const std::vector<CString> touched = TouchedProfiles(root_, request);
    const auto first = std::ranges::find_if(touched, [this](const CString& path) { return running_.contains(path); });
    if (first == touched.end()) return false;
    running = *first;
    wanted_.insert(touched.begin(), touched.end());
    return true;
}

void Service::Reload() {
    manager_.Reloading();
    // What a run that is under way will save is not on disk yet.
    std::map<CString, CTime> last_times;
    ForEachProfile([&](const CPopProfile& profile) {
        if (running_.contains(profile.path)) last_times[profile.path] = profile.setting.lasttime;
    });
    std::string trouble = WhyUnreadable(directory_);  // which to the engine is an empty tree
    if (trouble.empty() && !root_.SetRootPath(directory_)) trouble = "not enough memory";
    ForEachProfile([&](CPopProfile& profile) {
        const auto last = last_times.find(profile.path);
        if (last != last_times.end()) profile.setting.lasttime = last->second;
    });
    if (trouble.empty()) {
        log_.Say("loaded the tree again");
    } else {
        log_.Warn("cannot load the tree again: " + trouble);
    }
    look_at_edits_ = true;
    manager_.Ready();
}

void Service::Stop(int signal) {
    manager_.Stopping();
    log_.Say(std::string("stopping (SIG") + sigabbrev_np(signal) + ')');
    Signals::Release(signal);  // whoever cannot wait sends it again
    Look();
    root_.KillThread();
    for (const CString& path : std::exchange(running_, {})) TellEndFromDisk(path);
    look_at_edits_ = true;
    MakeEdits();
    const auto deadline = Clock::now() + kFarewell;
    while (!server_.IsIdle() && Clock::now() < deadline) {
        std::vector<pollfd> watched;
        server_.AddTo(watched);
        poll(watched.data(), watched.size(), 10);
        if (server_.Work()) look_at_edits_ = true;
        MakeEdits();
    }
    log_.Say("stopped");
}

void Service::Wait() {
    Clock::time_point until = next_tick_;
    if (!running_.empty()) until = std::min(until, Clock::now() + (wanted_.empty() ? kLook : kCloseLook));
    if (manager_.KeepAliveInterval()) until = std::min(until, next_keep_alive_);
    if (const auto deadline = server_.Deadline()) until = std::min(until, *deadline);
    std::vector<pollfd> watched = {{signals_.WatchedDescriptor(), POLLIN, 0}};
    server_.AddTo(watched);
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    poll(watched.data(), watched.size(), static_cast<int>(std::max(left, 0ms).count()));
}

void Service::KeepAlive() {
    const auto interval = manager_.KeepAliveInterval();
    if (!interval || Clock::now() < next_keep_alive_) return;
    manager_.KeepAlive();
    next_keep_alive_ = Clock::now() + *interval;
}

std::vector<RunNow> Service::RunsNow() const {
    std::vector<RunNow> runs;
    for (const auto& copy : root_.running_copies) {
        if (!copy->worker_thread.load()) continue;
        const CRunObserver& run = copy->observer;
        runs.push_back({Name(copy->path), run.bytes_received, run.bytes_sent, run.messages_to_fetch,
                        run.messages_fetched, run.messages_delivered});
    }
    return runs;
}

std::string Service::Name(const CString& path) const { return ShownName(root_, path); }

void Service::TellEnd(const CString& path, const std::string& how, bool good) {
    const std::string line = Name(path) + ": run ended, " + how;
    good ? log_.Say(line) : log_.Warn(line);
}

void Service::TellEndFromDisk(const CString& path) {
    const std::vector<LoggedRun> runs = RunsIn(ReadLog(path).value_or(std::vector<std::string>()));
    if (runs.empty()) return TellEnd(path, "nothing is in its log", true);
    TellEnd(path, HowItEnded(runs.back(), 1, kReasonColumns), runs.back().ending != Ending::Failed);
}

void Service::ForEachProfile(const std::function<void(CPopProfile&)>& action) {
    for (const auto& user : root_.users) {
        for (const auto& profile : user->profiles) action(*profile);
    }
}

}  // namespace tarvex::host
