#pragma once

// Names with their values, in the order in which they came: headers, what a form holds, cookies.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarvex::console {

struct Field {
    std::string name;
    std::string value;

    bool operator==(const Field&) const = default;
};

using Fields = std::vector<Field>;

// The value of the first of that name; nothing where there is none.
inline std::optional<std::string_view> Find(const Fields& fields, std::string_view name) {
    for (const Field& field : fields)
        if (field.name == name) return field.value;
    return std::nullopt;
}

// The same, empty where there is none.
inline std::string_view ValueOf(const Fields& fields, std::string_view name) { return Find(fields, name).value_or(""); }

// The values of all of that name.
inline std::vector<std::string_view> AllOf(const Fields& fields, std::string_view name) {
    std::vector<std::string_view> values;
    for (const Field& field : fields)
        if (field.name == name) values.emplace_back(field.value);
    return values;
}

}  // namespace tarvex::console
