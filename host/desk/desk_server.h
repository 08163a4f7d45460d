#pragma once

// Answers the console: each connection is one question and one answer, a JSON text behind its length in bytes (four
// bytes, the highest first). Who may connect is decided by the system: see desk_channel.h.

#include <string>
#include <thread>
#include <vector>

#include "host/desk/desk.h"
#include "host/desk/desk_channel.h"

namespace tarvex::host {

class DeskServer {
public:
    static constexpr int kWorkers = 8;  // questions that are answered at the same time
    static constexpr std::size_t kMostQuestion_bytes = (1 << 20) + (64 << 10);

    // Place and group as DeskListener has them. Throws CommandError. After signals are blocked that are to be read
    // elsewhere.
    DeskServer(DeskOptions options, const std::string& place, const std::string& group);
    ~DeskServer();  // ends jobs that are under way
    DeskServer(const DeskServer&) = delete;
    DeskServer& operator=(const DeskServer&) = delete;

private:
    void Serve();
    void AnswerTo(DeskConnection& client);
    void Stop();

    Desk desk_;
    DeskListener listener_;
    std::vector<std::thread> workers_;
};

}  // namespace tarvex::host
