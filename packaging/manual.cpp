// Makes a page of the manual from its source: a line `.\" keys FILE` becomes the list of that file's keys, in mdoc.
//   tarvex_manual SOURCE PAGE

#include <algorithm>
#include <cctype>
#include <fstream>
#include <iostream>
#include <string>
#include <string_view>

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

template <class Record>
void PrintKeys(std::ostream& page) {
    page << ".Bl -tag -width Ds\n";
    for (const Key<Record>& key : Keys<Record>()) {
        page << ".It Ic " << key.name;
        if (*key.placeholder) page << " Ar " << key.placeholder;
        page << '\n' << Prose(key.meaning) << '\n';
        // A default that depends on the machine is told in words.
        const std::string usual = key.type == KeyType::Moment ? "now"
                                  : key.type == KeyType::Path ? ""
                                                              : ShowValue(Record(), key);
        const std::string allowed = TakesAnyText(key) ? "" : AllowedValues(key);
        std::string values = allowed + (*key.unit ? " (" + std::string(key.unit) + ")" : "");
        if (!usual.empty() && usual != "(none)") values += (values.empty() ? "default " : "; default ") + usual;
        if (!values.empty()) page << Prose(values) << '\n';
        if (!key.words.empty()) page << Prose(FileNumbers(key)) << '\n';
    }
    page << ".El\n";
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return 64;
    std::ifstream source(argv[1]);
    std::ofstream page(argv[2]);
    constexpr std::string_view kMark = ".\\\" keys ";
    for (std::string line; std::getline(source, line);) {
        if (!line.starts_with(kMark)) {
            page << line << '\n';
            continue;
        }
        const std::string file = line.substr(kMark.size());
        if (file == "appset.def") {
            PrintKeys<CAppSetting>(page);
        } else if (file == "userset.def") {
            PrintKeys<CUserSetting>(page);
        } else if (file == "popprofile.def") {
            PrintKeys<CPopProfileSetting>(page);
        } else if (file == "forwardaddress.def") {
            PrintKeys<CForwardAddressSetting>(page);
        } else if (file == "host.def") {
            PrintKeys<HostRules>(page);
        } else {
            std::cerr << argv[1] << ": no table for " << file << '\n';
            return 65;
        }
    }
    return source.eof() && page.flush() ? 0 : 74;
}
