// Picking the text of a mail and reducing the mail to it: ordinary mails of 4 KB, mails of 10 MB, and those of the
// folder that TARVEX_CORPUS names. The bytes are those of the mails.

#include <cstddef>
#include <string>
#include <vector>

#include "bench/samples.h"
#include "tarvex/tree.h"

namespace tarvex::bench {
namespace {

const CString kListed = "- , \x81\x40";  // as the settings come

template <class Step>
void ForEach(benchmark::State& state, const std::vector<std::string>& mails, Step step) {
    std::size_t bytes = 0;
    for (const std::string& mail : mails) bytes += mail.size();
    if (bytes == 0) return state.SkipWithError("no mails: TARVEX_CORPUS names no folder");
    MeasureSpeed(state, bytes, [&] {
        for (const std::string& mail : mails) step(mail);
    });
}

void Pick(benchmark::State& state, const std::vector<std::string>& mails) {
    CPopProfile profile;
    ForEach(state, mails,
            [&](const std::string& mail) { benchmark::DoNotOptimize(profile.PickText(mail, 0, 1).data()); });
}

// Each on a copy of its own, as delivery does it.
void Cut(benchmark::State& state, const std::vector<std::string>& mails, int cutwhite) {
    CPopProfile profile;
    ForEach(state, mails, [&](const std::string& mail) {
        CString copy = mail;
        benchmark::DoNotOptimize(profile.CutAsTextmail(&copy, 0, cutwhite, 1, kListed));
    });
}

using MakeMail = std::string (*)(std::size_t bytes);

std::vector<std::string> One(const benchmark::State& state, MakeMail make) {
    return {make(static_cast<std::size_t>(state.range(0)))};
}

void PickText(benchmark::State& state, MakeMail make) { Pick(state, One(state, make)); }
void CutAsTextmail(benchmark::State& state, MakeMail make) { Cut(state, One(state, make), 0); }
void CutCompressing(benchmark::State& state, MakeMail make) { Cut(state, One(state, make), 1); }

void Sizes(benchmark::internal::Benchmark* each) {
    each->Arg(kSmallMail_bytes)->Arg(kLargeMail_bytes)->Unit(benchmark::kMicrosecond);
}
BENCHMARK_CAPTURE(PickText, jis, PlainJisMail)->Apply(Sizes);
BENCHMARK_CAPTURE(PickText, multipart_base64, MultipartUtf8Mail)->Apply(Sizes);
BENCHMARK_CAPTURE(PickText, html, HtmlUtf8Mail)->Apply(Sizes);
BENCHMARK_CAPTURE(PickText, attachment, MailWithAttachment)->Apply(Sizes);
BENCHMARK_CAPTURE(CutAsTextmail, jis, PlainJisMail)->Apply(Sizes);
BENCHMARK_CAPTURE(CutAsTextmail, multipart_base64, MultipartUtf8Mail)->Apply(Sizes);
BENCHMARK_CAPTURE(CutAsTextmail, html, HtmlUtf8Mail)->Apply(Sizes);
BENCHMARK_CAPTURE(CutAsTextmail, attachment, MailWithAttachment)->Apply(Sizes);
BENCHMARK_CAPTURE(CutCompressing, jis, PlainJisMail)->Apply(Sizes);
BENCHMARK_CAPTURE(CutCompressing, html, HtmlUtf8Mail)->Apply(Sizes);

BENCHMARK_CAPTURE(Pick, corpus, CorpusMails())->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(Cut, corpus, CorpusMails(), 0)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tarvex::bench

BENCHMARK_MAIN();
