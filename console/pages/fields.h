#pragma once

// The fields of a form that changes settings. What a form shows it sends back beside what was typed, so that a change
// names only the keys that the person changed: what another has changed meanwhile stays.

#include <span>
#include <string>
#include <string_view>

#include "console/pages/parts.h"

namespace tarvex::console {

enum class Kind { Text, Number, Flag, Password, Choice };

struct Choice {
    const char* value;
    const char* label;  // Marked
};

struct FormField {
    const char* key;    // of the settings
    const char* label;  // Marked
    Kind kind = Kind::Text;
    const char* hint = "";  // Marked
    std::span<const Choice> choices = {};
    bool for_administrators = false;
};

// The values of settings, by the desk's list of keys.
Fields ValuesOf(const Json& keys);

// The fields, with these values; `was` holds those that the settings have.
Html WriteFields(std::span<const FormField> fields, const Viewer& viewer, const Fields& values, const Fields& was);

// What a refused form brought, to be shown again; and what it was shown before.
Fields TypedIn(std::span<const FormField> fields, const HttpRequest& request);
Fields ShownBefore(std::span<const FormField> fields, const HttpRequest& request);

// Puts what was changed into the question's "values" and "secrets". Returns whether there is any.
bool AddChanged(std::span<const FormField> fields, const HttpRequest& request, Json& question);

}  // namespace tarvex::console
