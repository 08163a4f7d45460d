// The interface for C: its operations, and a host that a C compiler has made.

#include "tarvex/tarvex_c.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "loopback/mail_servers.h"
#include "testing/child_process.h"
#include "testing/scripted_server.h"
#include "testing/temp_dir.h"
#include "tests/support/busy_profile.h"
#include "tests/support/forwarding.h"

namespace tarvex::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::StrEq;

struct Close {
    void operator()(tarvex_root* root) const { tarvex_close(root); }
};
using Root = std::unique_ptr<tarvex_root, Close>;

Root Open(const std::string& directory) { return Root(tarvex_open(directory.c_str())); }

TEST(CInterface, OpensADirectoryThatItCreates) {
    const TempDir folder;
    EXPECT_NE(Open(folder / "root"), nullptr);
    EXPECT_TRUE(std::filesystem::is_directory(folder / "root"));
}

TEST(CInterface, SaysWhyARootCannotBeOpened) {
    const TempDir folder;
    EXPECT_EQ(Open(folder / "missing/root"), nullptr);
    EXPECT_THAT(tarvex_last_error(), StrEq("The root directory cannot be opened or created."));
    WriteFile(folder / "file", "");
    EXPECT_EQ(Open(folder / "file"), nullptr);
    EXPECT_THAT(tarvex_last_error(), StrEq("The root is not a directory."));
    EXPECT_EQ(tarvex_open(nullptr), nullptr);
    EXPECT_THAT(tarvex_last_error(), StrEq("The directory is null."));
}

TEST(CInterface, LastErrorIsThatOfTheThread) {
    EXPECT_EQ(tarvex_run(nullptr), -1);
    std::string other = "(unset)";
    std::thread([&other] { other = tarvex_last_error(); }).join();
    EXPECT_EQ(other, "");
    EXPECT_THAT(tarvex_last_error(), StrEq("The root is null."));
}

TEST(CInterface, TextIsConvertedIntoTheCallersBuffer) {
    std::string buffer(8, 'x');
    EXPECT_EQ(tarvex_utf8_from_text("\x82\xA0?\x80", buffer.data(), 8), 5);
    EXPECT_THAT(buffer.c_str(), StrEq("\u3042??"));
    EXPECT_EQ(tarvex_text_from_utf8("\u3042b", buffer.data(), 4), 3);
    EXPECT_THAT(buffer.c_str(), StrEq("\x82\xA0"
                                      "b"));
    EXPECT_EQ(tarvex_utf8_from_text("", buffer.data(), 1), 0);
    EXPECT_THAT(buffer.c_str(), StrEq(""));
}

TEST(CInterface, TargetThatIsTooSmallIsLeftAsItWas) {
    std::string buffer = "xxxx";
    EXPECT_EQ(tarvex_utf8_from_text("\x82\xA0z", buffer.data(), 4), 4);
    EXPECT_EQ(tarvex_text_from_utf8("abc", buffer.data(), 3), 3);
    EXPECT_EQ(buffer, "xxxx");
    EXPECT_EQ(tarvex_utf8_from_text("abc", nullptr, 0), 3);
    EXPECT_EQ(tarvex_text_from_utf8("abc", nullptr, 0), 3);
}

TEST(CInterface, TextThatCannotBeConvertedIsRefused) {
    std::string buffer = "xxxx";
    for (const char* utf8 : {"\u00E9", "\x80"}) {
        EXPECT_EQ(tarvex_text_from_utf8(utf8, buffer.data(), 4), -1);
        EXPECT_THAT(tarvex_last_error(),
                    StrEq("The text is not UTF-8, or has a character that Shift-JIS does not have."));
    }
    for (auto* const convert : {tarvex_text_from_utf8, tarvex_utf8_from_text}) {
        EXPECT_EQ(convert(nullptr, buffer.data(), 4), -1);
        EXPECT_THAT(tarvex_last_error(), StrEq("The text is null."));
    }
    EXPECT_EQ(buffer, "xxxx");
}

TEST(CInterface, OperationsOnANullRootFail) {
    EXPECT_EQ(tarvex_run(nullptr), -1);
    EXPECT_EQ(tarvex_running(nullptr), -1);
    EXPECT_EQ(tarvex_wait(nullptr, 0), -1);
    EXPECT_EQ(tarvex_stop(nullptr), -1);
    EXPECT_EQ(tarvex_start(nullptr, "user0/from0"), -1);
    EXPECT_EQ(tarvex_ended(nullptr), -1);
    EXPECT_EQ(tarvex_ended_run(nullptr, 0), nullptr);
    tarvex_forget(nullptr);
    tarvex_close(nullptr);
}

TEST(CInterface, CountsTheRunsUnderWayAndStopsThem) {
    MailboxServer pop("alice", "secret");
    pop.SetFault([](const std::string& command) { return command == "STAT" || command == "UIDL" ? "stall" : ""; });
    DataTree tree;
    AddAddress(tree.AddProfile(pop.Port(), UnusedPort()), "a@example.net");
    const Root root = Open(tree.Folder() / "root");
    ASSERT_NE(root, nullptr);

    EXPECT_EQ(tarvex_running(root.get()), 0);
    EXPECT_EQ(tarvex_run(root.get()), 1);
    EXPECT_EQ(tarvex_wait(root.get(), 1), 0);
    EXPECT_EQ(tarvex_running(root.get()), 1);
    EXPECT_EQ(tarvex_stop(root.get()), 1);
    EXPECT_EQ(tarvex_running(root.get()), 0);
    ASSERT_EQ(tarvex_ended(root.get()), 1);
    EXPECT_EQ(tarvex_ended_run(root.get(), 0)->ending, TARVEX_MAILBOX_FAILED);
    EXPECT_EQ(tarvex_wait(root.get(), 0), 1);
}

TEST(CInterface, TellsWhatARunDid) {
    MailboxServer pop("alice", "secret");
    for (const char* id : {"u1", "u2", "u3"}) pop.Add(Mail(id));
    pop.SetFault([](const std::string& command) { return command == "RETR 1" ? "-ERR locked" : ""; });
    SinkServer smtp;
    smtp.SetFault([recipients = 0](const std::string& command) mutable {
        return command.starts_with("RCPT") && ++recipients == 2 ? "550 no" : "";
    });
    DataTree tree;
    AddAddress(tree.AddProfile(pop.Port(), smtp.Port()), "a@example.net");
    const Root root = Open(tree.Folder() / "root");
    EXPECT_EQ(tarvex_run(root.get()), 1);
    ASSERT_EQ(tarvex_wait(root.get(), 30'000), 1);
    ASSERT_EQ(tarvex_ended(root.get()), 1);
    EXPECT_EQ(tarvex_ended(root.get()), 1) << "it stays";

    const tarvex_result& run = *tarvex_ended_run(root.get(), 0);
    EXPECT_STREQ(run.profile, "user0/from0");
    EXPECT_EQ(run.ending, TARVEX_DELIVERY_FAILED);
    EXPECT_EQ(run.messages_listed, 3);
    EXPECT_EQ(run.messages_fetched, 2);
    EXPECT_EQ(run.messages_not_fetched, 1);
    EXPECT_EQ(run.messages_delivered, 1);
    EXPECT_EQ(run.copies, 1);
    EXPECT_GT(run.bytes_received, run.bytes_sent);
    EXPECT_EQ(run.mailbox->failure_class, TARVEX_FAILURE_NONE);
    EXPECT_EQ(run.delivery->stage, TARVEX_STAGE_RCPT_TO);
    EXPECT_EQ(run.delivery->failure_class, TARVEX_FAILURE_PERMANENT);
    EXPECT_STREQ(run.delivery->reply, "550 no");
    EXPECT_STREQ(run.delivery->reason, "");
    EXPECT_STREQ(run.delivery->uidl, "u3");
    EXPECT_STREQ(run.delivery->sender, "me@example.org");
    EXPECT_STREQ(run.delivery->recipient, "a@example.net");
    EXPECT_STREQ(run.exception, "");
    EXPECT_EQ(run.lists, TARVEX_SAVED);
    EXPECT_EQ(run.log, TARVEX_SAVED);
    EXPECT_EQ(run.settings, TARVEX_SAVED);
    ASSERT_EQ(run.address_count, 1);
    EXPECT_STREQ(run.addresses[0].path, "user0/from0/forwardto0");
    EXPECT_STREQ(run.addresses[0].address, "a@example.net");
    EXPECT_EQ(run.addresses[0].copies, 1);
    EXPECT_EQ(run.addresses[0].list, TARVEX_SAVED);
    ASSERT_EQ(run.not_fetched_count, 1);
    EXPECT_STREQ(run.not_fetched[0].uidl, "u1");
    EXPECT_STREQ(run.not_fetched[0].reply, "-ERR locked");
    EXPECT_EQ(run.not_fetched[0].failure_class, TARVEX_FAILURE_PERMANENT);

    for (const int index : {-1, 1}) EXPECT_EQ(tarvex_ended_run(root.get(), index), nullptr);
    EXPECT_THAT(tarvex_last_error(), StrEq("There is no such run."));
    tarvex_forget(root.get());
    EXPECT_EQ(tarvex_ended(root.get()), 0);
}

TEST(CInterface, RunForgetsWhatWasToldAndNothingElse) {
    DataTree tree;
    AddAddress(tree.AddProfile(UnusedPort(), UnusedPort()), "a@example.net");
    const Root root = Open(tree.Folder() / "root");
    EXPECT_EQ(tarvex_run(root.get()), 1);
    ASSERT_EQ(tarvex_wait(root.get(), 30'000), 1);
    EXPECT_EQ(tarvex_ended(root.get()), 1);
    tarvex_run(root.get());  // forgets it, and starts another
    ASSERT_EQ(tarvex_wait(root.get(), 30'000), 1);
    tarvex_run(root.get());  // the other has not been told
    ASSERT_EQ(tarvex_wait(root.get(), 30'000), 1);
    EXPECT_EQ(tarvex_ended(root.get()), 2);
    EXPECT_EQ(tarvex_stop(root.get()), 1);
    EXPECT_EQ(tarvex_ended(root.get()), 2);
    EXPECT_EQ(tarvex_ended_run(root.get(), 1)->ending, TARVEX_MAILBOX_FAILED);
}

TEST(CInterface, StartsOneProfileByItsName) {
    SilentServer pop;
    DataTree tree;
    CPopProfile& profile = AddBusyProfile(tree, pop.Port());
    profile.setting.timer = 60;
    profile.setting.lasttime = std::time(nullptr);
    EXPECT_EQ(profile.SaveSetting(), 1);
    const Root root = Open(tree.Folder() / "root");
    EXPECT_EQ(tarvex_run(root.get()), 0) << "it is not due";
    EXPECT_EQ(tarvex_start(root.get(), "user0/from0"), 1);
    EXPECT_EQ(tarvex_start(root.get(), "user0/from0"), 0);
    EXPECT_EQ(tarvex_running(root.get()), 1);
    for (const char* unknown : {"user0/from1", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(tarvex_start(root.get(), unknown), -1);
        EXPECT_THAT(tarvex_last_error(), StrEq("There is no such profile."));
    }
}

// A guard that notes the questions, and has the answers of its members.
struct Asked {
    std::vector<std::string> questions;
    int sending = TARVEX_SEND_AS_ALWAYS;
    int relay_port = 0;  // 0: the profile's own
    std::map<std::string, std::string> not_reached;

    static Asked& Of(void* context) { return *static_cast<Asked*>(context); }
    static void Note(void* context, const tarvex_mail* mail, const std::string& question) {
        Of(context).questions.push_back(question + " " + mail->profile + " " + mail->uidl);
    }
    tarvex_guard Guard() {
        tarvex_guard guard{};
        guard.size = sizeof(guard);
        guard.context = this;
        guard.begins = [](void* c, const char* profile) {
            Of(c).questions.push_back(std::string("begins ") + profile);
            return 1;
        };
        guard.listed = [](void* c, const char*, const tarvex_mail* mails, int count) {
            for (int i = 0; i < count; ++i) Note(c, &mails[i], "listed");
            return 1;
        };
        guard.is_handled = [](void* c, const tarvex_mail* mail, int received) {
            Note(c, mail, "is_handled " + std::to_string(received));
            return received;
        };
        guard.deletes = [](void* c, const tarvex_mail* mail) {
            Note(c, mail, "deletes");
            return 1;
        };
        guard.goes_on_after = [](void* c, const char*, const tarvex_failure* refused) {
            Of(c).questions.push_back(std::string("goes_on_after ") + refused->reply);
            return 1;
        };
        guard.wants_sizes = [](void*, const char*) { return 1; };
        guard.comes_last = [](void* c, const tarvex_mail* mail) {
            Note(c, mail, "comes_last " + std::to_string(mail->size));
            return 0;
        };
        guard.fetches = [](void* c, const tarvex_mail* mail, long long held_bytes) {
            Note(c, mail, "fetches beside " + std::to_string(held_bytes));
            return 1;
        };
        guard.least_bytes_per_minute = [](void*, const char*) { return 1LL; };
        guard.delivers_after = [](void*, const char*, const tarvex_failure*) { return 1; };
        guard.sends = [](void* c, const tarvex_mail* mail, const char* address, int received) {
            Note(c, mail,
                 std::string("sends ") + address + " " + std::to_string(received) + " " +
                     std::to_string(mail->text_bytes == static_cast<long long>(std::strlen(mail->text))));
            return Of(c).sending;
        };
        guard.offers = [](void* c, const tarvex_mail* mail, const char* address) {
            Note(c, mail, std::string("offers ") + address);
            return 1;
        };
        guard.end_of_data_seconds = [](void*, const char*) { return 60; };
        guard.text_mail_header_bytes = [](void*, const char*) { return 0; };
        guard.refused = [](void* c, const tarvex_mail* mail, const char* address, const tarvex_failure* refusal) {
            Note(c, mail, std::string("refused ") + address + " " + refusal->reply);
            return static_cast<int>(TARVEX_HOST_HAS_IT);
        };
        guard.taken = [](void* c, const tarvex_mail* mail, const char* address, const char* reply) {
            Note(c, mail, std::string("taken ") + address + ' ' + reply);
        };
        guard.connects = [](void* c, const char* profile, int protocol, const char*, int, int* is_secured) {
            Of(c).questions.push_back("connects " + std::to_string(protocol) + " " + profile);
            return (*is_secured = 0, -1LL);
        };
        guard.kept = [](void* c, const tarvex_mail* mail, long long* text_bytes) -> const char* {
            const auto kept = Of(c).not_reached.find(mail->uidl);
            if (kept == Of(c).not_reached.end()) return nullptr;
            *text_bytes = static_cast<long long>(kept->second.size());
            return kept->second.data();
        };
        guard.sends_through = [](void* c, const char* profile, tarvex_smtp_account* account) {
            Of(c).questions.push_back(std::string("sends_through ") + profile + " " + account->user);
            if (Of(c).relay_port == 0) return;
            account->port = Of(c).relay_port;
            account->server = "localhost";
        };
        guard.not_reached = [](void* c, const tarvex_mail* mail) {
            Of(c).not_reached[mail->uidl] =
                "\r\n" + std::string(mail->text, static_cast<std::size_t>(mail->text_bytes));
        };
        return guard;
    }
};

// A mailbox with "old", which the address has and the server does not delete, and two new ones; the first is refused.
class CGuard : public ::testing::Test {
protected:
    CGuard() {
        for (const char* id : {"old", "u1", "u2"}) pop.Add(Mail(id));
        pop.SetFault([](const std::string& command) { return command == "DELE 1" ? "-ERR locked" : ""; });
        smtp.SetFault([recipients = 0](const std::string& command) mutable {
            return command.starts_with("RCPT") && ++recipients == 1 ? "550 no" : "";
        });
        CPopProfile& profile = tree.AddProfile(pop.Port(), smtp.Port());
        profile.setting.deletemail = 1;
        EXPECT_EQ(profile.SaveSetting(), 1);
        WriteUidls(AddAddress(profile, "a@example.net"), {"old"});
        root = Open(tree.Folder() / "root");
    }

    const tarvex_result& RunWith(const tarvex_guard& guard) {
        EXPECT_EQ(tarvex_set_guard(root.get(), &guard), 1);
        EXPECT_EQ(tarvex_start(root.get(), "user0/from0"), 1);
        EXPECT_EQ(tarvex_wait(root.get(), 30'000), 1);
        EXPECT_EQ(tarvex_ended(root.get()), 1);
        return *tarvex_ended_run(root.get(), 0);
    }

    MailboxServer pop{"alice", "secret"};
    SinkServer smtp;
    DataTree tree;
    Asked asked;
    Root root;
};

TEST_F(CGuard, IsAskedEveryQuestion) {
    const tarvex_result& run = RunWith(asked.Guard());
    EXPECT_EQ(run.ending, TARVEX_DELIVERED);
    EXPECT_EQ(run.copies_set_aside, 1);
    EXPECT_EQ(run.copies, 1);
    const std::string size = std::to_string(Message("u1").size());
    const std::string held = std::to_string(Message("u1").size() + 5);  // with the line end before it, and its end
    const std::string of = " user0/from0 ";
    const std::string to = "user0/from0/forwardto0";
    EXPECT_THAT(
        asked.questions,
        ElementsAre("begins user0/from0", "connects 0 user0/from0", "listed" + of + "old", "listed" + of + "u1",
                    "listed" + of + "u2", "is_handled 1" + of + "old", "deletes" + of + "old",
                    "is_handled 1" + of + "old", "deletes" + of + "old",  // once more, with the sizes
                    "goes_on_after -ERR locked", "is_handled 0" + of + "u1", "is_handled 0" + of + "u2",
                    "comes_last " + size + of + "u1", "comes_last " + size + of + "u2", "fetches beside 0" + of + "u1",
                    "fetches beside " + held + of + "u2", "sends " + to + " 0 1" + of + "u1",
                    "sends " + to + " 0 1" + of + "u2", "sends_through user0/from0 alice", "connects 1 user0/from0",
                    "offers " + to + of + "u1", "refused " + to + " 550 no" + of + "u1", "offers " + to + of + "u2",
                    "taken " + to + " 250 2.0.0 taken" + of + "u2"));
}

TEST_F(CGuard, AnswerThatIsNoneIsTheDefault) {
    asked.sending = 42;
    EXPECT_EQ(RunWith(asked.Guard()).copies, 1);
}

TEST_F(CGuard, WithoutFunctionsIsTheRunWithoutOne) {
    tarvex_guard guard = asked.Guard();
    guard.size = offsetof(tarvex_guard, begins);
    EXPECT_EQ(RunWith(guard).ending, TARVEX_MAILBOX_FAILED) << "of the message that cannot be deleted";
    EXPECT_TRUE(asked.questions.empty());
}

TEST_F(CGuard, KeepsWhatWasNotReachedForTheNextRun) {
    smtp.SetFault([senders = 0](const std::string& command) mutable {
        return command.starts_with("MAIL") && ++senders == 2 ? "421 enough" : "";
    });
    EXPECT_EQ(RunWith(asked.Guard()).ending, TARVEX_DELIVERY_FAILED);
    tarvex_forget(root.get());
    EXPECT_EQ(RunWith(asked.Guard()).messages_kept, 1);
    EXPECT_EQ(pop.Received("RETR"), 2);
    EXPECT_EQ(Arrived(smtp), (Arrivals{{"u1 -> a@example.net", 1}, {"u2 -> a@example.net", 1}}));
}

TEST_F(CGuard, LeadsThroughAnotherRelay) {
    SinkServer relay;
    asked.relay_port = relay.Port();
    EXPECT_EQ(RunWith(asked.Guard()).copies, 2);
    EXPECT_EQ(Arrived(relay).size(), 2U);
    EXPECT_TRUE(Arrived(smtp).empty());
}

TEST_F(CGuard, CanBeTakenAway) {
    const tarvex_guard guard = asked.Guard();
    EXPECT_EQ(tarvex_set_guard(root.get(), &guard), 1);
    EXPECT_EQ(tarvex_set_guard(root.get(), nullptr), 1);
    EXPECT_EQ(tarvex_set_guard(nullptr, &guard), -1);
    EXPECT_EQ(tarvex_start(root.get(), "user0/from0"), 1);
    EXPECT_EQ(tarvex_wait(root.get(), 30'000), 1);
    EXPECT_TRUE(asked.questions.empty());
}

TEST(CInterface, TellsTheIntervalOfATimer) { EXPECT_EQ(tarvex_interval_seconds(1440), 172'800); }

TEST(CInterface, HostInCForwardsTheMail) {
    MailboxServer pop("alice", "secret");
    pop.Add(Mail("u1"));
    SinkServer smtp;
    DataTree tree;
    AddAddress(tree.AddProfile(pop.Port(), smtp.Port()), "a@example.net");

    ChildProcess host({TARVEX_C_HOST, tree.Folder() / "root"});
    host.Wait();
    EXPECT_EQ(host.ExitCode(), 0);
    EXPECT_EQ(host.Printed(), "started 1\nfinished 1\nuser0/from0 ended 5, delivered 1, \nrunning 0\nstopped 1\n");
    EXPECT_EQ(Arrived(smtp), (Arrivals{{"u1 -> a@example.net", 1}}));
}

TEST(CInterface, HostThatForgetsARunUnderWayEnds) {
    SilentServer pop;
    DataTree tree;
    AddBusyProfile(tree, pop.Port());
    const std::vector<std::string> words = {TARVEX_C_HOST, tree.Folder() / "root", "300"};
    ChildProcess host(words, ChildProcess::Output::Pipe, {"ASAN_OPTIONS=detect_leaks=0"});  // what it forgets leaks
    host.Wait();
    EXPECT_EQ(host.ExitCode(), 0) << host.Errors();
    EXPECT_EQ(host.Printed(), "started 1\nfinished 0\n");
}

TEST(CInterface, HostInCIsToldWhyThereIsNoRoot) {
    ChildProcess host({TARVEX_C_HOST});
    host.Wait();
    EXPECT_EQ(host.ExitCode(), 1);
    EXPECT_EQ(host.Errors(), "The directory is null.\n");
}

}  // namespace
}  // namespace tarvex::testing
