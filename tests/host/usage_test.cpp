// What is said to somebody who types a command wrong.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "host/commands/arguments/usage.h"
#include "tests/support/host_program.h"

namespace tarvex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

TEST(Usage, NamesTheWrongWordAndTheNearestThatThereIs) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> mistakes = {
        {{"stauts"}, "tarvex has no command \"stauts\"; did you mean \"status\"?"},
        {{"profile", "sett", "x"}, "tarvex profile has no command \"sett\"; did you mean \"set\"?"},
        {{"profile"}, "tarvex profile wants one of \"add\", "},
        {{"profile", "zzzzzz"}, "tarvex profile has no command \"zzzzzz\"; there are \"add\", "},
        {{"status", "--jsn"}, "tarvex status has no option \"--jsn\"; did you mean \"--json\"?"},
        {{"profile", "set", "x", "--poport", "5"},
         "tarvex profile set has no option \"--poport\"; did you mean \"--popport\""},
        {{"profile", "set", "x", "--poport=5"}, "tarvex profile set has no option \"--poport\"; did you mean"},
        {{"forward", "add", "x"}, "tarvex forward add wants ADDRESS; "},
        {{"log"}, "tarvex log wants PROFILE; "},
        {{"log", "a", "b"}, "tarvex log takes no more words: \"b\"; "},
        {{"log", "a", "-n", "many"}, "tarvex log: "},
        {{"\x1b[31mx"}, "tarvex has no command \"\\x1b[31mx\"; there are "},
    };
    Host host;
    for (const auto& [words, told] : mistakes) {
        ChildProcess command = host.StartCommand(words);
        command.Wait();
        EXPECT_EQ(command.ExitCode(), kBadUsage) << told;
        EXPECT_EQ(command.Printed(), "");
        EXPECT_THAT(command.Errors(), StartsWith("tarvex: " + told));
        EXPECT_THAT(command.Errors(), HasSubstr(" --help` shows how it is used\n"));
    }
}

TEST(Usage, NearestAreFewAndNear) {
    const std::vector<std::string> words = {"set", "send", "status", "show", "serve", "schedule", "settings"};
    EXPECT_THAT(host::Nearest("sett", words), ElementsAre("set", "settings"));
    EXPECT_THAT(host::Nearest("SHOW", words), ElementsAre("show"));
    EXPECT_THAT(host::Nearest("evres", words), IsEmpty());
    EXPECT_THAT(host::Nearest(std::string(1'000'000, 's'), words), IsEmpty());
    EXPECT_THAT(host::Nearest("a", {"b", "c", "d", "e", "f", "g"}), ElementsAre("b", "c", "d", "e", "f"));
}

}  // namespace
}  // namespace tarvex::testing
