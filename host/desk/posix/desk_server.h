#pragma once

// The socket at which the console asks the desk. Who may connect is decided by the file system: the socket is for its
// owner and for one group. Each connection is one question and one answer: a JSON text behind its length in bytes (four
// bytes, the highest first).

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/desk/desk.h"
#include "host/system/posix/descriptor.h"

namespace tarvex::host {

class DeskServer {
public:
    static constexpr int kWorkers = 8;  // questions that are answered at the same time
    static constexpr std::size_t kMostQuestion_bytes = (1 << 20) + (64 << 10);

    // `path`: of the socket, in the place of one that was left over. `group`: who may connect beside the own user;
    // empty for nobody. Throws CommandError. After signals are blocked that are to be read elsewhere.
    DeskServer(DeskOptions options, const std::string& path, const std::string& group);
    ~DeskServer();  // ends jobs that are under way
    DeskServer(const DeskServer&) = delete;
    DeskServer& operator=(const DeskServer&) = delete;

private:
    void Serve();
    void AnswerOne();
    void AnswerTo(const Descriptor& client);

    Desk desk_;
    std::string path_;
    Descriptor listener_;
    Descriptor stop_;
    std::vector<std::thread> workers_;
};

}  // namespace tarvex::host
