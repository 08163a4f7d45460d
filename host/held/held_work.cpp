// Counts, drops and tells of mail that was set aside.

#include "host/held/held_work.h"

#include <algorithm>
#include <ctime>
#include <optional>
#include <set>

#include "host/held/held.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/wording.h"
#include "host/tree/names.h"

namespace tarvex::host {
namespace {

constexpr std::size_t kReplyColumns = 200;
constexpr CTime kUnreadablePause_s = 60;

// Of two moments of which either may be none.
CTime Earlier(CTime one, CTime other) { return one == 0 || (other != 0 && other < one) ? other : one; }

enum class Damaged { Counted, LeftOut };

// Those of the records that `is_meant` says of one of their addresses. What is damaged goes with no address.
template <class IsMeant>
HeldCount Count(const CString& profile_path, Damaged damaged, const IsMeant& is_meant) {
    HeldCount count;
    const auto records = HeldStore(profile_path).List();
    count.readable = records.has_value();
    for (const HeldRecord& record : records.value_or(std::vector<HeldRecord>())) {
        const auto copies = std::ranges::count_if(record.addresses, is_meant);
        if (record.damage.empty() ? copies == 0 : damaged == Damaged::LeftOut) continue;
        ++count.messages;
        count.copies += copies;
        count.damaged += record.damage.empty() ? 0 : 1;
        count.bytes += record.bytes;
        if (record.damage.empty() && record.kind == HeldKind::Refused) {
            for (const HeldAddress& waiting : record.addresses)
                count.next_try = Earlier(count.next_try, is_meant(waiting) ? waiting.next_try : 0);
        }
    }
    return count;
}

bool DropOne(const HeldStore& store, const HeldChoice& choice) {
    std::optional<HeldRecord> record = store.Find(choice.id);
    if (!record || record->digest != choice.digest) return true;  // gone already
    std::erase_if(record->addresses, [&](const HeldAddress& one) { return one.folder == choice.folder; });
    const bool of_damaged = choice.folder.empty() && !record->damage.empty();
    if (!of_damaged && !record->damage.empty()) return false;
    return of_damaged || record->addresses.empty() ? store.Remove(choice.id) : store.Update(*record);
}

int StrikeOff(const CString& profile_path, const std::vector<HeldChoice>& choice, Reply& reply) {
    const HeldStore store(profile_path);
    for (const HeldChoice& one : choice) {
        if (DropOne(store, one)) continue;
        reply.error = Tr("message {0} could not be dropped for good; what came before it was", one.id);
        return kCannotWrite;
    }
    std::set<int> ids;
    for (const HeldChoice& one : choice) ids.insert(one.id);
    reply.printed = TrN("Dropped {0} message.", "Dropped {0} messages.", static_cast<std::int64_t>(ids.size())) + '\n';
    return kDone;
}

// What has no id of its own is fetched in every run, and would be set aside anew.
void CountAsSent(const CString& profile_path, const std::vector<HeldChoice>& choice, RuleMemory& memory) {
    const HeldStore store(profile_path);
    for (const HeldChoice& one : choice) {
        const std::optional<HeldRecord> record = store.Find(one.id);
        if (!record || record->digest != one.digest) continue;
        const std::optional<MailDigest> digest = MailDigest::FromHex(record->digest);
        for (const HeldAddress& waiting : record->addresses) {
            if (digest && waiting.folder == one.folder)
                memory.Of(profile_path).RecordSent({&waiting.address, 1}, *digest, std::time(nullptr));
        }
    }
}

bool HoldsReport(const CString& profile_path) {
    const auto records = HeldStore(profile_path).List();
    return !records || std::ranges::count(*records, HeldKind::Report, &HeldRecord::kind) != 0;
}

std::string SaidOf(const HeldResult& result) {
    switch (result.outcome) {
        case HeldOutcome::Taken:
            return result.why.empty() ? Tr("taken")
                                      : Tr("taken, but {0} and it may be sent again", Tr(result.why.c_str()));
        case HeldOutcome::NotTried:
            return Tr("not tried: {0}", Tr(result.why.c_str()));
        default:
            break;
    }
    const CRunFailure& failure = result.failure;
    const std::string why = !result.why.empty()
                                ? Tr(result.why.c_str())
                                : OneLine(failure.reply.empty() ? failure.reason : failure.reply, kReplyColumns);
    if (result.outcome == HeldOutcome::Refused) return Tr("refused: {0}", why);
    if (result.outcome == HeldOutcome::Blocked) return Tr("refused like the messages before it: {0}", why);
    return Tr("failed: {0}", why);
}

// What a removal takes along, and how it is named.
struct Removal {
    HeldCount held;
    CString profile;                  // of an address
    std::vector<HeldChoice> waiting;  // for an address
};

Removal RemovalOf(CRootPath& root, const EditRequest& request) {
    Removal removal;
    if (request.kind == EditKind::User) removal.held = CountHeld(FindUser(root, request.name));
    if (request.kind == EditKind::Profile) removal.held = CountHeld(*FindProfile(root, request.name).profile);
    if (request.kind != EditKind::Forward) return removal;
    const NamedForward named = FindForward(root, request.name);
    removal.held = CountHeld(*named.profile, *named.forward);
    removal.profile = named.profile->path;
    for (const HeldRecord& record : HeldStore(removal.profile).List().value_or(std::vector<HeldRecord>())) {
        for (const HeldAddress& waiting : record.addresses) {
            if (!record.damage.empty() || !IsOf(waiting, *named.forward)) continue;
            removal.waiting.push_back({record.id, waiting.folder, record.digest});
        }
    }
    return removal;
}

}  // namespace

void HeldCount::Add(const HeldCount& other) {
    messages += other.messages;
    copies += other.copies;
    damaged += other.damaged;
    bytes += other.bytes;
    next_try = Earlier(next_try, other.next_try);
    readable = readable && other.readable;
}

MadeEdit EditOfHeld(const HeldRequest& request, EditedBy by) {
    const std::string_view verb = kHeldVerbs[static_cast<std::size_t>(request.verb)];
    MadeEdit edit{std::time(nullptr), std::move(by), "held " + std::string(verb), request.profile, {}};
    for (const HeldChoice& one : request.choice) {
        const EditedKey key{"message", "", std::to_string(one.id)};
        if (edit.keys.empty() || edit.keys.back() != key) edit.keys.push_back(key);
    }
    return edit;
}

HeldCount CountHeld(const CPopProfile& profile) {
    return Count(profile.path, Damaged::Counted, [](const HeldAddress&) { return true; });
}

HeldCount CountHeld(const CUser& user) {
    HeldCount count;
    for (const auto& profile : user.profiles) count.Add(CountHeld(*profile));
    return count;
}

HeldCount CountHeld(const CPopProfile& profile, const CForwardAddress& address) {
    return Count(profile.path, Damaged::LeftOut, [&](const HeldAddress& waiting) { return IsOf(waiting, address); });
}

std::string ShowHeld(const HeldCount& count) {
    if (count.IsEmpty()) return {};
    if (count.messages == 0) return Tr("mail set aside that cannot be read");
    if (count.damaged > 0)
        return TrN("{0} message set aside, {1} of them damaged", "{0} messages set aside, {1} of them damaged",
                   count.messages, count.damaged);
    return TrN("{0} message set aside", "{0} messages set aside", count.messages);
}

std::vector<HeldChoice> DueHeldOf(const CRootPath& root, const CPopProfile& profile, CTime now, CTime& next_look) {
    next_look = now + kUnreadablePause_s;
    try {
        const std::optional<HostRules> rules = RulesOf(root.path, profile.path);
        if (!rules || !rules->setaside) return {};
    } catch (const CommandError&) {
        return {};  // said where the profile is left out
    }
    const HeldStore store(profile.path);
    store.CleanUp();
    const auto records = store.List();
    if (!records) return {};
    next_look = NextHeldLook(*records, now);
    return DueHeld(profile, *records, now);
}

int EndOfDataSeconds(const CRootPath& root, const CPopProfile& profile) {
    try {
        const std::optional<HostRules> rules = RulesOf(root.path, profile.path);
        return rules ? rules->endofdata : 0;
    } catch (const CommandError&) {
        return 0;
    }
}

int DropHeld(const CRootPath& root, const CString& profile_path, const std::vector<HeldChoice>& choice,
             RuleMemory& memory, Reply& reply) {
    if (HasRules(root.path)) CountAsSent(profile_path, choice, memory);
    const int code = StrikeOff(profile_path, choice, reply);
    if (code == kDone && HasRules(root.path) && !HoldsReport(profile_path)) {
        memory.Of(profile_path).ClearBounces(std::time(nullptr));
    }
    return code;
}

int TellHeld(const std::vector<HeldResult>& results, std::size_t asked, Reply& reply) {
    std::size_t left = asked;
    for (const HeldResult& result : results) {
        if (result.outcome == HeldOutcome::Taken) --left;
        const std::string address = result.address.empty() ? ShowPath(result.choice.folder) : ShowText(result.address);
        reply.printed += Tr("{0} to {1}: {2}", result.choice.id, address, SaidOf(result)) + '\n';
    }
    if (left == 0) return kDone;
    reply.error = left == 1 ? Tr("one copy is still set aside") : Tr("{0} copies are still set aside", left);
    return kUnavailable;
}

int EditWithHeld(CRootPath& root, const EditRequest& request, Reply& reply) {
    if (request.verb != EditVerb::Remove) return Edit(root, request, reply);
    Removal removal;
    try {
        removal = RemovalOf(root, request);
    } catch (const CommandError&) {
        return Edit(root, request, reply);  // which says the same
    }
    const std::string held = ShowHeld(removal.held);
    if (!request.expected.empty() && request.expected_held != held) {
        reply = {};
        reply.error =
            Tr("there is other mail set aside by now ({0}); nothing was removed", held.empty() ? Tr("none") : held);
        return kNotFound;
    }
    const int code = Edit(root, request, reply);
    if (code != kDone || removal.waiting.empty()) return code;
    Reply dropped;
    if (StrikeOff(removal.profile, removal.waiting, dropped) == kDone) return code;
    reply.error = Tr("the address was removed, but the mail that waits for it was not; `tarvex held drop` removes it");
    return kCannotWrite;
}

}  // namespace tarvex::host
