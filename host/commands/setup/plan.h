#pragma once

// What `tarvex setup` is going to write: shown before, and changed by a word.

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/edit/edit.h"
#include "host/language/tr.h"
#include "host/settings/host_setting.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {

struct SetupPlan {
    std::string directory;  // of the tree
    HostRules rules;        // that profiles of the user have
    bool user_is_new = true;
    // The name is the user's; values, secrets and rules are filled in one by one. Those of the command line are there
    // first, and stay.
    EditRequest profile{EditKind::Profile, EditVerb::Add, ""};

    std::vector<std::string> forwards;  // addresses
    std::string text = "whole";         // the value of textonly
    std::vector<std::string> terms;     // none: always
    bool all_mail = false;              // also what is in the mailbox now

    // What is in the mailbox; nothing as long as nobody has logged in.
    struct Mailbox {
        std::size_t messages = 0;
        bool has_uidls = false;
        std::vector<std::string> uidls;
    };
    std::optional<Mailbox> mailbox;

    bool logs_in_at_provider = false;  // with a token, once the profile is there
    std::string provider;              // that one; empty for the only one
    std::string service;               // what becomes of the service, for the summary

    std::string Address() const { return profile.values.at("address"); }
};

// The profile as it will be, in memory, and the rules that will hold for it. Throw CommandError.
std::unique_ptr<CPopProfile> DraftOf(const SetupPlan& plan);
HostRules RulesFor(const SetupPlan& plan);

// What an empty mailbox or a full one is for the plan.
SetupPlan::Mailbox MailboxOf(const CMailboxListing& listing);

// Takes addresses, with commas or blanks between. Throws CommandError when one is none, or is the mailbox itself.
std::vector<std::string> ForwardsIn(const SetupPlan& plan, const std::string& words);

// Changes the plan by "all", "new", "text", "text 500", "whole", "always", or a term. Throws CommandError that says
// what can be said.
void Change(SetupPlan& plan, const std::string& words);

// Only the new mail can be told from the old where the server has unique ids. Throws CommandError.
void RequireIds(const SetupPlan& plan);

std::string Summary(const SetupPlan& plan);
inline constexpr const char* kHowToChange = Marked(
    "To change it, type all or new; text, text 500 (bytes) or whole; always, or days and times such as mon-fri "
    "9:00-17:30. Enter or yes goes on, no stops.");

}  // namespace tarvex::host
