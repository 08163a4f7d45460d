// `tarvex demo`: the main job between two servers on this machine.
//
// Three passes over one profile with two forwarding addresses: everything is new; nothing is new; one mail is new. What
// has arrived is compared byte for byte with what was in the mailbox. The log is shown for the last pass only: it holds
// a whole conversation, and the first one would fill three screens with the same.

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <map>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "host/commands.h"
#include "host/demo_mails.h"
#include "host/display.h"
#include "host/process.h"
#include "host/run_log.h"
#include "tarvex/tarvex.h"
#include "testing/mail_servers.h"

namespace tarvex::host {
namespace {

using testing::DeliveredMail;
using testing::MailboxServer;
using testing::SinkServer;

constexpr const char* kUser = "demo";
constexpr const char* kPassword = "secret";
constexpr const char* kPhone = "phone@mobile.example";
constexpr const char* kOffice = "office@work.example";
constexpr std::size_t kColumn = 22;  // of the table of arrivals

// ---- what is shown

class Screen {
public:
    explicit Screen(bool colours) : colours_(colours) {}

    void Heading(const std::string& text) const { std::cout << Coloured("1", text) << '\n'; }
    void Title(const std::string& text) const { std::cout << '\n' << Coloured("1", text) << "\n\n"; }
    void Plain(const std::string& text) const { std::cout << "  " << text << '\n'; }
    void Quote(const std::string& text) const { std::cout << Dim("  | " + text) << '\n'; }
    std::string Dim(const std::string& text) const { return Coloured("2", text); }
    std::string Good(const std::string& text) const { return Coloured("32", text); }
    std::string Bad(const std::string& text) const { return Coloured("1;31", text); }

private:
    std::string Coloured(const char* code, const std::string& text) const {
        return colours_ ? "\x1b[" + std::string(code) + "m" + text + "\x1b[0m" : text;
    }

    bool colours_;
};

std::string Padded(std::string text, std::size_t width) {
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

std::string Aligned(std::size_t number, std::size_t width) {
    const std::string digits = std::to_string(number);
    return std::string(width - std::min(width, digits.size()), ' ') + digits;
}

// ---- the data tree

std::string MakeFolder() {
    std::string folder = std::filesystem::temp_directory_path() / "tarvex-demo-XXXXXX";
    if (!mkdtemp(folder.data())) throw std::system_error(errno, std::generic_category(), "no folder " + folder);
    return folder;
}

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

void BuildTree(CRootPath& root, int pop_port, int smtp_port) {
    CUser& user = Created(root.CreateNewUser(kUser, kPassword, 1));
    CPopProfile& profile = Created(user.CreateNewPopProfile(FromUtf8("デモ", "CP932"), "demo@tarvex.example"));
    CPopProfileSetting& setting = profile.setting;
    setting.popserver = "127.0.0.1";
    setting.popport = pop_port;
    setting.popuser = kUser;
    setting.poppassword = kPassword;
    setting.apop = 1;
    setting.smtpserver = "127.0.0.1";
    setting.smtpport = smtp_port;
    setting.smtpauth = 1;
    setting.timer = 0;
    profile.SaveSetting();

    Created(profile.CreateNewForwardAddress("phone", FromUtf8("携帯", "CP932") + " <" + kPhone + ">"));
    CForwardAddress& office = Created(profile.CreateNewForwardAddress("office", kOffice));
    const CTerm term = OpenNow();
    office.schedule.AddNewTerm(&term);
    office.SaveScheduleSetting();
}

// ---- the passes

class Demonstration {
public:
    explicit Demonstration(const Screen& screen)
        : screen_(screen), mailbox_(kUser, kPassword), sink_(kUser, kPassword) {}

    // True when everything expected has arrived exactly once.
    bool Run() {
        const std::string folder = MakeFolder();
        if (!root_.SetRootPath(folder)) throw std::runtime_error("cannot use " + folder);
        BuildTree(root_, mailbox_.Port(), sink_.Port());
        Receive(FirstDemoMails());
        screen_.Heading("A POP3 mailbox with 6 mails, two forwarding addresses, one SMTP server, all on this machine");

        Pass("First pass: everything is new");
        Pass("Second pass: nothing is new");
        Receive({LaterDemoMail()});
        Pass("Third pass: one new mail has come");

        screen_.Title("What the third pass added to the profile's log");
        for (const std::string& line : log_) screen_.Quote(line);

        screen_.Title(complete_ ? screen_.Good("Everything arrived at both addresses, once, byte for byte.")
                                : screen_.Bad("Something did not arrive as it should have."));
        screen_.Plain("The data tree, to look at:  " + ShowPath(folder));
        screen_.Plain("The log of all passes:      " + ShowPath(LogPath()) + "  (Shift-JIS)");
        return complete_;
    }

private:
    using Copy = std::pair<std::string, std::string>;  // recipient and uidl

    void Receive(const std::vector<DemoMail>& mails) {
        for (const DemoMail& mail : mails) {
            mailbox_.Add({mail.uidl, mail.text});
            expected_.push_back(mail);
        }
    }

    std::string LogPath() const { return root_.users.front()->profiles.front()->path + "\\profile.log"; }

    void Pass(const std::string& title) {
        screen_.Title(title);
        Tarvex(&root_);
        root_.WaitThread(-1);
        log_.clear();
        for (const auto& copy : root_.running_copies) log_ = LinesOfThisRun(copy->log);
        ShowArrivals();
        expected_.clear();
    }

    // Compares what has arrived since the last pass with what was expected at each address.
    void ShowArrivals() {
        const std::vector<DeliveredMail> delivered = sink_.Delivered();
        if (delivered.size() == seen_ && expected_.empty()) return screen_.Plain("Nothing was forwarded.");

        std::map<Copy, int> copies;
        for (; seen_ < delivered.size(); ++seen_) Count(delivered[seen_], copies);
        if (expected_.empty()) return;
        screen_.Plain(screen_.Dim(Padded(kPhone, kColumn) + Padded(kOffice, kColumn) + "    bytes  mail"));
        for (const DemoMail& mail : expected_) {
            screen_.Plain(Cell(copies[{kPhone, mail.uidl}]) + Cell(copies[{kOffice, mail.uidl}]) +
                          Aligned(mail.text.size(), 9) + "  " + mail.title);
        }
    }

    void Count(const DeliveredMail& mail, std::map<Copy, int>& copies) {
        const auto same = std::ranges::find(expected_, mail.text, &DemoMail::text);
        if (same == expected_.end()) complete_ = false;
        for (const std::string& recipient : mail.recipients) {
            if (same != expected_.end()) {
                ++copies[{recipient, same->uidl}];
            } else {
                screen_.Plain(screen_.Bad("an unexpected mail") + " at " + ShowPath(recipient));
            }
        }
    }

    std::string Cell(int copies) {
        if (copies == 1) return screen_.Good(Padded("byte for byte", kColumn));
        complete_ = false;
        return screen_.Bad(Padded(copies == 0 ? "missing" : std::to_string(copies) + " copies", kColumn));
    }

    const Screen& screen_;
    MailboxServer mailbox_;
    SinkServer sink_;
    CRootPath root_;
    std::vector<DemoMail> expected_;  // of the pass that comes
    std::vector<std::string> log_;    // what the last pass added
    std::size_t seen_ = 0;            // deliveries shown so far
    bool complete_ = true;
};

}  // namespace

int Demo() {
    const Screen screen(ShowsColours());
    return Demonstration(screen).Run() ? kDone : kMissing;
}

}  // namespace tarvex::host
