// A few threads that each answer one question at a time.

#include "host/desk/desk_server.h"

#include <chrono>
#include <exception>
#include <utility>

#include "host/language/tr.h"
#include "host/service/control_messages.h"
#include "host/system/display.h"

namespace tarvex::host {
namespace {

using namespace std::chrono_literals;
using Clock = DeskConnection::Clock;

constexpr std::chrono::milliseconds kRest = 1min;
constexpr auto kPatience = 10s;  // for a question, and for taking its answer
constexpr int kMostDepth = 4;    // of a question

std::string WithLength(std::string text) {
    std::string message;
    for (int shift = 24; shift >= 0; shift -= 8) message += static_cast<char>(text.size() >> shift & 0xFF);
    return message += text;
}

}  // namespace

CommandError CannotListenForConsole(const std::string& place, const std::string& why) {
    return {kCannotMake, Tr("cannot listen for the console on \"{0}\": {1}", ShowUtf8Text(place), why)};
}

DeskServer::DeskServer(DeskOptions options, const std::string& place, const std::string& group)
    : desk_(std::move(options)), listener_(place, group) {
    try {
        for (int i = 0; i < kWorkers; ++i) workers_.emplace_back([this] { Serve(); });
    } catch (...) {
        Stop();
        throw;
    }
}

DeskServer::~DeskServer() { Stop(); }

void DeskServer::Stop() {
    listener_.Stop();
    for (std::thread& worker : workers_) worker.join();
}

void DeskServer::Serve() {
    for (bool goes_on = true; goes_on;) {
        try {
            const auto client = listener_.Accept(kRest, [this] { desk_.Rest(); });
            if (client) AnswerTo(*client);
            goes_on = client != nullptr;
        } catch (const std::exception&) {  // no memory: the client gets no answer
        }
    }
}

void DeskServer::AnswerTo(DeskConnection& client) {
    const auto deadline = Clock::now() + kPatience;
    std::string length;
    if (!client.Read(kLengthBytes, deadline, length)) return;
    const std::size_t bytes = LengthIn(length);
    if (bytes > kMostQuestion_bytes) return client.Write(WithLength(R"({"status":"bad"})"), deadline);
    std::string text;
    if (!client.Read(bytes, deadline, text)) return;
    const auto is_shallow = [](int depth, Json::parse_event_t, const Json&) { return depth <= kMostDepth; };
    const Json question = Json::parse(text, is_shallow, false);
    const Json answer = question.is_discarded() ? Json{{"status", "bad"}} : desk_.Answer(question);
    client.Write(WithLength(answer.dump(-1, ' ', false, Json::error_handler_t::replace)), Clock::now() + kPatience);
}

}  // namespace tarvex::host
