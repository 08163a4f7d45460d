#pragma once

// The process's environment: its variables and its local time.

#include <cstdlib>
#include <ctime>
#include <optional>
#include <string>
#include <utility>

namespace tarvex::testing {

// Nothing removes the variable. The time zone of "TZ" counts at once.
void SetVariable(const std::string& name, const std::optional<std::string>& value);

std::tm BrokenDown(std::time_t moment);

// Sets a variable for as long as it lives.
class Variable {
public:
    Variable(std::string name, const std::string& value) : name_(std::move(name)) {
        if (const char* const old = std::getenv(name_.c_str())) old_ = old;
        SetVariable(name_, value);
    }
    ~Variable() { SetVariable(name_, old_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    std::string name_;
    std::optional<std::string> old_;
};

}  // namespace tarvex::testing
