// The POP3 conversation of one run: log in, list by unique id, delete what is handled, fetch the rest, quit.
//
// PopProcess only decides what comes next from the first character of each reply; the socket formats, reads and keeps
// the time. Every command and every reply goes into the profile's log.

#include <cstddef>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "platform/net/sockets.h"
#include "platform/os/shield.h"
#include "tarvex/tree.h"

namespace tarvex {
namespace {

constexpr const char* kTimeOutText = "TimeoutError..Closing Socket";

bool IsNegative(std::string_view reply) { return reply.starts_with('-'); }

// One message on the server, as views of the listing. `number` is what the server calls it in this session.
struct ListedMail {
    std::string_view number;
    std::string_view uidl;
};

enum class ListingKind { Uidl, List };

// The entries of a UIDL or LIST answer. LIST tells sizes, which are not used: its entries have no id. A line without a
// blank is an entry without a number.
std::vector<ListedMail> ParseListing(std::string_view reply, ListingKind kind) {
    std::vector<ListedMail> listing;
    std::size_t begin = 0;
    for (std::size_t end = reply.find("\r\n"); end != std::string_view::npos; end = reply.find("\r\n", begin)) {
        const std::string_view line = reply.substr(begin, end - begin);
        begin = end + 2;
        if (line.starts_with('.')) break;
        if (line.starts_with('+')) continue;

        const std::size_t blank = line.find(' ');
        ListedMail mail;
        if (blank != std::string_view::npos) mail.number = line.substr(0, blank);
        if (kind == ListingKind::Uidl) {
            mail.uidl = blank == std::string_view::npos ? line : line.substr(blank + 1);
        }
        listing.push_back(mail);
    }
    return listing;
}

class PopConversation {
public:
    // The secure-connection setting is not looked at: POP3 is always plain TCP, kept on purpose.
    PopConversation(const CPopProfileSetting& setting, CProfileLog& log) : setting_(setting), log_(log) {}

    bool Run(CArray<CReceiveMail*, CReceiveMail*>& mails, const CCheckedMail& handled, CCheckedMail* present) {
        if (!Connect() || !LogIn()) return false;
        CString reply;
        std::vector<ListedMail> listing;
        if (!List(reply, listing)) return false;
        if (!SortOut(listing, handled, present)) return false;
        if (!Fetch(listing, mails)) return false;
        Quit();
        return true;
    }

private:
    void Log(CString line) { log_.AddLine(std::move(line)); }
    bool TimedOut() const { return socket_.timed_out == 1; }

    bool CloseWith(const char* text) {
        socket_.Close();
        Log(text);
        return false;
    }

    bool Connect() {
        socket_.SetTimeOut(setting_.timeout);
        if (!socket_.Create(0, 1, nullptr)) {
            Log("Fail to create pop socket");
            return false;
        }
        Log("Success to create pop socket");
        greeting_ = socket_.PopConnect(setting_.popserver, setting_.popport);
        Log("connecting.. " + setting_.popserver);
        Log(greeting_);
        if (IsNegative(greeting_)) return CloseWith(TimedOut() ? kTimeOutText : "Error..Closing Socket");
        return true;
    }

    bool LogIn() {
        const std::size_t open = greeting_.find('<');
        const std::size_t close = greeting_.find('>');
        const bool has_timestamp = open != CString::npos && close != CString::npos && open < close;
        if (setting_.apop != 0 && has_timestamp) return LogInApop(greeting_.substr(open, close - open + 1));
        return LogInPlain();
    }

    // A refused APOP does not fall back to USER and PASS.
    bool LogInApop(const CString& timestamp) {
        const CString reply = socket_.SendAPOP(setting_.popuser, setting_.poppassword, timestamp);
        Log("APOP ");
        return AcceptLogIn(reply);
    }

    bool LogInPlain() {
        const CString user_reply = socket_.SendUser(setting_.popuser);
        Log("USER " + setting_.popuser);
        if (!AcceptLogIn(user_reply)) return false;
        const CString password_reply = socket_.SendPassWord(setting_.poppassword);
        Log("PASS " + CString(setting_.poppassword.size(), '*'));
        return AcceptLogIn(password_reply);
    }

    bool AcceptLogIn(const CString& reply) {
        Log(reply);
        if (!IsNegative(reply)) return true;
        if (TimedOut()) Log(kTimeOutText);
        GiveUp(reply);
        return false;
    }

    // UIDL, or LIST where the server refuses UIDL. The listing consists of views of the reply.
    bool List(CString& reply, std::vector<ListedMail>& listing) {
        socket_.SendUidl(&reply);
        Log("UIDL");
        Log(reply);
        if (!IsNegative(reply)) {
            listing = ParseListing(reply, ListingKind::Uidl);
            return true;
        }
        if (TimedOut()) return CloseWith(kTimeOutText);

        socket_.SendList(&reply);
        Log("LIST");
        Log(reply);
        if (IsNegative(reply)) {
            Log(GiveUp(reply));
            return false;
        }
        listing = ParseListing(reply, ListingKind::List);
        return true;
    }

    // What is handled is left out and, where the profile says so, deleted on the server: never in the run that fetched
    // it, only when its id has been on disk since an earlier one.
    bool SortOut(std::vector<ListedMail>& listing, const CCheckedMail& handled, CCheckedMail* present) {
        std::size_t wanted = 0;
        for (const ListedMail mail : listing) {
            const CString uidl(mail.uidl);
            if (present) present->Add(uidl);
            if (!handled.Contains(uidl)) {
                listing[wanted++] = mail;
            } else if (setting_.deletemail != 0) {
                if (!Delete(CString(mail.number))) return false;
                // The last element goes, whichever it is: for an id that was listed before, another one. Kept on
                // purpose.
                if (present) present->RemoveLast();
            }
        }
        listing.resize(wanted);
        return true;
    }

    bool Delete(const CString& number) {
        const CString reply = socket_.SendDelete(number);
        Log("DELE " + number);
        Log(reply);
        if (!IsNegative(reply)) return true;
        Log(GiveUp(reply));
        return false;
    }

    bool Fetch(const std::vector<ListedMail>& wanted, CArray<CReceiveMail*, CReceiveMail*>& mails) {
        for (const ListedMail& listed : wanted) {
            const CString number(listed.number);
            auto mail = std::make_unique<CReceiveMail>();
            mail->uidl = listed.uidl;
            const bool room = Retrieve(number, mail->text);
            Log("RETR " + number);
            if (!IsNegative(mail->text)) {
                Log(mail->uidl + " received");
                // The status line goes, its line end stays: header lines are found by the line end before them.
                mail->text.erase(0, mail->text.find("\r\n"));
                mails.push_back(mail.get());
                static_cast<void>(mail.release());
                continue;
            }
            Log(mail->uidl + " receive error");
            if (TimedOut()) return CloseWith(kTimeOutText);
            if (!room) break;
        }
        return true;
    }

    // False when there is no memory for the message: it and those behind it are left for a later run, so that a mailbox
    // larger than the memory is forwarded piece by piece instead of never.
    bool Retrieve(const CString& number, CString& text) {
        try {
            socket_.SendRetr(number, &text);
            return true;
        } catch (const std::bad_alloc&) {
            CString().swap(text);
            text = "-ERR no memory";
            socket_.Close();
            return false;
        }
    }

    void Quit() {
        const CString reply = socket_.SendQuit();
        Log("QUIT");
        Log(reply);
        socket_.Close();
    }

    // After a negative reply to a login command, LIST or DELE; returns the last text. QUIT is sent only when the reply
    // says "Disconnected"; any other refusal is followed by closing without it. Kept on purpose.
    CString GiveUp(const CString& reply) {
        CString text = reply;
        if (TimedOut()) {
            text = kTimeOutText;
        } else {
            Log(reply);
            if (reply.find("Disconnected") != CString::npos) {
                Log("QUIT");
                text = socket_.SendQuit();
                Log(text);
                if (IsNegative(text) && TimedOut()) {
                    text = kTimeOutText;
                    Log(text);
                }
            }
        }
        socket_.Close();
        return text;
    }

    const CPopProfileSetting& setting_;
    CProfileLog& log_;
    CPopSocket socket_;
    CString greeting_;
};

}  // namespace
}  // namespace tarvex

int CPopProfile::PopProcess(CArray<CReceiveMail*, CReceiveMail*>* mails, CCheckedMail* handled, CCheckedMail* present) {
    return tarvex::Shielded(
        0, [&] { return tarvex::PopConversation(setting, log).Run(*mails, *handled, present) ? 1 : 0; },
        [&](const char* reason) { log.AddLine(CString("* POP exception : ") + reason); });
}
