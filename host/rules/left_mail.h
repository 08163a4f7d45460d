#pragma once

// Reports and loops that could not be set aside, because their share of the folder held/ was full. Strangers can send
// any number of them. They stay on the server: no address has them, so that none is lost, and they are looked at again
// once a day, or when there is room, so that they keep no other mail back.

#include <cstdint>
#include <string_view>

#include "host/memory/memory.h"

namespace tarvex::host {

// For one run.
class LeftMail {
public:
    // `memory` must outlive it.
    explicit LeftMail(ProfileMemory& memory) : memory_(memory) {}

    // To be called before the others. `held`: how many reports and loops are set aside.
    void Begin(std::int64_t held, CTime now);

    // Whether the message was left by a run before; whether it is not to be fetched now.
    bool Knows(std::string_view uidl);
    bool Rests(std::string_view uidl) { return rests_ && Knows(uidl); }

    void Add(const MailDigest& digest, CTime now);

private:
    ProfileMemory& memory_;
    bool knows_some_ = false;
    bool rests_ = false;
};

}  // namespace tarvex::host
