// Turns requests and replies into JSON texts, and back.

#include "host/service/control_messages.h"

#include <algorithm>
#include <array>
#include <map>
#include <stdexcept>

#include "host/language/tr.h"
#include "host/system/display.h"
#include "host/terminal/json.h"

namespace tarvex::host {
namespace {

constexpr int kMaxDepth = 3;  // of a request

// A byte in each character: Latin-1 as UTF-8.
std::string TextOf(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            text += c;
        } else {
            text += static_cast<char>(0xC0 | byte >> 6);
            text += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return text;
}

// The text is UTF-8. Throws std::invalid_argument for a character that is no byte.
std::string BytesOf(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < 0x80) {
            bytes += text[i];
        } else if ((byte & 0xFC) == 0xC0 && i + 1 < text.size()) {
            bytes += static_cast<char>(byte << 6 | (text[++i] & 0x3F));
        } else {
            throw std::invalid_argument("a character that is no byte");
        }
    }
    return bytes;
}

std::string BytesIn(const Json& json) { return BytesOf(json.get_ref<const std::string&>()); }

std::string ShownIn(const Json& json) { return ShowUtf8Text(BytesIn(json)); }

std::vector<std::string> ListOf(const Json& json) {
    std::vector<std::string> list;
    list.reserve(json.size());
    for (const Json& entry : json) list.push_back(BytesIn(entry));
    return list;
}

using Strings = std::map<std::string, std::string>;

Strings StringsIn(const Json& json) {
    Strings words;
    for (const auto& [key, word] : json.items()) words[BytesOf(key)] = BytesIn(word);
    return words;
}

Json JsonOf(const Strings& words) {
    Json json = Json::object();
    for (const auto& [key, word] : words) json[TextOf(key)] = TextOf(word);
    return json;
}

Json JsonOf(const std::vector<std::string>& list) {
    Json json = Json::array();
    for (const std::string& entry : list) json.push_back(TextOf(entry));
    return json;
}

// The place of a word in a list of all that are allowed.
template <class Choice, std::size_t kCount>
Choice ChoiceIn(const Json& json, const std::array<std::string_view, kCount>& words) {
    const auto word = std::ranges::find(words, json.get_ref<const std::string&>());
    if (word == words.end()) throw std::invalid_argument("an unknown word");
    return static_cast<Choice>(word - words.begin());
}

Json JsonOf(const EditRequest& request) {
    return {{"kind", kEditKinds[static_cast<std::size_t>(request.kind)]},
            {"verb", kEditVerbs[static_cast<std::size_t>(request.verb)]},
            {"name", TextOf(request.name)},
            {"values", JsonOf(request.values)},
            {"secrets", JsonOf(request.secrets)},
            {"rules", JsonOf(request.rules)},
            {"again", request.again},
            {"uidls", JsonOf(request.uidls)},
            {"terms", TextOf(request.terms)},
            {"term_number", request.term_number ? Json(*request.term_number) : Json()},
            {"caller", TextOf(request.caller)},
            {"expected", TextOf(request.expected)},
            {"expected_held", TextOf(request.expected_held)},
            {"by_path", request.by_path}};
}

EditRequest EditIn(const Json& json) {
    EditRequest request(ChoiceIn<EditKind>(json.at("kind"), kEditKinds),
                        ChoiceIn<EditVerb>(json.at("verb"), kEditVerbs), BytesIn(json.at("name")));
    request.values = StringsIn(json.at("values"));
    request.secrets = StringsIn(json.at("secrets"));
    if (json.contains("rules")) request.rules = StringsIn(json.at("rules"));
    request.again = json.value("again", false);
    request.uidls = ListOf(json.at("uidls"));
    request.terms = BytesIn(json.at("terms"));
    if (const Json& number = json.at("term_number"); !number.is_null()) request.term_number = number.get<std::size_t>();
    if (json.contains("caller")) request.caller = BytesIn(json.at("caller"));
    request.expected = BytesIn(json.at("expected"));
    request.expected_held = BytesIn(json.at("expected_held"));
    request.by_path = json.value("by_path", false);
    return request;
}

Json JsonOf(const RunRequest& request) {
    return {{"names", JsonOf(request.names)}, {"now", request.now}, {"verbose", request.verbose}};
}

RunRequest RunRequestIn(const Json& json) {
    return {ListOf(json.at("names")), json.at("now").get<bool>(), json.value("verbose", false)};
}

// As lists side by side: a request is not nested deeper.
Json JsonOf(const HeldRequest& request) {
    std::vector<std::string> ids;
    std::vector<std::string> folders;
    std::vector<std::string> digests;
    for (const HeldChoice& one : request.choice) {
        ids.push_back(std::to_string(one.id));
        folders.push_back(one.folder);
        digests.push_back(one.digest);
    }
    return {{"verb", kHeldVerbs[static_cast<std::size_t>(request.verb)]},
            {"profile", TextOf(request.profile)},
            {"ids", JsonOf(ids)},
            {"folders", JsonOf(folders)},
            {"digests", JsonOf(digests)},
            {"caller", TextOf(request.caller)}};
}

HeldRequest HeldRequestIn(const Json& json) {
    HeldRequest request{ChoiceIn<HeldVerb>(json.at("verb"), kHeldVerbs), BytesIn(json.at("profile")), {}, {}};
    if (json.contains("caller")) request.caller = BytesIn(json.at("caller"));
    const std::vector<std::string> ids = ListOf(json.at("ids"));
    const std::vector<std::string> folders = ListOf(json.at("folders"));
    const std::vector<std::string> digests = ListOf(json.at("digests"));
    for (std::size_t i = 0; i < ids.size(); ++i) {
        request.choice.push_back({std::stoi(ids[i]), folders.at(i), digests.at(i)});
    }
    return request;
}

Json JsonOf(const RunNow& run) {
    return {{"profile", TextOf(run.profile)},
            {"bytes_received", run.bytes_received},
            {"bytes_sent", run.bytes_sent},
            {"messages_to_fetch", run.messages_to_fetch},
            {"messages_fetched", run.messages_fetched},
            {"messages_delivered", run.messages_delivered}};
}

RunNow RunIn(const Json& json) {
    return {BytesIn(json.at("profile")),  json.at("bytes_received"),   json.at("bytes_sent"),
            json.at("messages_to_fetch"), json.at("messages_fetched"), json.at("messages_delivered")};
}

Json JsonOf(const ReportRequest&) { return true; }

Json JsonOf(const Outcome& outcome) {
    return {{"code", outcome.exit_code},
            {"printed", TextOf(outcome.reply.printed)},
            {"error", TextOf(outcome.reply.error)}};
}

Json JsonOf(const ClientNote& note) { return {{"note", TextOf(note.text)}}; }

Json JsonOf(const ServiceReport& report) {
    Json runs = Json::array();
    for (const RunNow& run : report.runs) runs.push_back(JsonOf(run));
    Json troubles = Json::object();
    for (const auto& [profile, trouble] : report.troubles) troubles[TextOf(profile)] = TextOf(trouble);
    Json json = {{"runs", std::move(runs)}, {"troubles", std::move(troubles)}, {"zone", TextOf(report.zone)}};
    if (const auto& old = report.old_copy)
        json["old_copy"] = {{"generation", old->generation ? Json(*old->generation) : Json()},
                            {"expected", old->expected}};
    if (report.is_paused) json["paused"] = true;
    return json;
}

OldCopy OldCopyIn(const Json& json) {
    const Json& generation = json.at("generation");
    return {generation.is_null() ? std::nullopt : std::optional(generation.get<std::int64_t>()), json.at("expected")};
}

ServiceReport ReportIn(const Json& json) {
    ServiceReport report;
    for (const Json& run : json.at("runs")) report.runs.push_back(RunIn(run));
    report.zone = ShownIn(json.at("zone"));
    for (const auto& [profile, trouble] : json.at("troubles").items()) {
        report.troubles[BytesOf(profile)] = ShownIn(trouble);
    }
    if (json.contains("old_copy")) report.old_copy = OldCopyIn(json.at("old_copy"));
    report.is_paused = json.value("paused", false);
    return report;
}

// What is nested deeper than a request can be is skipped.
Json Parsed(std::string_view text) {
    return Json::parse(text, [](int depth, Json::parse_event_t, const Json&) { return depth <= kMaxDepth; });
}

std::string Framed(const Json& json) {
    const std::string text = json.dump();
    std::string message;
    for (int shift = 24; shift >= 0; shift -= 8) message += static_cast<char>(text.size() >> shift & 0xFF);
    return message + text;
}

ControlRequest RequestOf(const Json& request) {
    if (request.contains("edit")) return EditIn(request.at("edit"));
    if (request.contains("run")) return RunRequestIn(request.at("run"));
    if (request.contains("held")) return HeldRequestIn(request.at("held"));
    request.at("runs");
    return ReportRequest();
}

}  // namespace

std::string MessageOf(const ControlRequest& request) {
    constexpr std::array kNames = {"runs", "edit", "run", "held"};
    return Framed({{kNames[request.index()], std::visit([](const auto& asked) { return JsonOf(asked); }, request)},
                   {"language", LanguageCode(SpokenLanguage())}});
}

std::string MessageOf(const ControlReply& reply) {
    return Framed(std::visit([](const auto& said) { return JsonOf(said); }, reply));
}

std::size_t LengthIn(std::string_view bytes) {
    std::size_t length = 0;
    for (const char c : bytes.substr(0, kLengthBytes)) length = length << 8 | static_cast<unsigned char>(c);
    return length;
}

AskedIn RequestIn(std::string_view text) {
    const Json json = Parsed(text);
    const auto language = LanguageOfCode(json.value("language", ""));
    return {RequestOf(json), language.value_or(Language::English)};
}

ControlReply ReplyIn(std::string_view text) {
    const Json reply = Json::parse(text);
    if (reply.contains("note")) return ClientNote{ShownIn(reply.at("note"))};
    if (reply.contains("runs")) return ReportIn(reply);
    return Outcome{reply.at("code"), {ShownIn(reply.at("printed")), ShownIn(reply.at("error"))}};
}

}  // namespace tarvex::host
