// Puts questions to the desk into bytes, and reads its answers.

#include "console/desk/wire.h"

#include <stdexcept>

namespace tarvex::console {
namespace {

constexpr int kDeepest = 16;

bool StopAtDepth(int depth, Json::parse_event_t, Json&) {
    if (depth > kDeepest) throw std::length_error("nested too deep");
    return true;
}

}  // namespace

std::optional<std::string> DeskMessage(const Json& question) {
    const std::string text = question.dump(-1, ' ', false, Json::error_handler_t::replace);
    if (text.size() > kMostQuestionBytes) return std::nullopt;
    std::string message;
    for (int shift = 24; shift >= 0; shift -= 8) message += static_cast<char>(text.size() >> shift & 0xFF);
    return message + text;
}

std::optional<std::size_t> AnswerLength(const LengthBytes& bytes) {
    std::size_t length = 0;
    for (const unsigned char byte : bytes) length = length << 8 | byte;
    if (length == 0 || length > kMostAnswerBytes) return std::nullopt;
    return length;
}

std::optional<Json> ReadAnswer(std::string_view bytes) try {
    Json answer = Json::parse(bytes, StopAtDepth);
    const auto status = answer.find("status");
    if (!answer.is_object() || status == answer.end() || !status->is_string()) return std::nullopt;
    return answer;
} catch (const std::exception&) {
    return std::nullopt;
}

}  // namespace tarvex::console
