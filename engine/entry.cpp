// The entry: which profiles are due, and the worker threads that run them.
//
// The tree is never handed to a worker; a worker has a copy of its profile, owned by the root's list of running copies.
// The only datum that both sides touch is the copy's worker-thread field.

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include "engine/interval.h"
#include "engine/worker.h"
#include "platform/os/clock.h"
#include "platform/os/shield.h"
#include "platform/os/threads.h"
#include "tarvex/tarvex.h"

namespace tarvex {
namespace {

// A copy whose worker has finished does not count, though it is still in the list.
bool IsRunning(const CRootPath& root, const CString& path) {
    return std::any_of(root.running_copies.begin(), root.running_copies.end(),
                       [&path](const auto& copy) { return copy->worker_thread.load() && copy->path == path; });
}

// Adds a copy to the list of running copies; false, as the profile's result tells, when there is no memory for it.
bool AddCopy(CRootPath& root, CPopProfile& profile, CRunGuard* guard) {
    const bool added = Shielded(false, [&] {
        auto copy = std::make_unique<CPopProfile>();
        *copy = profile;
        if (copy->path != profile.path) return false;
        copy->guard = guard;
        root.running_copies.push_back(std::move(copy));
        return true;
    });
    profile.result.ending = added ? CRunEnding::NotEnded : CRunEnding::CouldNotBegin;
    return added;
}

struct Work {
    CPopProfile& copy;
    std::function<void()> task;
};

// The field is nearly always set already. std::atomic::wait may miss the change on systems without a futex.
void EndWorkOf(CPopProfile& copy) {
    while (!copy.worker_thread.load()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    copy.worker_thread.store(nullptr);
}

unsigned WorkProcedure(void* work) {
    std::unique_ptr<Work> own(static_cast<Work*>(work));
    CPopProfile& copy = own->copy;
    Shielded(own->task);
    own.reset();
    EndWorkOf(copy);
    return 1;
}

// Starts the worker of the copy that was added last; false, as the copy's result tells, when there is no thread for it.
bool StartWorker(CRootPath& root) {
    CPopProfile& copy = *root.running_copies.back();
    auto* const thread =
        Shielded<Thread*>(nullptr, [&copy] { return AfxBeginThread(WorkerProcedure, &copy, 0, 0, 0, nullptr); });
    if (!thread) copy.result.ending = CRunEnding::CouldNotBegin;
    copy.worker_thread.store(thread);
    return thread != nullptr;
}

void RunDueProfiles(CRootPath& root) {
    for (std::size_t u = 0; u < root.users.size(); ++u) {
        for (std::size_t p = 0; p < root.users[u]->profiles.size(); ++p) {
            CPopProfile& profile = *root.users[u]->profiles[p];
            // The judgement comes first: a due profile that is still running waits one more interval (B1).
            if (!profile.JudgeDoOperation() || IsRunning(root, profile.path)) continue;
            // A profile whose run could not begin is judged again an interval later.
            if (AddCopy(root, profile, root.guard)) StartWorker(root);
        }
    }
}

}  // namespace

CStartResult StartCopy(CRootPath& root, CPopProfile& profile, CRunGuard* guard) {
    if (IsRunning(root, profile.path)) return CStartResult::AlreadyRunning;
    if (!AddCopy(root, profile, guard)) return CStartResult::CouldNotBegin;
    if (StartWorker(root)) return CStartResult::Started;
    root.running_copies.pop_back();
    return CStartResult::CouldNotBegin;
}

unsigned WorkerProcedure(void* profile_copy) {
    if (!profile_copy) return 1;
    auto& copy = *static_cast<CPopProfile*>(profile_copy);
    Shielded([&copy] { copy.DoOperation(); });
    EndWorkOf(copy);
    return 1;
}

}  // namespace tarvex

void Tarvex(CRootPath* root) {
    if (!root) return;
    root->RefreshThread();
    tarvex::RunDueProfiles(*root);
}

CStartResult StartRun(CRootPath& root, CPopProfile& profile, CRunGuard* guard) {
    const CTime last_time = std::exchange(profile.setting.lasttime, tarvex::CurrentTime());
    const CStartResult result = tarvex::StartCopy(root, profile, guard);
    if (result != CStartResult::Started) profile.setting.lasttime = last_time;
    return result;
}

void InterruptRuns(CRootPath& root) {
    for (const auto& copy : root.running_copies) InterruptRun(*copy);
}

void InterruptRun(CPopProfile& copy) { tarvex::InterruptThread(copy.worker_thread.load()); }

bool RunIsInterrupted() { return tarvex::ThreadInterrupted(); }

bool StartWork(CPopProfile& copy, std::function<void()> work) {
    return tarvex::Shielded(false, [&] {
        auto own = std::make_unique<tarvex::Work>(tarvex::Work{copy, std::move(work)});
        tarvex::Thread* const thread = tarvex::AfxBeginThread(tarvex::WorkProcedure, own.get(), 0, 0, 0, nullptr);
        if (!thread) return false;
        static_cast<void>(own.release());  // the thread's own
        copy.worker_thread.store(thread);
        return true;
    });
}

int CPopProfile::JudgeDoOperation() {
    if (setting.status == 0) return 0;
    const CTime now = tarvex::CurrentTime();
    if (!tarvex::IsDue(setting.timer, setting.lasttime, now)) return 0;
    setting.lasttime = now;
    return 1;
}

CTime CPopProfile::NextDue() const { return tarvex::DueTime(setting.timer, setting.lasttime); }

void CRootPath::RefreshThread() {
    std::erase_if(running_copies, [](const auto& copy) { return !copy->worker_thread.load(); });
    if (running_copies.empty()) tarvex::TrimProcess();
}

void CRootPath::KillThread() {
    RefreshThread();
    for (auto& copy : running_copies) {
        // Interrupts the run and waits for its end; the field itself names the thread (B5).
        if (tarvex::Thread* thread = copy->worker_thread.load()) tarvex::TerminateThread(thread, 0xFFFFFFFF);
        copy.reset();
    }
    running_copies.clear();
    running_copies.shrink_to_fit();
}

int CRootPath::WaitThread(int milliseconds) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + std::chrono::milliseconds(std::max(milliseconds, 0));
    for (const auto& copy : running_copies) {
        tarvex::Thread* const thread = copy->worker_thread.load();
        if (!thread) continue;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const int limit = milliseconds < 0 ? -1 : static_cast<int>(std::max<decltype(left)>(left, 0));
        if (!tarvex::WaitForThread(thread, limit)) return 0;
    }
    return 1;
}
