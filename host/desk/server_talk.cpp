// Has the engine's worker threads talk to servers for jobs.

#include "host/desk/server_talk.h"

#include <exception>
#include <system_error>
#include <thread>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

using namespace std::chrono_literals;

void TalkToServers(const JobVoice& voice, const std::function<void()>& talk, std::chrono::milliseconds most) {
    CPopProfile worker;  // for its thread alone
    std::exception_ptr thrown;
    const auto work = [&talk, &thrown, language = SpokenLanguage()] {
        const Speaking in(language);
        try {
            talk();
        } catch (...) {
            thrown = std::current_exception();
        }
    };
    if (!StartWork(worker, work)) throw std::system_error(std::make_error_code(std::errc::not_enough_memory));
    const auto deadline = Jobs::Clock::now() + most;
    bool is_late = false;
    while (worker.worker_thread.load()) {
        is_late = is_late || Jobs::Clock::now() > deadline;
        if (is_late || voice.Stops()) InterruptRun(worker);
        std::this_thread::sleep_for(5ms);
    }
    if (is_late) throw CommandError(kTryLater, Tr("the servers took too long; nothing was changed"));
    if (thrown) std::rethrow_exception(thrown);
}

}  // namespace tarvex::host
