#pragma once

// What the fuzz targets share. A target calls the code with the bytes of the fuzzer and requires what must hold for
// every input; libFuzzer, AddressSanitizer and UBSan find the rest.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace tarvex::fuzz {

// What does not hold is a finding.
inline void Require(bool holds, std::string_view sentence) {
    if (holds) return;
    std::fprintf(stderr, "does not hold: %.*s\n", static_cast<int>(sentence.size()), sentence.data());
    std::abort();
}

inline void RequireNoFault(std::string_view fault) { Require(fault.empty(), fault); }

// The bytes of the fuzzer. They end where its memory ends, so reading on is seen.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

    // A choice among so many, from one byte: '0' is the first one. The first one as well when nothing is left.
    int Choice(int count) {
        if (rest_.empty()) return 0;
        const int byte = static_cast<unsigned char>(rest_.front() - '0');
        rest_.remove_prefix(1);
        return byte % count;
    }

    // Up to the next line feed, which goes.
    std::string_view Line() {
        const std::size_t end = rest_.find('\n');
        const std::string_view line = rest_.substr(0, end);
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        return line;
    }

    std::string_view Rest() const { return rest_; }

private:
    std::string_view rest_;
};

// A text with these bytes behind its end, where nothing may look.
inline std::string WithBytesBehind(std::string_view text, char byte) {
    std::string padded(text);
    padded.append(16, byte);
    padded.resize(text.size());
    return padded;
}

// Calls an operation on a text in place: the result must be the same whatever lies behind the text.
template <class Operation>
std::string InPlace(std::string_view text, Operation operation) {
    std::string first = WithBytesBehind(text, 'A');
    std::string second = WithBytesBehind(text, '\xA4');
    operation(&first);
    operation(&second);
    Require(first == second, "the same result whatever lies behind the text");
    return first;
}

// The same for an operation with a source and a target, which may be the same.
template <class Operation>
std::string Converted(std::string_view text, Operation operation) {
    const std::string source = WithBytesBehind(text, '=');
    std::string target = "left over";
    operation(&source, &target);
    Require(source == text, "the source stays");
    Require(target == InPlace(text, [&](std::string* both) { operation(both, both); }), "source may be target");
    return target;
}

}  // namespace tarvex::fuzz
