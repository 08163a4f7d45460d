#pragma once

// What is known of one message that was set aside: why, and which addresses still wait for it.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/tree.h"

namespace tarvex::host {

enum class HeldKind {
    Refused,  // the SMTP server refused it
    Report,   // a delivery report about one of the profile's own addresses
    Loop,     // it passed this profile before
};
std::string_view Word(HeldKind kind);  // "refused"

// What the server answered to one try.
struct HeldAnswer {
    CTime time = 0;
    CString reply;  // its first line, of that the first kMostOldReplyBytes; untrusted bytes

    bool operator==(const HeldAnswer&) const = default;
};
inline constexpr std::size_t kMostOldReplyBytes = 200;

// An address that waits for the message.
struct HeldAddress {
    CString address;  // as in its setting when the server was asked last
    CString folder;   // "forwardto0"
    CString made;     // DirectoryIdentity of that folder: another address may come to be called the same
    CString route;    // RouteOf the profile when the server was asked last
    CRunStage stage = CRunStage::None;
    CFailureClass failure_class = CFailureClass::None;
    CString reply;       // what the server answered last; untrusted bytes, the first kMostReplyBytes are kept
    int tries = 0;       // that the server answered
    CTime last_try = 0;  // 0 when it was never tried
    CTime next_try = 0;  // 0: only when a person says so, or when address or route have changed
    std::vector<HeldAnswer> answers;  // to the tries, the newest kMostAnswers of them, the last one at the end

    bool operator==(const HeldAddress&) const = default;
};
inline constexpr std::size_t kMostReplyBytes = 1000;
inline constexpr std::size_t kMostAnswers = 20;

struct HeldRecord {
    int id = 0;  // in its profile, from 1; messages are set aside and tried again in this order
    CString uidl;
    std::string digest;  // of the message, 32 hexadecimal digits; chosen by whoever sets it aside
    HeldKind kind = HeldKind::Refused;
    CTime set_aside = 0;
    std::int64_t bytes = 0;  // of the message; counted by the store
    std::vector<HeldAddress> addresses;
    std::string damage;  // why the record or the message cannot be used, in English; empty when both are whole. Of a
                         // damaged one only the id is sure
};

// The name of an address's folder: "forwardto0".
CString FolderOf(const CForwardAddress& address);

// The SMTP server, which is the POP3 server where none is set.
const CString& RelayOf(const CPopProfileSetting& setting);

// What decides the answers of an SMTP server beside address and message: server, port, TLS, login, sender. Without a
// password.
CString RouteOf(const CPopProfileSetting& setting);

// The same of the account that holds for the profile.
CString RouteOf(const CPopProfile& profile);

// Whether it is this address of the profile that waits, also after its setting was changed.
bool IsOf(const HeldAddress& waiting, const CForwardAddress& address);

// The address as one that waits, about which the server was not asked.
HeldAddress WaitingNow(const CPopProfile& profile, const CForwardAddress& address);

inline constexpr CTime kLongestHeldPause = CTime{4} * 60 * 60;

// What the address waits for that the server has just refused for the first time.
HeldAddress RefusedNow(const CPopProfile& profile, const CForwardAddress& address, CRunStage stage,
                       CFailureClass failure_class, const CString& reply, CTime now);

// Counts one more refusal: of a transient one the next try is after 15 minutes, the one after that after 30, and so on
// up to 4 hours; of any other there is none.
void CountRefusal(HeldAddress& waiting, CRunStage stage, CFailureClass failure_class, const CString& reply, CTime now);

// As the settings files are written: "[key]" and a line with the value. Bytes that would not survive stand as "\x0d".
std::string TextOf(const HeldRecord& record);

// The record without its id. What cannot be read has `damage`.
HeldRecord RecordIn(std::string_view text);

}  // namespace tarvex::host
