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

using testing::GeneratedMail;
using testing::Login;
using testing::MakeOrdinaryMails;
using testing::PopServer;
using testing::ServerFolder;
using testing::SmtpSink;

const Login kSmall{"small", "secret"};
const Login kLarge{"large", "secret"};
const Login kMany{"many", "secret"};
constexpr std::size_t kRounds = 15;

struct Cost {
    double wall_s = 0;
    double cpu_s = 0;
    double instructions = 0;
};

struct Costs {
    std::vector<Cost> without;
    std::vector<Cost> with;
};

class Bench {
public:
    explicit Bench(bool count) : count_(count), rounds_(count ? 1 : kRounds), pop_({kSmall, kLarge, kMany}) {}

    void Run() {
        CompareNewMail("1,000 x 4 KB", kSmall, MakeOrdinaryMails(1000, 4096));
        CompareNewMail("200 x 200 KB", kLarge, MakeOrdinaryMails(200, std::size_t{200} * 1024));
        CompareNothingNew("nothing new among 10,000", kMany, MakeOrdinaryMails(10'000, 1024));
    }

private:
    // Two trees of one mailbox.
    struct Trees {
        ServerFolder without;
        ServerFolder with;
    };

    // In trees that have forwarded one of the messages before; then in new ones, where the memory is made first.
    void CompareNewMail(const std::string& title, const Login& mailbox, const std::vector<GeneratedMail>& mails) {
        const int count = static_cast<int>(mails.size());
        const std::vector<Trees> known(rounds_);
        pop_.Deliver(mailbox, mails.back());
        Costs ignored;
        for (const Trees& trees : known) {
            Prepare(trees, mailbox);
            Run(trees, 1, ignored);
        }
        pop_.Deliver(mailbox, {mails.begin(), mails.end() - 1});
        Costs costs;
        for (const Trees& trees : known) Run(trees, count - 1, costs);
        Tell(title, costs);

        Costs first_costs;
        for (const Trees& trees : std::vector<Trees>(rounds_)) {
            Prepare(trees, mailbox);
            Run(trees, count, first_costs);
        }
        Tell(title + ", first run", first_costs);
    }

    void CompareNothingNew(const std::string& title, const Login& mailbox, const std::vector<GeneratedMail>& mails) {
        pop_.Deliver(mailbox, mails);
        const Trees trees;
        Prepare(trees, mailbox);
        Costs ignored;
        Run(trees, static_cast<int>(mails.size()), ignored);
        Costs costs;
        for (std::size_t round = 0; round < rounds_; ++round) Run(trees, 0, costs);
        Tell(title, costs);
    }

    void Prepare(const Trees& trees, const Login& mailbox) const {
        const Task task{mailbox, 0, pop_.Port(), sink_.Port(), 0};
        for (const ServerFolder* const folder : {&trees.without, &trees.with}) folder->MakeFolder("state");
        without_.Prepare(task, trees.without / "state");
        with_.Prepare(task, trees.with / "state");
    }

    void Run(const Trees& trees, int to_go, Costs& costs) const {
        costs.without.push_back(Measured(without_, trees.without, to_go));
        costs.with.push_back(Measured(with_, trees.with, to_go));
    }

    Cost Measured(const Peer& peer, const ServerFolder& folder, int to_go) const {
        const int before = sink_.Messages();
        Program program = peer.Command(folder / "state");
        const std::string counted = (folder / "counted").string();
        if (count_) {
            const std::vector<std::string> tool = {"valgrind", "--tool=callgrind", "--callgrind-out-file=" + counted};
            program.words.insert(program.words.begin(), tool.begin(), tool.end());
        }
        const Measurement measured = Measure(program, {pop_.Pid(), sink_.Pid()}, folder / "output");
        const bool taken =
            testing::WaitUntil([&] { return sink_.Messages() - before == to_go; }, std::chrono::seconds(5));
        if (measured.status != 0 || !taken) {
            throw std::runtime_error(peer.Name() + " failed: " + testing::ReadFile(folder / "output"));
        }
        return {measured.wall_s, measured.cpu_s, count_ ? Total(counted) : 0};
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

    void Tell(const std::string& title, const Costs& costs) const {
        const auto tell = [&](const char* what, double Cost::*value, double unit) {
            const double one = Middle(costs.without, value);
            const double other = Middle(costs.with, value);
            std::printf("  %-26s %-18s %10.3f %10.3f   %.3f\n", title.c_str(), what, one / unit, other / unit,
                        other / one);
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
    const std::size_t rounds_;
    const TarvexPeer without_;
    const TarvexPeer with_{TarvexPeer::Rules::With};
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
