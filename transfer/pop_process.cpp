// The POP3 conversation of one run: log in, list by unique id, delete what is handled, fetch the rest, quit.

#include <cstddef>
#include <memory>
#include <new>
#include <string_view>
#include <vector>

#include "platform/os/shield.h"
#include "tarvex/tree.h"
#include "transfer/pop_conversation.h"

namespace tarvex {
namespace {

class Retrieval {
public:
    explicit Retrieval(CPopProfile& profile)
        : setting_(profile.setting), observer_(profile.observer), conversation_(profile.setting, profile.log) {}

    bool Run(CArray<CReceiveMail*, CReceiveMail*>& mails, const CCheckedMail& handled, CCheckedMail* present) {
        if (!conversation_.Connect() || !conversation_.LogIn()) return false;
        CString reply;
        std::vector<PopListEntry> listing;
        if (!conversation_.List(reply, listing)) return false;
        if (!SortOut(listing, handled, present)) return false;
        observer_.messages_to_fetch = static_cast<int>(listing.size());
        if (!Fetch(listing, mails)) return false;
        conversation_.Quit();
        return true;
    }

private:
    void Log(CString line) { conversation_.Log(std::move(line)); }
    CPopSocket& Socket() { return conversation_.Socket(); }

    // Leaves handled messages out of the listing and deletes them on the server when the profile says so. An id is in
    // `handled` only when an earlier run has saved it, so no run deletes what it fetched itself (B44).
    bool SortOut(std::vector<PopListEntry>& listing, const CCheckedMail& handled, CCheckedMail* present) {
        std::size_t wanted = 0;
        for (const PopListEntry mail : listing) {
            const CString uidl(mail.uidl);
            if (present) present->Add(uidl);
            if (!handled.Contains(uidl)) {
                listing[wanted++] = mail;
            } else if (setting_.deletemail != 0) {
                if (!Delete(CString(mail.number))) return false;
                // The last element goes, also when it is another id because this one was listed before (B51).
                if (present) present->RemoveLast();
            }
        }
        listing.resize(wanted);
        return true;
    }

    bool Delete(const CString& number) {
        const CString reply = Socket().SendDelete(number);
        Log("DELE " + number);
        Log(reply);
        if (!IsNegative(reply)) return true;
        Log(conversation_.GiveUp(reply));
        return false;
    }

    bool Fetch(const std::vector<PopListEntry>& wanted, CArray<CReceiveMail*, CReceiveMail*>& mails) {
        for (const PopListEntry& listed : wanted) {
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
                ++observer_.messages_fetched;
                continue;
            }
            Log(mail->uidl + " receive error");
            if (conversation_.TimedOut()) return conversation_.CloseWith(kPopTimeOutText);
            if (!room) break;
        }
        return true;
    }

    // False when there is no memory for the message. It and the later ones wait for another run: a mailbox that is
    // larger than the memory is forwarded piece by piece.
    bool Retrieve(const CString& number, CString& text) {
        try {
            Socket().SendRetr(number, &text);
            return true;
        } catch (const std::bad_alloc&) {
            CString().swap(text);
            text = "-ERR no memory";
            Socket().Close();
            return false;
        }
    }

    const CPopProfileSetting& setting_;
    CRunObserver& observer_;
    PopConversation conversation_;
};

}  // namespace
}  // namespace tarvex

int CPopProfile::PopProcess(CArray<CReceiveMail*, CReceiveMail*>* mails, CCheckedMail* handled, CCheckedMail* present) {
    return tarvex::Shielded(
        0, [&] { return tarvex::Retrieval(*this).Run(*mails, *handled, present) ? 1 : 0; },
        [&](const char* reason) { log.AddLine(CString("* POP exception : ") + reason); });
}
