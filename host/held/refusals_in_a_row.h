#pragma once

// Tells a server that refuses one message after the other from messages that are refused.

#include <string>
#include <utility>

#include "tarvex/text.h"

namespace tarvex::host {

inline constexpr int kServersFault = 3;  // messages in a row that are refused with the same words

class RefusalsInARow {
public:
    // One more message, or the same one for another address, was refused with these words. Whether they are now those
    // of so many messages in a row that it is the server.
    bool Add(const std::string& digest, const CString& words) {
        if (words != std::exchange(words_, words)) messages_ = 0;
        if (digest != std::exchange(digest_, digest) || messages_ == 0) ++messages_;
        return messages_ >= kServersFault;
    }

    void MessageWasTaken() { messages_ = 0; }

private:
    CString words_;
    std::string digest_;
    int messages_ = 0;
};

}  // namespace tarvex::host
