// Takes the facts for the log out of the result of a run and out of an edit.

#include "host/service/log/log_facts.h"

#include "host/history/run_words.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"

namespace tarvex::host {

LogLevel LevelOf(const CRunResult& result) {
    if (result.ending == CRunEnding::CouldNotBegin || result.ending == CRunEnding::Exception) return LogLevel::Error;
    if (IsFailure(result.ending)) return LogLevel::Warning;
    return DidSomething(result) ? LogLevel::Info : LogLevel::Debug;
}

LogFacts FactsOf(const std::string& profile, const CRunResult& result) {
    LogFacts facts{.profile = profile, .result = std::string(Word(result.ending))};
    facts.matter = IsFailure(result.ending) ? LogMatter::RunFailed : LogMatter::RunEnded;
    for (const CAddressResult& address : result.addresses) {
        if (address.copies > 0) facts.addresses.push_back(ShowText(address.address));
    }
    const CRunFailure* const failure = FailureOf(result);
    if (failure && !failure->recipient.empty()) facts.addresses = {ShowText(failure->recipient)};
    return facts;
}

LogFacts FactsOf(const EditRequest& request, const EditedBy& by) {
    LogFacts facts{.matter = LogMatter::Edit, .user = NameOf(by)};
    for (const auto* const set : {&request.values, &request.secrets, &request.rules}) {
        for (const auto& [key, value] : *set) facts.keys.push_back(ShowUtf8Text(key));
    }
    return facts;
}

std::string NameOf(const EditedBy& by) {
    constexpr std::size_t kNameColumns = 40;
    return OneLineOfUtf8(by.caller.empty() ? by.user : by.user + " for " + by.caller, kNameColumns);
}

std::string WhatWasSetAndByWhom(const LogFacts& facts) {
    std::string text;
    for (const std::string& key : facts.keys) text += (text.empty() ? ": " : ", ") + key;
    return text + (facts.user.empty() ? "" : " by " + facts.user);
}

}  // namespace tarvex::host
