#pragma once

// What a refusal says, apart from what differs from one message to the next.

#include <string>
#include <string_view>

namespace tarvex::host {

// The words of a reply by which two refusals are told to be the same one: its code, its enhanced status code, and every
// word without a digit, an "@" or the name of a day or month. So ids of the queue, times, addresses of machines and of
// people make no difference. Of a long reply the beginning.
//
//     550-5.7.1 [192.0.2.7      12] Our system has detected
//     550 5.7.1 spam. a1b2c3si4567.89 - gsmtp                     "550 5.7.1 Our system has detected spam. - gsmtp"
std::string StableWords(std::string_view reply);

// Whether the enhanced status code says that the recipient's address or mailbox is the matter (RFC 3463, X.1 and X.2).
bool IsAboutTheRecipient(std::string_view reply);

}  // namespace tarvex::host
