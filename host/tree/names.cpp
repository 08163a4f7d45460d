// Finds what a name on the command line means in the tree.

#include "host/tree/names.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <span>

#include "host/language/tr.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/terminal/typed_word.h"
#include "host/terminal/wording.h"

namespace tarvex::host {
namespace {

using Parts = std::vector<std::string>;  // of a path, from the user down

// The texts by which one level can be called: those that are set, without repetition of the directory.
struct Level {
    std::string directory;
    std::vector<std::string> others;
};

struct Candidate {
    std::vector<Level> levels;  // from the user down to what is named
    std::string shown;
    std::string remark;  // what it is to a person
};

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view TakeDigits(std::string_view& text) {
    std::size_t count = 0;
    while (count < text.size() && IsDigit(text[count])) ++count;
    const std::string_view digits = text.substr(0, count);
    text.remove_prefix(count);
    return digits;
}

template <class Children>
auto Sorted(const Children& children) {
    std::vector<typename Children::value_type::pointer> sorted;
    sorted.reserve(children.size());
    for (const auto& child : children) sorted.push_back(child.get());
    std::ranges::sort(sorted, [](const auto* a, const auto* b) { return NaturalLess(a->path, b->path); });
    return sorted;
}

Parts Split(std::string_view name) {
    Parts parts;
    for (;;) {
        const std::size_t slash = name.find_first_of("/\\");
        parts.emplace_back(name.substr(0, slash));
        if (slash == std::string_view::npos) return parts;
        name.remove_prefix(slash + 1);
    }
}

std::string DirectoryName(const CString& path) { return ShowPath(path.substr(path.rfind('\\') + 1)); }

void AddName(Level& level, const CString& text) {
    if (!text.empty()) level.others.push_back(ShowText(text));
}

Level LevelOf(const CUser& user) {
    Level level{DirectoryName(user.path), {}};
    AddName(level, user.setting.loginname);
    return level;
}

// "Taro <taro@example.org>" can be called by the address alone.
template <class Addressed>
Level LevelOf(const Addressed& object) {
    Level level{DirectoryName(object.path), {}};
    AddName(level, object.setting.nickname);
    AddName(level, object.setting.address);
    AddName(level, RecipientOf(object.setting.address));
    return level;
}

enum class Match { Exact, IgnoringCase };

bool Same(const std::string& a, const std::string& b, Match match) {
    return match == Match::Exact ? a == b : Lower(a) == Lower(b);
}

bool Called(const Level& level, const std::string& part, Match match) {
    return Same(level.directory, part, match) ||
           std::ranges::any_of(level.others, [&](const std::string& other) { return Same(other, part, match); });
}

// A nickname may itself hold a slash, so the whole name is tried for the last level, too.
bool Called(const Candidate& candidate, const std::string& name, const Parts& parts, Match match) {
    if (Called(candidate.levels.back(), name, match)) return true;
    if (parts.size() > candidate.levels.size()) return false;
    const std::span levels = std::span(candidate.levels).last(parts.size());
    return std::ranges::equal(levels, parts,
                              [&](const Level& level, const std::string& part) { return Called(level, part, match); });
}

std::vector<std::size_t> Matching(const std::vector<Candidate>& candidates, const std::string& name) {
    std::vector<std::size_t> found;
    // A whole path always means what it says, whatever nicknames there are.
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        if (candidates[i].shown == name) return {i};
    }
    const Parts parts = Split(name);
    for (const Match match : {Match::Exact, Match::IgnoringCase}) {
        for (std::size_t i = 0; i < candidates.size(); ++i) {
            if (Called(candidates[i], name, parts, match)) found.push_back(i);
        }
        if (!found.empty()) break;
    }
    return found;
}

std::string Lines(const std::vector<Candidate>& candidates, const std::vector<std::size_t>& chosen,
                  const std::string& command) {
    std::string text;
    for (std::size_t i = 0; i < chosen.size() && i < kMostCandidates; ++i) {
        const Candidate& candidate = candidates[chosen[i]];
        text += "\n  " + candidate.shown;
        if (!candidate.remark.empty()) text += "  (" + candidate.remark + ")";
    }
    if (chosen.size() > kMostCandidates) {
        text += "\n  " + Tr("and {0} more; `tarvex {1} list` lists them", chosen.size() - kMostCandidates, command);
    }
    return text;
}

// What each can be called by that is not a mere directory.
std::vector<std::string> NamesOf(const std::vector<Candidate>& candidates) {
    std::vector<std::string> names;
    for (const Candidate& candidate : candidates) {
        names.push_back(candidate.shown);
        const std::vector<std::string>& others = candidate.levels.back().others;
        names.insert(names.end(), others.begin(), others.end());
    }
    return names;
}

// The path of something in the tree (UTF-8) is written alike on every system.
std::string WithSlashes(std::string path) {
    if constexpr (std::filesystem::path::preferred_separator == '\\') std::ranges::replace(path, '\\', '/');
    return path;
}

std::string_view WithoutSlashes(std::string_view name) {
    while (name.size() > 1 && name.ends_with('/')) name.remove_suffix(1);
    return name;
}

// Where the one with this whole path stands, which is found without asking what each can be called by.
template <class Named, class PathOf>
auto AtPath(const CRootPath& root, const std::vector<Named>& all, std::string_view name, PathOf path_of) {
    name = WithoutSlashes(name);
    return std::ranges::find_if(all, [&](const Named& one) { return ShownName(root, path_of(one)) == name; });
}

std::size_t Choose(const std::vector<Candidate>& candidates, std::string_view given, const std::string& kind,
                   const std::string& command) {
    const std::string name(WithoutSlashes(given));
    const std::string quoted = Quoted(name);
    std::vector<std::size_t> found = Matching(candidates, name);
    if (found.empty()) found = Matching(candidates, WithSlashes(name));
    if (found.size() == 1) return found.front();
    if (found.size() > 1) {
        throw CommandError(kBadUsage, Tr("{0} is the name of more than one {1}; write the path of one:", quoted, kind) +
                                          Lines(candidates, found, command));
    }
    if (candidates.empty()) {
        throw CommandError(kNotFound,
                           Tr("no {0} {1} (there is none yet); `tarvex {2} add` adds one", kind, quoted, command));
    }
    if (const std::string meant = DidYouMean(name, NamesOf(candidates)); !meant.empty())
        throw CommandError(kNotFound, Tr("there is no {0} {1}", kind, quoted) + meant);
    std::vector<std::size_t> all(candidates.size());
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
    throw CommandError(kNotFound,
                       Tr("there is no {0} {1}; there are:", kind, quoted) + Lines(candidates, all, command));
}

std::string Remark(const std::string& nickname, const std::string& address) {
    return nickname.empty() || address.empty() ? nickname + address : nickname + ", " + address;
}

std::vector<Candidate> CandidatesOf(const CRootPath& root, const std::vector<CUser*>& users) {
    std::vector<Candidate> candidates;
    candidates.reserve(users.size());
    for (const CUser* const user : users) {
        candidates.push_back({{LevelOf(*user)}, ShownName(root, user->path), ShowText(user->setting.loginname)});
    }
    return candidates;
}

std::vector<Candidate> CandidatesOf(const CRootPath& root, const std::vector<NamedProfile>& profiles) {
    std::vector<Candidate> candidates;
    candidates.reserve(profiles.size());
    for (const auto& [user, profile] : profiles) {
        candidates.push_back({{LevelOf(*user), LevelOf(*profile)},
                              ShownName(root, profile->path),
                              Remark(ShowText(profile->setting.nickname), ShowText(profile->setting.address))});
    }
    return candidates;
}

}  // namespace

bool NaturalLess(std::string_view left, std::string_view right) {
    while (!left.empty() && !right.empty()) {
        if (IsDigit(left.front()) && IsDigit(right.front())) {
            const std::string_view a = TakeDigits(left);
            const std::string_view b = TakeDigits(right);
            if (a != b) return a.size() != b.size() ? a.size() < b.size() : a < b;
        } else {
            if (left.front() != right.front()) return left.front() < right.front();
            left.remove_prefix(1);
            right.remove_prefix(1);
        }
    }
    return left.size() < right.size();
}

std::vector<CUser*> AllUsers(const CRootPath& root) { return Sorted(root.users); }

std::vector<NamedProfile> AllProfiles(const CRootPath& root) {
    std::vector<NamedProfile> profiles;
    for (CUser* const user : AllUsers(root)) {
        for (CPopProfile* const profile : Sorted(user->profiles)) profiles.push_back({user, profile});
    }
    return profiles;
}

std::vector<NamedForward> AllForwards(const CRootPath& root) {
    std::vector<NamedForward> forwards;
    for (const auto& [user, profile] : AllProfiles(root)) {
        for (CForwardAddress* const forward : Sorted(profile->forward_addresses)) {
            forwards.push_back({user, profile, forward});
        }
    }
    return forwards;
}

CUser& FindUser(const CRootPath& root, std::string_view name) {
    const std::vector<CUser*> users = AllUsers(root);
    return *users[Choose(CandidatesOf(root, users), name, Tr("user"), "user")];
}

NamedProfile FindProfile(const CRootPath& root, std::string_view name) {
    const std::vector<NamedProfile> profiles = AllProfiles(root);
    const auto at_path =
        AtPath(root, profiles, name, [](const NamedProfile& one) -> const CString& { return one.profile->path; });
    if (at_path != profiles.end()) return *at_path;
    return profiles[Choose(CandidatesOf(root, profiles), name, Tr("profile"), "profile")];
}

CString FindUserOrProfile(const CRootPath& root, std::string_view name) {
    const std::vector<CUser*> users = AllUsers(root);
    const std::vector<NamedProfile> profiles = AllProfiles(root);
    std::vector<Candidate> candidates = CandidatesOf(root, users);
    std::ranges::move(CandidatesOf(root, profiles), std::back_inserter(candidates));
    const std::size_t chosen = Choose(candidates, name, Tr("user or profile"), "profile");
    return chosen < users.size() ? users[chosen]->path : profiles[chosen - users.size()].profile->path;
}

NamedForward FindForward(const CRootPath& root, std::string_view name) {
    const std::vector<NamedForward> forwards = AllForwards(root);
    const auto at_path =
        AtPath(root, forwards, name, [](const NamedForward& one) -> const CString& { return one.forward->path; });
    if (at_path != forwards.end()) return *at_path;
    std::vector<Candidate> candidates;
    candidates.reserve(forwards.size());
    for (const auto& [user, profile, forward] : forwards) {
        candidates.push_back({{LevelOf(*user), LevelOf(*profile), LevelOf(*forward)},
                              ShownName(root, forward->path),
                              Remark(ShowText(forward->setting.nickname), ShowText(forward->setting.address))});
    }
    return forwards[Choose(candidates, name, Tr("forwarding address"), "forward")];
}

std::vector<NamedProfile> ChosenProfiles(const CRootPath& root, const std::vector<std::string>& names) {
    if (names.empty()) return AllProfiles(root);
    std::vector<NamedProfile> chosen;
    for (const std::string& name : names) {
        const NamedProfile found = FindProfile(root, name);
        const bool known = std::ranges::any_of(
            chosen, [&found](const NamedProfile& earlier) { return earlier.profile == found.profile; });
        if (!known) chosen.push_back(found);
    }
    return chosen;
}

bool HasPath(const CRootPath& root, std::string_view path) {
    return std::ranges::any_of(root.users, [&](const auto& user) {
        if (ShownName(root, user->path) == path) return true;
        return std::ranges::any_of(user->profiles, [&](const auto& profile) {
            return ShownName(root, profile->path) == path ||
                   std::ranges::any_of(profile->forward_addresses,
                                       [&](const auto& forward) { return ShownName(root, forward->path) == path; });
        });
    });
}

std::string ShownName(const CRootPath& root, const CString& path) {
    return WithSlashes(ShowPath(path.substr(std::min(path.size(), root.path.size() + 1))));
}

}  // namespace tarvex::host
