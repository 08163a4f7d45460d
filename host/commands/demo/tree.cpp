// Makes the tree that the demo forwards.

#include "host/commands/demo/tree.h"

#include <ctime>
#include <stdexcept>
#include <string>

#include "host/edit/rules_edit.h"
#include "host/terminal/tree_text.h"

namespace tarvex::host {
namespace {

template <class T>
T& Created(T* object) {
    if (!object) throw std::runtime_error("a part of the data tree could not be created");
    return *object;
}

std::string TermTime(std::time_t moment) {
    const std::tm local = *std::localtime(&moment);
    return std::to_string(local.tm_year + 1900) + "," + std::to_string(local.tm_mon + 1) + "," +
           std::to_string(local.tm_mday) + "," + std::to_string(local.tm_hour) + "," + std::to_string(local.tm_min) +
           ",0";
}

// A term that is open now, and stays so over midnight and a change of the clocks: from yesterday to tomorrow.
CTerm OpenNow() {
    constexpr std::time_t kDay_s = 86'400;
    const std::time_t now = std::time(nullptr);
    CTerm term;
    term.status = 1;
    term.kind = TERM_DEFINED_TERM;
    term.start = TermTime(now - kDay_s);
    term.end = TermTime(now + kDay_s);
    return term;
}

void AddRules(const CRootPath& root) {
    Saved saved = Saved::No;
    CString directory;
    EditRules(root, EditRequest(EditKind::Rules, EditVerb::Add, ""), saved, directory);
    if (saved == Saved::No) throw std::runtime_error("the rules could not be written");
}

}  // namespace

void BuildDemoTree(CRootPath& root, int pop_port, int smtp_port) {
    CUser& user = Created(root.CreateNewUser(kDemoUser, kDemoPassword, 1));
    CPopProfile& profile = Created(user.CreateNewPopProfile(ToStored("デモ"), "demo@tarvex.example"));
    CPopProfileSetting& setting = profile.setting;
    setting.popserver = "127.0.0.1";
    setting.popport = pop_port;
    setting.popuser = kDemoUser;
    setting.poppassword = kDemoPassword;
    setting.apop = 1;
    setting.smtpserver = "127.0.0.1";
    setting.smtpport = smtp_port;
    setting.smtpauth = 1;
    setting.timer = 0;
    profile.SaveSetting();

    Created(profile.CreateNewForwardAddress("phone", ToStored("携帯") + " <" + kDemoPhone + ">"));
    CForwardAddress& office = Created(profile.CreateNewForwardAddress("office", kDemoOffice));
    const CTerm term = OpenNow();
    office.schedule.AddNewTerm(&term);
    office.SaveScheduleSetting();

    CForwardAddress& pager = Created(profile.CreateNewForwardAddress("pager", kDemoPager));
    pager.setting.textonly = kDemoPagerLimit_bytes;
    pager.setting.cutwhite = 1;
    pager.setting.htmltotext = 1;
    pager.setting.compress_words = ToStored("- = * 　");
    pager.SaveSetting();
    AddRules(root);
}

}  // namespace tarvex::host
