// Postfix's smtp-sink.

#include <stdexcept>

#include "tests/real/servers/real_servers.h"

namespace tarvex::testing {
namespace {

constexpr const char* kSink = "/usr/sbin/smtp-sink";

}  // namespace

std::string SmtpSink::Missing() {
    return std::filesystem::exists(kSink) ? "" : "smtp-sink is not installed (package postfix)";
}

SmtpSink::SmtpSink(const std::vector<std::string>& options) : port_(FreePorts(1).front()) {
    std::vector<std::string> words = {kSink, "-4", "-c"};
    words.insert(words.end(), options.begin(), options.end());
    words.insert(words.end(), {"127.0.0.1:" + std::to_string(port_), "1000"});
    process_ = std::make_unique<ServerProcess>(ServerProcess::Command{.words = words, .output = folder_ / "sink.out"});
    if (!WaitUntil([&] { return !process_->Running() || Answers(port_, "220"); }) || !process_->Running()) {
        throw std::runtime_error("smtp-sink did not start: " + ReadFile(folder_ / "sink.out"));
    }
}

int SmtpSink::Messages() const {
    const std::string counters = ReadFile(folder_ / "sink.out");
    const std::size_t last = counters.rfind("mesg=");
    return last == std::string::npos ? 0 : std::stoi(counters.substr(last + 5));
}

}  // namespace tarvex::testing
