#pragma once

// The turn of messages that no id of their own tells apart, because the server has no ids, gives one to several, or has
// others in every session. They are fetched in every run, and known by their bytes. Where they are more than a run may
// hold, each run goes on where the one before it ended, and what is behind all that was ever fetched comes first.
//
//     the server lists    1 2 3 4 5 6 7    a run holds three messages
//     run 1               1 2 3
//     run 2                     4 5 6
//     run 3                           7    the round is over
//     run 4               1 2         8    8 is new
//     run 5                   3 4 5
//
// Whatever is deleted meanwhile, and so gives other messages these numbers, comes within a round.

#include <cstdint>
#include <vector>

#include "host/memory/memory.h"
#include "tarvex/guard.h"

namespace tarvex::host {

// For one run.
class Rotation {
public:
    // `memory` must outlive it.
    explicit Rotation(ProfileMemory& memory) : memory_(memory) {}

    // To be called before the others, with the numbers of these messages.
    void Begin(std::vector<std::int64_t> numbers);

    bool IsOld(std::int64_t number) const { return number <= seen_; }  // comes after those that are not
    bool HasItsTurn(std::int64_t number) const { return number == 0 || (!is_full_ && number > position_); }
    void Fetches(std::int64_t number);    // in ascending order, first the new ones
    void EndsHere() { is_full_ = true; }  // the rest goes in the next run

    // The run has got through what it fetched.
    void Save(CTime now);

    void Forget(CTime now);  // the next one begins anew

private:
    ProfileMemory& memory_;
    std::int64_t position_ = 0;  // in this round
    std::int64_t seen_ = 0;      // at the end of all rounds so far
    std::int64_t last_old_ = 0;
    std::int64_t fetched_old_ = 0;
    std::int64_t fetched_new_ = 0;
    bool is_full_ = false;
    bool is_needed_ = false;
};

// What the server calls a message, as a number; 0 for anything else.
std::int64_t NumberOf(const CMailOnServer& mail);

}  // namespace tarvex::host
