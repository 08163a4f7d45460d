// Asks a provider over HTTPS, by libcurl.

#include "host/tokens/posix/https.h"

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <memory>
#include <new>
#include <optional>
#include <string_view>

#include "host/tokens/token_answer.h"

namespace tarvex::host {
namespace {

constexpr long kConnect_s = 10;
constexpr long kAll_s = 30;

struct FreeCurl {
    void operator()(CURL* curl) const { curl_easy_cleanup(curl); }
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

void InitialiseOnce() {
    static const CURLcode initialised = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (initialised != CURLE_OK) throw TokenTrouble(TokenTroubleKind::ForNow, "libcurl cannot be initialised");
}

// Fewer bytes than were given end the transfer.
std::size_t Take(const char* bytes, std::size_t one, std::size_t count, void* body) {
    auto& text = *static_cast<std::string*>(body);
    if (text.size() + one * count > kMostAnswerBytes) return 0;
    text.append(bytes, one * count);
    return one * count;
}

// How long an answer is still waited for that may hold a new refresh token in the place of the old one.
constexpr std::chrono::seconds kGrace{3};

struct Waiting {
    const Stops& stops;
    std::optional<std::chrono::steady_clock::time_point> stopped;
};

// Asked about once a second, and more often while bytes flow.
int MayGoOn(void* context, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent_bytes) {
    auto& waiting = *static_cast<Waiting*>(context);
    if (!waiting.stopped && !waiting.stops()) return 0;
    const auto now = std::chrono::steady_clock::now();
    if (!waiting.stopped) waiting.stopped = now;
    return sent_bytes == 0 || now - *waiting.stopped >= kGrace ? 1 : 0;
}

// A message that nobody is to see holds no secret, but a stranger's words.
[[noreturn]] void Fail(CURLcode code, const char* details) {
    if (code == CURLE_ABORTED_BY_CALLBACK) throw TokenTrouble(TokenTroubleKind::ForNow, "interrupted");
    if (code == CURLE_WRITE_ERROR) throw TokenTrouble(TokenTroubleKind::ForNow, "the provider's answer is too long");
    throw TokenTrouble(TokenTroubleKind::ForNow,
                       "the provider cannot be asked: " + SafeWords(*details ? details : curl_easy_strerror(code)));
}

}  // namespace

std::string Encoded(const Form& form) {
    constexpr std::string_view kPlain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    constexpr std::string_view kHex = "0123456789ABCDEF";
    std::string text;
    const auto add = [&](std::string_view word) {
        for (const char c : word) {
            const auto byte = static_cast<unsigned char>(c);
            if (kPlain.find(c) != std::string_view::npos) {
                text += c;
            } else {
                ((text += '%') += kHex[byte >> 4U]) += kHex[byte & 0xFU];
            }
        }
    };
    for (const auto& [name, value] : form) {
        if (!text.empty()) text += '&';
        add(name);
        text += '=';
        add(value);
    }
    return text;
}

HttpAnswer Post(const std::string& url, const Form& form, const std::string& authority, const Stops& stops) {
    InitialiseOnce();
    const std::unique_ptr<CURL, FreeCurl> curl(curl_easy_init());
    const std::unique_ptr<curl_slist, FreeCurl> headers(curl_slist_append(nullptr, "Accept: application/json"));
    if (!curl || !headers) throw std::bad_alloc();
    const std::string fields = Encoded(form);
    const bool in_clear = url.starts_with("http://127.0.0.1");
    HttpAnswer answer;
    Waiting waiting{stops, {}};
    std::array<char, CURL_ERROR_SIZE> details{};
    bool set = true;
    const auto option = [&](CURLoption name, auto value) {
        set = set && curl_easy_setopt(curl.get(), name, value) == CURLE_OK;
    };
    option(CURLOPT_URL, url.c_str());
    option(CURLOPT_PROTOCOLS_STR, in_clear ? "http" : "https");
    option(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    option(CURLOPT_SSL_VERIFYPEER, 1L);
    option(CURLOPT_SSL_VERIFYHOST, 2L);
    if (!authority.empty()) {
        option(CURLOPT_CAINFO, authority.c_str());
        option(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    option(CURLOPT_FOLLOWLOCATION, 0L);
    option(CURLOPT_NOPROXY, "127.0.0.1,localhost");
    option(CURLOPT_CONNECTTIMEOUT, kConnect_s);
    option(CURLOPT_TIMEOUT, kAll_s);
    option(CURLOPT_NOSIGNAL, 1L);
    option(CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
    option(CURLOPT_HTTPHEADER, headers.get());
    option(CURLOPT_POSTFIELDSIZE, static_cast<long>(fields.size()));
    option(CURLOPT_POSTFIELDS, fields.c_str());
    option(CURLOPT_WRITEFUNCTION, Take);
    option(CURLOPT_WRITEDATA, static_cast<void*>(&answer.body));
    option(CURLOPT_NOPROGRESS, 0L);
    option(CURLOPT_XFERINFOFUNCTION, MayGoOn);
    option(CURLOPT_XFERINFODATA, static_cast<void*>(&waiting));
    option(CURLOPT_ERRORBUFFER, details.data());
    if (!set) throw TokenTrouble(TokenTroubleKind::ForNow, "libcurl lacks an option that is needed");
    if (const CURLcode code = curl_easy_perform(curl.get()); code != CURLE_OK) Fail(code, details.data());
    curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &answer.status);
    return answer;
}

}  // namespace tarvex::host
