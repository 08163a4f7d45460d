// profile.log: loading, adding lines, saving the newest.

#include "tarvex/log.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>

#include "platform/os/files.h"
#include "platform/os/shield.h"

namespace tarvex {
namespace {

constexpr const char* kLogFile = "\\profile.log";
constexpr std::string_view kLineEnd = "\r\n";

// Calls `take` with the stretches of the text that are left when the CR of every CR LF is taken out.
template <class Take>
void WithoutCarriageReturns(std::string_view text, Take take) {
    for (;;) {
        const std::size_t end = text.find(kLineEnd);
        take(text.substr(0, end));
        if (end == std::string_view::npos) return;
        text.remove_prefix(end + 1);
    }
}

// Every CR LF becomes LF, in place.
void UnifyLineEnds(CString& text) noexcept {
    char* kept = text.data();
    WithoutCarriageReturns(text, [&kept](std::string_view stretch) {
        std::memmove(kept, stretch.data(), stretch.size());
        kept += stretch.size();
    });
    text.resize(static_cast<std::size_t>(kept - text.data()));
}

// The index of the oldest entry that Save writes. A negative size keeps none. In 64 bits, where no size overflows.
std::size_t FirstKept(std::size_t count, int size) {
    const auto entries = static_cast<std::int64_t>(count);
    if (size == 0) return 0;
    return static_cast<std::size_t>(std::clamp<std::int64_t>(entries - size, 0, entries));
}

std::string FileText(std::span<const CString> entries) {
    std::string text;
    for (const CString& entry : entries) {
        WithoutCarriageReturns(entry, [&text](std::string_view stretch) { text += stretch; });
        text += '\n';
    }
    return text;
}

}  // namespace
}  // namespace tarvex

using namespace tarvex;

CProfileLog::~CProfileLog() = default;

void CProfileLog::SetLogMode(int mode) { log_mode = mode; }

void CProfileLog::SetLogSize(int size) { log_size = size; }

int CProfileLog::Load(CString directory) {
    if (log_mode == 0) return 1;
    return Shielded(0, [&] {
        std::optional<CStringArray> lines = ReadTextLines(directory + kLogFile);
        if (!lines) return 0;
        if (entries.empty()) entries.swap(*lines);  // then none is left to be moved
        entries.reserve(entries.size() + lines->size());
        std::ranges::move(*lines, std::back_inserter(entries));
        return 1;
    });
}

int CProfileLog::AddLine(CString text) {
    if (log_mode == 0) return 0;
    while (text.ends_with(kLineEnd)) text.resize(text.size() - kLineEnd.size());
    return Shielded(0, [&] {
        entries.push_back(std::move(text));
        return 1;
    });
}

int CProfileLog::Save(CString directory) {
    if (log_mode == 0) return 1;
    return Shielded(0, [&] {
        const std::span kept = std::span(entries).subspan(FirstKept(entries.size(), log_size));
        if (!WriteTextFile(directory + kLogFile, FileText(kept), Durability::NotSynced)) return 0;
        std::ranges::for_each(kept, UnifyLineEnds);
        return 1;
    });
}

void CProfileLog::Clear() { CStringArray().swap(entries); }
