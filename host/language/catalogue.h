#pragma once

// The translations in a file that gettext's msgfmt has made (.mo).

#include <string>
#include <string_view>
#include <unordered_map>

namespace tarvex::host {

class Catalogue {
public:
    Catalogue() = default;

    // The bytes of the file. What is damaged in there is left out, all of it if need be.
    explicit Catalogue(const std::string& bytes);

    // Empty where there is none. Of texts that have a plural, the first form.
    std::string_view Find(std::string_view english) const;

private:
    std::unordered_map<std::string, std::string> texts_;
};

}  // namespace tarvex::host
