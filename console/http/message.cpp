// Takes requests apart, and writes the heads of answers.

#include "console/http/message.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "console/http/cookies.h"
#include "console/http/url_text.h"

namespace tarvex::console {
namespace {

bool IsPrintable(char c) { return c > ' ' && c < 0x7F; }
bool IsControl(char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7F; }

bool IsFormType(std::string_view type) {
    constexpr std::string_view kForm = "application/x-www-form-urlencoded";
    const std::string_view start = type.substr(0, kForm.size());
    return std::ranges::equal(start, kForm, [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a + 32 : a) == b; }) &&
           (type.size() == kForm.size() || type[kForm.size()] == ';' || type[kForm.size()] == ' ');
}

std::string_view ReasonOf(int status) {
    constexpr std::array<std::pair<int, std::string_view>, 21> kReasons{{
        {200, "OK"},
        {303, "See Other"},
        {304, "Not Modified"},
        {400, "Bad Request"},
        {403, "Forbidden"},
        {404, "Not Found"},
        {405, "Method Not Allowed"},
        {408, "Request Timeout"},
        {411, "Length Required"},
        {413, "Payload Too Large"},
        {415, "Unsupported Media Type"},
        {421, "Misdirected Request"},
        {422, "Unprocessable Entity"},
        {429, "Too Many Requests"},
        {431, "Request Header Fields Too Large"},
        {500, "Internal Server Error"},
        {501, "Not Implemented"},
        {502, "Bad Gateway"},
        {503, "Service Unavailable"},
        {504, "Gateway Timeout"},
        {505, "HTTP Version Not Supported"},
    }};
    const auto found = std::ranges::find(kReasons, status, &std::pair<int, std::string_view>::first);
    return found == kReasons.end() ? "" : found->second;
}

std::optional<Refusal> UnderstandForm(const RawRequest& raw, HttpRequest& request) {
    if (raw.body.empty()) return std::nullopt;
    if (raw.method != "POST") return Refusal{400};
    if (!IsFormType(request.Header("content-type"))) return Refusal{415};
    auto form = ParseForm(raw.body);
    if (!form) return Refusal{400};
    request.form = *std::move(form);
    return std::nullopt;
}

}  // namespace

std::optional<std::vector<std::string>> SegmentsOf(std::string_view path) {
    if (!path.starts_with('/')) return std::nullopt;
    std::vector<std::string> segments;
    if (path == "/") return segments;
    while (!path.empty()) {
        path.remove_prefix(1);
        const std::string_view part = path.substr(0, path.find('/'));
        path.remove_prefix(part.size());
        auto segment = DecodeEscapes(part);
        if (!segment || segment->empty() || *segment == "." || *segment == "..") return std::nullopt;
        if (std::ranges::any_of(*segment, [](char c) { return c == '/' || IsControl(c); })) return std::nullopt;
        segments.push_back(*std::move(segment));
    }
    return segments;
}

std::optional<Refusal> Understand(const RawRequest& raw, HttpRequest& request) {
    request.method = raw.method == "HEAD" ? "GET" : raw.method;
    request.headers = raw.headers;
    request.cookies = ParseCookies(request.headers);
    if (!raw.target.starts_with('/') || !std::ranges::all_of(raw.target, IsPrintable)) return Refusal{400};
    request.target = raw.target;
    const std::size_t mark = std::min(raw.target.find('?'), raw.target.size());
    request.path = raw.target.substr(0, mark);
    auto segments = SegmentsOf(request.path);
    if (!segments) return Refusal{404};
    request.segments = *std::move(segments);
    auto query = ParseForm(std::string_view(raw.target).substr(std::min(mark + 1, raw.target.size())));
    if (!query) return Refusal{400};
    request.query = *std::move(query);
    return UnderstandForm(raw, request);
}

bool IsLocal(std::string_view path) {
    return path.starts_with('/') && !path.starts_with("//") && path.find('\\') == std::string_view::npos &&
           std::ranges::all_of(path, IsPrintable);
}

HttpResponse SeeOther(std::string_view path) {
    HttpResponse response;
    response.status = 303;
    response.headers.push_back({"Location", IsLocal(path) ? std::string(path) : "/"});
    return response;
}

std::string HeadOf(const HttpResponse& response, bool keeps_connection, std::string_view date) {
    std::string head = "HTTP/1.1 " + std::to_string(response.status) + ' ';
    head.append(ReasonOf(response.status)).append("\r\nDate: ").append(date).append("\r\n");
    for (const Field& header : response.headers) {
        std::string value = header.value;
        std::erase_if(value, IsControl);
        head.append(header.name).append(": ").append(value).append("\r\n");
    }
    if (response.status != 304) head += "Content-Length: " + std::to_string(response.body.size()) + "\r\n";
    return head + (keeps_connection ? "\r\n" : "Connection: close\r\n\r\n");
}

std::string HttpDate(long long now_s) {
    constexpr std::array<const char*, 7> kDays{"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    constexpr std::array<const char*, 12> kMonths{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const auto now = static_cast<std::time_t>(now_s);
    std::tm time{};
    gmtime_r(&now, &time);
    const auto two = [](int number) { return std::string(number < 10 ? "0" : "") + std::to_string(number); };
    return std::string(kDays[time.tm_wday]) + ", " + two(time.tm_mday) + ' ' + kMonths[time.tm_mon] + ' ' +
           std::to_string(time.tm_year + 1900) + ' ' + two(time.tm_hour) + ':' + two(time.tm_min) + ':' +
           two(time.tm_sec) + " GMT";
}

}  // namespace tarvex::console
