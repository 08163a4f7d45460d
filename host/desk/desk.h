#pragma once

// The desk: where the console in the browser asks, and everything about it is decided. Who is logged in, what that one
// may see and change, is judged here, inside the service and beside the edits of the commands; the program that speaks
// HTTP only shows it. A question and an answer are JSON objects:
//
//     {"ask": "overview", "session": "5f...", "token": "", "address": "192.0.2.7", "language": "ja", "page": 1}
//     {"status": "ok", "user": {"name": "taro", "path": "user0", "administrator": false}, "token": "9c...", ...}
//
//     field of every question
//     session     the secret of the cookie, or empty
//     token       of the form, for what changes something
//     address     of the browser, as the console knows it
//     language    "ja" or "en": in which the answer is shown
//     administrators  true: of a page that is for them alone, whatever the question
//
//     status of an answer
//     ok          with what was asked for
//     login       nobody is logged in
//     forbidden   not with this form, or not for this user
//     missing     there is no such thing, or it is another's
//     refused     with a "message" that says why; with "code" when one of the authenticator is wanted
//     working     a job goes on: "job" names it
//     busy        nothing was done: try again
//     bad         the question cannot be understood
//
// Names of things are paths: "user0/from0/forwardto0".

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "host/terminal/json.h"

namespace tarvex::host {

struct DeskOptions {
    std::string directory;  // of the tree
    std::string program;    // the command `tarvex`, which looks at servers in a process of its own
    std::function<void(const std::string& sentence)> tell;  // for the log; from any thread
    std::function<std::uint64_t()> changes;  // how often the service has changed the tree; from any thread
};

class Desk {
public:
    explicit Desk(DeskOptions options);
    ~Desk();
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    // From any thread, also from several. Throws nothing but std::bad_alloc.
    Json Answer(const Json& question);

    // Gives memory back that the next question will need again: when none has come for a while.
    void Rest();

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace tarvex::host
