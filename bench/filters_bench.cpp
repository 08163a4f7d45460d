// The filters and codecs of the text mail, each on text that it mostly passes on (plain) and on text that it mostly
// changes. The bytes are those that go in.

#include <cstddef>
#include <string>

#include "bench/samples.h"
#include "platform/codec/base64.h"
#include "platform/codec/japanese.h"
#include "platform/codec/transfer_encoding.h"
#include "rewrite/html_text.h"

namespace tarvex::bench {
namespace {

constexpr std::size_t kText_bytes = 65536;

using Conversion = void (*)(const std::string* source, std::string* target);
void ToJisText(const std::string* source, std::string* target) { SJisToJis(source, target); }

void Convert(benchmark::State& state, Conversion convert, const std::string& source) {
    std::string target;
    MeasureSpeed(state, source.size(), [&] {
        convert(&source, &target);
        benchmark::DoNotOptimize(target.data());
    });
}

// A filter that works in place gets a fresh copy each time, which counts as its work.
template <class InPlace>
void Filter(benchmark::State& state, InPlace filter, const std::string& source) {
    std::string text;
    MeasureSpeed(state, source.size(), [&] {
        text = source;
        filter(&text);
        benchmark::DoNotOptimize(text.data());
    });
}

void FilterListed(benchmark::State& state, int compress, const std::string& characters, const std::string& source) {
    const auto filter = [&](std::string* text) { FilterCharacters(text, compress, characters); };
    Filter(state, filter, source);
}

const std::string kListed = "- , \x81\x40";  // as the settings come
const std::string kEnglish = English(kText_bytes);
const std::string kJapanese = Japanese(kText_bytes);
const std::string kSJis = ToSJis(kJapanese);

std::string Entities() {
    std::string text;
    while (text.size() < kText_bytes) text += "a &lt;b&gt; &amp;amp; &copy; &#12354; &nbsp;";
    return text;
}

BENCHMARK_CAPTURE(Filter, HtmlToText_plain, HtmlToText, kEnglish);
BENCHMARK_CAPTURE(Filter, HtmlToText_japanese, HtmlToText, kSJis);
BENCHMARK_CAPTURE(Filter, HtmlToText_tags, HtmlToText, ToSJis(InHtml(kJapanese)));
BENCHMARK_CAPTURE(Filter, DecodeHtmlEntities_plain, DecodeHtmlEntitiesInText, kEnglish);
BENCHMARK_CAPTURE(Filter, DecodeHtmlEntities_entities, DecodeHtmlEntitiesInText, Entities());
BENCHMARK_CAPTURE(FilterListed, cut_plain, 0, kListed, kEnglish);
BENCHMARK_CAPTURE(FilterListed, cut_japanese, 0, kListed, kSJis);
BENCHMARK_CAPTURE(FilterListed, compress_plain, 1, kListed, kEnglish);
BENCHMARK_CAPTURE(FilterListed, compress_japanese, 1, kListed, kSJis);

BENCHMARK_CAPTURE(Convert, Base64Encode, Base64Encode, kJapanese);
BENCHMARK_CAPTURE(Convert, Base64Decode_in_lines, Base64Decode, InLines(ToBase64(kJapanese)));
BENCHMARK_CAPTURE(Convert, QuotedPrintableDecode_plain, QuotedPrintableDecode, InQuotedPrintable(kEnglish));
BENCHMARK_CAPTURE(Convert, QuotedPrintableDecode_japanese, QuotedPrintableDecode, InQuotedPrintable(kJapanese));
BENCHMARK_CAPTURE(Convert, UUDecode, UUDecode, InUuencode(kJapanese));
BENCHMARK_CAPTURE(Convert, JisToSJis_plain, JisToSJis, kEnglish);
BENCHMARK_CAPTURE(Convert, JisToSJis_japanese, JisToSJis, ToJis(kJapanese));
BENCHMARK_CAPTURE(Convert, EucToSJis_plain, EucToSJis, kEnglish);
BENCHMARK_CAPTURE(Convert, EucToSJis_japanese, EucToSJis, InEuc(ToJis(kJapanese)));
BENCHMARK_CAPTURE(Convert, Utf8ToSJis_plain, Utf8ToSJis, kEnglish);
BENCHMARK_CAPTURE(Convert, Utf8ToSJis_japanese, Utf8ToSJis, kJapanese);
BENCHMARK_CAPTURE(Convert, SJisToJis_plain, ToJisText, kEnglish);
BENCHMARK_CAPTURE(Convert, SJisToJis_japanese, ToJisText, kSJis);

}  // namespace
}  // namespace tarvex::bench

BENCHMARK_MAIN();
