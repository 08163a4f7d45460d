#pragma once

// Questions to the desk, several at a time.

#include <boost/asio/io_context.hpp>
#include <chrono>
#include <deque>
#include <functional>
#include <string>

#include "console/desk/wire.h"

namespace tarvex::console {

using Answered = std::function<void(DeskOutcome)>;

class DeskLine {
public:
    DeskLine(boost::asio::io_context& context, std::string place, std::chrono::milliseconds patience);

    // Puts a question, as DeskMessage has made it. So many at a time that their answers cannot fill the memory; the
    // rest wait. The answer, or that there is none, comes within the time limit, counted from when the question was
    // sent.
    void Ask(std::string message, Answered answered);

private:
    struct Waiting {
        std::string message;
        Answered answered;
    };
    class Talk;

    void Begin(Waiting question);
    void End();

    boost::asio::io_context& context_;
    std::string place_;  // the path of its socket; on Windows the name of its pipe
    std::chrono::milliseconds patience_;
    std::size_t open_ = 0;
    std::deque<Waiting> waiting_;
};

}  // namespace tarvex::console
