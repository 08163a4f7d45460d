// Delivers the fetched messages of one run over the open SMTP connection.
//
// A message that all its destinations take unchanged goes out in one transaction; any other goes out once per
// destination. The first refused command ends the delivery, unless the guard takes over what was refused.

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "platform/codec/line_breaking.h"
#include "platform/codec/recipients.h"
#include "platform/net/sockets.h"
#include "platform/os/shield.h"
#include "tarvex/tree.h"
#include "transfer/recipient.h"
#include "transfer/run_failure.h"
#include "transfer/smtp_replies.h"

namespace tarvex {
namespace {

// Removes the line ends at the front, so that the message begins with its first header line.
void RemoveLeadingLineEnds(CString& text) {
    std::size_t length = 0;
    while (text.compare(length, 2, "\r\n") == 0) length += 2;
    text.erase(0, length);
}

// What goes out now.
struct Transaction {
    CReceiveMail* mail = nullptr;
    std::span<CForwardAddress* const> destinations;  // those that were refused and set aside are left out
    bool set_aside = false;                          // for one address at least
};

class Delivery {
public:
    Delivery(CPopProfile& profile, CSmtpSocket& socket, CArray<CReceiveMail*, CReceiveMail*>& mails)
        : profile_(profile),
          guard_(CRunGuard::OrDefaults(profile.guard)),
          socket_(socket),
          mails_(mails),
          sender_("<" + profile.setting.address + ">"),
          header_bytes_(guard_.TextMailHeaderBytes(profile)) {
        socket_.SetEndOfDataTimeOut(guard_.EndOfDataSeconds(profile));
    }

    bool Run() {
        Sort();
        for (const std::size_t index : batch_) {
            Begin(*mails_[index]);
            if (!DeliverToAll()) return GiveUp();
            Destroy(index);
        }
        for (const std::size_t index : single_) {
            Begin(*mails_[index]);
            for (CForwardAddress* const& destination : mails_[index]->destinations) {
                if (!DeliverToOne(destination)) return GiveUp();
            }
            Destroy(index);
        }
        std::erase(mails_, nullptr);
        return true;
    }

private:
    void Log(CString line) { profile_.log.AddLine(std::move(line)); }

    // Any text limit but 0, also the default that means "unchanged", sends a message out once per destination (B62). A
    // message without destinations belongs to the batch (B64).
    void Sort() {
        for (std::size_t index = 0; index < mails_.size(); ++index) {
            CReceiveMail& mail = *mails_[index];
            RemoveLeadingLineEnds(mail.text);
            const bool single = profile_.setting.replaceto != 0 ||
                                std::any_of(mail.destinations.begin(), mail.destinations.end(),
                                            [](const CForwardAddress* to) { return to->setting.textonly != 0; });
            (single ? single_ : batch_).push_back(index);
        }
    }

    void Begin(CReceiveMail& mail) { current_ = {.mail = &mail, .destinations = mail.destinations}; }

    bool DeliverToAll() {
        const CReceiveMail& mail = *current_.mail;
        std::erase_if(recipients_ = mail.destinations, [this](const auto* to) { return !Offer(*to); });
        current_.destinations = recipients_;
        if (recipients_.empty() && !mail.destinations.empty()) return true;
        if (!SendSender()) return false;
        CArray<CForwardAddress*, CForwardAddress*> accepted;
        for (CForwardAddress* const& destination : recipients_) {
            if (SendRecipient(PlainRecipient(destination->setting.address))) {
                accepted.push_back(destination);
            } else if (!SetAside({&destination, 1})) {
                return false;
            }
        }
        if (accepted.empty() && !recipients_.empty()) return Reset();
        recipients_.swap(accepted);
        current_.destinations = recipients_;
        return SendText(mail.text, DataForm::Fetched);
    }

    bool DeliverToOne(CForwardAddress* const& destination) {
        CReceiveMail& mail = *current_.mail;
        const CForwardAddressSetting& to = destination->setting;
        const CString recipient = PlainRecipient(to.address);
        current_.destinations = {&destination, 1};
        if (!Offer(*destination)) return true;
        if (!SendSender()) return false;
        if (!SendRecipient(recipient)) return SetAside(current_.destinations) && Reset();
        // The message itself is rewritten: each copy is made from the one before (B65).
        if (profile_.setting.replaceto != 0) profile_.ReplaceTo(&mail, recipient);
        if (to.textonly < 0) return SendText(mail.text, DataForm::Fetched);

        std::optional<CString> text_mail =
            profile_.TextMailOf(mail.text, to.textonly, to.cutwhite, to.htmltotext, to.compress_words);
        if (!text_mail) return SendText(mail.text, DataForm::Fetched);
        if (header_bytes_ > 0) ShortenRecipients(&*text_mail, static_cast<std::size_t>(header_bytes_));
        BreakLongLines(&*text_mail, &*text_mail);
        return SendText(*text_mail, DataForm::NotStuffed);
    }

    bool SendSender() {
        const CString reply = socket_.SendMailFrom(&sender_);
        Log("MAIL FROM: " + sender_);
        return Accept(reply, CRunStage::MailFrom);
    }

    bool SendRecipient(const CString& plain) {
        CString recipient = "<" + plain + ">";
        const CString reply = socket_.SendRcptTo(&recipient);
        Log("RCPT TO:" + recipient);
        return Accept(reply, CRunStage::RcptTo, &plain);
    }

    bool SendText(const CString& text, DataForm form) {
        const CString reply = socket_.SendData(&text, form);
        Log("DATA");
        if (Accept(reply, socket_.message_sent != 0 ? CRunStage::EndOfData : CRunStage::Data)) return true;
        return SetAside(current_.destinations) && Reset();
    }

    bool Offer(const CForwardAddress& to) {
        const bool offered = guard_.Offers(profile_, *current_.mail, to);
        if (!offered) NoteSetAside(to);
        return offered;
    }

    void NoteSetAside(const CForwardAddress& to) {
        Log("* set aside : " + to.setting.address);
        ++profile_.result.copies_set_aside;
        current_.set_aside = true;
    }

    // Whether the guard takes over what was refused just now, for all these addresses: then the delivery goes on.
    bool SetAside(std::span<CForwardAddress* const> refused) {
        CRunFailure& refusal = profile_.result.delivery;
        const bool by_server =
            refusal.failure_class == CFailureClass::Permanent || refusal.failure_class == CFailureClass::Transient;
        if (!by_server || refusal.stage == CRunStage::MailFrom || refused.empty()) return false;
        bool goes_on = true;
        for (const CForwardAddress* to : refused) {
            if (guard_.Refused(profile_, *current_.mail, *to, refusal) == CRefusal::HostHasIt) {
                NoteSetAside(*to);
            } else {
                goes_on = false;  // the others are asked all the same: the guard may count refusals
            }
        }
        if (goes_on) refusal = {};
        return goes_on;
    }

    // Always true: where the server does not take it, the next command tells.
    bool Reset() {
        const CString reply = socket_.SendReset();
        Log("RSET");
        Log(reply);
        return true;
    }

    // The result is filled in before the log, for which there may be no memory.
    bool Accept(const CString& reply, CRunStage stage, const CString* recipient = nullptr) {
        const bool accepted = IsCode(reply, "250");
        if (!accepted) Tell(stage, {socket_.LastFailure(), reply}, recipient);
        if (accepted && stage == CRunStage::EndOfData) {
            CountCopies();
            guard_.Taken(profile_, *current_.mail, current_.destinations, reply);
        }
        Log(reply);
        return accepted;
    }

    void Tell(CRunStage stage, const Refusal& refusal, const CString* recipient) {
        CRunFailure& told = profile_.result.delivery;
        Fill(told, stage, SmtpClass(refusal), refusal);
        Fill(told.uidl, current_.mail->uidl);
        Fill(told.sender, profile_.setting.address);
        if (recipient) {
            Fill(told.recipient, *recipient);
        } else if (current_.destinations.size() == 1) {
            Shielded([&] { told.recipient = PlainRecipient(current_.destinations.front()->setting.address); });
        }
    }

    void CountCopies() {
        const auto& all = profile_.forward_addresses;
        CArray<CAddressResult>& told = profile_.result.addresses;
        for (const CForwardAddress* to : current_.destinations) {
            ++profile_.result.copies;
            const auto place = std::ranges::find(all, to, [](const auto& address) { return address.get(); });
            const auto index = static_cast<std::size_t>(place - all.begin());
            if (index < told.size()) ++told[index].copies;
        }
    }

    void Destroy(std::size_t index) {
        if (!mails_[index]->destinations.empty() && !current_.set_aside) ++profile_.result.messages_delivered;
        delete mails_[index];
        mails_[index] = nullptr;
        ++profile_.observer.messages_delivered;
    }

    // The answer to QUIT is neither logged nor looked at (B60).
    bool GiveUp() {
        if (socket_.timed_out == 1) {
            Log(kSmtpTimeOutText);
            return false;
        }
        Log("QUIT");
        socket_.SendQuit();
        Log("SomethingError..Closing Socket");
        return false;
    }

    CPopProfile& profile_;
    CRunGuard& guard_;
    CSmtpSocket& socket_;
    CArray<CReceiveMail*, CReceiveMail*>& mails_;
    CString sender_;
    const int header_bytes_;  // of a text mail, at most; 0: any number
    Transaction current_;
    CArray<CForwardAddress*, CForwardAddress*> recipients_;  // of a transaction for all
    std::vector<std::size_t> batch_;                         // positions in mails_, ascending
    std::vector<std::size_t> single_;                        // positions in mails_, ascending
};

}  // namespace
}  // namespace tarvex

int CPopProfile::SmtpProcess(tarvex::CSmtpSocket* socket, CArray<CReceiveMail*, CReceiveMail*>* mails) {
    return tarvex::Shielded(
        0, [&] { return tarvex::Delivery(*this, *socket, *mails).Run() ? 1 : 0; },
        [&](const char* reason) {
            tarvex::FillException(result.delivery, reason);
            log.AddLine(CString("* SMTP exception : ") + reason);
        });
}
