// Runs jobs on threads of their own and remembers what they said.

#include "host/desk/jobs.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>

#include "host/desk/login/sessions.h"
#include "host/language/tr.h"

namespace tarvex::host {

struct Jobs::Job : JobVoice {
    Job(std::string the_owner, JobState the_state) : owner(std::move(the_owner)), state(std::move(the_state)) {}
    ~Job() override {
        stops = true;
        if (thread.joinable()) thread.join();
    }

    void Print(std::string_view text) override {
        const std::lock_guard lock(mutex);
        const std::size_t room = kMostPrinted_bytes - std::min(kMostPrinted_bytes, state.printed.size());
        state.printed.append(text.substr(0, room));
        state.begun.clear();
    }
    void Begin(const std::string& step) override {
        const std::lock_guard lock(mutex);
        state.begun = step;
    }
    void Show(Json found) override {
        const std::lock_guard lock(mutex);
        state.found = std::move(found);
    }
    bool Stops() const override { return stops; }

    void Do(const Work& work, Language language) {
        const Speaking in(language);
        std::pair<int, std::string> ended{70, "not enough memory"};
        try {
            ended = work(*this);
        } catch (const std::exception& error) {
            ended.second = error.what();
        }
        const std::lock_guard lock(mutex);
        state.exit_code = ended.first;
        state.error = std::move(ended.second);
        state.done = true;
        over = Clock::now();
        has_ended.notify_all();
    }

    bool IsDone() {
        const std::lock_guard lock(mutex);
        return state.done;
    }
    Clock::time_point Over() {
        const std::lock_guard lock(mutex);
        return over;
    }

    const std::string owner;
    std::mutex mutex;
    std::condition_variable has_ended;
    JobState state;                                     // by the mutex
    Clock::time_point over = Clock::time_point::max();  // by the mutex
    std::atomic<bool> stops{false};
    std::thread thread;
};

Jobs::Jobs(std::chrono::milliseconds remembered) : remembered_(remembered) {}

Jobs::~Jobs() {
    for (const auto& [name, job] : jobs_) job->stops = true;
}

std::string Jobs::Begin(const std::string& owner, JobState state, Work work, std::chrono::milliseconds patience) {
    std::shared_ptr<Job> job;  // so that it stays while it is waited for
    std::string name = NewSecret();
    {
        const std::lock_guard lock(mutex_);
        MakeRoom(owner);
        const auto is_under_way = [&](const auto& entry) {
            return entry.second->owner == owner && !entry.second->IsDone();
        };
        if (jobs_.size() >= kMost ||
            std::ranges::count_if(jobs_, is_under_way) >= static_cast<std::ptrdiff_t>(kMostOfOwner))
            return {};
        job = std::make_shared<Job>(owner, std::move(state));
        try {
            job->thread = std::thread(
                [at = job.get(), work = std::move(work), language = SpokenLanguage()] { at->Do(work, language); });
        } catch (const std::system_error&) {
            return {};
        }
        jobs_.emplace(name, job);
    }
    std::unique_lock lock(job->mutex);
    job->has_ended.wait_for(lock, patience, [job] { return job->state.done; });
    return name;
}

std::optional<JobState> Jobs::Of(const std::string& owner, const std::string& name) {
    const std::lock_guard lock(mutex_);
    ForgetOldLocked();
    const auto found = jobs_.find(name);
    if (found == jobs_.end() || found->second->owner != owner) return std::nullopt;
    const std::lock_guard state_lock(found->second->mutex);
    return found->second->state;
}

void Jobs::ForgetOld() {
    const std::lock_guard lock(mutex_);
    ForgetOldLocked();
}

void Jobs::ForgetOldLocked() {
    std::erase_if(jobs_,
                  [before = Clock::now() - remembered_](const auto& entry) { return entry.second->Over() < before; });
}

// Whoever begins many takes no room from the others.
void Jobs::MakeRoom(const std::string& owner) {
    ForgetOldLocked();
    while (ForgetOldest(kMostKeptOfOwner - 1, &owner)) {
    }
    while (jobs_.size() >= kMost && ForgetOldest(0, nullptr)) {
    }
}

// Of those that have ended, of one owner or of all, the oldest where there are more than `but`. False else.
bool Jobs::ForgetOldest(std::size_t but, const std::string* owner) {
    auto oldest = jobs_.end();
    std::size_t count = 0;
    for (auto entry = jobs_.begin(); entry != jobs_.end(); ++entry) {
        if (!entry->second->IsDone() || (owner && entry->second->owner != *owner)) continue;
        ++count;
        if (oldest == jobs_.end() || entry->second->Over() < oldest->second->Over()) oldest = entry;
    }
    if (count <= but) return false;
    jobs_.erase(oldest);
    return true;
}

}  // namespace tarvex::host
