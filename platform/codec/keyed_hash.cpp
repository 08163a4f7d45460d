// SipHash-2-4.

#include "platform/codec/keyed_hash.h"

#include <bit>
#include <cstddef>

#include "platform/os/system.h"

namespace tarvex {

namespace {

class SipState {
public:
    explicit SipState(const HashKey& key)
        : v0_(key[0] ^ 0x736f6d6570736575U),
          v1_(key[1] ^ 0x646f72616e646f6dU),
          v2_(key[0] ^ 0x6c7967656e657261U),
          v3_(key[1] ^ 0x7465646279746573U) {}

    void Take(std::uint64_t word) {
        v3_ ^= word;
        Mix(2);
        v0_ ^= word;
    }

    std::uint64_t Finish() {
        v2_ ^= 0xFFU;
        Mix(4);
        return v0_ ^ v1_ ^ v2_ ^ v3_;
    }

private:
    void Mix(int rounds) {
        for (; rounds > 0; --rounds) {
            v0_ += v1_;
            v1_ = std::rotl(v1_, 13) ^ v0_;
            v0_ = std::rotl(v0_, 32);
            v2_ += v3_;
            v3_ = std::rotl(v3_, 16) ^ v2_;
            v0_ += v3_;
            v3_ = std::rotl(v3_, 21) ^ v0_;
            v2_ += v1_;
            v1_ = std::rotl(v1_, 17) ^ v2_;
            v2_ = std::rotl(v2_, 32);
        }
    }

    std::uint64_t v0_, v1_, v2_, v3_;
};

constexpr std::size_t kWordBytes = 8;

// The first bytes of the text, the first one lowest. With a constant count, compilers make one load of it.
std::uint64_t Word(std::string_view bytes, std::size_t count) {
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < count; ++i) {
        word |= std::uint64_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    }
    return word;
}

}  // namespace

std::uint64_t KeyedHash(const HashKey& key, std::string_view text) {
    SipState state(key);
    const std::uint64_t length = text.size();
    for (; text.size() >= kWordBytes; text.remove_prefix(kWordBytes)) state.Take(Word(text, kWordBytes));
    state.Take(Word(text, text.size()) | length << 56);
    return state.Finish();
}

const HashKey& ProcessHashKey() {
    static const HashKey key = {RandomNumber(), RandomNumber()};
    return key;
}

}  // namespace tarvex
