// Collects what the history, the memory of the rules and the folders of held mail say, in few readings for all
// profiles, and writes it family by family.

#include "host/metrics/figures.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>
#include <map>
#include <string_view>
#include <utility>

#include "host/generation/generation.h"
#include "host/held/held.h"
#include "host/history/history.h"
#include "host/memory/memory.h"
#include "host/settings/host_setting.h"
#include "host/tree/names.h"
#include "host/tree/tree_rules.h"

namespace tarvex::host {
namespace {

using Profiles = std::vector<MeasuredProfile>;

// A counter without a label of its own, as CountRun names it.
struct PlainCounter {
    const char* counter;
    const char* family;  // behind "tarvex_" or "tarvex_tree_"
    const char* help;
};
constexpr std::array kPlainCounters = {
    PlainCounter{"messages_fetched", "messages_fetched_total", "Messages fetched from the mailbox."},
    PlainCounter{"messages_not_fetched", "messages_not_fetched_total", "Messages wanted and not got, by run."},
    PlainCounter{"messages_delivered", "messages_delivered_total", "Messages taken for all their addresses."},
    PlainCounter{"copies", "copies_total", "Copies that the SMTP server took."},
    PlainCounter{"copies_set_aside", "copies_set_aside_total", "Copies that it refused and that were set aside."},
    PlainCounter{"bytes_received", "received_bytes_total", "Bytes received from both servers."},
    PlainCounter{"bytes_sent", "sent_bytes_total", "Bytes sent to both servers."},
};

// The counters of one name, of one profile or of the tree.
void ForEach(const Counters& counters, const std::string& profile, const char* name,
             const std::function<void(const std::string& label, std::int64_t value)>& tell) {
    for (auto one = counters.lower_bound({profile, name, ""});
         one != counters.end() && one->first.profile == profile && one->first.name == name; ++one) {
        tell(one->first.label, one->second);
    }
}

class Writer {
public:
    Writer(const Profiles& profiles, const Counters& counters, MetricForm form)
        : profiles_(profiles), counters_(counters), text_(form) {}

    // The same families of every profile and of the tree, which keeps what removed profiles did.
    void AddCounters() {
        for (const bool of_tree : {false, true}) {
            const std::string start = of_tree ? "tarvex_tree_" : "tarvex_";
            text_.Begin(start + "runs_total", MetricType::Counter, "Runs by how they ended.");
            ForEachOwner(of_tree, [&](const std::string& owner, MetricText::Labels labels) {
                ForEach(counters_, owner, "runs", [&](const std::string& ending, std::int64_t value) {
                    MetricText::Labels all = labels;
                    all.emplace_back("result", ending);
                    text_.Add(all, value);
                });
            });
            text_.Begin(start + "refusals_total", MetricType::Counter,
                        "What servers refused and connections that failed, by stage and class.");
            ForEachOwner(of_tree, [&](const std::string& owner, const MetricText::Labels& labels) {
                ForEach(counters_, owner, "refusals",
                        [&](const std::string& label, std::int64_t value) { AddRefusal(labels, label, value); });
            });
            for (const PlainCounter& plain : kPlainCounters) {
                text_.Begin(start + plain.family, MetricType::Counter, plain.help);
                ForEachOwner(of_tree, [&](const std::string& owner, const MetricText::Labels& labels) {
                    const auto found = counters_.find({owner, plain.counter, ""});
                    text_.Add(labels, found == counters_.end() ? 0 : found->second);
                });
            }
        }
    }

    void AddSeconds() {
        text_.Begin("tarvex_run_seconds", MetricType::Histogram, "Seconds that runs of the tree took.");
        std::map<std::string, std::int64_t> runs;
        ForEach(counters_, "", "run_seconds",
                [&](const std::string& bound, std::int64_t value) { runs[bound] = value; });
        std::int64_t sum = 0;
        for (const double bound : kRunSeconds) {
            const std::string label = RunSecondsLabel(bound);
            sum += runs[label];
            const bool is_whole = label.find('.') == std::string::npos;
            text_.Add("_bucket", {{"le", is_whole ? label + ".0" : label}}, std::to_string(sum));
        }
        sum += runs[kLongerRuns];
        text_.Add("_bucket", {{"le", kLongerRuns}}, std::to_string(sum));
        const auto milliseconds = counters_.find({"", "run_milliseconds", ""});
        text_.AddSeconds("_sum", milliseconds == counters_.end() ? 0 : milliseconds->second);
        text_.Add("_count", {}, std::to_string(sum));
    }

    // A figure of each profile, or none where that is not known.
    void AddGauge(const char* name, const char* help,
                  const std::function<std::optional<std::int64_t>(const MeasuredProfile&)>& figure) {
        text_.Begin(name, MetricType::Gauge, help);
        for (const MeasuredProfile& profile : profiles_) {
            if (const auto value = figure(profile)) text_.Add({{"profile", profile.name}}, *value);
        }
    }

    void AddOne(const char* name, MetricType type, const char* help, std::int64_t value,
                const MetricText::Labels& labels = {}) {
        text_.Begin(name, type, help);
        text_.Add(labels, value);
    }

    void AddProcess(const ProcessFigures& process) {
        text_.Begin("process_cpu_seconds_total", MetricType::Counter, "Processor time of the service.");
        text_.AddSeconds("", process.processor_ms);
        AddOne("process_resident_memory_bytes", MetricType::Gauge, "Memory of the service.", process.resident_bytes);
        AddOne("process_open_fds", MetricType::Gauge, "Files and sockets that it has open.", process.open_files);
        AddOne("process_max_fds", MetricType::Gauge, "How many it may have open.", process.most_files);
        AddOne("process_start_time_seconds", MetricType::Gauge, "When it started, since 1970.", process.started);
    }

    std::string End() { return text_.End(); }

private:
    template <class Tell>
    void ForEachOwner(bool of_tree, const Tell& tell) {
        if (of_tree) return tell(std::string(), MetricText::Labels());
        for (const MeasuredProfile& profile : profiles_)
            tell(profile.name, MetricText::Labels{{"profile", profile.name}});
    }

    void AddRefusal(const MetricText::Labels& labels, const std::string& label, std::int64_t value) {
        const std::string_view both = label;
        const std::size_t slash = both.find('/');
        MetricText::Labels all = labels;
        all.emplace_back("stage", both.substr(0, slash));
        all.emplace_back("class", both.substr(slash + 1));
        text_.Add(all, value);
    }

    const Profiles& profiles_;
    const Counters& counters_;
    MetricText text_;
};

// What the two databases say of profiles. What cannot be read stays empty.
struct Known {
    KnownProfiles profiles;
    std::map<std::string, std::int64_t> parked;
    std::map<std::string, std::int64_t> waiting;
    bool history_is_readable = true;
    bool memory_is_readable = true;
};

Known ReadKnown(const std::string& root, Counters& counters) {
    Known known;
    try {
        HistoryReader reader(root);
        KeepAtLeast(counters, reader.Totals());
        known.profiles = reader.Profiles();
    } catch (const DatabaseError&) {
        known.history_is_readable = false;
    }
    try {
        if (!HasRules(root)) return known;
        RuleMemoryReader reader(root);
        known.parked = reader.HowMany(Matter::Parked);
        known.waiting = reader.HowMany(Matter::Waiting);
    } catch (const DatabaseError&) {
        known.memory_is_readable = false;
    }
    return known;
}

std::int64_t CountIn(const std::map<std::string, std::int64_t>& counts, const std::string& name) {
    const auto found = counts.find(name);
    return found == counts.end() ? 0 : found->second;
}

void AddHistory(Writer& writer, const Known& known) {
    const auto of = [&known](std::int64_t ProfileTotals::*number) {
        return [&known, number](const MeasuredProfile& profile) -> std::optional<std::int64_t> {
            const auto found = known.profiles.find(profile.name);
            return found == known.profiles.end() ? 0 : found->second.totals.*number;
        };
    };
    if (!known.history_is_readable) return;
    writer.AddGauge("tarvex_last_success_timestamp_seconds", "Start of the last run that did not fail; 0: none.",
                    of(&ProfileTotals::last_good));
    writer.AddGauge("tarvex_failing_since_timestamp_seconds", "Start of the first of the failures in a row; 0: none.",
                    of(&ProfileTotals::failing_since));
    writer.AddGauge("tarvex_failed_in_a_row", "Runs that failed since one that did not.",
                    of(&ProfileTotals::failed_in_a_row));
}

void AddWaiting(Writer& writer, const Known& known) {
    writer.AddGauge("tarvex_held_messages", "Messages that are set aside.",
                    [](const MeasuredProfile& profile) -> std::optional<std::int64_t> {
                        const auto records = HeldStore(profile.path).List();
                        return records ? std::optional<std::int64_t>(records->size()) : std::nullopt;
                    });
    if (!known.memory_is_readable) return;
    writer.AddGauge("tarvex_parked_addresses", "Addresses to which nothing is sent, since they were refused.",
                    [&](const MeasuredProfile& profile) { return CountIn(known.parked, profile.name); });
    writer.AddGauge("tarvex_waiting", "1: it waits for a person to say what counts as sent.",
                    [&](const MeasuredProfile& profile) { return CountIn(known.waiting, profile.name) > 0 ? 1 : 0; });
}

}  // namespace

// By the names that the history has, which are the same on every system.
std::vector<MeasuredProfile> MeasuredProfiles(const CRootPath& root) {
    std::vector<MeasuredProfile> profiles;
    for (const auto& user : root.users) {
        for (const auto& profile : user->profiles) {
            std::string name = ShownName(root, profile->path);
            std::ranges::replace(name, static_cast<char>(std::filesystem::path::preferred_separator), '/');
            profiles.push_back({std::move(name), profile->path, IsSwitchedOn(*user, *profile)});
        }
    }
    return profiles;
}

std::string Figures::Text(const Profiles& profiles, const std::optional<ProcessFigures>& process, MetricForm form) {
    const Known known = ReadKnown(root_, counters_);
    Writer writer(profiles, counters_, form);
    writer.AddOne("tarvex_build_info", MetricType::Gauge, "1; its label says which version this is.", 1,
                  {{"version", TARVEX_VERSION}});
    writer.AddOne("tarvex_readable", MetricType::Gauge, "1: what is remembered can be read; 0: figures are missing.",
                  known.history_is_readable && known.memory_is_readable ? 1 : 0);
    if (const auto generation = ReadableGeneration(root_))
        writer.AddOne("tarvex_generation", MetricType::Gauge, "How often a service was started on the tree.",
                      *generation);
    writer.AddGauge("tarvex_switched_on", "1: the profile takes part in runs.",
                    [](const MeasuredProfile& profile) { return profile.switched_on ? 1 : 0; });
    writer.AddCounters();
    writer.AddSeconds();
    AddHistory(writer, known);
    AddWaiting(writer, known);
    if (process) writer.AddProcess(*process);
    return writer.End();
}

}  // namespace tarvex::host
