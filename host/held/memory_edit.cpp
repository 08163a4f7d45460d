// Lets mail count as handled, or as not sent, for the addresses of a profile.

#include "host/held/memory_edit.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <unordered_set>
#include <vector>

#include "host/held/held.h"
#include "host/held/held_work.h"
#include "host/language/tr.h"
#include "host/memory/list_notes.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"
#include "host/tree/readiness.h"

namespace tarvex::host {
namespace {

// What an edit is about: a profile with all of its addresses, or with one of them.
struct Target {
    CPopProfile* profile = nullptr;
    std::vector<CForwardAddress*> addresses;
};

Target TargetOf(const CRootPath& root, const EditRequest& request) {
    Target target;
    if (request.kind == EditKind::Forward) {
        const NamedForward named = FindForward(root, request.name);
        target = {named.profile, {named.forward}};
    } else if (request.kind == EditKind::Profile) {
        target.profile = FindProfile(root, request.name).profile;
        for (const auto& address : target.profile->forward_addresses) target.addresses.push_back(address.get());
    } else {
        throw CommandError(kBadUsage, Tr("there is no edit \"{0}\"", EditName(request)));
    }
    if (const std::string why = WhyUnreadable(*target.profile); !why.empty()) throw CommandError(kCannotWrite, why);
    return target;
}

// Changes the list of ids on disk; runs read it from there.
template <class Change>
void ChangeList(const CForwardAddress& address, const Change& change) {
    CForwardAddress list;
    list.SetPath(address.path);
    list.LoadUidlSetting();
    if (const std::string why = WhyNotLoaded(list.uidls_loaded); !why.empty()) throw CommandError(kCannotWrite, why);
    if (!change(list.uidls)) return;
    if (!list.SaveUidlSetting())
        throw CommandError(kCannotWrite, Tr("cannot write in \"{0}\"", ShowPath(address.path)));
}

std::string CatchUp(const CRootPath& root, const Target& target, const EditRequest& request) {
    for (const CForwardAddress* const address : target.addresses) {
        ChangeList(*address, [&](CArray<CString>& uidls) {
            const std::unordered_set<std::string> known(uidls.begin(), uidls.end());
            const std::size_t before = uidls.size();
            for (const std::string& uidl : request.uidls) {
                if (!known.contains(uidl)) uidls.push_back(uidl);
            }
            return uidls.size() != before;
        });
    }
    const std::string whom = request.kind == EditKind::Profile
                                 ? Tr("every address of {0}", ShownName(root, target.profile->path))
                                 : ShownName(root, target.addresses.front()->path);
    return TrN("What is in the mailbox counts as handled for {1} ({0} message).",
               "What is in the mailbox counts as handled for {1} ({0} messages).",
               static_cast<std::int64_t>(request.uidls.size()), whom) +
           '\n';
}

// What only this process knows would be lost with it, and what it cannot read it cannot change.
void Require(bool done) {
    if (!done) throw CommandError(kCannotWrite, Tr("cannot use the memory of what was sent"));
}

// Whether that message was known there.
bool ForgetMessage(const CForwardAddress& address, ProfileMemory& memory, const std::string& uidl) {
    const std::optional<MailDigest> digest = memory.DigestOfId(uidl);
    if (digest) memory.Forget(address.setting.address, *digest, std::time(nullptr));
    return digest.has_value();
}

bool TakeOffList(const CForwardAddress& address, const std::string& uidl) {
    bool was_there = false;
    ChangeList(address, [&](CArray<CString>& uidls) { return was_there = std::erase(uidls, uidl) != 0; });
    return was_there;
}

void EmptyList(const CForwardAddress& address) {
    ChangeList(address, [](CArray<CString>& uidls) {
        const bool had_some = !uidls.empty();
        uidls.clear();
        return had_some;
    });
}

// What resending does not reach, because it waits in held/: a copy is not offered from the mailbox meanwhile.
std::string NoteOnHeld(const CRootPath& root, const Target& target, const EditRequest& request) {
    const auto records = HeldStore(target.profile->path).List();
    std::string ids;
    std::int64_t count = 0;
    for (const HeldRecord& record : records.value_or(std::vector<HeldRecord>())) {
        if (!request.uidls.empty() && record.uidl != request.uidls.front()) continue;
        const bool waits = std::ranges::any_of(record.addresses, [&](const HeldAddress& waiting) {
            return std::ranges::any_of(target.addresses, [&](const auto* address) { return IsOf(waiting, *address); });
        });
        if (!waits) continue;
        ids += ' ' + std::to_string(record.id);
        ++count;
    }
    if (count == 0) return {};
    const std::string whom =
        request.kind == EditKind::Forward ? " --address " + ShowText(target.addresses.front()->setting.address) : "";
    return TrN("Not what is set aside ({0} message): `tarvex held send {1}` sends that.",
               "Not what is set aside ({0} messages): `tarvex held send {1}` sends that.", count,
               ShownName(root, target.profile->path) + (request.uidls.empty() ? "" : ids) + whom) +
           '\n';
}

// Whether one of the messages was remembered. In a tree without rules only the lists say what was sent.
bool ForgetCopies(const CRootPath& root, const Target& target, const EditRequest& request, RuleMemory& memory) {
    if (!HasRules(root.path)) return false;
    ProfileMemory of_profile = memory.Of(target.profile->path);
    Require(memory.IsReadable());
    bool is_known = false;
    for (const CForwardAddress* const address : target.addresses) {
        ListNotes(of_profile).Forget(*address, std::time(nullptr));
        if (request.uidls.empty()) of_profile.Forget(address->setting.address, std::time(nullptr));
        for (const std::string& uidl : request.uidls) is_known |= ForgetMessage(*address, of_profile, uidl);
    }
    Require(memory.Save(std::time(nullptr)));
    return is_known;
}

// The lists come last: a message that is on none, but remembered, would be put back on them without being sent.
std::string Resend(const CRootPath& root, const Target& target, const EditRequest& request, RuleMemory& memory) {
    bool is_known = ForgetCopies(root, target, request, memory) || request.uidls.empty();
    for (const CForwardAddress* const address : target.addresses) {
        if (request.uidls.empty()) EmptyList(*address);
        for (const std::string& uidl : request.uidls) is_known |= TakeOffList(*address, uidl);
    }
    if (!is_known)
        throw CommandError(kNotFound,
                           Tr("no message with the id \"{0}\" is known there", ShowText(request.uidls.front())));
    return Tr("What is still in the mailbox of {0} goes out again with the next run.",
              ShownName(root, target.profile->path)) +
           '\n' + NoteOnHeld(root, target, request);
}

std::string Accept(const CRootPath& root, const Target& target, const EditRequest& request, RuleMemory& memory) {
    if (!HasRules(root.path)) throw NoRules();
    ProfileMemory of_profile = memory.Of(target.profile->path);
    if (!of_profile.IsWaiting())
        throw CommandError(kNotFound, Tr("{0} does not wait for an answer", ShownName(root, target.profile->path)));
    const bool sends = request.verb == EditVerb::Accept;
    std::string said = sends ? Tr("{0} goes on with its next run, which sends what is in the mailbox.",
                                  ShownName(root, target.profile->path)) +
                                   '\n'
                             : CatchUp(root, target, request);
    of_profile.Answer(sends ? WaitAnswer::Send : WaitAnswer::Skip, std::time(nullptr));
    Require(memory.Save(std::time(nullptr)));
    return said;
}

// Until a person says what is to become of the mail in its mailbox.
std::string Hold(const CRootPath& root, const Target& target, RuleMemory& memory) {
    if (!HasRules(root.path)) throw NoRules();
    memory.Of(target.profile->path)
        .Wait("the tree was an old copy, and nobody could say what is in the mailbox", std::time(nullptr));
    Require(memory.Save(std::time(nullptr)));
    return Tr("{0} waits for `tarvex accept {0}`.", ShownName(root, target.profile->path)) + '\n';
}

std::string Apply(const CRootPath& root, RuleMemory& memory, const EditRequest& request) {
    const Target target = TargetOf(root, request);
    if (request.verb == EditVerb::Hold) return Hold(root, target, memory);
    if (request.verb == EditVerb::Resend) return Resend(root, target, request, memory);
    if (request.kind == EditKind::Profile) return Accept(root, target, request, memory);
    return CatchUp(root, target, request);
}

// Whose addresses the edit changes, where something is remembered of them; null else.
const CPopProfile* ProfileWithNotes(CRootPath& root, const EditRequest& request) {
    const bool changes = request.verb == EditVerb::Set || request.verb == EditVerb::Remove;
    if (request.kind != EditKind::Forward || !changes || !HasRules(root.path)) return nullptr;
    try {
        return FindForward(root, request.name).profile;
    } catch (const CommandError&) {
        return nullptr;  // the edit will say so
    }
}

void ForgetOthers(const CPopProfile& profile, RuleMemory& memory) {
    std::vector<CString> addresses;
    for (const auto& address : profile.forward_addresses) addresses.push_back(address->setting.address);
    ProfileMemory of_profile = memory.Of(profile.path);
    of_profile.KeepNotesOf(addresses, std::time(nullptr));
    ListNotes(of_profile).KeepNotesOf(profile, std::time(nullptr));
}

}  // namespace

int EditWithMemory(CRootPath& root, RuleMemory& memory, const EditRequest& request, Reply& reply) {
    reply = {};
    if (!IsThere(root, request)) {
        reply.error = Tr("{0} has gone meanwhile; nothing was changed", ShowUtf8Text(request.name));
        return kNotFound;
    }
    const bool is_of_memory = request.verb == EditVerb::CatchUp || request.verb == EditVerb::Resend ||
                              request.verb == EditVerb::Hold ||
                              (request.verb == EditVerb::Accept && request.kind == EditKind::Profile);
    if (!is_of_memory) {
        const CPopProfile* const profile = ProfileWithNotes(root, request);
        const int code = EditWithHeld(root, request, reply);
        if (code == kDone && profile) ForgetOthers(*profile, memory);
        return code;
    }
    return ReplyOf(reply, [&] { reply.printed = Apply(root, memory, request); });
}

}  // namespace tarvex::host
