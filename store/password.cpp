// Passwords in the form of the settings files, and back.

#include "store/password.h"

#include <algorithm>

#include "platform/codec/base64.h"
#include "platform/os/shield.h"
#include "tarvex/settings.h"

namespace tarvex {
namespace {

void Complement(std::string& bytes) {
    std::ranges::transform(bytes, bytes.begin(), [](char byte) { return static_cast<char>(~byte); });
}

}  // namespace

std::string ScramblePassword(std::string_view plain) {
    std::string complemented(plain);
    Complement(complemented);
    std::string stored;
    if (!complemented.empty()) Base64Encode(&complemented, &stored);
    return stored;
}

std::string UnscramblePassword(const std::string& stored) {
    if (!CouldBeBase64(stored)) return stored;
    std::string plain;
    Base64Decode(&stored, &plain);
    plain.resize(plain.find_last_not_of('\0') + 1);
    Complement(plain);
    return plain;
}

}  // namespace tarvex

CString EncodePassWord(const CString& plain) {
    return tarvex::Shielded(CString(), [&] { return tarvex::ScramblePassword(plain); });
}

CString DecodePassWord(const CString& stored) {
    return tarvex::Shielded(CString(), [&] { return tarvex::UnscramblePassword(stored); });
}
