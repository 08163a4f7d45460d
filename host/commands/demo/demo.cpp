// `tarvex demo`: the main job between two servers on this machine.
//
// Four passes over one profile with three forwarding addresses, of which one asks for text mail: everything is new;
// nothing is new; one mail is new; two are new, of which the server refuses one. The tree has the host's rules, which
// set the refused one aside. What has arrived is compared byte for byte with what was in the mailbox, or with the
// text mail that should be made of it. The log is shown for the third pass only: it holds a whole conversation, and the
// first one would fill three screens with the same.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/commands/commands.h"
#include "host/commands/demo/mails.h"
#include "host/commands/demo/tree.h"
#include "host/held/held.h"
#include "host/language/tr.h"
#include "host/rules/ruled_runs.h"
#include "host/service/run_reports.h"
#include "host/settings/file_names.h"
#include "host/system/command_error.h"
#include "host/system/display.h"
#include "host/system/paths.h"
#include "host/system/process.h"
#include "host/terminal/table.h"
#include "loopback/mail_servers.h"
#include "tarvex/tarvex.h"

namespace tarvex::host {
namespace {

using loopback::DeliveredMail;
using loopback::MailboxServer;
using loopback::SinkServer;

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

std::string BodyOf(const std::string& mail) {
    constexpr std::string_view kBlankLine = "\r\n\r\n";
    const std::size_t header_end = mail.find(kBlankLine);
    std::string body = header_end == std::string::npos ? mail : mail.substr(header_end + kBlankLine.size());
    std::erase(body, '\r');
    return body;
}

// As much of the text as fits on a line, whatever it is, its line ends as blanks.
std::string Beginning(std::string text) {
    constexpr std::size_t kShown_bytes = 60;
    std::ranges::replace(text, '\n', ' ');
    return ShowText(text.substr(0, kShown_bytes)) + (text.size() > kShown_bytes ? "..." : "");
}

// The lines that are not empty.
std::vector<std::string> LinesOf(const std::string& text) {
    std::istringstream pieces(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(pieces, line);) {
        if (!line.empty()) lines.push_back(line);
    }
    return lines;
}

// ---- the passes

class Demonstration {
public:
    explicit Demonstration(Screen screen)
        : screen_(screen), mailbox_(kDemoUser, kDemoPassword), sink_(kDemoUser, kDemoPassword) {}

    // True when everything expected has arrived exactly once.
    bool Run() {
        const std::string folder = MakeNewFolder(TemporaryDirectory() + "\\tarvex-demo-");
        if (!root_.SetRootPath(folder)) throw std::runtime_error("cannot use " + folder);
        BuildDemoTree(root_, mailbox_.Port(), sink_.Port());
        const std::vector<DemoMail> first = FirstDemoMails();
        screen_.Heading(
            Tr("A POP3 mailbox with {0} mails, three forwarding addresses, one SMTP server, all on this "
               "machine",
               first.size()));
        std::cout << '\n';
        screen_.Plain(std::string("phone   ") + kDemoPhone + "  " + Tr("gets the whole mail"));
        screen_.Plain(std::string("office  ") + kDemoOffice + "   " +
                      Tr("gets the whole mail, while its schedule is open"));
        screen_.Plain(std::string("pager   ") + kDemoPager + "    " +
                      Tr("gets a text mail: a header and {0} bytes of text at most", kDemoPagerLimit_bytes));

        Pass(Tr("First pass: everything is new"), first);
        ShowTexts(first);
        Pass(Tr("Second pass: nothing is new"), {});
        Pass(Tr("Third pass: one new mail has come"), {LaterDemoMail()});

        screen_.Title(Tr("What the third pass added to the profile's log"));
        for (const std::string& line : log_) screen_.Quote(line);
        LastPass();

        screen_.Title(complete_
                          ? screen_.Good(Tr("Everything arrived once: at phone and office byte for byte, at pager "
                                            "as the text it should be. What was refused is kept."))
                          : screen_.Bad(Tr("Something did not arrive as it should have.")));
        screen_.Plain(Tr("The data tree, to look at:  {0}", ShowPath(folder)));
        screen_.Plain(Tr("What was set aside:         {0}", "tarvex --root " + ShowPath(folder) + " held list"));
        screen_.Plain(Tr("The log of all passes:      {0}  (Shift-JIS)", ShowPath(LogPath())));
        return complete_;
    }

private:
    using Copy = std::pair<std::string, std::string>;  // recipient and uidl

    CPopProfile& Profile() const { return *root_.users.front()->profiles.front(); }
    std::string LogPath() const { return FileIn(Profile().path, kLogFile); }

    // Receives the mails and forwards what there is.
    void Pass(const std::string& title, const std::vector<DemoMail>& mails) {
        screen_.Title(title);
        for (const DemoMail& mail : mails) mailbox_.Add({mail.uidl, mail.whole});
        Forward();
        ShowArrivals(mails);
    }

    void Forward() {
        RuledRuns runs(root_.path, [](const std::string& trouble) { throw std::runtime_error(trouble); });
        runs.Start(root_, Profile());
        root_.WaitThread(-1);
        log_.clear();
        for (const auto& copy : root_.running_copies) {
            runs.Finish(*copy);
            log_ = LinesOfThisRun(copy->log);
        }
    }

    // The server refuses one mail for good, before another one that it takes.
    void LastPass() {
        sink_.SetJudge([](const DeliveredMail& mail) {
            return mail.text.find(kUnwantedPart) == std::string::npos ? "" : "554 5.7.1 we do not want this";
        });
        const std::vector<DemoMail> mails = LastDemoMails();
        mailbox_.Add({mails.front().uidl, mails.front().whole});
        Pass(Tr("Fourth pass: two new mails have come, and the server refuses the first for good"), {mails.back()});
        ShowSetAside(mails.front());
    }

    void ShowSetAside(const DemoMail& refused) {
        const std::vector<HeldRecord> held = HeldStore(Profile().path).List().value_or(std::vector<HeldRecord>());
        const bool kept = held.size() == 1 && held.front().uidl == refused.uidl && held.front().addresses.size() == 3;
        complete_ = complete_ && kept;
        if (!kept) return screen_.Plain(screen_.Bad(Tr("not set aside")) + "  " + refused.title);
        screen_.Plain(screen_.Good(Padded(Tr("set aside for the three of them"), 38)) + refused.title + ": " +
                      ShowText(held.front().addresses.front().reply));
    }

    // Compares what has arrived since the last pass with what was expected at each address.
    void ShowArrivals(const std::vector<DemoMail>& expected) {
        const std::vector<DeliveredMail> delivered = sink_.Delivered(seen_);
        seen_ += delivered.size();
        if (delivered.empty() && expected.empty()) return screen_.Plain(Tr("Nothing was forwarded."));

        for (const DeliveredMail& mail : delivered) Count(mail, expected);
        if (expected.empty()) return;
        screen_.Plain(screen_.Dim(Tr("phone          office           bytes  pager      bytes  mail")));
        for (const DemoMail& mail : expected) {
            screen_.Plain(Cell(kDemoPhone, mail, Tr("byte for byte  ")) +
                          Cell(kDemoOffice, mail, Tr("byte for byte  ")) + Aligned(mail.whole.size(), 6) + "  " +
                          Cell(kDemoPager, mail, Tr("as text  ")) + Aligned(mail.reduced.size(), 7) + "  " +
                          mail.title);
        }
    }

    void Count(const DeliveredMail& arrived, const std::vector<DemoMail>& expected) {
        for (const std::string& recipient : arrived.recipients) {
            const auto text = recipient == kDemoPager ? &DemoMail::reduced : &DemoMail::whole;
            const auto same = std::ranges::find(expected, arrived.text, text);
            if (same != expected.end()) {
                ++copies_[{recipient, same->uidl}];
            } else {
                complete_ = false;
                screen_.Plain(screen_.Bad(Tr("an unexpected mail at {0}", ShowPath(recipient))) + ": " +
                              Beginning(BodyOf(arrived.text)));
            }
        }
    }

    std::string Cell(const char* recipient, const DemoMail& mail, const std::string& as_it_should_be) {
        const int copies = copies_[{recipient, mail.uidl}];
        if (copies == 1) return screen_.Good(as_it_should_be);
        complete_ = false;
        return screen_.Bad(Padded(copies == 0 ? Tr("missing") : Tr("{0} copies", copies), Columns(as_it_should_be)));
    }

    // Of the mails that have arrived: the text mail, and the beginning of the whole one as it came. The others have
    // lost their empty lines and nothing else.
    void ShowTexts(const std::vector<DemoMail>& mails) {
        screen_.Title(Tr("Where they differ: what phone was sent, and what pager can read"));
        for (const DemoMail& mail : mails) {
            const std::string whole = BodyOf(mail.whole);
            const std::vector<std::string> lines = LinesOf(ShowText(TextFromJis(BodyOf(mail.reduced))));
            if (copies_[{kDemoPager, mail.uidl}] == 0 || lines == LinesOf(whole)) continue;
            screen_.Plain(mail.title);
            screen_.Plain(screen_.Dim("    phone  " + Beginning(whole)));
            std::string label = "    pager  ";
            for (const std::string& line : lines) screen_.Plain(std::exchange(label, "           ") + line);
        }
    }

    Screen screen_;
    MailboxServer mailbox_;
    SinkServer sink_;
    CRootPath root_;
    std::map<Copy, int> copies_;    // how many arrived as they should
    std::vector<std::string> log_;  // what the last pass added
    std::size_t seen_ = 0;          // deliveries shown so far
    bool complete_ = true;
};

}  // namespace

void AddDemoCommand(CLI::App& app, Context& context) {
    CLI::App* const demo =
        app.add_subcommand("demo", Tr("Forward a small mailbox between two servers on this machine, and show it."));
    const auto in_browser = std::make_shared<bool>(false);
    const auto port = std::make_shared<int>(0);
    CLI::Option* const console = demo->add_flag(
        "--console", *in_browser, Tr("Keep forwarding, and show it in the browser (tarvex-console), until Ctrl+C"));
    demo->add_option("--port", *port, Tr("Where the console listens at 127.0.0.1 (any free port)"))
        ->type_name("PORT")
        ->check(CLI::Range(1, 65535))
        ->needs(console);
    demo->callback([&context, in_browser, port] {
        context.command = [in_browser, port] {
            if (*in_browser) return DemoInBrowser(*port);
            return Demonstration(Screen(ShowsColours())).Run() ? kDone : kMissing;
        };
    });
}

}  // namespace tarvex::host
