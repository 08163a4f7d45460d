// Reads and writes the records of mail that was set aside.
//
//     [version]           [address]
//     1                   phone@example.net
//     [uidl]              [folder]
//     000011              forwardto0
//     ...                 ...
//     [addresses]         [next try]
//     2                   2026-11-22T10:15:00Z     and so on, once more for each further address
//
// A file that was cut short must not pass for one with fewer addresses: their number comes before them, and every key
// has to be there.

#include "host/held/held_record.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <functional>
#include <limits>
#include <sstream>

#include "host/history/run_words.h"
#include "host/language/tr.h"
#include "host/settings/shared_account.h"
#include "host/system/hexadecimal.h"
#include "host/system/paths.h"

namespace tarvex::host {
namespace {

constexpr int kVersion = 1;
constexpr std::array<std::string_view, 3> kKinds = {"refused", "report", "loop"};
constexpr std::string_view kNever = "never";

// ---- values

bool IsSpecial(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F || c == '[' || c == ']' || c == '\\';
}

// A blank at an end would be trimmed, and a line that begins with ";" or "//" is a comment.
std::string Escaped(std::string_view text) {
    std::string escaped;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool first = i == 0 && (c == ';' || c == '/');
        const bool blank_at_an_end = c == ' ' && (i == 0 || i + 1 == text.size());
        if (!IsSpecial(c) && !first && !blank_at_an_end) {
            escaped += c;
            continue;
        }
        escaped.append("\\x").append(Hexadecimal(static_cast<unsigned char>(c)));
    }
    return escaped;
}

std::string Unescaped(std::string_view text) {
    std::string plain;
    while (!text.empty()) {
        unsigned byte = 0;
        if (text.size() >= 4 && text.starts_with("\\x") &&
            std::from_chars(text.data() + 2, text.data() + 4, byte, 16).ptr == text.data() + 4) {
            plain += static_cast<char>(byte);
            text.remove_prefix(4);
        } else {
            plain += text.front();
            text.remove_prefix(1);
        }
    }
    return plain;
}

template <class Number>
bool TakeNumber(std::string_view text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size() && number >= 0;
}

// UTC, so that a record means the same on every machine.
std::string TimeText(CTime moment) {
    using namespace std::chrono;
    if (moment == 0) return std::string(kNever);
    const sys_seconds time{seconds(moment)};
    const auto day = floor<days>(time);
    const year_month_day date(day);
    const hh_mm_ss clock(time - day);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                  static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                  static_cast<int>(clock.seconds().count()));
    return text.data();
}

bool TakeTime(std::string_view text, CTime& moment) {
    using namespace std::chrono;
    moment = 0;
    if (text == kNever) return true;
    int year_number = 0;
    unsigned month_number = 0;
    unsigned day_number = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
    const std::string line(text);
    if (std::sscanf(line.c_str(), "%4d-%2u-%2uT%2d:%2d:%2dZ", &year_number, &month_number, &day_number, &hour, &minute,
                    &second) != 6) {
        return false;
    }
    const year_month_day date = year(year_number) / month(month_number) / day(day_number);
    moment = (sys_days(date).time_since_epoch() + hours(hour) + minutes(minute) + seconds(second)) / seconds(1);
    return date.ok() && TimeText(moment) == text;  // all of it
}

// ---- keys

template <class Target>
struct HeldKey {
    std::string_view name;
    std::function<std::string(const Target&)> text;
    std::function<bool(Target&, std::string_view)> take;  // false: no such value
};

template <class Target>
HeldKey<Target> TextKey(std::string_view name, CString Target::*member) {
    return {name, [member](const Target& target) { return Escaped(target.*member); },
            [member](Target& target, std::string_view value) {
                target.*member = Unescaped(value);
                return true;
            }};
}

template <class Target, class Number>
HeldKey<Target> NumberKey(std::string_view name, Number Target::*member) {
    return {name, [member](const Target& target) { return std::to_string(target.*member); },
            [member](Target& target, std::string_view value) { return TakeNumber(value, target.*member); }};
}

template <class Target>
HeldKey<Target> TimeKey(std::string_view name, CTime Target::*member) {
    return {name, [member](const Target& target) { return TimeText(target.*member); },
            [member](Target& target, std::string_view value) { return TakeTime(value, target.*member); }};
}

template <class Target, class Enum>
HeldKey<Target> WordKey(std::string_view name, Enum Target::*member) {
    return {name, [member](const Target& target) { return std::string(Word(target.*member)); },
            [member](Target& target, std::string_view value) {
                target.*member = ValueOf<Enum>(value);
                return Word(target.*member) == value;
            }};
}

bool TakeKind(HeldRecord& record, std::string_view value) {
    const auto kind = std::ranges::find(kKinds, value);
    if (kind == kKinds.end()) return false;
    record.kind = static_cast<HeldKind>(kind - kKinds.begin());
    return true;
}

// One in a line, with its time in front; all of that is one value.
std::string AnswersText(const HeldAddress& waiting) {
    std::string lines;
    for (const HeldAnswer& answer : waiting.answers) lines += TimeText(answer.time) + ' ' + answer.reply + '\n';
    return Escaped(lines);
}

bool TakeAnswers(HeldAddress& waiting, std::string_view value) {
    std::istringstream lines(Unescaped(value));
    for (std::string line; std::getline(lines, line);) {
        const std::size_t blank = std::min(line.find(' '), line.size());
        HeldAnswer& answer = waiting.answers.emplace_back();
        if (!TakeTime(std::string_view(line).substr(0, blank), answer.time)) return false;
        answer.reply = line.substr(std::min(blank + 1, line.size()));
    }
    return true;
}

const std::array kRecordKeys = {
    TextKey("uidl", &HeldRecord::uidl),
    TextKey("digest", &HeldRecord::digest),
    HeldKey<HeldRecord>{"kind", [](const HeldRecord& record) { return std::string(Word(record.kind)); }, TakeKind},
    TimeKey("set aside", &HeldRecord::set_aside),
    NumberKey("bytes", &HeldRecord::bytes),
};
const std::array kAddressKeys = {
    TextKey("address", &HeldAddress::address),
    TextKey("folder", &HeldAddress::folder),
    TextKey("made", &HeldAddress::made),
    TextKey("route", &HeldAddress::route),
    WordKey("stage", &HeldAddress::stage),
    WordKey("class", &HeldAddress::failure_class),
    TextKey("reply", &HeldAddress::reply),
    NumberKey("tries", &HeldAddress::tries),
    HeldKey<HeldAddress>{"answers", AnswersText, TakeAnswers},
    TimeKey("last try", &HeldAddress::last_try),
    TimeKey("next try", &HeldAddress::next_try),
};
constexpr std::string_view kVersionKey = "version";
constexpr std::string_view kCountKey = "addresses";

void Append(std::string& text, std::string_view key, std::string_view value) {
    text.append("[").append(key).append("]\n").append(value).append("\n\n");
}

template <class Target, class Keys>
void AppendAll(std::string& text, const Target& target, const Keys& keys) {
    for (const auto& key : keys) Append(text, key.name, key.text(target));
}

// ---- reading

std::string_view Trimmed(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string_view::npos) return {};
    return line.substr(first, line.find_last_not_of(" \t\r") + 1 - first);
}

// The keys in the order of the file, each with the last value line below it; empty when there is none.
using Values = std::vector<std::pair<std::string, std::string>>;

Values ValuesIn(std::string_view text) {
    Values values;
    std::istringstream lines{std::string(text)};
    for (std::string raw; std::getline(lines, raw);) {
        const std::string_view line = Trimmed(raw);
        if (line.empty() || line.starts_with(';') || line.starts_with("//")) continue;
        if (line.starts_with('[') && line.ends_with(']')) {
            values.emplace_back(line.substr(1, line.size() - 2), "");
        } else if (!values.empty()) {
            values.back().second = line;
        }
    }
    return values;
}

class Reader {
public:
    explicit Reader(std::string_view text) : values_(ValuesIn(text)) {}

    HeldRecord Read() {
        HeldRecord record;
        int version = 0;
        std::size_t count = 0;
        const bool whole = TakeOwn(kVersionKey, version) && version == kVersion && Take(record, kRecordKeys) &&
                           TakeOwn(kCountKey, count);
        for (std::size_t i = 0; whole && i < count; ++i) {
            if (!Take(record.addresses.emplace_back(), kAddressKeys)) break;
        }
        if (version != kVersion && failed_.empty()) {
            record.damage = Tr("its record is of another version of tarvex");
        } else if (!failed_.empty()) {
            record.damage = Tr("its record has no usable \"{0}\"", failed_);
        } else if (record.digest.empty()) {
            record.damage = Tr("its record names no digest");
        }
        return record;
    }

private:
    // The value of the key, which has to be the next known one.
    std::string_view Next(std::string_view key) {
        while (place_ < values_.size() && values_[place_].first != key && !IsKnown(values_[place_].first)) ++place_;
        failed_ = key;  // until its value is taken
        if (place_ == values_.size() || values_[place_].first != key) return kNoValue;
        failed_ = {};
        return values_[place_++].second;
    }

    template <class Number>
    bool TakeOwn(std::string_view key, Number& number) {
        const bool taken = TakeNumber(Next(key), number);
        if (!taken) failed_ = key;
        return taken;
    }

    template <class Target, class Keys>
    bool Take(Target& target, const Keys& keys) {
        return std::ranges::all_of(keys, [&](const auto& key) {
            const std::string_view value = Next(key.name);
            if (!failed_.empty()) return false;
            if (key.take(target, value)) return true;
            failed_ = key.name;
            return false;
        });
    }

    static bool IsKnown(std::string_view name) {
        const auto has_name = [name](const auto& key) { return key.name == name; };
        return name == kVersionKey || name == kCountKey || std::ranges::any_of(kRecordKeys, has_name) ||
               std::ranges::any_of(kAddressKeys, has_name);
    }

    static constexpr std::string_view kNoValue = "-";  // no number

    const Values values_;
    std::size_t place_ = 0;
    std::string_view failed_;  // the key that was missing, or had a value that it cannot have
};

constexpr CTime kFirstDelay_s = CTime{15} * 60;

}  // namespace

std::string_view Word(HeldKind kind) { return kKinds[static_cast<std::size_t>(kind)]; }

CString FolderOf(const CForwardAddress& address) { return address.path.substr(address.path.find_last_of("\\/") + 1); }

const CString& RelayOf(const CPopProfileSetting& setting) {
    return setting.smtpserver.empty() ? setting.popserver : setting.smtpserver;
}

CString RouteOf(const CPopProfileSetting& setting) {
    const bool logs_in = setting.esmtp != 0 && setting.smtpauth != 0;
    CString route = RelayOf(setting);
    route += ':' + std::to_string(setting.smtpport) + " tls " + std::to_string(setting.sslsmtp) + " from <" +
             setting.address + '>';
    if (!logs_in) return route;
    return route + " login " + std::to_string(setting.smtpauth_mode) + ' ' +
           (setting.smtpuser.empty() ? setting.popuser : setting.smtpuser);
}

CString RouteOf(const CPopProfile& profile) { return RouteOf(SettingsInUse(profile).setting); }

bool IsOf(const HeldAddress& waiting, const CForwardAddress& address) {
    if (FolderOf(address) != waiting.folder) return false;
    return waiting.address == address.setting.address || waiting.made == DirectoryIdentity(address.path);
}

HeldAddress WaitingNow(const CPopProfile& profile, const CForwardAddress& address) {
    HeldAddress waiting;
    waiting.address = address.setting.address;
    waiting.folder = FolderOf(address);
    waiting.made = DirectoryIdentity(address.path);
    waiting.route = RouteOf(profile);
    return waiting;
}

HeldAddress RefusedNow(const CPopProfile& profile, const CForwardAddress& address, CRunStage stage,
                       CFailureClass failure_class, const CString& reply, CTime now) {
    HeldAddress waiting = WaitingNow(profile, address);
    CountRefusal(waiting, stage, failure_class, reply, now);
    return waiting;
}

void CountRefusal(HeldAddress& waiting, CRunStage stage, CFailureClass failure_class, const CString& reply, CTime now) {
    waiting.stage = stage;
    waiting.failure_class = failure_class;
    waiting.reply = reply.substr(0, kMostReplyBytes);
    waiting.last_try = now;
    if (waiting.tries < std::numeric_limits<int>::max()) ++waiting.tries;
    const std::size_t line_end = reply.find_first_of("\r\n");
    waiting.answers.push_back({now, reply.substr(0, std::min(line_end, kMostOldReplyBytes))});
    if (waiting.answers.size() > kMostAnswers) waiting.answers.erase(waiting.answers.begin());
    waiting.next_try = 0;
    if (failure_class != CFailureClass::Transient) return;
    CTime delay_s = kFirstDelay_s;
    for (int i = 1; i < waiting.tries && delay_s < kLongestHeldPause; ++i) delay_s *= 2;
    waiting.next_try = now + std::min(delay_s, kLongestHeldPause);
}

std::string TextOf(const HeldRecord& record) {
    std::string text;
    Append(text, kVersionKey, std::to_string(kVersion));
    AppendAll(text, record, kRecordKeys);
    Append(text, kCountKey, std::to_string(record.addresses.size()));
    for (const HeldAddress& waiting : record.addresses) AppendAll(text, waiting, kAddressKeys);
    return text;
}

HeldRecord RecordIn(std::string_view text) { return Reader(text).Read(); }

}  // namespace tarvex::host
