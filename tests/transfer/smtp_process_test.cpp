// Delivery: which messages go out how often and in what order, what is said, what is logged, what becomes of them.

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/net/framing.h"
#include "platform/net/sockets.h"
#include "tests/support/conversation.h"

namespace tarvex::testing {
namespace {

constexpr int kUnchanged = -100;  // the default text limit
constexpr int kTextMail = 0;

struct Destination {
    CString address;
    int textonly = kTextMail;
};

struct Message {
    std::string text;
    std::vector<Destination> destinations;
};

struct DeliveryCase {
    std::string name = {};
    std::vector<Message> messages = {};
    std::string script = {};  // behind the server's greeting
    std::string log = {};
    int result = 1;
    std::vector<std::string> wire = {};  // the messages that arrive, as they come
    std::string left = {};               // what stands in the array afterwards, see Describe
    int replaceto = 0;
    int timeout = kAmpleTimeOut_s;
    CString sender = "me@x";
};

struct DeliveryOutcome {
    int result = -1;
    std::string transcript;
    std::string log;
    std::string wire;
    std::string left;
    int destroyed = 0;
};

// Counts how many messages delivery has destroyed.
class CountedMail : public CReceiveMail {
public:
    explicit CountedMail(int& destroyed) : destroyed_(destroyed) {}
    ~CountedMail() override { ++destroyed_; }

private:
    int& destroyed_;
};

// One line for each place of the array: "null", or the text and the destinations.
std::string Describe(const CArray<CReceiveMail*, CReceiveMail*>& mails) {
    std::string lines;
    for (const CReceiveMail* mail : mails) {
        std::string line = "null";
        if (mail) {
            line = mail->text + " ->";
            for (const CForwardAddress* destination : mail->destinations) line += " " + destination->setting.address;
        }
        lines += Visible(line) + "\n";
    }
    return lines;
}

std::string SmtpLog(const std::string& log) { return WithReasons(log, "421 ", "421 "); }

std::string WithGreeting(const std::string& script) { return "S: 220 ready\n" + script; }

DeliveryOutcome Deliver(const DeliveryCase& one) {
    Conversation server(WithGreeting(one.script));
    CPopProfile profile;
    profile.setting.address = one.sender;
    profile.setting.replaceto = one.replaceto;
    profile.log.SetLogMode(1);

    DeliveryOutcome outcome;
    std::vector<std::unique_ptr<CForwardAddress>> addresses;
    CArray<CReceiveMail*, CReceiveMail*> mails;
    for (const Message& message : one.messages) {
        mails.push_back(new CountedMail(outcome.destroyed));
        mails.back()->text = message.text;
        for (const Destination& destination : message.destinations) {
            CForwardAddress* address = addresses.emplace_back(std::make_unique<CForwardAddress>()).get();
            address->setting.address = destination.address;
            address->setting.textonly = destination.textonly;
            mails.back()->destinations.push_back(address);
        }
    }

    auto socket = std::make_unique<CSmtpSocket>();
    socket->SetTimeOut(one.timeout);
    EXPECT_NE(socket->Create(0, 1, nullptr), 0);
    EXPECT_EQ(socket->SmtpConnect("127.0.0.1", server.Port()), "220 ready");
    outcome.result = profile.SmtpProcess(socket.get(), &mails);
    socket.reset();

    outcome.transcript = server.Transcript();
    outcome.wire = Lines(server.Messages());
    outcome.log = LogText(profile.log);
    outcome.left = Describe(mails);
    const int destroyed = outcome.destroyed;
    for (const CReceiveMail* mail : mails) delete mail;
    outcome.destroyed = destroyed;
    return outcome;
}

void CheckAll(const std::vector<DeliveryCase>& cases) {
    RunAll(cases, Deliver, [](const DeliveryCase& one, const DeliveryOutcome& outcome) {
        SCOPED_TRACE(one.name);
        EXPECT_EQ(outcome.transcript, Conversation::Expected(WithGreeting(one.script)));
        EXPECT_EQ(outcome.log, SmtpLog(one.log));
        EXPECT_EQ(outcome.result, one.result);
        EXPECT_EQ(outcome.wire, Lines(one.wire));
        EXPECT_EQ(outcome.left, one.left);
        // Whatever is not left has been destroyed.
        int left = 0;
        for (std::size_t at = one.left.find(" ->"); at != std::string::npos; at = one.left.find(" ->", at + 1)) ++left;
        EXPECT_EQ(outcome.destroyed, static_cast<int>(one.messages.size()) - left);
    });
}

// A message as POP3 delivered it.
const std::string kMail = "\r\nSubject: s\r\nTo: old@x\r\n\r\nbody\r\n..dot\r\n.\r\n";
const std::string kWire = "Subject: s\r\nTo: old@x\r\n\r\nbody\r\n..dot\r\n.\r\n";
// The same before and after the CR LF in front was removed, short.
const std::string kShort = "\r\nx: 1\r\n\r\n.\r\n";
const std::string kShortLeft = R"(x: 1\r\n\r\n.\r\n)";
const std::string kShortWire = "x: 1\r\n\r\n.\r\n";

// One transaction with one recipient.
const std::string kToA = R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<a@x>
S: 250 recipient
C: DATA
S: 354 go
C: (message)
S: 250 taken
)";
const std::string kToALog = R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>
250 recipient
DATA
250 taken
)";
const std::string kToB = Replaced(kToA, "<a@x>", "<b@x>");
const std::string kToBLog = Replaced(kToALog, "<a@x>", "<b@x>");
const std::string kEnd = "C: (closed)\n";
const std::string kQuit = R"(C: QUIT
S: 221 bye
C: (closed)
)";
const std::string kQuitLog = R"(QUIT
SomethingError..Closing Socket
)";

TEST(SmtpProcess, SendsOnceWhatAllDestinationsTakeUnchanged) {
    CheckAll({
        {.name = "nothing to send", .messages = {}, .script = kEnd, .log = ""},

        {.name = "one destination",
         .messages = {{kMail, {{"a@x"}}}},
         .script = kToA + kEnd,
         .log = kToALog,
         .wire = {kWire}},

        {.name = "two destinations",
         .messages = {{kMail, {{"a@x"}, {"b@x"}}}},
         .script = R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<a@x>
S: 250 first
C: RCPT TO:<b@x>
S: 250 second
C: DATA
S: 354 go
C: (message)
S: 250 taken
)" + kEnd,
         .log = R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>
250 first
RCPT TO:<b@x>
250 second
DATA
250 taken
)",
         .wire = {kWire}},

        {.name = "two messages",
         .messages = {{kMail, {{"a@x"}}}, {kShort, {{"b@x"}}}},
         .script = kToA + kToB + kEnd,
         .log = kToALog + kToBLog,
         .wire = {kWire, kShortWire}},

        {.name = "no destination: the message is sent to nobody, and the server's refusal ends the delivery",
         .messages = {{kShort, {}}, {kShort, {{"a@x"}}}},
         .script = R"(C: MAIL FROM:<me@x>
S: 250 sender
C: DATA
S: 503 to whom?
)" + kQuit,
         .log = R"(MAIL FROM: <me@x>
250 sender
DATA
503 to whom?
)" + kQuitLog,
         .result = 0,
         .left = kShortLeft + " ->\n" + kShortLeft + " -> a@x\n"},

        {.name = "no destination, and the server does not mind",
         .messages = {{kShort, {}}},
         .script = R"(C: MAIL FROM:<me@x>
S: 250 sender
C: DATA
S: 354 go
C: (message)
S: 250 taken
)" + kEnd,
         .log = R"(MAIL FROM: <me@x>
250 sender
DATA
250 taken
)",
         .wire = {kShortWire}},
    });
}

TEST(SmtpProcess, SendsOncePerDestinationWhatTheyDoNotTakeAlike) {
    CheckAll({
        {.name = "the default limit",
         .messages = {{kMail, {{"a@x", kUnchanged}, {"b@x", kUnchanged}}}},
         .script = kToA + kToB + kEnd,
         .log = kToALog + kToBLog,
         .wire = {kWire, kWire}},

        {.name = "any negative limit",
         .messages = {{kMail, {{"a@x", -1}}}},
         .script = kToA + kEnd,
         .log = kToALog,
         .wire = {kWire}},

        {.name = "the To field",
         .messages = {{kMail, {{"a@x", kUnchanged}, {"b@x", -1}}}},
         .script = kToA + kToB + kEnd,
         .log = kToALog + kToBLog,
         .wire = {"Subject: s\r\nTo: a@x\r\n\r\nbody\r\n..dot\r\n.\r\n",
                  "Subject: s\r\nTo: b@x\r\n\r\nbody\r\n..dot\r\n.\r\n"},
         .replaceto = 1},

        {.name = "the To field becomes the plain recipient",
         .messages = {{kMail, {{"Alice (home) < a@x >", kUnchanged}}}},
         .script = kToA + kEnd,
         .log = kToALog,
         .wire = {"Subject: s\r\nTo: a@x\r\n\r\nbody\r\n..dot\r\n.\r\n"},
         .replaceto = -1},

        // A To field that stands only in the body is repeated by its replacement, so the second copy shows that it was
        // made from the first.
        {.name = "each copy is rewritten from the one before",
         .messages = {{"\r\nSubject: s\r\n\r\nTo: old\r\n.\r\n", {{"a@x", kUnchanged}, {"b@x", kUnchanged}}}},
         .script = kToA + kToB + kEnd,
         .log = kToALog + kToBLog,
         .wire = {"Subject: s\r\n\r\nTo: a@x\r\n\r\nTo: old\r\n.\r\n",
                  "Subject: s\r\n\r\nTo: b@x\r\n\r\nTo: a@x\r\n\r\nTo: old\r\n.\r\n"},
         .replaceto = 1},

        {.name = "no destination: nothing is sent and the message is destroyed",
         .messages = {{kMail, {}}, {kMail, {{"a@x", kUnchanged}}}, {kMail, {}}},
         .script = kToA + kEnd,
         .log = kToALog,
         .wire = {"Subject: s\r\nTo: a@x\r\n\r\nbody\r\n..dot\r\n.\r\n"},
         .replaceto = 1},
    });
}

// What the reduction makes of the text, as it goes over the wire.
std::string ReducedWire(std::string text, int textonly) {
    CPopProfile profile;
    const CForwardAddressSetting defaults;
    const int reduced =
        profile.CutAsTextmail(&text, textonly, defaults.cutwhite, defaults.htmltotext, defaults.compress_words);
    std::string scratch;
    return std::string(FrameData(text, reduced ? DataForm::NotStuffed : DataForm::Fetched, scratch)) + ".\r\n";
}

TEST(SmtpProcess, ReducesACopyForEachDestinationWithALimit) {
    const std::string replaced_a = "Subject: s\r\nTo: a@x\r\n\r\nbody\r\n..dot\r\n.\r\n";
    const std::string replaced_b = "Subject: s\r\nTo: b@x\r\n\r\nbody\r\n..dot\r\n.\r\n";
    CheckAll({
        {.name = "one unchanged, one reduced without a limit",
         .messages = {{kMail, {{"a@x", kUnchanged}, {"b@x", kTextMail}}}},
         .script = kToA + kToB + kEnd,
         .log = kToALog + kToBLog,
         .wire = {kWire, ReducedWire(kWire, kTextMail)}},

        {.name = "the reduced copy leaves the message as it was",
         .messages = {{kMail, {{"b@x", 500}, {"a@x", kUnchanged}}}},
         .script = kToB + kToA + kEnd,
         .log = kToBLog + kToALog,
         .wire = {ReducedWire(kWire, 500), kWire}},

        {.name = "two limits",
         .messages = {{kMail, {{"a@x", 400}, {"b@x", 500}}}},
         .script = kToA + kToB + kEnd,
         .log = kToALog + kToBLog,
         .wire = {ReducedWire(kWire, 400), ReducedWire(kWire, 500)}},

        {.name = "one without limits: together with another it goes out once, and unreduced",
         .messages = {{kMail, {{"a@x", kTextMail}}}},
         .script = kToA + kEnd,
         .log = kToALog,
         .wire = {kWire}},

        {.name = "what cannot be reduced, for want of a blank line, goes as it was fetched",
         .messages = {{"\r\nSubject: s\r\n..dot\r\n...\r\n.\r\n", {{"a@x", 5}}}},
         .script = kToA + kEnd,
         .log = kToALog,
         .wire = {"Subject: s\r\n..dot\r\n...\r\n.\r\n"}},

        {.name = "the To field is rewritten before the reduction",
         .messages = {{kMail, {{"a@x", kTextMail}, {"b@x", kUnchanged}}}},
         .script = kToA + kToB + kEnd,
         .log = kToALog + kToBLog,
         .wire = {ReducedWire(replaced_a, kTextMail), replaced_b},
         .replaceto = 1},
    });
}

TEST(SmtpProcess, SendsTheBatchBeforeTheRest) {
    const auto mail = [](const std::string& name) { return "\r\n" + name + ": 1\r\n\r\n.\r\n"; };
    const auto wire = [](const std::string& name) { return name + ": 1\r\n\r\n.\r\n"; };
    CheckAll({{.name = "",
               .messages = {{mail("single1"), {{"a@x", kUnchanged}}},
                            {mail("batch1"), {{"b@x"}}},
                            {mail("single2"), {{"b@x"}, {"a@x", 300}}},
                            {mail("batch2"), {{"a@x"}}}},
               .script = kToB + kToA + kToA + kToB + kToA + kEnd,
               .log = kToBLog + kToALog + kToALog + kToBLog + kToALog,
               .wire = {wire("batch1"), wire("batch2"), wire("single1"), ReducedWire(wire("single2"), kTextMail),
                        ReducedWire(wire("single2"), 300)}}});
}

TEST(SmtpProcess, RemovesTheLineEndsInFrontOfTheMessage) {
    const auto sent_as = [](const std::string& text, const std::string& wire) {
        return DeliveryCase{.name = Visible(text),
                            .messages = {{text, {{"a@x"}}}},
                            .script = kToA + kEnd,
                            .log = kToALog,
                            .wire = {wire}};
    };
    CheckAll({
        sent_as("\r\n\r\nReceived: r\r\n\r\n.\r\n", "Received: r\r\n\r\n.\r\n"),
        sent_as("\r\n\r\n\r\n\r\n\r\nx\r\n.\r\n", "x\r\n.\r\n"),
        sent_as("x: 1\r\n\r\n\r\ny\r\n.\r\n", "x: 1\r\n\r\n\r\ny\r\n.\r\n"),
        sent_as("\r\n x\r\n.\r\n", " x\r\n.\r\n"),
        sent_as("\r\n.\r\n", ".\r\n"),
        sent_as("\r\n\r\n", ".\r\n"),
        sent_as("", ".\r\n"),
    });
}

TEST(SmtpProcess, MakesTheEnvelopeOfTheProfileAndTheDestination) {
    const auto addressed = [](const CString& address, const std::string& recipient, const CString& sender = "me@x",
                              int textonly = kTextMail) {
        return DeliveryCase{.name = address + " from " + sender,
                            .messages = {{kShort, {{address, textonly}}}},
                            .script = Replaced(Replaced(kToA, "<a@x>", recipient), "<me@x>", "<" + sender + ">") + kEnd,
                            .log = Replaced(Replaced(kToALog, "<a@x>", recipient), "<me@x>", "<" + sender + ">"),
                            .wire = {kShortWire},
                            .sender = sender};
    };
    CheckAll({
        addressed("Alice Doe (at home) < a@x >", "<a@x>"),
        addressed("Alice Doe (at home) < a@x >", "<a@x>", "me@x", kUnchanged),
        addressed("a@x (Alice)", "<a@x>"),
        addressed("a@x (Alice)", "<a@x>", "me@x", kUnchanged),
        addressed("", "<>"),
        addressed("a@x", "<a@x>", ""),
        addressed("a@x", "<a@x>", "Me <me@x>"),
    });
}

// What would smuggle a command of its own past the conversation is never sent; the socket answers for the server.
TEST(SmtpProcess, SendsNoAddressThatHoldsALineEnd) {
    CheckAll({
        {.name = "recipient",
         .messages = {{kShort, {{"a@x>\r\nDATA"}}}},
         .script = R"(C: MAIL FROM:<me@x>
S: 250 sender
)" + kQuit,
         .log = R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>\r\nDATA>
501 an argument with CR, LF or NUL was not sent
)" + kQuitLog,
         .result = 0,
         .left = kShortLeft + R"( -> a@x>\r\nDATA
)"},

        {.name = "sender",
         .messages = {{kShort, {{"a@x"}}}},
         .script = kQuit,
         .log = R"(MAIL FROM: <me@x>\nDATA>
501 an argument with CR, LF or NUL was not sent
)" + kQuitLog,
         .result = 0,
         .left = kShortLeft + " -> a@x\n",
         .sender = "me@x>\nDATA"},
    });
}

TEST(SmtpProcess, QuitsAfterARefusal) {
    const std::vector<Message> batch = {{kShort, {{"a@x"}}}, {kShort, {{"a@x"}, {"b@x"}}}, {kShort, {{"b@x"}}}};
    const std::string batch_left = "null\n" + kShortLeft + " -> a@x b@x\n" + kShortLeft + " -> b@x\n";
    const std::vector<Message> single = {
        {kShort, {{"a@x", -1}}}, {kShort, {{"a@x", -1}, {"b@x", -1}}}, {kShort, {{"b@x", -1}}}};
    CheckAll({
        {.name = "MAIL FROM, batch",
         .messages = batch,
         .script = kToA + R"(C: MAIL FROM:<me@x>
S: 550 not you
)" + kQuit,
         .log = kToALog + R"(MAIL FROM: <me@x>
550 not you
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire},
         .left = batch_left},

        {.name = "the first RCPT TO, batch",
         .messages = batch,
         .script = kToA + R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<a@x>
S: 450 later
)" + kQuit,
         .log = kToALog + R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>
450 later
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire},
         .left = batch_left},

        {.name = "the second RCPT TO, batch",
         .messages = batch,
         .script = kToA + R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<a@x>
S: 250 recipient
C: RCPT TO:<b@x>
S: 550-who
S: 550 is that?
)" + kQuit,
         .log = kToALog + R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>
250 recipient
RCPT TO:<b@x>
550-who\r\n550 is that?
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire},
         .left = batch_left},

        {.name = "RCPT TO, with a success that is not the one",
         .messages = batch,
         .script = kToA + R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<a@x>
S: 251 will forward
)" + kQuit,
         .log = kToALog + R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>
251 will forward
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire},
         .left = batch_left},

        {.name = "DATA, batch",
         .messages = batch,
         .script = kToA + R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<a@x>
S: 250 recipient
C: RCPT TO:<b@x>
S: 250 recipient
C: DATA
S: 554 no
)" + kQuit,
         .log = kToALog + R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>
250 recipient
RCPT TO:<b@x>
250 recipient
DATA
554 no
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire},
         .left = batch_left},

        {.name = "the message, batch",
         .messages = batch,
         .script = kToA + R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<a@x>
S: 250 recipient
C: RCPT TO:<b@x>
S: 250 recipient
C: DATA
S: 354 go
C: (message)
S: 552 too large
)" + kQuit,
         .log = kToALog + R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>
250 recipient
RCPT TO:<b@x>
250 recipient
DATA
552 too large
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire, kShortWire},
         .left = batch_left},

        {.name = "MAIL FROM of a second copy: the message stays, although its first copy was delivered",
         .messages = single,
         .script = kToA + kToA + R"(C: MAIL FROM:<me@x>
S: 421 closing
)" + kQuit,
         .log = kToALog + kToALog + R"(MAIL FROM: <me@x>
421 closing
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire, kShortWire},
         .left = batch_left},

        {.name = "RCPT TO of a second copy",
         .messages = single,
         .script = kToA + kToA + R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<b@x>
S: 550 no
)" + kQuit,
         .log = kToALog + kToALog + R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<b@x>
550 no
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire, kShortWire},
         .left = batch_left},

        {.name = "DATA of a second copy",
         .messages = single,
         .script = kToA + kToA + R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<b@x>
S: 250 recipient
C: DATA
S: 451 later
)" + kQuit,
         .log = kToALog + kToALog + R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<b@x>
250 recipient
DATA
451 later
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire, kShortWire},
         .left = batch_left},

        {.name = "DATA of a second copy, with a success before anything was sent",
         .messages = single,
         .script = kToA + kToA + R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<b@x>
S: 250 recipient
C: DATA
S: 250 taken, or so I claim
)" + kQuit,
         .log = kToALog + kToALog + R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<b@x>
250 recipient
DATA
554 DATA was answered: 250 taken, or so I claim
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire, kShortWire},
         .left = batch_left},

        {.name = "the message of a second copy",
         .messages = single,
         .script = kToA + kToA + R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<b@x>
S: 250 recipient
C: DATA
S: 354 go
C: (message)
S: 451 disk full
)" + kQuit,
         .log = kToALog + kToALog + R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<b@x>
250 recipient
DATA
451 disk full
)" + kQuitLog,
         .result = 0,
         .wire = {kShortWire, kShortWire, kShortWire},
         .left = batch_left},

        {.name = "the very first command, and the QUIT too",
         .messages = {{kShort, {{"a@x"}}}},
         .script = R"(C: MAIL FROM:<me@x>
S: 550 no
C: QUIT
S: 500 stay
C: (closed)
)",
         .log = R"(MAIL FROM: <me@x>
550 no
)" + kQuitLog,
         .result = 0,
         .left = kShortLeft + " -> a@x\n"},
    });
}

TEST(SmtpProcess, LeavesNullPlacesWhereDeliveredMessagesStoodAfterAFailure) {
    CheckAll({{.name = "of both lists, in the order of the array",
               .messages = {{"\r\nsingle1\r\n.\r\n", {{"a@x", -1}}},
                            {"\r\nbatch1\r\n.\r\n", {{"a@x"}}},
                            {"\r\nsingle2\r\n.\r\n", {{"b@x", -1}}},
                            {"\r\n\r\nsingle3\r\n.\r\n", {{"b@x", -1}, {"a@x"}}}},
               .script = kToA + kToA + R"(C: MAIL FROM:<me@x>
S: 452 enough
)" + kQuit,
               .log = kToALog + kToALog + R"(MAIL FROM: <me@x>
452 enough
)" + kQuitLog,
               .result = 0,
               .wire = {"batch1\r\n.\r\n", "single1\r\n.\r\n"},
               .left = R"(null
null
single2\r\n.\r\n -> b@x
single3\r\n.\r\n -> b@x a@x
)"}});
}

TEST(SmtpProcess, RewritesTheToFieldOnlyOfWhatIsAboutToBeSent) {
    const std::string old_left = R"(To: 1\r\nFrom: 2\r\n\r\n.\r\n -> a@x
)";
    CheckAll({
        {.name = "the recipient is refused: not rewritten",
         .messages = {{"\r\nFrom: 2\r\nTo: 1\r\n\r\n.\r\n", {{"a@x", -1}}}},
         .script = R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<a@x>
S: 550 no
)" + kQuit,
         .log = R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>
550 no
)" + kQuitLog,
         .result = 0,
         .left = R"(From: 2\r\nTo: 1\r\n\r\n.\r\n -> a@x
)",
         .replaceto = 1},

        {.name = "the message is refused: rewritten",
         .messages = {{"\r\nFrom: 2\r\nTo: 1\r\n\r\n.\r\n", {{"a@x", -1}}}},
         .script = R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<a@x>
S: 250 recipient
C: DATA
S: 554 no
)" + kQuit,
         .log = R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>
250 recipient
DATA
554 no
)" + kQuitLog,
         .result = 0,
         .left = R"(From: 2\r\nTo: a@x\r\n\r\n.\r\n -> a@x
)",
         .replaceto = 1},

        {.name = "the CR LF in front has gone by then, so a To field on the first line stays",
         .messages = {{"\r\nTo: 1\r\nFrom: 2\r\n\r\n.\r\n", {{"a@x", -1}}}},
         .script = R"(C: MAIL FROM:<me@x>
S: 250 sender
C: RCPT TO:<a@x>
S: 250 recipient
C: DATA
S: 554 no
)" + kQuit,
         .log = R"(MAIL FROM: <me@x>
250 sender
RCPT TO:<a@x>
250 recipient
DATA
554 no
)" + kQuitLog,
         .result = 0,
         .left = old_left,
         .replaceto = 1},
    });
}

// What is said and logged up to the point at which the server fails, in both lists.
struct Step {
    std::string name = {};
    std::string script = {};
    std::string log = {};
    std::vector<std::string> wire = {};
};

std::vector<Step> Steps() {
    return {
        {.name = "MAIL FROM", .script = "C: MAIL FROM:<me@x>\n", .log = "MAIL FROM: <me@x>\n"},
        {.name = "RCPT TO",
         .script = "C: MAIL FROM:<me@x>\nS: 250 sender\nC: RCPT TO:<a@x>\n",
         .log = "MAIL FROM: <me@x>\n250 sender\nRCPT TO:<a@x>\n"},
        {.name = "DATA",
         .script = "C: MAIL FROM:<me@x>\nS: 250 sender\nC: RCPT TO:<a@x>\nS: 250 recipient\nC: DATA\n",
         .log = "MAIL FROM: <me@x>\n250 sender\nRCPT TO:<a@x>\n250 recipient\nDATA\n"},
        {.name = "the message",
         .script = "C: MAIL FROM:<me@x>\nS: 250 sender\nC: RCPT TO:<a@x>\nS: 250 recipient\nC: DATA\nS: 354 go\n"
                   "C: (message)\n",
         .log = "MAIL FROM: <me@x>\n250 sender\nRCPT TO:<a@x>\n250 recipient\nDATA\n",
         .wire = {kShortWire}},
    };
}

std::vector<DeliveryCase> EndingWith(const std::string& what, const std::string& script, const std::string& log) {
    std::vector<DeliveryCase> cases;
    for (const Step& step : Steps()) {
        for (const int textonly : {kTextMail, kUnchanged}) {
            cases.push_back({.name = step.name + ", " + what + (textonly == kTextMail ? ", batch" : ", single"),
                             .messages = {{kShort, {{"a@x", textonly}}}},
                             .script = step.script + script,
                             .log = step.log + log,
                             .result = 0,
                             .wire = step.wire,
                             .left = kShortLeft + " -> a@x\n"});
        }
    }
    return cases;
}

TEST(SmtpProcess, EndsWithoutQuitWhenTheServerStalls) {
    std::vector<DeliveryCase> cases = EndingWith("stalled", kEnd, "{timeout}\nTimeoutError..Closing Socket\n");
    for (DeliveryCase& one : cases) one.timeout = kStallTimeOut_s;
    CheckAll(cases);
}

// The socket answers for the server that has gone, QUIT included, so a QUIT is logged that is never sent.
TEST(SmtpProcess, EndsWhenTheServerGoes) {
    CheckAll(EndingWith("closed", "S: (closed)\nC: (closed)\n", "{closed}\n" + kQuitLog));
    CheckAll(EndingWith("reset", "S: (reset)\n", "{reset}\n" + kQuitLog));
}

TEST(SmtpProcess, LogsTheSameLineWhateverBecomesOfTheQuit) {
    const auto quit_answered = [](const std::string& name, const std::string& answer) {
        return DeliveryCase{.name = name,
                            .messages = {{kShort, {{"a@x"}}}},
                            .script = "C: MAIL FROM:<me@x>\nS: 550 no\nC: QUIT\n" + answer,
                            .log = "MAIL FROM: <me@x>\n550 no\nQUIT\nSomethingError..Closing Socket\n",
                            .result = 0,
                            .left = kShortLeft + " -> a@x\n",
                            .timeout = kStallTimeOut_s};
    };
    CheckAll({
        quit_answered("accepted", "S: 221 bye\nC: (closed)\n"),
        quit_answered("refused", "S: 500 stay\nC: (closed)\n"),
        quit_answered("stalled", "C: (closed)\n"),
        quit_answered("closed", "S: (closed)\nC: (closed)\n"),
    });
}

TEST(SmtpProcess, LeavesTheConnectionOpenAfterSuccess) {
    const std::string script = WithGreeting(kToA + "C: NOOP\nS: 250 alive\nC: (closed)\n");
    Conversation server(script);
    CPopProfile profile;
    profile.setting.address = "me@x";
    CForwardAddress address;
    address.setting.address = "a@x";
    CArray<CReceiveMail*, CReceiveMail*> mails = {new CReceiveMail};
    mails[0]->text = kShort;
    mails[0]->destinations.push_back(&address);
    {
        CSmtpSocket socket;
        socket.SetTimeOut(kAmpleTimeOut_s);
        ASSERT_NE(socket.Create(0, 1, nullptr), 0);
        ASSERT_EQ(socket.SmtpConnect("127.0.0.1", server.Port()), "220 ready");
        EXPECT_EQ(profile.SmtpProcess(&socket, &mails), 1);
        EXPECT_EQ(socket.SendCommand("NOOP\r\n"), "250 alive");
    }
    EXPECT_EQ(server.Transcript(), Conversation::Expected(script));
    EXPECT_TRUE(mails.empty());
    EXPECT_TRUE(profile.log.entries.empty());  // the log is off
}

}  // namespace
}  // namespace tarvex::testing
