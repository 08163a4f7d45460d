// The form of the figures for monitoring systems.

#include "host/metrics/metric_text.h"

#include <gtest/gtest.h>

namespace tarvex::host {
namespace {

TEST(MetricText, NamesACounterAsEachFormWantsIt) {
    for (const auto& [form, heading] : {std::pair(MetricForm::Text, "x_total"), {MetricForm::OpenMetrics, "x"}}) {
        MetricText text(form);
        text.Begin("x_total", MetricType::Counter, "Help.");
        text.Add({}, 7);
        EXPECT_EQ(text.End(),
                  std::string("# HELP ") + heading + " Help.\n# TYPE " + heading + " counter\nx_total 7\n# EOF\n");
    }
}

TEST(MetricText, EscapesWhatStandsInLabels) {
    MetricText text(MetricForm::Text);
    text.Begin("x", MetricType::Gauge, "Help.");
    text.Add({{"a", "\"\\\n{}"}, {"b", ""}}, -1);
    EXPECT_EQ(text.End(), "# HELP x Help.\n# TYPE x gauge\nx{a=\"\\\"\\\\\\n{}\",b=\"\"} -1\n# EOF\n");
}

TEST(MetricText, WritesMillisecondsAsSeconds) {
    MetricText text(MetricForm::Text);
    for (const std::int64_t milliseconds : {0, 5, 1234567, 60000}) text.AddSeconds("_sum", milliseconds);
    EXPECT_EQ(text.End(), "_sum 0.000\n_sum 0.005\n_sum 1234.567\n_sum 60.000\n# EOF\n");
}

}  // namespace
}  // namespace tarvex::host
