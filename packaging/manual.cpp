// Makes a page of the manual from its source: a line `.\" keys FILE` becomes the list of that file's keys, in mdoc.
//   tarvex_manual SOURCE PAGE [MEANINGS]
// MEANINGS says in Japanese what each key means, a line for each: its file, its name, the text. None may be missing.

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iostream>
#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "host/settings/host_setting.h"
#include "host/settings/keys.h"

namespace {

using namespace tarvex::host;

// Text of the tables as mdoc: each sentence on a line of its own, and nothing that is taken for a macro.
std::string Prose(std::string text) {
    text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
    if (text.back() != '.') text += '.';
    std::string prose;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool sentence_ends = text[i] == ' ' && text[i - 1] == '.';
        if (text[i] == '\\') {
            prose += "\\e";
        } else {
            prose += sentence_ends ? '\n' : text[i];
        }
    }
    return prose;
}

// "In the file: plain 0, tls 1, starttls 2."
std::string FileNumbers(const KeyInfo& key) {
    std::string text;
    for (const ValueWord& word : key.words) {
        text += (text.empty() ? "In the file " : ", ") + std::string(word.word) + " is " + std::to_string(word.value);
    }
    return text;
}

bool TakesAnyText(const KeyInfo& key) {
    return key.type == KeyType::Text || key.type == KeyType::Login || key.type == KeyType::Password;
}

// A default that depends on the machine is told in words.
template <class Record>
std::string DefaultOf(const Key<Record>& key) {
    if (key.type == KeyType::Moment) return "now";
    const std::string usual = key.type == KeyType::Path ? "" : ShowValue(Record(), key);
    return usual == "(none)" ? "" : usual;
}

template <class Record>
std::string InEnglish(const Key<Record>& key) {
    const std::string usual = DefaultOf(key);
    const std::string allowed = TakesAnyText(key) ? "" : AllowedValues(key);
    std::string values = allowed + (*key.unit ? " (" + std::string(key.unit) + ")" : "");
    if (!usual.empty()) values += (values.empty() ? "default " : "; default ") + usual;
    std::string text = Prose(key.meaning) + '\n';
    if (!values.empty()) text += Prose(values) + '\n';
    if (!key.words.empty()) text += Prose(FileNumbers(key)) + '\n';
    return text;
}

std::string JapaneseRange(const KeyInfo& key) {
    if (key.highest != std::numeric_limits<int>::max()) {
        return std::to_string(key.lowest) + "〜" + std::to_string(key.highest);
    }
    return key.lowest == 0 ? "0 以上の整数" : "整数";
}

std::string JapaneseValues(const KeyInfo& key) {
    if (key.type == KeyType::Path) return "絶対パス";
    if (key.type == KeyType::HostName) return "ホスト名または IP アドレス";
    if (key.type == KeyType::Mailbox || key.type == KeyType::Recipient) return "メールアドレス";
    if (key.type == KeyType::Moment) return "now、never、または 2026-12-24 18:00 のような日時";
    if (key.type != KeyType::Number) return "";
    std::string values;
    for (const ValueWord& word : key.words) values += std::string(values.empty() ? "" : "、") + word.word;
    if (!WordsAreAll(key)) values += (values.empty() ? "" : "、または ") + JapaneseRange(key);
    return values;
}

// What a meaning is given for: "timer" of "popprofile.def".
using KeyName = std::pair<std::string, std::string>;
using Meanings = std::map<KeyName, std::string>;

template <class Record>
std::string InJapanese(const Key<Record>& key, const std::string& meaning) {
    std::string text = meaning + '\n';
    if (const std::string values = JapaneseValues(key); !values.empty()) text += "値: " + values + "。\n";
    if (const std::string usual = DefaultOf(key); !usual.empty()) text += "既定値: " + usual + "。\n";
    std::string numbers;
    for (const ValueWord& word : key.words) {
        numbers += (numbers.empty() ? "" : "、") + std::string(word.word) + " は " + std::to_string(word.value);
    }
    return numbers.empty() ? text : text + "ファイルでの値: " + numbers + "。\n";
}

// Takes the meanings that it uses out of those given.
template <class Record>
void PrintKeys(std::ostream& page, const std::string& file, std::optional<Meanings>& meanings) {
    page << ".Bl -tag -width Ds\n";
    for (const Key<Record>& key : Keys<Record>()) {
        page << ".It Ic " << key.name;
        if (*key.placeholder) page << " Ar " << key.placeholder;
        page << '\n';
        if (!meanings) {
            page << InEnglish(key);
            continue;
        }
        const auto meaning = meanings->extract({file, key.name});
        if (meaning.empty()) throw std::runtime_error("no meaning of " + file + ' ' + key.name);
        page << InJapanese(key, meaning.mapped());
    }
    page << ".El\n";
}

Meanings MeaningsIn(const char* path) {
    std::ifstream source(path);
    Meanings meanings;
    KeyName name;
    for (std::string text; source >> name.first >> name.second && std::getline(source >> std::ws, text);) {
        meanings[name] = text;
    }
    if (!source.eof()) throw std::runtime_error(std::string(path) + " cannot be read");
    return meanings;
}

void PrintKeysOf(const std::string& file, std::ostream& page, std::optional<Meanings>& meanings) {
    if (file == "appset.def") return PrintKeys<CAppSetting>(page, file, meanings);
    if (file == "userset.def") return PrintKeys<CUserSetting>(page, file, meanings);
    if (file == "popprofile.def") return PrintKeys<CPopProfileSetting>(page, file, meanings);
    if (file == "forwardaddress.def") return PrintKeys<CForwardAddressSetting>(page, file, meanings);
    if (file == "host.def") return PrintKeys<HostRules>(page, file, meanings);
    throw std::runtime_error("no table for " + file);
}

void MakePage(std::istream& source, std::ostream& page, std::optional<Meanings> meanings) {
    constexpr std::string_view kMark = ".\\\" keys ";
    for (std::string line; std::getline(source, line);) {
        if (line.starts_with(kMark)) {
            PrintKeysOf(line.substr(kMark.size()), page, meanings);
        } else {
            page << line << '\n';
        }
    }
    if (!source.eof() || !page.flush()) throw std::runtime_error("the page cannot be read or written");
    if (meanings && !meanings->empty()) throw std::runtime_error("no such key: " + meanings->begin()->first.second);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3 || argc > 4) return 64;
    std::ifstream source(argv[1]);
    std::ofstream page(argv[2]);
    try {
        MakePage(source, page, argc == 4 ? std::optional(MeaningsIn(argv[3])) : std::nullopt);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << argv[1] << ": " << error.what() << '\n';
        return 65;
    }
}
