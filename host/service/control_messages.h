#pragma once

// What a command and the service that owns the tree say to each other. One request and one reply for each connection,
// with notes before the reply. Each message is a JSON text behind its length in bytes (four bytes, the highest first).
// A string holds a byte in each character (U+0000 to U+00FF), for passwords and ids on servers need not be UTF-8.

#include <cstddef>
#include <string>
#include <string_view>
#include <variant>

#include "host/edit/edit.h"
#include "host/held/held_work.h"
#include "host/language/language.h"
#include "host/service/run_reports.h"
#include "host/service/service_connection.h"

namespace tarvex::host {

struct ReportRequest {};
using ControlRequest = std::variant<ReportRequest, EditRequest, RunRequest, HeldRequest>;

struct ClientNote {
    std::string text;
};
struct Outcome {
    int exit_code = 0;
    Reply reply;
};
using ControlReply = std::variant<Outcome, ClientNote, ServiceReport>;

// A request says in which language the answer is read: the one that is spoken when it is written.
std::string MessageOf(const ControlRequest& request);
std::string MessageOf(const ControlReply& reply);

inline constexpr std::size_t kLengthBytes = 4;

// What follows the first four bytes of a message.
std::size_t LengthIn(std::string_view bytes);

// The text is a message without its length. Throw std::exception when it is none. Texts in a reply are made fit to be
// shown.
struct AskedIn {
    ControlRequest request;
    Language language = Language::English;  // also where it names none that is known
};
AskedIn RequestIn(std::string_view text);
ControlReply ReplyIn(std::string_view text);

}  // namespace tarvex::host
