// The POP3 conversation, with the replies and listings of a server that says anything: only whole commands are sent,
// and the run is the same however the server's bytes arrive. The first byte chooses the settings; the rest is the
// script.

#include <algorithm>
#include <array>

#include "fuzz/fuzz.h"
#include "fuzz/support/conversation.h"
#include "fuzz/support/scripted_stream.h"
#include "tarvex/tree.h"

using namespace tarvex;

namespace {

struct Outcome {
    int result = 0;
    std::vector<std::string> sent;
    std::vector<std::string> log;
    std::vector<std::string> mails;  // ids and texts
    std::vector<std::string> present;

    bool operator==(const Outcome&) const = default;
};

Outcome Run(std::string_view script, int settings, std::size_t chunk_bytes) {
    CPopProfile profile;
    profile.setting.popserver = "127.0.0.1";
    profile.setting.popuser = "user";
    profile.setting.poppassword = "password";
    profile.setting.deletemail = settings & 1;
    profile.setting.apop = settings >> 1 & 1;
    profile.log.SetLogMode(1);
    CCheckedMail handled;
    handled.Add("handled");
    CCheckedMail present;
    CArray<CReceiveMail*, CReceiveMail*> mails;

    Outcome outcome;
    {
        fuzz::ScriptedServer server(script, chunk_bytes);
        outcome.result = profile.PopProcess(&mails, &handled, &present);
        outcome.sent = server.sent;
    }
    outcome.log = fuzz::Comparable(profile.log);
    for (int i = 0; i < present.GetSize(); ++i) outcome.present.push_back(present.GetAt(i));
    for (const CReceiveMail* mail : mails) {
        fuzz::Require(mail->text.starts_with("\r\n") && mail->text.ends_with("\r\n.\r\n"),
                      "a fetched message is whole");
        outcome.mails.push_back(mail->uidl);
        outcome.mails.push_back(mail->text);
        delete mail;
    }
    return outcome;
}

bool IsKnown(const std::string& command) {
    constexpr std::array<std::string_view, 8> kVerbs = {
        "APOP user ", "USER user\r\n", "PASS password\r\n", "UIDL\r\n", "LIST\r\n", "RETR ", "DELE ", "QUIT\r\n"};
    return std::ranges::any_of(kVerbs, [&](std::string_view verb) { return command.starts_with(verb); });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const int settings = input.Choice(4);
    const Outcome outcome = Run(input.Rest(), settings, 100'000);
    fuzz::Require(std::ranges::all_of(outcome.sent, fuzz::IsCommand), "only whole commands are sent");
    fuzz::Require(std::ranges::all_of(outcome.sent, IsKnown), "only known commands are sent");
    fuzz::Require(outcome == Run(input.Rest(), settings, 1), "the same when the bytes drip");
    fuzz::Require(outcome == Run(input.Rest(), settings, 7), "the same in other chunks");
    return 0;
}
