// What a person decides about mail that counts as sent, when the disk fails or the process is killed: at each call that
// changes the disk, one after the other. Lists and memory hold the old answer or the new one; where there is neither,
// the profile still waits.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "host/held/memory_edit.h"
#include "host/memory/memory.h"
#include "host/system/command_error.h"
#include "testing/temp_dir.h"
#include "tests/host/edit_words.h"
#include "tests/support/posix/system_calls.h"

namespace tarvex::testing {
namespace {

using ::testing::AnyOf;
using Ids = std::vector<CString>;

constexpr const char* kAddresses[] = {"phone@example.net", "office@example.net"};
const Ids kOld = {"id-1", "id-2"};          // on the lists before
const Ids kNow = {"id-1", "id-2", "id-3"};  // with what is in the mailbox

host::EditRequest RequestOf(host::EditKind kind, host::EditVerb verb, const char* name, const Ids& uidls = {}) {
    host::EditRequest request(kind, verb, name);
    request.uidls.assign(uidls.begin(), uidls.end());
    return request;
}

// What is on disk.
struct State {
    Ids lists[2];
    bool waits = false;
    std::optional<host::WaitAnswer> answer;
    bool was_sent[2][2] = {};  // of each address, the messages id-1 and id-2
};

struct Decision {
    const char* name;
    host::EditRequest request;
    std::function<bool(const State&)> is_made;
    std::function<void(const State&)> expect_safe;  // however far it came
};

void PrintTo(const Decision& decision, std::ostream* out) { *out << decision.name; }

const std::vector<Decision> kDecisions = {
    {"accept --send", RequestOf(host::EditKind::Profile, host::EditVerb::Accept, "user0/from0"),
     [](const State& state) { return !state.waits && state.answer == host::WaitAnswer::Send; },
     [](const State& state) {
         EXPECT_TRUE(state.waits || state.answer);
         for (const Ids& list : state.lists) EXPECT_EQ(list, kOld);
     }},
    {"accept --skip", RequestOf(host::EditKind::Profile, host::EditVerb::CatchUp, "user0/from0", kNow),
     [](const State& state) {
         return !state.waits && state.answer == host::WaitAnswer::Skip && state.lists[0] == kNow &&
                state.lists[1] == kNow;
     },
     [](const State& state) {
         EXPECT_TRUE(state.waits || (state.answer == host::WaitAnswer::Skip && state.lists[1] == kNow));
         for (const Ids& list : state.lists) EXPECT_THAT(list, AnyOf(kOld, kNow));
     }},
    {"forward catch-up", RequestOf(host::EditKind::Forward, host::EditVerb::CatchUp, "user0/from0/forwardto1", kNow),
     [](const State& state) { return state.lists[1] == kNow; },
     [](const State& state) {
         EXPECT_EQ(state.lists[0], kOld);
         EXPECT_THAT(state.lists[1], AnyOf(kOld, kNow));
     }},
    {"resend", RequestOf(host::EditKind::Profile, host::EditVerb::Resend, "user0/from0"),
     [](const State& state) {
         return state.lists[0].empty() && state.lists[1].empty() && !state.was_sent[0][0] && !state.was_sent[1][1];
     },
     [](const State& state) {
         for (const int address : {0, 1}) {
             EXPECT_THAT(state.lists[address], AnyOf(kOld, Ids()));
             EXPECT_FALSE(state.lists[address].empty() && state.was_sent[address][0]) << "it would never be resent";
         }
     }},
    {"resend --id", RequestOf(host::EditKind::Forward, host::EditVerb::Resend, "user0/from0/forwardto0", {"id-2"}),
     [](const State& state) { return state.lists[0] == Ids{"id-1"} && !state.was_sent[0][1]; },
     [](const State& state) {
         EXPECT_TRUE(state.was_sent[0][0] && state.was_sent[1][0] && state.was_sent[1][1]);
         EXPECT_THAT(state.lists[0], AnyOf(kOld, Ids{"id-1"}));
         EXPECT_EQ(state.lists[1], kOld);
         EXPECT_FALSE(state.lists[0] != kOld && state.was_sent[0][1]) << "it would never be resent";
     }},
};

class DecidedTree {
public:
    DecidedTree() {
        CRootPath root;
        root.SetRootPath(folder_.String());
        CPopProfile& profile = *root.CreateNewUser("user", "secret", 0)->CreateNewPopProfile("box", "me@example.org");
        for (const char* const address : kAddresses) {
            CForwardAddress& forward = *profile.CreateNewForwardAddress(address, address);
            for (const CString& id : kOld) forward.uidls.push_back(id);
            EXPECT_TRUE(forward.SaveUidlSetting());
        }
        WriteFile(folder_ / "host.def", "[version]\r\n0\r\n\r\n");
        WithMemory([](host::RuleMemory& memory, host::ProfileMemory& of_profile) {
            const std::vector<CString> addresses(std::begin(kAddresses), std::end(kAddresses));
            for (const CString& id : kOld) {
                of_profile.RecordId(id, memory.DigestOf(id), std::time(nullptr));
                of_profile.RecordSent(addresses, memory.DigestOf(id), std::time(nullptr));
            }
            of_profile.Wait("the ids have changed", std::time(nullptr));
        });
    }

    // As a command does it that owns the tree.
    int Make(const host::EditRequest& request, host::Reply& reply) const {
        CRootPath root;
        root.SetRootPath(folder_.String());
        host::RuleMemory memory(folder_.String(), [](const std::string&) {});
        return host::EditWithMemory(root, memory, request, reply);
    }

    State Now() const {
        State state;
        WithMemory([&](host::RuleMemory& memory, host::ProfileMemory& of_profile) {
            state.waits = of_profile.IsWaiting();
            state.answer = of_profile.GivenAnswer();
            for (const int address : {0, 1}) {
                for (const int mail : {0, 1}) {
                    state.was_sent[address][mail] = of_profile.WasSent(
                        kAddresses[address], memory.DigestOf(kOld[static_cast<std::size_t>(mail)]), std::time(nullptr));
                }
            }
        });
        for (const int address : {0, 1}) {
            CForwardAddress list;
            list.SetPath(folder_.String() + "\\user0\\from0\\forwardto" + std::to_string(address));
            EXPECT_EQ(list.LoadUidlSetting(), 1);
            state.lists[address].assign(list.uidls.begin(), list.uidls.end());
        }
        return state;
    }

private:
    template <class Action>
    void WithMemory(const Action& action) const {
        host::RuleMemory memory(folder_.String(), [](const std::string&) {});
        host::ProfileMemory of_profile = memory.Of(folder_.String() + "\\user0\\from0");
        action(memory, of_profile);
    }

    TempDir folder_;
};

class AnswerFaults : public ::testing::TestWithParam<Decision> {
protected:
    // False when the process was killed.
    static bool Survives(const DecidedTree& tree, std::size_t step) {
        const pid_t child = fork();
        if (child == 0) {
            host::Reply reply;
            system_calls = {true, {}, {}, {}, step, nullptr, true};
            _exit(tree.Make(GetParam().request, reply));
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status) || (WIFEXITED(status) && WEXITSTATUS(status) == host::kDone));
        return WIFEXITED(status);
    }
};

class AnswerKills : public AnswerFaults {};

TEST_P(AnswerKills, AfterAKillTheAnswerIsTheOldOneOrTheNewOne) {
    for (std::size_t step = 1;; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        const DecidedTree tree;
        const bool survived = Survives(tree, step);
        const State state = tree.Now();
        GetParam().expect_safe(state);
        if (HasFailure()) return;
        if (!survived) continue;
        EXPECT_TRUE(GetParam().is_made(state));
        EXPECT_GE(step, 3U);
        return;
    }
}

TEST_P(AnswerFaults, AfterAFailureOfTheDiskWhatIsConfirmedIsThere) {
    for (std::size_t failing = 1;; ++failing) {
        SCOPED_TRACE("call " + std::to_string(failing));
        const DecidedTree tree;
        host::Reply reply;
        system_calls = {true, {}, {}, {}, 0, nullptr, true, failing};
        const int code = tree.Make(GetParam().request, reply);
        const std::vector<std::string> calls = std::exchange(system_calls, {}).calls;
        const State state = tree.Now();
        GetParam().expect_safe(state);
        EXPECT_TRUE(code != host::kDone || GetParam().is_made(state)) << calls[failing - 1] << ": " << reply.printed;
        if (HasFailure()) return;
        if (calls.size() >= failing) continue;
        EXPECT_EQ(code, host::kDone) << reply.error;
        EXPECT_GE(failing, 3U);
        return;
    }
}

std::string NameOf(const ::testing::TestParamInfo<Decision>& decision) {
    std::string name = decision.param.name;
    std::erase_if(name, [](char letter) { return letter < 'a' || letter > 'z'; });
    return name;
}

INSTANTIATE_TEST_SUITE_P(, AnswerKills, ::testing::ValuesIn(kDecisions), NameOf);
INSTANTIATE_TEST_SUITE_P(, AnswerFaults, ::testing::ValuesIn(kDecisions), NameOf);

}  // namespace
}  // namespace tarvex::testing
