#pragma once

// Why there is no token.

#include <functional>
#include <stdexcept>
#include <string>

namespace tarvex::host {

enum class TokenTroubleKind {
    ForNow,      // the network, the provider's server or the disk: the next attempt may go well
    ForGood,     // a setting is wrong: a person has to look at it
    NeedsLogin,  // `tarvex login` mends it, and nothing else
};

class TokenTrouble : public std::runtime_error {
public:
    // `words`: one line of ASCII without a full stop, and without any secret.
    TokenTrouble(TokenTroubleKind kind, const std::string& words) : std::runtime_error(words), kind_(kind) {}

    TokenTroubleKind Kind() const { return kind_; }

private:
    TokenTroubleKind kind_;
};

// Asked several times a second by what waits; true ends the wait.
using Stops = std::function<bool()>;

}  // namespace tarvex::host
