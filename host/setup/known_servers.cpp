// Reads the file of known providers.

#include "host/setup/known_servers.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>
#include <utility>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/durable_files.h"
#include "host/system/paths.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr int kSubmission = 587;
constexpr int kHighestPort = 65535;

template <class Value>
using Words = std::array<std::pair<std::string_view, Value>, 3>;

constexpr Words<LoginUser> kUsers = {
    {{"address", LoginUser::Address}, {"name", LoginUser::NameAlone}, {"either", LoginUser::Either}}};
constexpr Words<LoginKind> kLogins = {
    {{"password", LoginKind::Password}, {"app-password", LoginKind::AppPassword}, {"token", LoginKind::Token}}};

CommandError BadLine(const std::string& line, const std::string& why) {
    return {kBadSettings, Tr("the file of known mail servers has a line that is wrong ({0}): {1}", why, line)};
}

template <class Value>
Value Meaning(const Words<Value>& words, const std::string& word, const std::string& line) {
    const auto known = std::ranges::find(words, word, &std::pair<std::string_view, Value>::first);
    if (known == words.end()) throw BadLine(line, '"' + word + '"');
    return known->second;
}

std::optional<MailServer> ServerIn(const std::string& word, const std::string& line) {
    if (word == "-") return std::nullopt;
    std::optional<MailServer> server = ServerAndPort(word);
    if (!server) throw BadLine(line, '"' + word + '"');
    return server;
}

std::vector<std::string> Domains(const std::string& word) {
    std::vector<std::string> domains;
    std::istringstream parts(word);
    for (std::string domain; std::getline(parts, domain, ',');) domains.push_back(Lower(domain));
    return domains;
}

KnownLine ReadLine(const std::string& line) {
    std::istringstream words(line);
    std::string domains, pop, smtp, user, login;
    if (!(words >> domains >> pop >> smtp >> user >> login)) throw BadLine(line, Tr("it has five columns"));
    KnownLine known{Domains(domains), {}};
    known.provider.pop = ServerIn(pop, line);
    known.provider.smtp = ServerIn(smtp, line);
    known.provider.user = Meaning(kUsers, user, line);
    known.provider.login = Meaning(kLogins, login, line);
    std::getline(words >> std::ws, known.provider.remark);
    return known;
}

bool IsOf(std::string_view domain, std::string_view pattern) {
    return pattern.starts_with('.') ? domain.ends_with(pattern) : domain == pattern;
}

}  // namespace

std::optional<MailServer> ServerAndPort(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0) return std::nullopt;
    MailServer server;
    server.name = text.substr(0, colon);
    const std::string_view number = text.substr(colon + 1);
    const char* const end = number.data() + number.size();
    const auto [rest, error] = std::from_chars(number.data(), end, server.port);
    if (error != std::errc() || rest != end || server.port < 1 || server.port > kHighestPort) return std::nullopt;
    if (server.port == kSubmission) server.tls = PopTls::Stls;
    return server;
}

std::vector<KnownLine> ReadKnownServers(std::string_view text) {
    std::vector<KnownLine> known;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        if (line.ends_with('\r')) line.pop_back();
        if (!line.empty() && !line.starts_with('#')) known.push_back(ReadLine(line));
    }
    return known;
}

std::optional<KnownProvider> KnownProviderOf(std::string_view domain, const std::string& file) {
    const std::optional<std::string> text = ReadWholeFile(file);
    if (!text) return std::nullopt;
    const std::string wanted = Lower(domain);
    for (const KnownLine& line : ReadKnownServers(*text)) {
        if (std::ranges::any_of(line.domains, [&](const std::string& one) { return IsOf(wanted, one); }))
            return line.provider;
    }
    return std::nullopt;
}

std::string KnownServersFile() { return ProgramDirectory() + "\\..\\share\\tarvex\\mail-servers"; }

}  // namespace tarvex::host
