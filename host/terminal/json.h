#pragma once

// JSON as the commands print it.

#include <iostream>
#include <nlohmann/json.hpp>

namespace tarvex::host {

using Json = nlohmann::ordered_json;

inline void PrintJson(const Json& json) {
    std::cout << json.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
}

}  // namespace tarvex::host
