// How the service makes the edits of commands: when no run is in the way, and by whom.

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/edit/tree_edit.h"
#include "host/held/memory_edit.h"
#include "host/history/edit_record.h"
#include "host/service/log/log_facts.h"
#include "host/service/service.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kReasonColumns = 200;
constexpr std::size_t kHeadlineColumns = 60;

// The edit in a few words, without the values: "profile set user0/from0".
std::string Headline(const EditRequest& request) {
    return OneLineOfUtf8(EditName(request) + (request.name.empty() ? "" : ' ' + request.name), kHeadlineColumns);
}

bool EndsRuns(const EditRequest& request) {
    const bool of_profiles = request.kind == EditKind::User || request.kind == EditKind::Profile;
    if (!of_profiles) return false;
    if (request.verb == EditVerb::Remove) return true;
    const auto status = request.values.find("status");
    return request.verb == EditVerb::Set && status != request.values.end() && status->second == "off";
}

}  // namespace

// False when it has to wait.
bool Service::MakeEdit(ControlClient& client, const EditRequest& request) {
    if (client.HasLeft()) return false;  // while the service was halted
    CString running;
    if (HasToWait(request, running)) {
        const Speaking in(client.ReadsIn());
        client.Note(Tr("waiting for the run of {0} to end", Name(running)));
        return false;
    }
    RetryLeftOut();  // may have been loaded when it could not be read
    const std::string headline = Headline(request);
    const Speaking in(client.ReadsIn());
    Reply reply{{}, Tr(kRootHasGone)};
    ForgetWaiting();
    EditRecord record(root_, request);
    const int code = !HasRoot() ? kCannotWrite : Apply(request, reply);
    const EditedBy by = client.WhoAsks(request.caller);
    if (auto edit = record.After(code, by)) history_.AddEdit(*std::move(edit));
    next_held_look_.clear();
    const LogFacts facts = FactsOf(request, by);
    const std::string line = headline + WhatWasSetAndByWhom(facts);
    code == kDone ? log_.Say(LogLevel::Notice, line, facts)
                  : log_.Warn(line + ": " + OneLineOfUtf8(in.InEnglish(reply.error), kReasonColumns), facts);
    client.Answer(code, reply);
    return true;
}

bool Service::HasToWait(const EditRequest& request, CString& running) {
    const std::vector<CString> touched = TouchedProfiles(root_, request);
    const auto first = std::ranges::find_if(touched, [this](const CString& path) { return IsBusy(path); });
    if (first == touched.end()) return false;
    running = *first;
    wanted_.insert(touched.begin(), touched.end());
    if (EndsRuns(request)) EndRuns(touched);
    return true;
}

// What the edit would take away, or switch off, is not waited for.
void Service::EndRuns(const std::vector<CString>& paths) {
    for (const auto& copy : root_.running_copies) {
        if (rules_.HasRules(copy->path) && std::ranges::count(paths, copy->path) != 0) InterruptRun(*copy);
    }
}

int Service::Apply(const EditRequest& request, Reply& reply) {
    const bool is_of_tree = request.kind == EditKind::Tree;
    if (is_of_tree) next_tick_ = Clock::now();
    const int code =
        is_of_tree ? EditTree(age_, request, reply) : EditWithMemory(root_, rules_.Memory(), request, reply);
    ++changes_;
    return code;
}

}  // namespace tarvex::host
