// Forwards mailboxes of Dovecot to smtp-sink with tarvex and with other programs, in turn, and prints what each needed.
//
//   cold    nothing is remembered, every message goes
//   repeat  the same again: nothing is new, no message goes
//
// Every run is checked: the sink must have taken exactly the messages that were to go. A run during which something
// else used the machine is done again; when that does not help, its line says so. The figures are medians over the
// rounds.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <initializer_list>
#include <iostream>
#include <map>
#include <string_view>

#include "bench/mailutils_server.h"
#include "bench/measure.h"
#include "bench/peers.h"

namespace tarvex::bench {
namespace {

using testing::Login;
using testing::MakeOrdinaryMails;
using testing::PopServer;
using testing::SmtpSink;

const Login kSmall{"small", "secret"};
const Login kLarge{"large", "secret"};
const Login kMany{"many", "secret"};

// How long to wait for a quiet machine and to repeat disturbed runs, all together.
constexpr double kPatience_s = 60;
constexpr int kMaxTries = 5;

struct Rounds {
    int usual;
    int of_those_that_wait;  // 40 ms a message
    int of_repeats;
};
constexpr Rounds kFull{7, 2, 9};
constexpr Rounds kQuick{3, 1, 3};

// The measured runs of one program.
struct Series {
    std::vector<Measurement> runs;

    template <class Value>
    double Middle(Value Measurement::*value) const {
        std::vector<double> values;
        for (const Measurement& run : runs) values.push_back(run.*value);
        return Median(values);
    }
    double Wall_s() const { return Middle(&Measurement::wall_s); }
    double Cpu_s() const { return Middle(&Measurement::cpu_s); }
    int Disturbed() const {
        return static_cast<int>(
            std::count_if(runs.begin(), runs.end(), [](const Measurement& run) { return run.Disturbed(); }));
    }
};

using Results = std::map<std::string, Series>;

class Bench {
public:
    explicit Bench(const Rounds& rounds) : rounds_(rounds), pop_({kSmall, kLarge, kMany}), lmtp_({"-L"}) {
        pop_.Deliver(kSmall, MakeOrdinaryMails(1000, 4096));
        pop_.Deliver(kLarge, MakeOrdinaryMails(200, std::size_t{200} * 1024));
        pop_.Deliver(kMany, MakeOrdinaryMails(10'000, 1024));
    }

    void Run() {
        const Results small = Cold(TaskFor(kSmall, 1000), "1,000 messages of 4 KB");
        const Results large = Cold(TaskFor(kLarge, 200), "200 messages of 200 KB");
        const Results many = Repeat(TaskFor(kMany, 10'000), "nothing new among 10,000 messages");
        const Results waiting = FromMailutils();
        std::printf("\nAims, as ratios within this run\n");
        Aim("1,000 x 4 KB: wall time, to fetchmail with TCP_NODELAY",
            small.at("tarvex").Wall_s() / small.at("fetchmail, TCP_NODELAY").Wall_s(), 0.55);
        Aim("1,000 x 4 KB: CPU time, to fetchmail as it comes",
            small.at("tarvex").Cpu_s() / small.at("fetchmail").Cpu_s(), 0.17);
        Aim("200 x 200 KB: wall time, to fdm", large.at("tarvex").Wall_s() / large.at("fdm").Wall_s(), 0.7);
        Aim("200 x 200 KB: CPU time, to fdm", large.at("tarvex").Cpu_s() / large.at("fdm").Cpu_s(), 0.4);
        Aim("nothing new among 10,000: wall time, to fdm", many.at("tarvex").Wall_s() / many.at("fdm").Wall_s(), 0.8);
        AimOfRules("1,000 x 4 KB", small);
        AimOfRules("200 x 200 KB", large);
        AimOfRules("nothing new among 10,000", many);
        if (waiting.empty()) return;
        Aim("300 x 4 KB from mailutils: wall time, to fdm", waiting.at("tarvex").Wall_s() / waiting.at("fdm").Wall_s(),
            0.2);
    }

private:
    Task TaskFor(const Login& mailbox, int messages) const {
        return {mailbox, messages, pop_.Port(), sink_.Port(), lmtp_.Port()};
    }

    int Taken() const { return sink_.Messages() + lmtp_.Messages(); }

    // Every program in each round, so that a slow quarter of an hour of the machine hits all of them.
    Results Cold(const Task& task, const std::string& title) {
        const TarvexPeer tarvex;
        const TarvexPeer with_rules(TarvexPeer::Rules::With);
        const FetchmailPeer fetchmail(FetchmailPeer::Delay::AsItComes);
        const FetchmailPeer fetchmail_no_delay(FetchmailPeer::Delay::None);
        const FdmPeer fdm;
        const GetmailPeer getmail;
        ColdRun(tarvex, task);  // warms the server's index and the page cache
        Results results;
        for (int round = 0; round < rounds_.usual; ++round) {
            for (const Peer* peer :
                 std::initializer_list<const Peer*>{&tarvex, &with_rules, &fetchmail_no_delay, &fdm, &getmail}) {
                results[peer->Name()].runs.push_back(Undisturbed([&] { return ColdRun(*peer, task); }));
            }
            if (round < rounds_.of_those_that_wait) {
                results[fetchmail.Name()].runs.push_back(Undisturbed([&] { return ColdRun(fetchmail, task); }));
            }
        }
        Print(title, task.messages, results);
        return results;
    }

    Results Repeat(const Task& task, const std::string& title) {
        const TarvexPeer tarvex;
        const TarvexPeer with_rules(TarvexPeer::Rules::With);
        const FdmPeer fdm;
        const testing::ServerFolder tarvex_folder;
        const testing::ServerFolder rules_folder;
        const testing::ServerFolder fdm_folder;
        for (const testing::ServerFolder* folder : {&tarvex_folder, &rules_folder, &fdm_folder})
            folder->MakeFolder("state");
        tarvex.Prepare(task, Folder(tarvex_folder));
        CheckedRun(tarvex, Folder(tarvex_folder), task.messages, true);
        with_rules.Prepare(task, Folder(rules_folder));
        CheckedRun(with_rules, Folder(rules_folder), task.messages, true);
        FdmPeer::PrepareToRemember(task, Folder(fdm_folder));
        CheckedRun(fdm, Folder(fdm_folder), 0, true);
        fdm.Prepare(task, Folder(fdm_folder));
        Results results;
        for (int round = 0; round < rounds_.of_repeats; ++round) {
            results[tarvex.Name()].runs.push_back(
                Undisturbed([&] { return CheckedRun(tarvex, Folder(tarvex_folder), 0, false); }));
            results[with_rules.Name()].runs.push_back(
                Undisturbed([&] { return CheckedRun(with_rules, Folder(rules_folder), 0, false); }));
            results[fdm.Name()].runs.push_back(
                Undisturbed([&] { return CheckedRun(fdm, Folder(fdm_folder), 0, false); }));
        }
        Print(title, task.messages, results);
        return results;
    }

    // Besides Dovecot, which writes an answer in one piece. Empty where that server cannot run.
    Results FromMailutils() {
        if (const std::string missing = MailutilsServer::Missing(); !missing.empty()) {
            std::printf("\nWithout the server that writes in two pieces: %s\n", missing.c_str());
            return {};
        }
        constexpr int kMessages = 300;
        const MailutilsServer server(MakeOrdinaryMails(kMessages, 4096));
        const Task task = {server.Mailbox(), kMessages, server.Port(), sink_.Port(), lmtp_.Port()};
        const TarvexPeer tarvex;
        const FdmPeer fdm;
        Results results;
        for (int round = 0; round < rounds_.of_those_that_wait; ++round) {
            for (const Peer* peer : {static_cast<const Peer*>(&tarvex), static_cast<const Peer*>(&fdm)}) {
                results[peer->Name()].runs.push_back(ColdRun(*peer, task));
            }
        }
        Print("300 messages of 4 KB from mailutils-pop3d, which writes an answer in two pieces", kMessages, results);
        return results;
    }

    static std::filesystem::path Folder(const testing::ServerFolder& folder) { return folder / "state"; }

    Measurement ColdRun(const Peer& peer, const Task& task) const {
        const testing::ServerFolder folder;
        folder.MakeFolder("state");
        peer.Prepare(task, Folder(folder));
        return CheckedRun(peer, Folder(folder), task.messages, true);
    }

    Measurement CheckedRun(const Peer& peer, const std::filesystem::path& folder, int to_go, bool new_mail) const {
        const int before = Taken();
        const auto output = folder / "output";
        const Measurement measured = Measure(peer.Command(folder), {pop_.Pid(), sink_.Pid(), lmtp_.Pid()}, output);
        const bool complete = testing::WaitUntil([&] { return Taken() - before >= to_go; }, std::chrono::seconds(5));
        if (!complete || Taken() - before != to_go || !peer.Succeeded(measured.status, new_mail)) {
            throw std::runtime_error(peer.Name() + " ended with " + std::to_string(measured.status) + " and sent " +
                                     std::to_string(Taken() - before) + " of " + std::to_string(to_go) +
                                     " messages: " + testing::ReadFile(output));
        }
        return measured;
    }

    template <class RunOnce>
    Measurement Undisturbed(RunOnce&& run_once) {
        patience_s_ -= WaitForIdleMachine(std::min(patience_s_, 5.0));
        Measurement measured = run_once();
        for (int attempt = 1; attempt < kMaxTries && measured.Disturbed() && patience_s_ > 0; ++attempt) {
            patience_s_ -= WaitForIdleMachine(std::min(patience_s_, 5.0)) + measured.wall_s;
            measured = run_once();
        }
        return measured;
    }

    static void Print(const std::string& title, int messages, const Results& results) {
        std::printf("\n%s\n  %-24s %6s %9s %10s %8s %13s %12s\n", title.c_str(), "", "runs", "wall s", "messages/s",
                    "CPU s", "servers CPU s", "other CPU s");
        for (const auto& [name, series] : results) {
            std::printf("  %-24s %6zu %9.3f %10.0f %8.3f %13.2f %12.2f", name.c_str(), series.runs.size(),
                        series.Wall_s(), messages / series.Wall_s(), series.Cpu_s(),
                        series.Middle(&Measurement::servers_cpu_s), series.Middle(&Measurement::other_cpu_s));
            if (series.Disturbed() > 0) std::printf("  (%d disturbed)", series.Disturbed());
            std::printf("\n");
        }
        std::fflush(stdout);
    }

    static void Aim(const char* what, double ratio, double aim) {
        std::printf("  %-60s %.2f   (at most %.2f: %s)\n", what, ratio, aim, ratio <= aim ? "met" : "missed");
    }

    static void AimOfRules(const std::string& task, const Results& results) {
        Aim((task + ": wall time with rules, to without").c_str(),
            results.at("tarvex with rules").Wall_s() / results.at("tarvex").Wall_s(), 1.03);
    }

    Rounds rounds_;
    double patience_s_ = kPatience_s;
    PopServer pop_;
    SmtpSink sink_;
    SmtpSink lmtp_;
};

}  // namespace
}  // namespace tarvex::bench

int main(int argc, char** argv) {
    const bool quick = argc == 2 && std::string_view(argv[1]) == "--quick";
    if (argc > 1 && !quick) {
        std::cerr << "usage: forwarding_speed [--quick]\n";
        return 2;
    }
    try {
        std::printf("From Dovecot to smtp-sink on this machine, medians%s\n", quick ? " of few rounds" : "");
        tarvex::bench::Bench(quick ? tarvex::bench::kQuick : tarvex::bench::kFull).Run();
    } catch (const std::exception& failure) {
        std::cerr << "forwarding_speed: " << failure.what() << "\n";
        return 1;
    }
    return 0;
}
