#pragma once

// One question to a provider over HTTPS, by libcurl. Certificate and name are verified, redirections are not followed,
// and time and size are limited.

#include <string>
#include <utility>
#include <vector>

#include "host/tokens/token_trouble.h"

namespace tarvex::host {

struct HttpAnswer {
    long status = 0;
    std::string body;
};

using Form = std::vector<std::pair<std::string, std::string>>;

// Name and value as they stand in a form or behind the "?" of a URL.
std::string Encoded(const Form& form);

// Sends the form (POST) to a URL that a Provider may have. `authority` as there. Throws TokenTrouble (ForNow) when
// there is no answer, when it is too large or `stops` ends the wait. Any thread.
HttpAnswer Post(const std::string& url, const Form& form, const std::string& authority, const Stops& stops);

}  // namespace tarvex::host
