#pragma once

// How the console speaks with the desk, the part of the service that decides: a message is a JSON object behind its
// length (four bytes, the highest first). One question, one answer, then the connection ends.

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "console/http/json.h"

namespace tarvex::console {

inline constexpr std::size_t kMostQuestionBytes = (1 << 20) + (64 << 10);
inline constexpr std::size_t kMostAnswerBytes = 16 << 20;

using LengthBytes = std::array<unsigned char, 4>;

// The question as it is sent; nothing when it is too long.
std::optional<std::string> DeskMessage(const Json& question);

// How many bytes follow; nothing when there are too many, or none.
std::optional<std::size_t> AnswerLength(const LengthBytes& bytes);

// The answer: an object, not nested deeper than any page needs, whose "status" is text. Nothing for all else.
std::optional<Json> ReadAnswer(std::string_view bytes);

// Why there is no answer.
enum class DeskTrouble {
    NotThere,  // nobody listens: the service does not run, or its console is off
    Silent,    // no answer in time
    Wrong,     // something that is no answer
};

using DeskOutcome = std::variant<DeskTrouble, Json>;

}  // namespace tarvex::console
