#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace tarvex::host {

// Turns text of one character set into another, as far as the system knows both.
class Converter {
public:
    Converter(const char* to, const char* from);
    ~Converter();
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    // Whether the system has it; else nothing is converted.
    bool IsThere() const;

    // Appends the longest beginning of the text that can be converted, and takes it away from the text.
    void Convert(std::string_view& text, std::string& result);

    // Appends what ends the text in the other character set.
    void Finish(std::string& result);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::host
