// Writes families of figures line by line.

#include "host/metrics/metric_text.h"

#include <array>

namespace tarvex::host {
namespace {

constexpr std::array<std::string_view, 3> kTypes = {"counter", "gauge", "histogram"};
constexpr std::string_view kTotal = "_total";
constexpr std::int64_t kMilliseconds = 1000;
constexpr std::size_t kDigits = 3;  // of milliseconds

void AppendEscaped(std::string& text, std::string_view value) {
    for (const char c : value) {
        if (c == '\n') {
            text += "\\n";
            continue;
        }
        if (c == '\\' || c == '"') text += '\\';
        text += c;
    }
}

}  // namespace

void MetricText::Begin(std::string_view name, MetricType type, std::string_view help) {
    name_ = name;
    std::string_view heading = name;
    if (form_ == MetricForm::OpenMetrics && type == MetricType::Counter) heading.remove_suffix(kTotal.size());
    text_.append("# HELP ").append(heading).append(" ").append(help).append("\n# TYPE ").append(heading).append(" ");
    text_.append(kTypes[static_cast<std::size_t>(type)]).append("\n");
}

void MetricText::AddSeconds(std::string_view suffix, std::int64_t milliseconds) {
    const std::string rest = std::to_string(milliseconds % kMilliseconds);
    const std::string zeros(kDigits - rest.size(), '0');
    Add(suffix, {}, std::to_string(milliseconds / kMilliseconds) + '.' + zeros + rest);
}

void MetricText::Add(std::string_view suffix, const Labels& labels, std::string_view value) {
    text_.append(name_).append(suffix);
    char before = '{';
    for (const auto& [name, content] : labels) {
        text_ += before;
        text_.append(name).append("=\"");
        AppendEscaped(text_, content);
        text_ += '"';
        before = ',';
    }
    if (!labels.empty()) text_ += '}';
    text_.append(" ").append(value).append("\n");
}

std::string MetricText::End() { return std::move(text_) + "# EOF\n"; }

}  // namespace tarvex::host
