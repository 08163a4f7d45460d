#pragma once

// A week by half hours, as the desk gives it: seven texts of 48 digits, Sunday first.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "console/http/html.h"
#include "console/http/json.h"
#include "console/http/message.h"

namespace tarvex::console {

using WeekDays = std::array<std::string, 7>;

// Nothing for what is no week.
std::optional<WeekDays> WeekIn(const Json& days);

// "Mon-Fri 9:00-18:00; Sat 10:00-12:00", from Monday on.
std::string WeekInWords(const WeekDays& week);

// The same as a picture.
Html WeekPicture(const WeekDays& week);

// A table of check boxes, a row for each half hour; and what one sends, or the choice of a whole week that a button of
// the form sends in its place.
Html WeekGrid(const WeekDays& week);
WeekDays WeekOfForm(const HttpRequest& request);

// The buttons for the weeks that many want.
Html UsualWeeks();

}  // namespace tarvex::console
