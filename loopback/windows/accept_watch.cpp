// By a thread that polls, since Asio's wait for reading does not work with listening sockets here.

#include "loopback/accept_watch.h"

#include <winsock2.h>

#include <asio/post.hpp>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

namespace tarvex::loopback {

using asio::ip::tcp;

struct AcceptWatch::Impl {
    explicit Impl(tcp::acceptor& acceptor) : executor(acceptor.get_executor()), socket(acceptor.native_handle()) {}

    void Run() {
        constexpr int kNoticeTheEnd_ms = 20;
        std::unique_lock lock(mutex);
        for (;;) {
            changed.wait(lock, [this] { return ending || then; });
            if (ending) return;
            WSAPOLLFD listening{socket, POLLRDNORM, 0};
            lock.unlock();
            const bool ready = WSAPoll(&listening, 1, kNoticeTheEnd_ms) != 0;
            lock.lock();
            if (ready) asio::post(executor, std::exchange(then, nullptr));
        }
    }

    tcp::acceptor::executor_type executor;
    SOCKET socket;
    std::mutex mutex;
    std::condition_variable changed;
    std::function<void()> then;
    bool ending = false;
    std::thread thread{[this] { Run(); }};
};

AcceptWatch::AcceptWatch(tcp::acceptor& acceptor) : impl_(std::make_unique<Impl>(acceptor)) {}

AcceptWatch::~AcceptWatch() {
    {
        const std::lock_guard lock(impl_->mutex);
        impl_->ending = true;
        impl_->changed.notify_all();
    }
    impl_->thread.join();
}

void AcceptWatch::Wait(std::function<void()> then) {
    const std::lock_guard lock(impl_->mutex);
    impl_->then = std::move(then);
    impl_->changed.notify_all();
}

}  // namespace tarvex::loopback
