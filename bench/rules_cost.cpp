// What the rules of a host cost: a mailbox of Dovecot forwarded to smtp-sink without rules and with them, in turn.
//
// Prints the medians of CPU time and wall time. With --instructions it prints what valgrind's callgrind counts in one
// run of each: nothing else on the machine changes that.

#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

#include "bench/measure.h"
#include "bench/peers.h"
#include "tests/real/servers/real_servers.h"

namespace tarvex::bench {
namespace {

using testing::Login;
using testing::MakeOrdinaryMails;
using testing::PopServer;
using testing::ServerFolder;
using testing::SmtpSink;

const Login kSmall{"small", "secret"};
const Login kLarge{"large", "secret"};
const Login kMany{"many", "secret"};
constexpr int kRounds = 15;

struct Cost {
    double wall_s = 0;
    double cpu_s = 0;
    double instructions = 0;
};

class Bench {
public:
    explicit Bench(bool count) : count_(count), pop_({kSmall, kLarge, kMany}) {
        pop_.Deliver(kSmall, MakeOrdinaryMails(1000, 4096));
        pop_.Deliver(kLarge, MakeOrdinaryMails(200, std::size_t{200} * 1024));
        pop_.Deliver(kMany, MakeOrdinaryMails(10'000, 1024));
    }

    void Run() {
        Compare("1,000 x 4 KB", TaskFor(kSmall, 1000), true);
        Compare("200 x 200 KB", TaskFor(kLarge, 200), true);
        Compare("nothing new among 10,000", TaskFor(kMany, 10'000), false);
    }

private:
    Task TaskFor(const Login& mailbox, int messages) const { return {mailbox, messages, pop_.Port(), sink_.Port(), 0}; }

    void Compare(const char* title, const Task& task, bool new_mail) const {
        const TarvexPeer without;
        const TarvexPeer with(TarvexPeer::Rules::With);
        const ServerFolder without_folder;
        const ServerFolder with_folder;
        std::vector<Cost> costs_without;
        std::vector<Cost> costs_with;
        if (!new_mail) {
            Prepare(without, without_folder, task);
            Prepare(with, with_folder, task);
            Measured(without, without_folder, task.messages, false);
            Measured(with, with_folder, task.messages, false);
        }
        for (int round = 0; round < (count_ ? 1 : kRounds); ++round) {
            costs_without.push_back(One(without, without_folder, task, new_mail));
            costs_with.push_back(One(with, with_folder, task, new_mail));
        }
        Tell(title, costs_without, costs_with);
    }

    static void Prepare(const Peer& peer, const ServerFolder& folder, const Task& task) {
        folder.MakeFolder("state");
        peer.Prepare(task, folder / "state");
    }

    // On a new tree, or once more on one that has everything.
    Cost One(const Peer& peer, const ServerFolder& known, const Task& task, bool new_mail) const {
        if (!new_mail) return Measured(peer, known, 0, count_);
        const ServerFolder folder;
        Prepare(peer, folder, task);
        return Measured(peer, folder, task.messages, count_);
    }

    Cost Measured(const Peer& peer, const ServerFolder& folder, int to_go, bool count) const {
        const int before = sink_.Messages();
        Program program = peer.Command(folder / "state");
        const std::string counted = (folder / "counted").string();
        if (count) {
            const std::vector<std::string> tool = {"valgrind", "--tool=callgrind", "--callgrind-out-file=" + counted};
            program.words.insert(program.words.begin(), tool.begin(), tool.end());
        }
        const Measurement measured = Measure(program, {pop_.Pid(), sink_.Pid()}, folder / "output");
        const bool taken =
            testing::WaitUntil([&] { return sink_.Messages() - before == to_go; }, std::chrono::seconds(5));
        if (measured.status != 0 || !taken) {
            throw std::runtime_error(peer.Name() + " failed: " + testing::ReadFile(folder / "output"));
        }
        return {measured.wall_s, measured.cpu_s, count ? Total(counted) : 0};
    }

    static double Total(const std::string& path) {
        constexpr std::string_view kTotals = "totals: ";
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) {
            if (line.starts_with(kTotals)) return std::stod(line.substr(kTotals.size()));
        }
        throw std::runtime_error("callgrind counted nothing");
    }

    static double Middle(const std::vector<Cost>& costs, double Cost::*value) {
        std::vector<double> values;
        for (const Cost& cost : costs) values.push_back(cost.*value);
        return Median(values);
    }

    void Tell(const char* title, const std::vector<Cost>& without, const std::vector<Cost>& with) const {
        const auto tell = [&](const char* what, double Cost::*value, double unit) {
            const double one = Middle(without, value);
            const double other = Middle(with, value);
            std::printf("  %-26s %-18s %10.3f %10.3f   %.3f\n", title, what, one / unit, other / unit, other / one);
        };
        if (count_) {
            tell("M instructions", &Cost::instructions, 1e6);
        } else {
            tell("CPU s", &Cost::cpu_s, 1);
            tell("wall s", &Cost::wall_s, 1);
        }
        std::fflush(stdout);
    }

    const bool count_;
    PopServer pop_;
    SmtpSink sink_;
};

}  // namespace
}  // namespace tarvex::bench

int main(int argc, char** argv) {
    const bool count = argc == 2 && std::string_view(argv[1]) == "--instructions";
    if (argc > 1 && !count) {
        std::cerr << "usage: rules_cost [--instructions]\n";
        return 2;
    }
    try {
        std::printf("  %-26s %-18s %10s %10s   ratio\n", "", "", "without", "with rules");
        tarvex::bench::Bench(count).Run();
    } catch (const std::exception& failure) {
        std::cerr << "rules_cost: " << failure.what() << "\n";
        return 1;
    }
    return 0;
}
