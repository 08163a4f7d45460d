// `tarvex init` and `tarvex settings`: the data tree's place, and what appset.def holds.

#include <CLI/CLI.hpp>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "host/commands/arguments/key_options.h"
#include "host/commands/arguments/submit.h"
#include "host/commands/commands.h"
#include "host/edit/survival.h"
#include "host/language/tr.h"
#include "host/service/service_connection.h"
#include "host/settings/host_setting.h"
#include "host/settings/keys.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/error_words.h"
#include "host/system/paths.h"
#include "host/system/prompt.h"
#include "host/system/tree_owner.h"
#include "host/terminal/password_source.h"
#include "host/tree/listing.h"
#include "host/tree/tree_root.h"

namespace tarvex::host {
namespace {

namespace fs = std::filesystem;

// Directories of the tree are their owner's alone, and so are those above that are made for it.
void MakeDirectories(const std::string& directory) {
    std::error_code error = MakeOwnDirectories(directory);
    if (error || !fs::is_directory(NativePath(directory), error)) {
        throw CommandError(
            kCannotMake, error ? Tr("cannot make the directory \"{0}\": {1}", ShowPath(directory), WordsOf(error))
                               : Tr("cannot make the directory \"{0}\", there is something else", ShowPath(directory)));
    }
}

void SaveSettings(const CAppSetting& setting) {
    const std::string directory = ConfigurationDirectory();
    if (!setting.Save(directory))
        throw CommandError(kCannotWrite, Tr("cannot write appset.def in \"{0}\"", ShowPath(directory)));
}

// False when there are none yet. Defaults must not be shown, or saved, for what is there and could not be read.
bool LoadSettings(CAppSetting& setting) {
    const CString file = ConfigurationDirectory() + "\\appset.def";
    std::error_code error;
    const bool is_read = setting.Load(ConfigurationDirectory()) != 0;
    if (is_read && !fs::is_empty(NativePath(file), error)) return true;
    if (fs::status(NativePath(file), error).type() == fs::file_type::not_found) return false;
    throw CommandError(kCannotWrite, is_read
                                         ? Tr("\"{0}\" is empty; mend it or remove it first", ShowPath(file))
                                         : Tr("\"{0}\" cannot be read; mend it or remove it first", ShowPath(file)));
}

// Among the temporary files: no lock keeps a folder in the configuration directory from being left there for good.
void RequireSurvivalOf(const CAppSetting& setting, const std::vector<const Key<CAppSetting>*>& keys) {
    RequireSurvival(setting, keys, TemporaryDirectory());
}

// A tree without users is new: it gets its rules at once. One that is in use is changed only when somebody wants it.
void GiveRules(const std::string& directory, bool wanted) {
    CRootPath root;
    OpenTree(root, directory);
    if (HasRules(directory)) {
        if (wanted) std::cout << Tr("The tree has rules already; `tarvex rules show` shows them.") << '\n';
        return;
    }
    const bool is_new = root.users.empty() && root.users_loaded.whole;
    if (!is_new && !wanted && !CanAsk()) {
        std::cout
            << Tr("The tree has no rules (no host.def) that keep it safe when it is left alone; `tarvex init --rules` "
                  "adds them.")
            << '\n';
        return;
    }
    if (is_new || wanted || AskYes(Tr("The tree has no rules that keep it safe when it is left alone. Add them?"))) {
        SubmitTo(directory, EditRequest(EditKind::Rules, EditVerb::Add, ""));
    }
}

// Which tree a service runs: that of the system's unit, else the one that was remembered until now.
std::string ServedTree(const std::string& former) {
    if (std::string of_unit = ServiceRootDirectory(); !of_unit.empty()) return of_unit;
    try {
        return !former.empty() && ServiceConnection::Try(former) ? former : std::string();
    } catch (const CommandError&) {
        return former;  // another user's service
    }
}

// The unit for several instances serves a tree for each, beside that of the one.
void NoteOnService(const std::string& directory, const std::string& served) {
    if (served.empty() || directory == served || directory.starts_with(served + '-')) return;
    std::cout << Tr("Note: the service serves {0}, not this tree; `tarvex --root {1} serve` serves this one.",
                    ShowPath(served), ShowPath(directory))
              << '\n';
}

// Where the tree is to be, and what appset.def says.
struct TreePlace {
    CAppSetting setting;
    bool has_settings = false;
    std::string directory;
};

TreePlace PlaceOf(const Context& context, const std::string& given) {
    TreePlace place;
    place.has_settings = LoadSettings(place.setting);
    place.directory = context.root_option  ? WholePath(*context.root_option)
                      : !given.empty()     ? WholePath(TreePath(given))
                      : place.has_settings ? place.setting.rootpath
                                           : UsualRootDirectory();
    return place;
}

// Makes the tree, and remembers it unless --root names it for this command alone. Returns its directory.
std::string Make(const Context& context, const std::string& given, bool wants_rules) {
    auto [setting, has_settings, directory] = PlaceOf(context, given);
    const std::string served = ServedTree(has_settings ? setting.rootpath : "");
    if (!context.root_option) {
        MakeDirectories(ConfigurationDirectory());
        if (!has_settings) setting.allowcreatenewuser = 1;
        SetValue(setting, KeyNamed<CAppSetting>("rootpath"), PathAsUtf8(directory));
        RequireSurvivalOf(setting, {&KeyNamed<CAppSetting>("rootpath")});
    }
    std::error_code ignored;
    const bool was_there = fs::is_directory(NativePath(directory), ignored);
    MakeDirectories(directory);
    if (const std::string trouble = WhyRootUnreadable(directory); !trouble.empty()) {
        throw CommandError(kNotFound, Tr("cannot use \"{0}\" as the root: {1}", ShowPath(directory), trouble));
    }
    const std::string shown = ShowPath(directory);
    std::cout << (was_there ? Tr("The data tree is {0}.", shown) : Tr("Made the data tree {0}.", shown)) << '\n';
    if (!context.root_option) {
        SaveSettings(setting);
        std::cout << Tr("It is remembered in {0}.", ShowPath(ConfigurationDirectory() + "\\appset.def")) << '\n';
    }
    NoteOnService(directory, served);
    GiveRules(directory, wants_rules);
    return directory;
}

int Init(const Context& context, const std::string& given, bool wants_rules) {
    if (context.root_option && !given.empty())
        throw CommandError(kBadUsage, Tr("give either --root or a directory to remember"));
    const std::string directory = Make(context, given, wants_rules);
    if (context.root_option) return kDone;

    CRootPath root;
    OpenTree(root, directory);
    if (root.users.empty()) std::cout << Tr("Next: tarvex setup") << '\n';
    return kDone;
}

int ShowAppSettings(bool json) {
    CAppSetting setting;
    const bool found = LoadSettings(setting);
    if (!json) {
        const std::string file = ShowPath(ConfigurationDirectory() + "\\appset.def");
        std::cout << (found ? file : Tr("{0} (not there: defaults)", file)) << "\n\n";
    }
    ShowSettings(setting, json ? Form::Json : Form::Text);
    return kDone;
}

int SetAppSettings(const KeyOptions& keys) {
    if (keys.Empty()) throw CommandError(kBadUsage, Tr("nothing to set; `tarvex settings set --help` lists the keys"));
    MakeDirectories(ConfigurationDirectory());
    CAppSetting setting;
    LoadSettings(setting);
    std::vector<const Key<CAppSetting>*> set;
    for (const auto& [name, value] : keys.Values()) {
        set.push_back(&KeyNamed<CAppSetting>(name));
        SetValue(setting, *set.back(), value);
    }
    RequireSurvivalOf(setting, set);
    SaveSettings(setting);
    return ShowAppSettings(false);
}

}  // namespace

std::string TreeToMake(const Context& context) { return PlaceOf(context, "").directory; }

void MakeTree(const Context& context) { Make(context, "", false); }

void AddInitCommands(CLI::App& app, Context& context) {
    CLI::App* const init = app.add_subcommand("init", Tr("Make a data tree, and remember where it is."));
    auto directory = std::make_shared<std::string>();
    auto rules = std::make_shared<bool>(false);
    init->add_option("DIR", *directory,
                     Tr("Where; remembered in appset.def for all later commands. Without it the tree that appset.def "
                        "names, else {0}. With --root in its place the tree is made and not remembered",
                        ShowPath(UsualRootDirectory())))
        ->option_text(" ");
    init->add_flag("--rules", *rules,
                   Tr("Give a tree that is in use its rules, too, without asking; a new one gets them anyway"));
    init->callback([&context, directory, rules] {
        context.command = [&context, directory, rules] { return Init(context, *directory, *rules); };
    });

    CLI::App* const settings =
        app.add_subcommand("settings", Tr("The settings of tarvex itself: appset.def."))->require_subcommand(1);
    CLI::App* const show = settings->add_subcommand("show", Tr("Show them."));
    auto json = std::make_shared<bool>(false);
    show->add_flag("--json", *json, Tr("As JSON"));
    show->callback([&context, json] { context.command = [json] { return ShowAppSettings(*json); }; });
    CLI::App* const set = settings->add_subcommand("set", Tr("Change them."));
    auto keys = std::make_shared<KeyOptions>();
    keys->AddTo<CAppSetting>(*set, {});
    set->callback([&context, keys] { context.command = [keys] { return SetAppSettings(*keys); }; });
}

}  // namespace tarvex::host
