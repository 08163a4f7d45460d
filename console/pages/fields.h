#pragma once

// The fields of a form that changes settings. What a form shows it sends back beside what was typed, so that a change
// names only the keys that the person changed: what another has changed meanwhile stays.

#include <span>
#include <string>
#include <string_view>

#include "console/pages/parts.h"
#include "host/language/tr.h"

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

// The ways to an SMTP server, and to log in there, as all settings have them.
inline constexpr Choice kSmtpTlsChoices[] = {{"plain", host::Marked("none")},
                                             {"tls", host::Marked("TLS from the first byte")},
                                             {"starttls", host::Marked("STARTTLS, or no connection")}};
inline constexpr Choice kSmtpMethodChoices[] = {{"best", host::Marked("the best that the server offers")},
                                                {"plain", "PLAIN"},
                                                {"login", "LOGIN"},
                                                {"cram-md5", "CRAM-MD5"}};

// The values of settings, by the desk's list of keys.
Fields ValuesOf(const Json& keys);

// The fields, with these values; `was` holds those that the settings have.
Html WriteFields(std::span<const FormField> fields, const Viewer& viewer, const Fields& values, const Fields& was);

// What a refused form brought, to be shown again; and what it was shown before.
Fields TypedIn(std::span<const FormField> fields, const HttpRequest& request);
Fields ShownBefore(std::span<const FormField> fields, const HttpRequest& request);

// Puts what was changed into the question's "values" and "secrets". Returns whether there is any.
bool AddChanged(std::span<const FormField> fields, const HttpRequest& request, Json& question);

// The same of the keys of one account, of which the first names the server. With another server all of them are put
// in: what held for the one before holds for no other.
bool AddChangedAccount(std::span<const FormField> fields, const HttpRequest& request, Json& question);

}  // namespace tarvex::console
