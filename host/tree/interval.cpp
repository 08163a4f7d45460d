// How long a profile waits between two runs, in words.

#include "host/tree/interval.h"

#include "host/terminal/wording.h"
#include "tarvex/tree.h"

namespace tarvex::host {

// The engine alone knows its rule, and tells it by the moment at which a profile is due.
std::int64_t WaitSeconds(int timer_minutes) {
    if (timer_minutes == 0) return 0;
    CPopProfile profile;
    profile.setting.timer = timer_minutes;
    profile.setting.lasttime = 0;
    return profile.NextDue();
}

std::string WaitInWords(int timer_minutes) {
    if (timer_minutes <= 0) return "at every call";
    const std::int64_t minutes = WaitSeconds(timer_minutes) / 60;
    if (minutes < 60) return "every " + ShowCount(minutes, "minute");
    if (minutes % 60 == 0) return "every " + ShowCount(minutes / 60, "hour");
    return "every " + ShowCount(minutes / 60, "hour") + ' ' + ShowCount(minutes % 60, "minute");
}

}  // namespace tarvex::host
