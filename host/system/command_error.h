#pragma once

// How a command fails: with an exit code of the program (sysexits.h) and a sentence that says what to do.

#include <stdexcept>
#include <string>

namespace tarvex::host {

// Exit codes. Beside these: 128 and the signal when one ended the command.
inline constexpr int kDone = 0;
inline constexpr int kMissing = 1;         // demo: something did not arrive as it should have
inline constexpr int kSomethingFails = 1;  // status: a run has failed, mail is set aside, a profile waits, ...
inline constexpr int kNoRoot = 2;          // run: the root directory cannot be had
inline constexpr int kBadUsage = 64;       // the command line is wrong (EX_USAGE)
inline constexpr int kBadData = 65;        // a value cannot be stored (EX_DATAERR)
inline constexpr int kNotFound = 66;       // what is named does not exist (EX_NOINPUT)
inline constexpr int kUnavailable = 69;    // a server or service does not answer (EX_UNAVAILABLE)
inline constexpr int kBroken = 70;         // the program failed (EX_SOFTWARE)
inline constexpr int kCannotMake = 73;     // a directory or file cannot be made (EX_CANTCREAT)
inline constexpr int kCannotWrite = 74;    // reading or writing failed (EX_IOERR)
inline constexpr int kTryLater = 75;       // the tree is in use (EX_TEMPFAIL)
inline constexpr int kNotAllowed = 77;     // not permitted (EX_NOPERM)
inline constexpr int kBadSettings = 78;    // the configuration is wrong (EX_CONFIG)

class CommandError : public std::runtime_error {
public:
    // `what` is UTF-8, fit to be shown, and ends without a full stop.
    CommandError(int exit_code, const std::string& what) : std::runtime_error(what), exit_code_(exit_code) {}

    int ExitCode() const { return exit_code_; }

private:
    int exit_code_;
};

}  // namespace tarvex::host
