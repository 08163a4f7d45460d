#pragma once

// The JSON that the console and the desk exchange. What is read out of it may be missing or of another kind.

#include <nlohmann/json.hpp>
#include <string>

namespace tarvex::console {

using Json = nlohmann::ordered_json;

// The text of that name in an object; empty when there is none.
inline std::string TextOf(const Json& object, const char* name) {
    const auto value = object.find(name);
    return value != object.end() && value->is_string() ? value->get<std::string>() : std::string();
}

inline bool IsTrue(const Json& object, const char* name) {
    const auto value = object.find(name);
    return value != object.end() && *value == true;
}

}  // namespace tarvex::console
