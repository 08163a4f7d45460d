// The SMTP conversation with a server that says anything: only whole commands and whole messages are sent, and the run
// is the same however the server's bytes arrive. The first three bytes choose the settings; the rest is the script.

#include <algorithm>
#include <memory>

#include "fuzz/fuzz.h"
#include "fuzz/support/conversation.h"
#include "fuzz/support/scripted_stream.h"
#include "platform/net/sockets.h"
#include "tarvex/tree.h"
#include "tests/support/data_receiver.h"

using namespace tarvex;

namespace {

const CString kMessage = "\r\nSubject: x\r\n\r\n..a\n.\r.b\r\n.\r\n";

struct Settings {
    int authenticate;
    int method;
    int ehlo;
};

struct Outcome {
    int result = -1;
    std::vector<std::string> sent;
    std::vector<std::string> log;

    bool operator==(const Outcome&) const = default;
};

Outcome Run(std::string_view script, const Settings& settings, std::size_t chunk_bytes) {
    CPopProfile profile;
    profile.setting.smtpserver = "127.0.0.1";
    profile.setting.address = "from@example.org";
    profile.setting.popuser = "user";
    profile.setting.poppassword = "password";
    profile.setting.smtpauth = settings.authenticate;
    profile.setting.smtpauth_mode = settings.method;
    profile.setting.esmtp = settings.ehlo;
    profile.log.SetLogMode(1);
    CForwardAddress address;
    address.setting.address = "Somebody <to@example.org>";
    CArray<CReceiveMail*, CReceiveMail*> mails;
    for (int i = 0; i < 2; ++i) {
        auto mail = std::make_unique<CReceiveMail>();
        mail->text = kMessage;
        mail->destinations = {&address};
        mails.push_back(mail.release());
    }

    Outcome outcome;
    {
        fuzz::ScriptedServer server(script, chunk_bytes);
        const std::unique_ptr<CSmtpSocket> socket(profile.CreateSmtpConnection());
        if (socket) outcome.result = profile.SmtpProcess(socket.get(), &mails);
        outcome.sent = server.sent;
    }
    outcome.log = fuzz::Comparable(profile.log);
    for (const CReceiveMail* mail : mails) delete mail;
    return outcome;
}

// Each message follows DATA, and is the one that was to be sent, without the empty line of the fetched text.
void RequireWholeMessages(const std::vector<std::string>& sent) {
    const std::vector<std::string> message = testing::MeantLines(kMessage.substr(2), DataForm::Fetched);
    for (std::size_t i = 0; i < sent.size(); ++i) {
        if (fuzz::IsCommand(sent[i])) continue;
        fuzz::Require(i > 0 && sent[i - 1] == "DATA\r\n", "only whole commands are sent");
        const testing::DataReceiver receiver(sent[i]);
        fuzz::RequireNoFault(receiver.complaint);
        fuzz::Require(receiver.message == message, "the message arrives");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Input input(data, size);
    const Settings settings = {input.Choice(2), input.Choice(4), input.Choice(2)};
    const Outcome outcome = Run(input.Rest(), settings, 100'000);
    RequireWholeMessages(outcome.sent);
    fuzz::Require(outcome == Run(input.Rest(), settings, 1), "the same when the bytes drip");
    fuzz::Require(outcome == Run(input.Rest(), settings, 7), "the same in other chunks");
    return 0;
}
