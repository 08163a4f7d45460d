#pragma once

// The text in which Prometheus and its like read figures.

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarvex::host {

// The two differ in the heading of a counter: OpenMetrics names it without "_total", the older text format with it,
// and each takes the other's for a counter that nobody has described. Both end with "# EOF".
enum class MetricForm { Text, OpenMetrics };

enum class MetricType { Counter, Gauge, Histogram };

class MetricText {
public:
    using Labels = std::vector<std::pair<std::string_view, std::string_view>>;  // names of ours, values of any bytes

    explicit MetricText(MetricForm form) : form_(form) {}

    // What follows is of this family. A counter's name ends with "_total".
    void Begin(std::string_view name, MetricType type, std::string_view help);

    void Add(const Labels& labels, std::int64_t value) { Add("", labels, std::to_string(value)); }
    void AddSeconds(std::string_view suffix, std::int64_t milliseconds);
    void Add(std::string_view suffix, const Labels& labels, std::string_view value);

    std::string End();  // of all

private:
    const MetricForm form_;
    std::string name_;
    std::string text_;
};

}  // namespace tarvex::host
