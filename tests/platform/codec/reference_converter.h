#pragma once

// The system's converter of character sets, to compare ours with.

#include <memory>
#include <optional>
#include <string>

namespace tarvex::testing {

class ReferenceConverter {
public:
    // CP932 and UTF-8 everywhere; the names of iconv on POSIX.
    ReferenceConverter(const char* to, const char* from);
    ~ReferenceConverter();
    ReferenceConverter(const ReferenceConverter&) = delete;
    ReferenceConverter& operator=(const ReferenceConverter&) = delete;

    // One character; nothing for what is none and for what can only be approximated.
    std::optional<std::string> operator()(const std::string& character) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace tarvex::testing
