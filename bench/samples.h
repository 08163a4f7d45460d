#pragma once

// The texts and mails that the benchmarks of the text mail work on.

#include <benchmark/benchmark.h>

#include <cstddef>
#include <ctime>
#include <string>
#include <vector>

namespace tarvex::bench {

inline constexpr std::size_t kSmallMail_bytes = 4096;
inline constexpr std::size_t kLargeMail_bytes = 10'000'000;

// Texts of about that many bytes, in lines of ordinary length that end in CR LF.
std::string English(std::size_t bytes);
std::string Japanese(std::size_t bytes);            // UTF-8, with a little ASCII, as people write
std::string InHtml(const std::string& paragraphs);  // each line a paragraph with ordinary markup around it
std::string InLines(const std::string& text);       // broken into lines of 76 bytes, as Base64 stands in a mail
std::string InQuotedPrintable(const std::string& text);
std::string InUuencode(const std::string& bytes);
std::string InEuc(const std::string& jis);  // from ISO-2022-JP

std::string ToSJis(const std::string& utf8);
std::string ToJis(const std::string& utf8);
std::string ToBase64(const std::string& bytes);

// Mails of about that many bytes as a POP3 server hands them over.
std::string PlainJisMail(std::size_t bytes);        // text/plain in ISO-2022-JP
std::string MultipartUtf8Mail(std::size_t bytes);   // multipart/alternative: plain and HTML, in UTF-8 and Base64
std::string HtmlUtf8Mail(std::size_t bytes);        // text/html in UTF-8, 8bit
std::string MailWithAttachment(std::size_t bytes);  // multipart/mixed: a picture in front of a short text
std::vector<std::string> CorpusMails();             // of the folder that TARVEX_CORPUS names; none without it

// The CPU time of this process since the construction.
class CpuTime {
public:
    double Seconds() const { return static_cast<double>(std::clock() - begin_) / CLOCKS_PER_SEC; }

private:
    std::clock_t begin_ = std::clock();
};

// Says how fast a benchmark went that handled so many bytes in each iteration: bytes per second, and `memcpys`, how
// many times as long it took as memcpy takes for as many bytes here and now.
void ReportSpeed(benchmark::State& state, std::size_t bytes, double seconds);

template <class Step>
void MeasureSpeed(benchmark::State& state, std::size_t bytes, Step step) {
    const CpuTime time;
    for (auto _ : state) step();
    ReportSpeed(state, bytes, time.Seconds());
}

}  // namespace tarvex::bench
