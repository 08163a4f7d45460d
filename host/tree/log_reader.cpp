// Reads profile.log: its lines, and the runs that they tell of.

#include "host/tree/log_reader.h"

#include <algorithm>
#include <ctime>
#include <fstream>
#include <iomanip>
#include <iterator>
#include <locale>
#include <sstream>
#include <string_view>

#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::string_view kStart = "---- Operation starting at ";

// "Sunday, March 15, 2009 10:20:05" in local time.
std::optional<CTime> TimeIn(const std::string& text) {
    std::tm parts{};
    std::istringstream stream(text);
    stream.imbue(std::locale::classic());
    if (!(stream >> std::get_time(&parts, "%A, %B %d, %Y %H:%M:%S")) || stream.peek() != std::char_traits<char>::eof())
        return std::nullopt;
    parts.tm_isdst = -1;
    return std::mktime(&parts);
}

bool IsSmtpRefusal(std::string_view line) {
    const auto is_digit = [&line](std::size_t at) { return line[at] >= '0' && line[at] <= '9'; };
    return line.size() >= 4 && (line[0] == '4' || line[0] == '5') && is_digit(1) && is_digit(2) && line[3] == ' ';
}

// Reads one run line by line.
class RunReader {
public:
    explicit RunReader(const std::string& start_text) { run_.start = TimeIn(start_text); }

    void Take(const std::string& line) {
        CountByLine(line);
        KeepRefusal(line);
        if (line.starts_with("Success to create pop socket")) connected_ = true;
        if (line.starts_with("You have no mail to Forward")) run_.ending = Ending::NothingNew;
        if (line.starts_with("* SMTP Process - success")) run_.ending = Ending::Forwarded;
        for (const std::string_view failure : {"* POP exception", "* SMTP exception", "* Operation exception"}) {
            if (line.starts_with(failure)) Fail(line);
        }
        for (const std::string_view failure : {"* POP Process error", "* SMTP Process - error"}) {
            if (line.starts_with(failure)) Fail(reason_.empty() ? before_ : reason_);
        }
        ended_ = ended_ || line.starts_with("---- End Operation at ");
        before_ = line;
    }

    LoggedRun Finish() {
        if (!failed_ && !connected_) run_.ending = Ending::NobodyTook;
        if (!ended_) Fail("its end is missing in the log");
        if (failed_) run_.ending = Ending::Failed;
        return run_;
    }

private:
    void CountByLine(const std::string& line) {
        if (before_.starts_with("RETR ")) {
            run_.fetched += line.ends_with(" received") ? 1 : 0;
            run_.errors += line.ends_with(" receive error") ? 1 : 0;
        }
        if (before_ == "DATA" && line.starts_with("250")) ++run_.sent;
    }

    // What a server said last in refusal tells more than the log's own line. A line of a mailbox's listing begins with
    // a number as well.
    void KeepRefusal(const std::string& line) {
        if (line.starts_with("Success to create smtp socket")) {
            in_smtp_ = true;
            reason_.clear();
        }
        if (in_smtp_ ? IsSmtpRefusal(line) : line.starts_with("-ERR")) reason_ = line;
    }

    void Fail(const std::string& reason) {
        if (!failed_) run_.reason = reason;
        failed_ = true;
    }

    LoggedRun run_;
    std::string reason_;
    std::string before_;
    bool connected_ = false;
    bool in_smtp_ = false;
    bool failed_ = false;
    bool ended_ = false;
};

}  // namespace

std::optional<std::vector<std::string>> ReadLog(const CString& profile_path) {
    std::ifstream file(NativePath(profile_path + "\\profile.log"), std::ios::binary);
    if (!file) return std::nullopt;
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (line.ends_with('\r')) line.pop_back();
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<LoggedRun> RunsIn(const std::vector<std::string>& lines) {
    std::vector<LoggedRun> runs;
    std::optional<RunReader> reader;
    for (const std::string& line : lines) {
        if (line.starts_with(kStart)) {
            if (reader) runs.push_back(reader->Finish());
            reader.emplace(line.substr(kStart.size()));
        } else if (reader) {
            reader->Take(line);
        }
    }
    if (reader) runs.push_back(reader->Finish());
    return runs;
}

std::vector<std::string> LinesOfLastRun(const std::vector<std::string>& lines) {
    const auto is_start = [](const std::string& line) { return line.starts_with(kStart); };
    const auto start = std::find_if(lines.rbegin(), lines.rend(), is_start);
    return start == lines.rend() ? std::vector<std::string>() : std::vector(std::prev(start.base()), lines.end());
}

std::string HowItEnded(const LoggedRun& run, int failed_in_a_row, std::size_t columns) {
    const std::string not_fetched = run.errors == 0 ? "" : ", could not fetch " + std::to_string(run.errors);
    switch (run.ending) {
        case Ending::Forwarded:
            return "forwarded " + ShowCount(run.fetched, "message") + not_fetched;
        case Ending::NothingNew:
            return "nothing new" + not_fetched;
        case Ending::NobodyTook:
            return "no address took part";
        case Ending::Failed:
            break;
    }
    const std::string times = failed_in_a_row > 1 ? " (" + std::to_string(failed_in_a_row) + " in a row)" : "";
    return "failed" + times + ": " + OneLine(run.reason, columns);
}

// The longest beginning of `now` that `before` ends with is what was there already (Knuth, Morris and Pratt).
std::size_t CountNewLines(const std::vector<std::string>& before, const std::vector<std::string>& now) {
    std::vector<std::size_t> border(now.size() + 1, 0);  // of each beginning of `now`
    for (std::size_t i = 1, length = 0; i < now.size(); ++i) {
        while (length > 0 && now[i] != now[length]) length = border[length];
        if (now[i] == now[length]) ++length;
        border[i + 1] = length;
    }
    std::size_t matched = 0;
    for (const std::string& line : before) {
        while (matched > 0 && (matched == now.size() || now[matched] != line)) matched = border[matched];
        if (matched < now.size() && now[matched] == line) ++matched;
    }
    return now.size() - matched;
}

}  // namespace tarvex::host
