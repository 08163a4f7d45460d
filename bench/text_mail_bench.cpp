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

void PickText(benchmark::State& state, const std::vector<std::string>& mails) {
    CPopProfile profile;
    std::size_t bytes = 0;
    for (const std::string& mail : mails) bytes += mail.size();
    MeasureSpeed(state, bytes, [&] {
        for (const std::string& mail : mails) benchmark::DoNotOptimize(profile.PickText(mail, 0, 1));
    });
}

// Each on a copy of its own, as delivery does it.
void CutAsTextmail(benchmark::State& state, const std::vector<std::string>& mails, int cutwhite) {
    CPopProfile profile;
    std::size_t bytes = 0;
    for (const std::string& mail : mails) bytes += mail.size();
    CString copy;
    MeasureSpeed(state, bytes, [&] {
        for (const std::string& mail : mails) {
            copy = mail;
            benchmark::DoNotOptimize(profile.CutAsTextmail(&copy, 0, cutwhite, 1, kListed));
        }
    });
}

void Register(const std::string& name, const std::vector<std::string>& mails) {
    constexpr auto kUnit = benchmark::kMicrosecond;
    const auto register_one = [&](const std::string& what, auto run) {
        benchmark::RegisterBenchmark((what + "/" + name).c_str(), run)->Unit(kUnit);
    };
    register_one("PickText", [mails](benchmark::State& state) { PickText(state, mails); });
    register_one("CutAsTextmail", [mails](benchmark::State& state) { CutAsTextmail(state, mails, 0); });
    register_one("CutAsTextmail_compressed", [mails](benchmark::State& state) { CutAsTextmail(state, mails, 1); });
}

}  // namespace
}  // namespace tarvex::bench

int main(int argc, char** argv) {
    using namespace tarvex::bench;
    for (const std::size_t bytes : {kSmallMail_bytes, kLargeMail_bytes}) {
        const std::string size = bytes == kSmallMail_bytes ? "4KB/" : "10MB/";
        Register(size + "JIS", {PlainJisMail(bytes)});
        Register(size + "multipart_Base64", {MultipartUtf8Mail(bytes)});
        Register(size + "HTML", {HtmlUtf8Mail(bytes)});
        Register(size + "attachment", {MailWithAttachment(bytes)});
    }
    if (const auto corpus = CorpusMails(); !corpus.empty()) Register("corpus", corpus);

    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
