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
    std::string log = {};     // where it is not what the script implies
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

const std::string kQuitLog = "QUIT\nSomethingError..Closing Socket\n";

// The log of what the script says: each command and its answer, but of QUIT always the same.
std::string ImpliedLog(const std::string& script) {
    std::string log;
    for (const auto& [command, reply] : Exchanges(script)) {
        if (command == "QUIT") {
            log += kQuitLog;
            continue;
        }
        if (command.starts_with("MAIL"))
            log += Replaced(command, "FROM:", "FROM: ") + "\n";
        else if (!command.empty() && command != "(message)")
            log += command + "\n";
        if (!reply.empty() && !reply.starts_with("354 ")) log += reply + "\n";
    }
    return log;
}

void CheckAll(const std::vector<DeliveryCase>& cases) {
    RunAll(cases, Deliver, [](const DeliveryCase& one, const DeliveryOutcome& outcome) {
        SCOPED_TRACE(one.name);
        EXPECT_EQ(outcome.transcript, Conversation::Expected(WithGreeting(one.script)));
        EXPECT_EQ(outcome.log, SmtpLog(one.log.empty() ? ImpliedLog(one.script) : one.log));
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

// One transaction with one recipient, step by step, each up to the command that is to be answered.
const std::string kSender = "C: MAIL FROM:<me@x>\n";
const std::string kRecipient = kSender + "S: 250 sender\nC: RCPT TO:<a@x>\n";
const std::string kData = kRecipient + "S: 250 recipient\nC: DATA\n";
const std::string kGo = "S: 354 go\nC: (message)\n";
const std::string kToA = kData + kGo + "S: 250 taken\n";
const std::string kToB = Replaced(kToA, "<a@x>", "<b@x>");
const std::string kEnd = "C: (closed)\n";
const std::string kQuit = "C: QUIT\nS: 221 bye\nC: (closed)\n";

TEST(SmtpProcess, SendsOnceWhatAllDestinationsTakeUnchanged) {
    CheckAll({
        {.name = "nothing to send", .messages = {}, .script = kEnd},

        {.name = "one destination", .messages = {{kMail, {{"a@x"}}}}, .script = kToA + kEnd, .wire = {kWire}},

        {.name = "two destinations",
         .messages = {{kMail, {{"a@x"}, {"b@x"}}}},
         .script = kRecipient + R"(S: 250 first
C: RCPT TO:<b@x>
S: 250 second
C: DATA
S: 354 go
C: (message)
S: 250 taken
)" + kEnd,
         .wire = {kWire}},

        {.name = "two messages",
         .messages = {{kMail, {{"a@x"}}}, {kShort, {{"b@x"}}}},
         .script = kToA + kToB + kEnd,
         .wire = {kWire, kShortWire}},

        {.name = "no destination: the message is sent to nobody, and the server's refusal ends the delivery",
         .messages = {{kShort, {}}, {kShort, {{"a@x"}}}},
         .script = kSender + R"(S: 250 sender
C: DATA
S: 503 to whom?
)" + kQuit,
         .result = 0,
         .left = kShortLeft + " ->\n" + kShortLeft + " -> a@x\n"},

        {.name = "no destination, and the server does not mind",
         .messages = {{kShort, {}}},
         .script = kSender + R"(S: 250 sender
C: DATA
S: 354 go
C: (message)
S: 250 taken
)" + kEnd,
         .wire = {kShortWire}},
    });
}

TEST(SmtpProcess, SendsOncePerDestinationWhatTheyDoNotTakeAlike) {
    CheckAll({
        {.name = "the default limit",
         .messages = {{kMail, {{"a@x", kUnchanged}, {"b@x", kUnchanged}}}},
         .script = kToA + kToB + kEnd,
         .wire = {kWire, kWire}},

        {.name = "any negative limit", .messages = {{kMail, {{"a@x", -1}}}}, .script = kToA + kEnd, .wire = {kWire}},

        {.name = "the To field",
         .messages = {{kMail, {{"a@x", kUnchanged}, {"b@x", -1}}}},
         .script = kToA + kToB + kEnd,
         .wire = {"Subject: s\r\nTo: a@x\r\n\r\nbody\r\n..dot\r\n.\r\n",
                  "Subject: s\r\nTo: b@x\r\n\r\nbody\r\n..dot\r\n.\r\n"},
         .replaceto = 1},

        {.name = "the To field becomes the plain recipient",
         .messages = {{kMail, {{"Alice (home) < a@x >", kUnchanged}}}},
         .script = kToA + kEnd,
         .wire = {"Subject: s\r\nTo: a@x\r\n\r\nbody\r\n..dot\r\n.\r\n"},
         .replaceto = -1},

        // A To field that stands only in the body is repeated by its replacement, so the second copy shows that it was
        // made from the first.
        {.name = "each copy is rewritten from the one before",
         .messages = {{"\r\nSubject: s\r\n\r\nTo: old\r\n.\r\n", {{"a@x", kUnchanged}, {"b@x", kUnchanged}}}},
         .script = kToA + kToB + kEnd,
         .wire = {"Subject: s\r\n\r\nTo: a@x\r\n\r\nTo: old\r\n.\r\n",
                  "Subject: s\r\n\r\nTo: b@x\r\n\r\nTo: a@x\r\n\r\nTo: old\r\n.\r\n"},
         .replaceto = 1},

        {.name = "no destination: nothing is sent and the message is destroyed",
         .messages = {{kMail, {}}, {kMail, {{"a@x", kUnchanged}}}, {kMail, {}}},
         .script = kToA + kEnd,
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
    const std::string long_line(999, 'a');
    const std::string head = "Subject: s\r\n\r\n";
    std::string short_lines = long_line;
    for (std::size_t at = 76; at < short_lines.size(); at += 78) short_lines.insert(at, "\r\n");
    const std::string replaced_a = "Subject: s\r\nTo: a@x\r\n\r\nbody\r\n..dot\r\n.\r\n";
    const std::string replaced_b = "Subject: s\r\nTo: b@x\r\n\r\nbody\r\n..dot\r\n.\r\n";
    CheckAll({
        {.name = "one unchanged, one reduced without a limit",
         .messages = {{kMail, {{"a@x", kUnchanged}, {"b@x", kTextMail}}}},
         .script = kToA + kToB + kEnd,
         .wire = {kWire, ReducedWire(kWire, kTextMail)}},

        {.name = "only in a text mail a line that relays would break is broken",
         .messages = {{head + long_line + "\r\n.\r\n", {{"a@x", kUnchanged}, {"b@x", kTextMail}}}},
         .script = kToA + kToB + kEnd,
         .wire = {head + long_line + "\r\n.\r\n", ReducedWire(head + short_lines + "\r\n.\r\n", kTextMail)}},

        {.name = "the reduced copy leaves the message as it was",
         .messages = {{kMail, {{"b@x", 500}, {"a@x", kUnchanged}}}},
         .script = kToB + kToA + kEnd,
         .wire = {ReducedWire(kWire, 500), kWire}},

        {.name = "two limits",
         .messages = {{kMail, {{"a@x", 400}, {"b@x", 500}}}},
         .script = kToA + kToB + kEnd,
         .wire = {ReducedWire(kWire, 400), ReducedWire(kWire, 500)}},

        {.name = "one without limits: together with another it goes out once, and unreduced",
         .messages = {{kMail, {{"a@x", kTextMail}}}},
         .script = kToA + kEnd,
         .wire = {kWire}},

        {.name = "what cannot be reduced, for want of a blank line, goes as it was fetched",
         .messages = {{"\r\nSubject: s\r\n..dot\r\n...\r\n.\r\n", {{"a@x", 5}}}},
         .script = kToA + kEnd,
         .wire = {"Subject: s\r\n..dot\r\n...\r\n.\r\n"}},

        {.name = "the To field is rewritten before the reduction",
         .messages = {{kMail, {{"a@x", kTextMail}, {"b@x", kTextMail}}}},
         .script = kToA + kToB + kEnd,
         .wire = {ReducedWire(replaced_a, kTextMail), ReducedWire(replaced_b, kTextMail)},
         .replaceto = -5},
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
               .wire = {wire("batch1"), wire("batch2"), wire("single1"), ReducedWire(wire("single2"), kTextMail),
                        ReducedWire(wire("single2"), 300)}}});
}

TEST(SmtpProcess, RemovesTheLineEndsInFrontOfTheMessage) {
    const auto sent_as = [](const std::string& text, const std::string& wire) {
        return DeliveryCase{
            .name = Visible(text), .messages = {{text, {{"a@x"}}}}, .script = kToA + kEnd, .wire = {wire}};
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
         .script = kSender + "S: 250 sender\n" + kQuit,
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

TEST(SmtpProcess, JudgesRepliesByTheirFirstThreeCharacters) {
    const std::string empty_log = "MAIL FROM: <me@x>\n250 sender\nRCPT TO:<a@x>\n250 recipient\nDATA\n\n" + kQuitLog;
    CheckAll({
        {.name = "whatever follows them",
         .messages = {{kMail, {{"a@x"}}}},
         .script = R"(C: MAIL FROM:<me@x>
S: 2505 sender
C: RCPT TO:<a@x>
S: 250-recipient
S: 550 or not
C: DATA
S: 354go
C: (message)
S: 250taken
)" + kEnd,
         .log = R"(MAIL FROM: <me@x>
2505 sender
RCPT TO:<a@x>
250-recipient\r\n550 or not
DATA
250taken
)",
         .wire = {kWire}},

        {.name = "an empty answer to DATA is not 354",
         .messages = {{kShort, {{"a@x"}}}},
         .script = Replaced(kToA, "S: 354 go\nC: (message)\nS: 250 taken\n", "S: \n") + kQuit,
         .log = empty_log,
         .result = 0,
         .left = kShortLeft + " -> a@x\n"},

        {.name = "an empty answer to the message is not 250",
         .messages = {{kShort, {{"a@x"}}}},
         .script = Replaced(kToA, "S: 250 taken\n", "S: \n") + kQuit,
         .log = empty_log,
         .result = 0,
         .wire = {kShortWire},
         .left = kShortLeft + " -> a@x\n"},
    });
}

TEST(SmtpProcess, QuitsAfterARefusal) {
    const std::vector<Message> batch = {{kShort, {{"a@x"}}}, {kShort, {{"a@x"}, {"b@x"}}}, {kShort, {{"b@x"}}}};
    const std::vector<Message> single = {
        {kShort, {{"a@x", -1}}}, {kShort, {{"a@x", -1}, {"b@x", -1}}}, {kShort, {{"b@x", -1}}}};
    const std::string second_recipient = kRecipient + "S: 250 recipient\nC: RCPT TO:<b@x>\n";
    const std::string second_data = Replaced(kData, "C: DATA\n", "C: RCPT TO:<b@x>\nS: 250 recipient\nC: DATA\n");
    struct Refusal {
        const char* name;
        std::string said;  // behind the messages before
        std::string reply;
        const std::vector<Message>& messages;
        std::size_t arrived;
    };
    const std::vector<Refusal> refusals = {
        {"MAIL FROM", kSender, "S: 550 not you\n", batch, 1},
        {"the first RCPT TO", kRecipient, "S: 450 later\n", batch, 1},
        {"the second RCPT TO", second_recipient, "S: 550-who\nS: 550 is that?\n", batch, 1},
        {"RCPT TO, with a success that is not the one", kRecipient, "S: 251 will forward\n", batch, 1},
        {"DATA", second_data, "S: 554 no\n", batch, 1},
        {"the message", second_data + kGo, "S: 552 too large\n", batch, 2},
        // A message stays, although its first copy was delivered.
        {"MAIL FROM of a second copy", kToA + kSender, "S: 421 closing\n", single, 2},
        {"RCPT TO of a second copy", kToA + Replaced(kRecipient, "<a@x>", "<b@x>"), "S: 550 no\n", single, 2},
        {"DATA of a second copy", kToA + Replaced(kData, "<a@x>", "<b@x>"), "S: 451 later\n", single, 2},
        {"the message of a second copy", kToA + Replaced(kData, "<a@x>", "<b@x>") + kGo, "S: 451 disk full\n", single,
         3},
    };
    std::vector<DeliveryCase> cases;
    for (const Refusal& refusal : refusals) {
        cases.push_back({.name = refusal.name,
                         .messages = refusal.messages,
                         .script = kToA + refusal.said + refusal.reply + kQuit,
                         .result = 0,
                         .wire = std::vector<std::string>(refusal.arrived, kShortWire),
                         .left = "null\n" + kShortLeft + " -> a@x b@x\n" + kShortLeft + " -> b@x\n"});
    }
    CheckAll(cases);
}

TEST(SmtpProcess, QuitsAfterASuccessOfDataBeforeAnythingWasSent) {
    const std::string script = kData + "S: 250 taken, or so I claim\n" + kQuit;
    CheckAll({{.name = "",
               .messages = {{kShort, {{"a@x"}}}},
               .script = script,
               .log = Replaced(ImpliedLog(script), "250 taken", "554 DATA was answered: 250 taken"),
               .result = 0,
               .left = kShortLeft + " -> a@x\n"}});
}

TEST(SmtpProcess, LeavesNullPlacesWhereDeliveredMessagesStoodAfterAFailure) {
    CheckAll({{.name = "of both lists, in the order of the array",
               .messages = {{"\r\nsingle1\r\n.\r\n", {{"a@x", -1}}},
                            {"\r\nbatch1\r\n.\r\n", {{"a@x"}}},
                            {"\r\nsingle2\r\n.\r\n", {{"b@x", -1}}},
                            {"\r\n\r\nsingle3\r\n.\r\n", {{"b@x", -1}, {"a@x"}}}},
               .script = kToA + kToA + kSender + "S: 452 enough\n" + kQuit,
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
         .script = kRecipient + "S: 550 no\n" + kQuit,
         .result = 0,
         .left = R"(From: 2\r\nTo: 1\r\n\r\n.\r\n -> a@x
)",
         .replaceto = 1},

        {.name = "the message is refused: rewritten",
         .messages = {{"\r\nFrom: 2\r\nTo: 1\r\n\r\n.\r\n", {{"a@x", -1}}}},
         .script = kData + "S: 554 no\n" + kQuit,
         .result = 0,
         .left = R"(From: 2\r\nTo: a@x\r\n\r\n.\r\n -> a@x
)",
         .replaceto = 1},

        {.name = "the CR LF in front has gone by then, so a To field on the first line stays",
         .messages = {{"\r\nTo: 1\r\nFrom: 2\r\n\r\n.\r\n", {{"a@x", -1}}}},
         .script = kData + "S: 554 no\n" + kQuit,
         .result = 0,
         .left = old_left,
         .replaceto = 1},
    });
}

// The server fails in place of each answer, in both lists; `log` is what stands behind the last command then.
std::vector<DeliveryCase> EndingWith(const std::string& what, const std::string& script, const std::string& log) {
    std::vector<DeliveryCase> cases;
    for (const std::string& said : {kSender, kRecipient, kData, kData + kGo}) {
        for (const int textonly : {kTextMail, kUnchanged}) {
            cases.push_back({.name = said + what + (textonly == kTextMail ? ", batch" : ", single"),
                             .messages = {{kShort, {{"a@x", textonly}}}},
                             .script = said + script,
                             .log = ImpliedLog(said) + log,
                             .result = 0,
                             .wire = std::vector<std::string>(said.ends_with(kGo) ? 1 : 0, kShortWire),
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
