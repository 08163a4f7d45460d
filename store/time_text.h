#pragma once

// Moments as the settings files hold them: "year,month,day,hour,minute,second" in local time.

#include <string>
#include <string_view>

#include "tarvex/text.h"

namespace tarvex {

// The moment that the text stands for, at a given present moment: GetCTime with a clock that stands still.
CTime ParseTime(std::string_view text, CTime now);

// The text of a moment; its numbers are not padded.
std::string FormatTime(CTime moment);

}  // namespace tarvex
