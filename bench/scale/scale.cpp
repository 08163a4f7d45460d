// What `tarvex serve` takes as trees grow: to start, to load the tree again, for an edit and a status, in memory and
// threads, for runs against servers on loopback, and at rest.
//
//   scale [--rest SECONDS] [--no-rounds] [--folder FOLDER] [SIZE...]
//
// A size is a number of profiles, or of trees and profiles: 10x10000 is ten trees of 10,000, each with a service of its
// own. Unless told: 1000 10000 10x10000 100000. The services rest for 60 seconds, unless told. Without rounds no
// profile is run. The trees are made in the folder, /tmp unless told, and removed. Servers of the bench share the
// processors with the services.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/scale/service_process.h"
#include "bench/scale/tree_maker.h"
#include "loopback/mail_servers.h"
#include "testing/child_process.h"
#include "testing/temp_dir.h"

namespace tarvex::bench {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::ChildProcess;

constexpr int kKnownMessages = 100;
constexpr std::size_t kMailBytes = 4096;
constexpr int kTries = 3;  // of what is quick: the median counts
constexpr double kHour_s = 3600;

struct Size {
    int trees = 1;
    int profiles = 0;  // of each

    int All() const { return trees * profiles; }
    std::string Text() const { return (trees > 1 ? std::to_string(trees) + " x " : "") + std::to_string(profiles); }
};

struct Options {
    std::vector<Size> sizes;
    std::chrono::seconds rest = 60s;
    bool has_rounds = true;
    std::filesystem::path folder = std::filesystem::temp_directory_path();
};

// What is measured of one size, in the order of the table.
using Figures = std::vector<std::pair<std::string, double>>;

double SecondsOf(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - start).count();
}

double MedianSecondsOf(const std::function<void()>& work) {
    std::vector<double> times;
    for (int i = 0; i < kTries; ++i) times.push_back(SecondsOf(work));
    std::ranges::sort(times);
    return times[times.size() / 2];
}

std::string Id(int number) { return "000100024f6a3b5c" + std::to_string(10'000 + number); }

// The mailbox that is everybody's.
struct Servers {
    Servers() {
        for (int i = 0; i < kKnownMessages; ++i) Add(i);
    }
    void Add(int number) {
        mailbox.Add({Id(number), "From: a@example.org\r\nTo: me@example.org\r\nSubject: number " +
                                     std::to_string(number) + "\r\nMessage-ID: <" + std::to_string(number) +
                                     "@example.org>\r\n\r\n" + std::string(kMailBytes, 'x') + "\r\n"});
    }
    int Connections() const { return mailbox.Received("USER") + sink.Received("EHLO"); }

    loopback::MailboxServer mailbox{"user", "secret"};
    loopback::SinkServer sink;
};

// The trees of one size and their services.
class Installation {
public:
    Installation(const Size& size, const std::filesystem::path& folder) : size_(size), folder_(folder) {
        TreeShape shape{size.profiles, servers_.mailbox.Port(), servers_.sink.Port(), {}};
        for (int i = 0; i < kKnownMessages; ++i) shape.known_ids += Id(i) + "\r\n";
        for (int i = 0; i < size.trees; ++i) MakeTree(Root(i), shape);
    }

    void Start() {
        for (int i = 0; i < size_.trees; ++i) services_.push_back(std::make_unique<ServiceProcess>(Root(i)));
        for (const auto& service : services_) service->WaitUntilReady();
    }

    void LoadAgain() { services_.front()->LoadAgain(); }

    // A command about the first tree.
    void Do(std::vector<std::string> words) { Wait(Command(0, std::move(words))); }

    // Every profile once.
    void RunAll() {
        std::vector<std::unique_ptr<ChildProcess>> commands;
        for (int i = 0; i < size_.trees; ++i) commands.push_back(Command(i, {"run", "--now", "--quiet"}));
        for (auto& command : commands) Wait(std::move(command));
    }

    void Rest(std::chrono::seconds time) {
        const auto end = Clock::now() + time;
        services_.front()->WaitUntil([end] { return Clock::now() >= end; });
    }

    template <class Number>
    Number Sum(Number (ServiceProcess::*of)() const) const {
        Number sum = 0;
        for (const auto& service : services_) sum += (*service.*of)();
        return sum;
    }

    DiskUse Disk() const {
        DiskUse sum;
        for (const auto& service : services_) {
            const DiskUse use = service->Disk();
            sum.written_bytes += use.written_bytes;
            sum.syncs += use.syncs;
        }
        return sum;
    }

    void Stop() {
        for (const auto& service : services_) service->Stop();
        services_.clear();
    }

    Servers& MailServers() { return servers_; }

private:
    std::string Root(int tree) const { return folder_ / ("tree" + std::to_string(tree)); }

    std::unique_ptr<ChildProcess> Command(int tree, std::vector<std::string> words) const {
        words.insert(words.begin(), {TARVEX_HOST, "--root", Root(tree)});
        return std::make_unique<ChildProcess>(std::move(words));
    }

    void Wait(std::unique_ptr<ChildProcess> command) {
        services_.front()->WaitUntil([&command] { return command->WaitFor(1ms); });
        if (command->ExitCode() != 0) throw std::runtime_error(command->Errors() + command->Printed());
    }

    const Size size_;
    Servers servers_;
    testing::TempDir folder_;
    std::vector<std::unique_ptr<ServiceProcess>> services_;
};

// What the services took from one moment to another.
class Use {
public:
    explicit Use(Installation& of)
        : of_(of),
          processor_s_(of.Sum(&ServiceProcess::Processor_s)),
          disk_(of.Disk()),
          connections_(of.MailServers().Connections()) {}

    double Processor_s() const { return of_.Sum(&ServiceProcess::Processor_s) - processor_s_; }
    double Connections() const { return of_.MailServers().Connections() - connections_; }
    double Syncs() const { return static_cast<double>(of_.Disk().syncs - disk_.syncs); }
    double Written_kB() const { return static_cast<double>(of_.Disk().written_bytes - disk_.written_bytes) / 1000; }

private:
    Installation& of_;
    double processor_s_;
    DiskUse disk_;
    int connections_;
};

void AddRound(Figures& figures, const std::string& name, Installation& installation, int profiles) {
    const Use use(installation);
    const double seconds = SecondsOf([&] { installation.RunAll(); });
    const double each = 1.0 / profiles;
    figures.insert(figures.end(), {{name + ": s", seconds},
                                   {name + ": runs a second", profiles / seconds},
                                   {name + ": ms of processor time a run", 1000 * use.Processor_s() * each},
                                   {name + ": KB written a run", use.Written_kB() * each},
                                   {name + ": syncs a run", use.Syncs() * each},
                                   {name + ": connections a run", use.Connections() * each}});
}

void AddRest(Figures& figures, Installation& installation, std::chrono::seconds rest) {
    const Use use(installation);
    installation.Rest(rest);
    const double hours = static_cast<double>(rest.count()) / kHour_s;
    figures.insert(figures.end(), {{"at rest: s of processor time an hour", use.Processor_s() / hours},
                                   {"at rest: KB written an hour", use.Written_kB() / hours},
                                   {"at rest: syncs an hour", use.Syncs() / hours}});
}

// Of services that run every profile twice.
void AddRounds(Figures& figures, Installation& installation, const Size& size) {
    installation.Start();
    installation.MailServers().Add(kKnownMessages);
    AddRound(figures, "one message", installation, size.All());
    AddRound(figures, "nothing new", installation, size.All());
    figures.emplace_back("resident after the rounds: MB", installation.Sum(&ServiceProcess::Resident_MB));
    figures.emplace_back("most resident in the rounds: MB", installation.Sum(&ServiceProcess::MostResident_MB));
    figures.emplace_back("stop: s", SecondsOf([&] { installation.Stop(); }));
}

// Of services that have nothing to run.
void AddStandingTree(Figures& figures, Installation& installation, const Size& size, std::chrono::seconds rest) {
    figures.emplace_back("start: s", SecondsOf([&] { installation.Start(); }));
    figures.emplace_back("SIGHUP, of one tree: s", MedianSecondsOf([&] { installation.LoadAgain(); }));
    int number = 0;
    figures.emplace_back("an edit: s", MedianSecondsOf([&] {
                             installation.Do({"profile", "set", NameOf(size.profiles / 2), "--nickname",
                                              "other " + std::to_string(++number)});
                         }));
    figures.emplace_back("status: s", MedianSecondsOf([&] { installation.Do({"status"}); }));
    figures.emplace_back("status --json: s", MedianSecondsOf([&] { installation.Do({"status", "--json"}); }));
    figures.emplace_back("status of one profile: s", MedianSecondsOf([&] { installation.Do({"status", NameOf(0)}); }));
    AddRest(figures, installation, rest);
    figures.emplace_back("resident at rest: MB", installation.Sum(&ServiceProcess::Resident_MB));
    figures.emplace_back("most resident: MB", installation.Sum(&ServiceProcess::MostResident_MB));
    figures.emplace_back("threads at rest", static_cast<double>(installation.Sum(&ServiceProcess::Threads)));
}

Figures Measure(const Size& size, const Options& options) {
    Figures figures;
    const auto made = Clock::now();
    Installation installation(size, options.folder);
    figures.emplace_back("files made: s", std::chrono::duration<double>(Clock::now() - made).count());
    if (options.has_rounds) AddRounds(figures, installation, size);
    AddStandingTree(figures, installation, size, options.rest);
    installation.Stop();
    return figures;
}

void Print(const std::vector<Size>& sizes, const std::vector<Figures>& all) {
    std::string head = "| profiles |";
    std::string line = "|---|";
    for (const Size& size : sizes) {
        head += ' ' + size.Text() + " |";
        line += "---|";
    }
    std::printf("%s\n%s\n", head.c_str(), line.c_str());
    for (std::size_t i = 0; i < all.front().size(); ++i) {
        std::printf("| %s |", all.front()[i].first.c_str());
        for (const Figures& figures : all) std::printf(" %.4g |", figures[i].second);
        std::printf("\n");
    }
}

Size SizeIn(const std::string& text) {
    Size size;
    const std::size_t times = text.find('x');
    if (times != std::string::npos) size.trees = std::atoi(text.c_str());
    size.profiles = std::atoi(text.c_str() + (times == std::string::npos ? 0 : times + 1));
    if (size.trees < 1 || size.profiles < 1) throw std::runtime_error("\"" + text + "\" is no size");
    return size;
}

Options OptionsIn(const std::vector<std::string>& words) {
    Options options;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const bool has_value = words[i] == "--rest" || words[i] == "--folder";
        if (has_value && i + 1 == words.size()) throw std::runtime_error(words[i] + " wants a value");
        if (words[i] == "--no-rounds") {
            options.has_rounds = false;
        } else if (words[i] == "--rest") {
            options.rest = std::chrono::seconds(std::atoi(words[++i].c_str()));
        } else if (words[i] == "--folder") {
            options.folder = words[++i];
        } else {
            options.sizes.push_back(SizeIn(words[i]));
        }
    }
    if (options.rest < 1s) throw std::runtime_error("the services must rest for a second at least");
    if (options.sizes.empty()) options.sizes = {{1, 1000}, {1, 10'000}, {10, 10'000}, {1, 100'000}};
    return options;
}

int Main(const std::vector<std::string>& words) {
    const Options options = OptionsIn(words);
    double load = 0;
    if (getloadavg(&load, 1) == 1)
        std::printf("%u processors, load %.1f\n\n", std::thread::hardware_concurrency(), load);
    std::vector<Figures> all;
    for (const Size& size : options.sizes) {
        std::fprintf(stderr, "%s ...\n", size.Text().c_str());
        all.push_back(Measure(size, options));
    }
    Print(options.sizes, all);
    return EXIT_SUCCESS;
}

}  // namespace
}  // namespace tarvex::bench

int main(int count, char** words) try {
    return tarvex::bench::Main({words + 1, words + count});
} catch (const std::exception& failure) {
    std::cerr << failure.what() << '\n';
    return EXIT_FAILURE;
}
