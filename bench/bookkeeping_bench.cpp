// The bookkeeping of a run: 100,000 ids on the server and in the list of each of 3 addresses.

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "engine/bookkeeping.h"

namespace tarvex {
namespace {

constexpr int kAddresses = 3;

CString Uidl(int number) { return "0000" + std::to_string(100'000'000 + number) + "4f1e2d3c"; }

struct Run {
    std::vector<std::unique_ptr<CForwardAddress>> addresses;
    std::vector<CForwardAddress*> taking_part;
    CCheckedMail present;
    std::vector<std::unique_ptr<CReceiveMail>> owned;
    ReceivedMails mails;

    // Every address knows `known` ids; the server has those and `fresh` new ones.
    Run(int known, int fresh) {
        for (int i = 0; i < kAddresses; ++i) {
            addresses.push_back(std::make_unique<CForwardAddress>());
            for (int n = 0; n < known; ++n) addresses.back()->uidls.push_back(Uidl(n));
            taking_part.push_back(addresses.back().get());
        }
        for (int n = 0; n < known + fresh; ++n) present.Add(Uidl(n));
        for (int n = known; n < known + fresh; ++n) {
            owned.push_back(std::make_unique<CReceiveMail>());
            owned.back()->uidl = Uidl(n);
            mails.push_back(owned.back().get());
        }
    }

    void KeepBooks() {
        const CCheckedMail handled = CollectHandled(taking_part);
        benchmark::DoNotOptimize(handled.GetSize());
        for (const auto& address : addresses) {
            std::erase_if(address->uidls, [this](const CString& uidl) { return !present.Contains(uidl); });
        }
        AssignDestinations(mails, taking_part);
        TakeBack(mails);
    }
};

void BookkeepingNothingNew(benchmark::State& state) {
    while (state.KeepRunning()) {
        state.PauseTiming();
        auto run = std::make_unique<Run>(static_cast<int>(state.range(0)), 0);
        state.ResumeTiming();
        run->KeepBooks();
        state.PauseTiming();
        run.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BookkeepingNothingNew)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

// Every message is new, and none can be delivered.
void BookkeepingAllNewAllFailed(benchmark::State& state) {
    while (state.KeepRunning()) {
        state.PauseTiming();
        auto run = std::make_unique<Run>(0, static_cast<int>(state.range(0)));
        state.ResumeTiming();
        run->KeepBooks();
        state.PauseTiming();
        run.reset();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(BookkeepingAllNewAllFailed)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tarvex

BENCHMARK_MAIN();
