#pragma once

// The questions of `tarvex setup`. Each has an option that answers it, and then is not asked.

#include <functional>
#include <string>

namespace tarvex::host {

class Questions {
public:
    // Nobody is asked when there is no terminal, or `wanted` is false.
    explicit Questions(bool wanted);

    bool CanAsk() const { return can_ask_; }

    // Asks until `take` throws no CommandError; each of these is shown as the reason for the next question. Throws
    // CommandError (kBadUsage), which names the option, when nobody can be asked, and when the person gives up.
    void Ask(const std::string& question, const char* option,
             const std::function<void(const std::string&)>& take) const;

    // As Ask, for an answer that is not shown, at most three times; then it throws the last reason.
    void AskSecret(const std::string& question, const char* option,
                   const std::function<void(const std::string&)>& take) const;

    // Until it is answered by y or n.
    bool Yes(const std::string& question, const char* option) const;

private:
    void RequireAnswerer(const std::string& question, const char* option) const;

    bool can_ask_;
};

}  // namespace tarvex::host
