// What is said to somebody who types a command wrong.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/terminal/typed_word.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

constexpr int kNotFound = 66;

struct Mistake {
    std::vector<std::string> words;
    std::string told;  // the start of it
    int exit_code = kBadUsage;
};

class Mistakes : public ::testing::Test {
protected:
    Mistakes() {
        host_.AddProfile(1, 1, [](CPopProfile& profile) { profile.setting.nickname = "office"; });
        host_.Tell({"init", "--rules"});
    }

    void ExpectAnswers(const std::vector<Mistake>& mistakes) const {
        for (const auto& [words, told, exit_code] : mistakes) {
            ChildProcess command = host_.StartCommand(words);
            command.Wait();
            EXPECT_EQ(command.ExitCode(), exit_code) << told;
            EXPECT_EQ(command.Printed(), "");
            EXPECT_THAT(command.Errors(), StartsWith("tarvex: " + told));
            EXPECT_LT(command.Errors().size(), 300U);
            EXPECT_THAT(command.Errors(), AnyOf(Not(StartsWith("tarvex: tarvex ")), HasSubstr("ee `tarvex ")));
        }
    }

private:
    Host host_;
};

TEST_F(Mistakes, OfCommandsNameTheNearest) {
    ExpectAnswers({
        {{"stauts"}, "tarvex has no command \"stauts\"; did you mean \"status\"? See `tarvex --help`\n"},
        {{"Status"}, "tarvex has no command \"Status\"; did you mean \"status\"?"},
        {{"profile", "sett", "x"}, "tarvex profile has no command \"sett\"; did you mean \"set\"?"},
        {{"profile"}, "tarvex profile wants a command: \"add\", \"list\", \"show\", \"set\" or \"remove\"; see `"},
        {{"profile", "zzzzzz"}, "tarvex profile has no command \"zzzzzz\"; there are \"add\", "},
        {{"set", "office", "--timer", "5"},
         "tarvex has no command \"set\"; did you mean \"settings set\", \"user set\""},
        {{"profiles"}, "tarvex has no command \"profiles\"; did you mean \"profile\"?"},
        {{"add", "profile"}, "\"add\" stands too early; write `tarvex profile add`; see `tarvex profile --help`\n"},
        {{"help"}, "tarvex has no command \"help\"; see `tarvex --help`\n"},
        {{"import", "fetchmail", "f"}, "tarvex import has no command \"fetchmail\"; did you mean \"fetchmailrc\"?"},
        {{"\x1b[31mx"}, "tarvex has no command \"\\x1b[31mx\"; there are \"setup\", \"init\", "},
        {{std::string(400, 'x')}, "tarvex has no command \"" + std::string(57, 'x') + "...\"; there are "},
    });
}

TEST_F(Mistakes, OfOptionsNameTheNearest) {
    ExpectAnswers({
        {{"status", "--jsn"}, "tarvex status has no option \"--jsn\"; did you mean \"--json\"? See `tarvex status "},
        {{"profile", "set", "office", "--poport", "5"},
         "tarvex profile set has no option \"--poport\"; did you mean \"--popport\""},
        {{"profile", "set", "office", "--poport=5"}, "tarvex profile set has no option \"--poport\"; did you mean"},
        {{"profile", "set", "office", "timer", "5"},
         "tarvex profile set takes no more words, so not \"timer\"; did you mean \"--timer\"? See `"},
        {{"run", "office", "--verbos-ish"}, "tarvex run has no option \"--verbos-ish\""},
        {{"init", "--rule"}, "tarvex init has no option \"--rule\"; did you mean \"--rules\"?"},
        {{"user", "remove", "user", "--yess"}, "tarvex user remove has no option \"--yess\"; did you mean \"--yes\"?"},
        {{"status", "--json=maybe"}, "--json takes no value; leave \"=maybe\" out; see `tarvex status --help`\n"},
        {{"profile", "set", "office", "--timer", "5", "--timer", "6"}, "--timer is given more than once; see `tarvex "},
        {{"forward", "add", "office", "a@b.example", "--new-mail-only", "--all-mail"},
         "--new-mail-only and --all-mail exclude each other; give one of them; see `tarvex forward add --help`\n"},
        {{"profile", "set", "office", "--password", "--password-stdin"},
         "--password and --password-stdin exclude each other; give one of them"},
        {{"profile", "set", "office", "--password=secret"}, "--password takes no value: a password is asked for "},
    });
}

TEST_F(Mistakes, OfArgumentsShowTheShortestForm) {
    ExpectAnswers({
        {{"log"}, "tarvex log wants PROFILE; write `tarvex log PROFILE`; see `tarvex log --help`\n"},
        {{"profile", "add", "user", "x@example.org"},
         "tarvex profile add wants --popserver HOST; write `tarvex profile add USER ADDRESS --popserver HOST --popuser "
         "NAME`; see `tarvex profile add --help`\n"},
        {{"forward", "add", "office"}, "tarvex forward add wants ADDRESS; write `tarvex forward add PROFILE ADDRESS`"},
        {{"held", "show", "office"}, "tarvex held show wants ID; write `tarvex held show PROFILE ID`"},
        {{"log", "office", "b"}, "tarvex log takes no more words, so not \"b\"; see `tarvex log --help`\n"},
        {{"backup"}, "tarvex backup wants FILE; write `tarvex backup FILE`"},
        {{"profile", "set", "office", "--timer"}, "--timer wants a value; write --timer MINUTES; see `tarvex profile "},
        {{"accept", "office"}, "say what is to become of the mail in the mailbox: --send "},
        {{"held", "export", "office"}, "several messages need a folder: --to DIR\n"},
    });
}

TEST_F(Mistakes, OfNamesNameTheNearestOrAFew) {
    ExpectAnswers({
        {{"run", "ofice"}, "there is no profile \"ofice\"; did you mean \"office\"?\n", kNotFound},
        {{"profile", "show", "user0/form0"},
         "there is no profile \"user0/form0\"; did you mean \"user0/from0\"?\n",
         kNotFound},
        {{"user", "show", "usr"}, "there is no user \"usr\"; did you mean \"user\"?\n", kNotFound},
        {{"user", "show", "nobody"}, "there is no user \"nobody\"; there are:\n  user0  (user)\n", kNotFound},
        {{"rules", "show", "ofice"}, "there is no user or profile \"ofice\"; did you mean \"office\"?\n", kNotFound},
        {{"forward", "show", "fone"},
         "there is no forwarding address \"fone\"; there are:\n  user0/from0/forwardto0  (",
         kNotFound},
        {{"schedule", "remove", "phone", "3"},
         "there is no term 3; the schedule has no terms (see `tarvex schedule ",
         kNotFound},
        {{"profile", "set", "--all", "--where", "timr=5", "--timer", "7"},
         "there is no key \"timr\"; did you mean \"timer\""},
        {{"profile", "set", "--where", "timer", "--timer", "7"},
         "--where takes KEY=VALUE, such as pop_tls=off, not \"timer\"\n"},
        {{"profile", "set", "--where", "timer=99", "--timer", "7"},
         "no profile has these settings; nothing was changed\n",
         kNotFound},
    });
}

TEST_F(Mistakes, OfValuesSayWhatIsAllowed) {
    const std::string digits(310, '9');
    ExpectAnswers({
        {{"profile", "set", "office", "--timer", "12h"},
         "timer must be always, or a number from 0 to 527040 (minutes), not \"12h\"\n"},
        {{"profile", "set", "office", "--timer", digits},
         "timer must be always, or a number from 0 to 527040 (minutes), not \"" + digits.substr(0, 57) + "...\"\n"},
        {{"profile", "set", "office", "--popport", "99999"},
         "popport must be a number from 1 to 65535 (TCP port), not \"99999\"\n"},
        {{"profile", "set", "office", "--status", "yes"}, "status must be on or off, not \"yes\"\n"},
        {{"profile", "set", "office", "--smtpauth_mode", "crammd5"},
         "smtpauth_mode must be best, plain, login or cram-md5, not \"crammd5\"; did you mean \"cram-md5\"?\n"},
        {{"profile", "set", "office", "--address", "me"},
         "address \"me\" is not a mail address; write it like me@example.org\n"},
        {{"profile", "set", "office", "--popserver", "pop.example.org:995"},
         "popserver \"pop.example.org:995\" is not a host name: leave the port out, and set popport or smtpport\n"},
        {{"log", "office", "-n", "many"}, "--lines must be a number from 0, not \"many\"; see `tarvex log --help`\n"},
        {{"trace", "-n", digits, "x"}, "--count must be a number from 1 to 1000000, not \"999"},
        {{"health", "--max-age", "1h"}, "--max-age must be a number from 1 to 1000000 (minutes), not \"1h\"; see `"},
        {{"held", "drop", "office", "abc"}, "ID must be a number from 0, not \"abc\"; see `tarvex held drop --help`\n"},
        {{"schedule", "add", "phone", "mon-fry", "9:00-17:00"},
         "\"mon-fry 9:00-17:00\" is not a term: it does not begin with days; write it like \"mon-fri 9:00-17:30\""},
        {{"trace", "--since", "yesterday", "x"},
         "\"yesterday\" is not a moment; write now, never or a time like 2026-"},
    });
}

TEST(TypedWord, NearestAreFewAndNear) {
    const std::vector<std::string> words = {"set", "send", "status", "show", "serve", "schedule", "settings"};
    EXPECT_THAT(host::Nearest("sett", words), ElementsAre("set", "settings"));
    EXPECT_THAT(host::Nearest("SHOW", words), ElementsAre("show"));
    EXPECT_THAT(host::Nearest("evres", words), IsEmpty());
    EXPECT_THAT(host::Nearest("stutus", {"office1", "states", "status"}), ElementsAre("status"));
    EXPECT_THAT(host::Nearest(std::string(1'000'000, 's'), words), IsEmpty());
    EXPECT_THAT(host::Nearest("a", {"b", "c", "d", "e", "f", "g"}), ElementsAre("b", "c", "d", "e", "f"));
}

}  // namespace
}  // namespace tarvex::testing
