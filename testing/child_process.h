#pragma once

// A program that runs no longer than an object lives, and what it prints.

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace tarvex::testing {

// Standard input is empty unless it is given. What the program prints is read by the operations that wait.
class ChildProcess {
public:
    enum class Output {
        Pipe,      // a pipe each for output and errors
        Together,  // one pipe for both, in which a megabyte may wait to be read; on Windows it has a console of its own
        // On POSIX:
        Terminal,  // one terminal for both; a line end is CR LF there
        Dialogue,  // one terminal for both and for the input: see Type
        Full,      // output to a device that is full
        Closed,    // output to a pipe that nobody reads
    };

    // The program by its path and its arguments, in UTF-8; the variables ("NAME=value") replace those of this process.
    // Throws std::system_error when it cannot be started. The input, at most 64 KiB, is what it can read; on POSIX.
    explicit ChildProcess(std::vector<std::string> words, Output output = Output::Pipe,
                          std::vector<std::string> variables = {}, const std::string& input = {});
    ~ChildProcess();  // kills it when it still runs
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    int Number() const;             // of its process, while it has not been waited for
    void Signal(int signal) const;  // nothing happens when it has ended; on POSIX

    // As its console asks a program to end. On Windows Ctrl+C only with Output::Together; on POSIX it is SIGINT, and
    // SIGTERM stands for the others.
    enum class Event { CtrlC, CtrlBreak, Close, LogOff, Shutdown };
    void Interrupt(Event event = Event::CtrlC);

    // Waits until it has printed the text, behind so many bytes; false when that does not come in time, or it ends
    // before.
    bool WaitForOutput(const std::string& text, std::chrono::nanoseconds time, std::size_t behind = 0);

    // Its terminal: typing on it, and whether that is shown. On POSIX.
    void Type(const std::string& text) const;
    bool ShowsTyping() const;

    // Waits for its end; false when that does not come in time.
    bool WaitFor(std::chrono::nanoseconds time);

    // Waits for its end, at most a minute: after that it is killed.
    void Wait();

    // Kills it and waits.
    void Kill();

    // After its end.
    int ExitCode() const;  // on POSIX also 128 and the signal that ended it
    const std::string& Printed() const;
    const std::string& Errors() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::testing
