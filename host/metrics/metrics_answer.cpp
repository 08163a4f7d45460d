// What a monitoring system is answered.

#include "host/metrics/metrics_server.h"

namespace tarvex::host {
namespace {

std::string Response(std::string_view status, std::string_view more, std::string_view type, std::string_view body) {
    std::string text = "HTTP/1.1 ";
    text.append(status).append("\r\nContent-Type: ").append(type).append("\r\nContent-Length: ");
    text.append(std::to_string(body.size())).append("\r\n").append(more).append("Connection: close\r\n\r\n");
    return text.append(body);
}

}  // namespace

std::string MetricsRefusal(std::string_view status, std::string_view more) {
    return Response(status, more, "text/plain; charset=utf-8", std::string(status) + '\n');
}

std::string AnswerTo(std::string_view head, const std::function<std::string(MetricForm)>& figures) {
    const std::string_view line = head.substr(0, head.find_first_of("\r\n"));
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string_view::npos || first == last || !line.substr(last + 1).starts_with("HTTP/1."))
        return MetricsRefusal("400 Bad Request");
    if (line.substr(0, first) != "GET") return MetricsRefusal("405 Method Not Allowed", "Allow: GET\r\n");
    std::string_view path = line.substr(first + 1, last - first - 1);
    path = path.substr(0, path.find('?'));
    if (path != "/metrics") return MetricsRefusal("404 Not Found");
    const bool is_open = head.find("application/openmetrics-text") != std::string_view::npos;
    return Response("200 OK", "",
                    is_open ? "application/openmetrics-text; version=1.0.0; charset=utf-8"
                            : "text/plain; version=0.0.4; charset=utf-8",
                    figures(is_open ? MetricForm::OpenMetrics : MetricForm::Text));
}

}  // namespace tarvex::host
