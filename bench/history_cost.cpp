// What remembering costs in a tree of many profiles: a run with a message is written, the figures of all are read.
//
//   history_cost [PROFILES]    1,000 unless told

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "host/history/history.h"
#include "host/metrics/figures.h"
#include "testing/temp_dir.h"

namespace {

using namespace tarvex::host;
using Clock = std::chrono::steady_clock;

constexpr int kRounds = 10;
constexpr int kScrapes = 20;

double MillisecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

CRunResult Delivered() {
    CRunResult result;
    result.ending = CRunEnding::Delivered;
    result.messages_fetched = result.messages_delivered = result.copies = 1;
    result.bytes_received = result.bytes_sent = 5000;
    result.addresses = {{"user0\\from0\\forwardto0", "phone@example.net", 1, CSaved::Saved}};
    return result;
}

TracedMail Mail(int number) {
    const CString id = std::to_string(number);
    return {id,
            "From: a@example.org\r\nSubject: number " + id + "\r\nMessage-ID: <" + id + "@example.org>\r\n",
            4096,
            1000,
            {{"phone@example.net", CopyFate::Sent, 2000, 3000, "250 2.0.0 Ok: queued as A" + id}}};
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc > 1 ? std::atoi(argv[1]) : 1000;
    const tarvex::testing::TempDir root;
    std::vector<MeasuredProfile> profiles;
    for (int i = 0; i < count; ++i) {
        const std::string user = "user" + std::to_string(i / 10);
        const std::string name = "from" + std::to_string(i % 10);
        std::filesystem::create_directories(root / (user + '/' + name));
        profiles.push_back({user + '/' + name, root.String() + '\\' + user + '\\' + name, true});
    }
    HistoryWriter writer(root.String(), [](const std::string& told) { std::puts(told.c_str()); });
    int number = 0;
    for (int round = 0; round < kRounds; ++round) {
        const auto start = Clock::now();
        for (const MeasuredProfile& profile : profiles)
            writer.Add(profile.path, {100, 101, Delivered(), 300}, {Mail(++number)});
        std::printf("a run written: %.0f us\n", MillisecondsSince(start) * 1000 / count);
    }
    Figures figures(root.String());
    std::vector<double> scrapes;
    std::size_t bytes = 0;
    for (int i = 0; i < kScrapes; ++i) {
        const auto start = Clock::now();
        bytes = figures.Text(profiles, {}, MetricForm::Text).size();
        scrapes.push_back(MillisecondsSince(start));
    }
    std::ranges::sort(scrapes);
    std::printf("figures of %d profiles: %.1f ms (most %.1f ms), %zu KB\n", count, scrapes[kScrapes / 2],
                scrapes.back(), bytes / 1000);
    return 0;
}
