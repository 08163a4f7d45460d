// schedule.def: the schedule of a forwarding address.

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>

#include "platform/codec/text.h"
#include "platform/os/files.h"
#include "platform/os/shield.h"
#include "store/settings_file.h"
#include "store/tree_loading.h"
#include "tarvex/schedule.h"

namespace tarvex {
namespace {

constexpr const char* kScheduleFile = "\\schedule.def";

constexpr std::array<std::string_view, 9> kKindNames = {
    "TERM_EVERY_DAY", "TERM_EVERY_SUN", "TERM_EVERY_MON", "TERM_EVERY_TUE",    "TERM_EVERY_WED",
    "TERM_EVERY_THU", "TERM_EVERY_FRI", "TERM_EVERY_SAT", "TERM_DEFINED_TERM",
};

using Terms = std::vector<std::unique_ptr<CTerm>>;

std::optional<int> KindOf(std::string_view name) {
    const auto found = std::ranges::find(kKindNames, ToUpper(name));
    if (found == kKindNames.end()) return std::nullopt;
    return static_cast<int>(found - kKindNames.begin());
}

// A kind without a name is written as an empty one.
std::string_view NameOf(int kind) {
    if (kind < 0 || kind >= static_cast<int>(kKindNames.size())) return {};
    return kKindNames[static_cast<std::size_t>(kind)];
}

// A value without a colon is an end without a start.
void SetSpan(CTerm& term, std::string_view value) {
    const std::size_t colon = value.find(':');
    term.start = colon == std::string_view::npos ? "" : value.substr(0, colon);
    term.end = colon == std::string_view::npos ? value : value.substr(colon + 1);
}

// One "key=value" line of a schedule section. The keys are case-sensitive, the kind's name is not.
void TakeLine(CTerm& term, std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) return;
    const std::string_view key = TrimTrailingBlanks(line.substr(0, equals));
    const std::string_view value = TrimBlanks(line.substr(equals + 1));
    if (key == "mode") {
        term.kind = KindOf(value).value_or(term.kind);
    } else if (key == "term") {
        SetSpan(term, value);
    } else if (key == "status") {
        term.status = DecimalValue(value);
    }
}

bool Contains(std::string_view text, std::string_view part) { return text.find(part) != std::string_view::npos; }

// The terms of a file. Only the lines of a schedule section say anything; the version is not used.
Terms ReadTerms(const std::vector<std::string>& lines) {
    Terms terms;
    CTerm* current = nullptr;
    for (const std::string& raw_line : lines) {
        const std::string_view line = TrimBlanks(raw_line);
        if (IsBlankOrComment(line)) continue;
        const std::string view = HeaderView(line);
        if (Contains(view, "[schedule]") && !Contains(view, "[version]")) {
            current = terms.emplace_back(std::make_unique<CTerm>()).get();
        } else if (Contains(view, "[") && Contains(view, "]")) {
            current = nullptr;
        } else if (current != nullptr) {
            TakeLine(*current, line);
        }
    }
    return terms;
}

std::string FileText(const Terms& terms) {
    std::string text = "[version]\n0\n\n";
    for (const auto& term : terms) {
        text += "[schedule]\nstatus=";
        text += term->status == 1 ? "1" : "0";
        text += "\nmode=";
        text += NameOf(term->kind);
        text += "\nterm=";
        text += WithoutLineBreaks(term->start) + ':' + WithoutLineBreaks(term->end);
        text += "\n\n";
    }
    return text;
}

Terms Copies(const Terms& terms) {
    Terms copies;
    copies.reserve(terms.size());
    for (const auto& term : terms) copies.push_back(std::make_unique<CTerm>(*term));
    return copies;
}

}  // namespace

int LoadSchedule(CScheduleSetting& schedule, const CString& directory, CLoaded& loaded) {
    const std::optional<std::vector<std::string>> lines = LoadSettingsLines(directory + kScheduleFile, loaded);
    if (!lines) return 0;
    Terms found = ReadTerms(*lines);
    schedule.terms.reserve(schedule.terms.size() + found.size());
    std::ranges::move(found, std::back_inserter(schedule.terms));
    return 1;
}

}  // namespace tarvex

using namespace tarvex;

int CTerm::operator==(const CTerm& other) const {
    return status == other.status && kind == other.kind && start == other.start && end == other.end ? 1 : 0;
}

CScheduleSetting::CScheduleSetting(const CScheduleSetting& other) {
    Shielded([&] { terms = Copies(other.terms); });
}

CScheduleSetting& CScheduleSetting::operator=(const CScheduleSetting& other) {
    Shielded([&] { terms = Copies(other.terms); });
    return *this;
}

CScheduleSetting::~CScheduleSetting() { Reset(); }

void CScheduleSetting::Reset() { Terms().swap(terms); }

int CScheduleSetting::AddNewTerm(const CTerm* term) {
    if (term == nullptr) return -1;
    return Shielded(-1, [&] {
        terms.push_back(std::make_unique<CTerm>(*term));
        return static_cast<int>(terms.size()) - 1;
    });
}

int CScheduleSetting::DeleteTerm(const CTerm* term) {
    const auto found = std::ranges::find(terms, term, &std::unique_ptr<CTerm>::get);
    if (found == terms.end()) return 0;
    terms.erase(found);
    return 1;
}

int CScheduleSetting::operator==(const CScheduleSetting& other) const {
    const auto same = [](const auto& left, const auto& right) { return (*left == *right) != 0; };
    return std::ranges::equal(terms, other.terms, same) ? 1 : 0;
}

int CScheduleSetting::Load(CString directory) {
    CLoaded ignored;
    return Shielded(0, [&] { return LoadSchedule(*this, directory, ignored); });
}

int CScheduleSetting::Save(CString directory) const {
    if (directory.empty()) return 0;
    return Shielded(
        0, [&] { return WriteTextFile(directory + kScheduleFile, FileText(terms), Durability::Synced) ? 1 : 0; });
}
