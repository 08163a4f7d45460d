// The wait for a name look-up: bounded by the deadline, ended by an interruption.

#include "platform/net/name_lookup.h"

#include <condition_variable>
#include <exception>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/os/system_thread.h"
#include "platform/os/threads.h"

namespace tarvex {

namespace {

// Shared by the caller and the thread that asks; the last of them frees it.
class PendingLookUp final : public Interruptible {
public:
    void Answer(NameAnswer answer) {
        const std::lock_guard lock(mutex_);
        answer_ = std::move(answer);
        changed_.notify_all();
    }

    void Interrupt() noexcept override {
        const std::lock_guard lock(mutex_);
        interrupted_ = true;
        changed_.notify_all();
    }

    Failure Wait(const std::string& name, const Deadline& deadline, NameAnswer& answer) {
        std::unique_lock lock(mutex_);
        const bool ended = changed_.wait_until(lock, deadline.Moment(), [this] { return answer_ || interrupted_; });
        if (interrupted_) return {FailureKind::Interrupted, "interrupted"};
        if (!ended) return {FailureKind::TimedOut, "looking up " + name + " took too long"};
        answer = std::move(*answer_);
        return {};
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::optional<NameAnswer> answer_;
    bool interrupted_ = false;
};

std::mutex resolver_mutex;
NameResolver resolver_in_use = AskSystemForName;

NameResolver ResolverInUse() {
    const std::lock_guard lock(resolver_mutex);
    return resolver_in_use;
}

NameAnswer AskSafely(const NameResolver& resolver, const std::string& name) {
    try {
        return resolver(name);
    } catch (const std::exception& error) {
        return {{}, error.what()};
    }
}

// What the thread that asks is handed.
struct Question {
    std::shared_ptr<PendingLookUp> pending;
    std::string name;
    NameResolver resolver;
};

void Ask(void* question) {
    const std::unique_ptr<Question> own(static_cast<Question*>(question));
    own->pending->Answer(AskSafely(own->resolver, own->name));
}

Failure AskOnItsOwnThread(const std::string& name, const Deadline& deadline, NameAnswer& answer) {
    const auto pending = std::make_shared<PendingLookUp>();
    auto question = std::make_unique<Question>(Question{pending, name, ResolverInUse()});
    const InterruptScope scope(*pending);
    std::optional<SystemThread> thread = SystemThread::Start(Ask, question.get());
    if (!thread) return {FailureKind::Local, "no thread to look up " + name};
    static_cast<void>(question.release());  // the thread's own
    thread->Leave();
    return pending->Wait(name, deadline, answer);
}

}  // namespace

void SetNameResolver(NameResolver resolver) {
    const std::lock_guard lock(resolver_mutex);
    resolver_in_use = resolver ? std::move(resolver) : AskSystemForName;
}

Failure LookUpName(const std::string& name, const Deadline& deadline, std::vector<NetworkAddress>& addresses) {
    if (name.empty()) return {FailureKind::NoSuchServer, "no server name"};
    if (name.find('\0') != std::string::npos) return {FailureKind::NoSuchServer, "the server name holds NUL"};
    if (const auto numeric = NumericAddress(name)) {
        addresses = {*numeric};
        return {};
    }
    NameAnswer answer;
    if (Failure failure = AskOnItsOwnThread(name, deadline, answer)) return failure;
    if (answer.addresses.empty()) {
        return {FailureKind::NoSuchServer,
                "could not look up " + name + ": " + (answer.error.empty() ? "it has no address" : answer.error)};
    }
    addresses = std::move(answer.addresses);
    return {};
}

}  // namespace tarvex
