// The thread that tells people what is wrong.

#include "host/alerts/alert_thread.h"

#include <algorithm>
#include <ctime>
#include <thread>
#include <utility>

#include "host/tree/tree_root.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;

// Of ticks: with one every 10 seconds, a look every half minute, and a minute of quiet.
constexpr int kBetweenLooks = 3;
constexpr int kLooksOfQuiet = 2;
// A large tree is looked at less often, so that looking takes no more than a fiftieth of the time.
constexpr int kPart = 50;
constexpr std::chrono::steady_clock::duration kLongestPause = 5min;

}  // namespace

AlertThread::AlertThread(std::string directory, AlertTellers tellers, std::chrono::microseconds tick)
    : directory_(std::move(directory)), alerts_(directory_, std::move(tellers)), between_looks_(kBetweenLooks * tick) {}

AlertThread::~AlertThread() {
    Stop();
    while (copy_.worker_thread.load()) std::this_thread::sleep_for(1ms);
}

void AlertThread::Stop() {
    stopped_ = true;
    InterruptRun(copy_);
}

void AlertThread::Tick(const NotRun& not_run) {
    if (stopped_ || copy_.worker_thread.load() || Clock::now() < next_look_.load()) return;
    next_look_ = Clock::now() + between_looks_;
    // Without a thread one of the next ticks tries again.
    if (!StartWork(copy_, [this, not_run] { Look(not_run); })) return;
}

void AlertThread::Look(const NotRun& not_run) {
    const Clock::time_point begun = Clock::now();
    CRootPath root;
    if (!HasRules(directory_) || !WhyRootUnreadable(directory_).empty()) return;
    if (!LoadTree(root, directory_).empty()) return;
    const auto quiet = std::chrono::ceil<std::chrono::seconds>(kLooksOfQuiet * between_looks_);
    alerts_.Look(root, not_run, std::time(nullptr), quiet.count(), {copy_, [this] { return stopped_.load(); }});
    root.DeleteAllUser();
    root.RefreshThread();  // gives the memory of this second tree back
    const auto pause = std::clamp<Clock::duration>(kPart * (Clock::now() - begun), between_looks_,
                                                   std::max<Clock::duration>(kLongestPause, between_looks_));
    next_look_ = Clock::now() + pause;
}

}  // namespace tarvex::host
