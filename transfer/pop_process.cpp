// The POP3 conversation of one run: log in, list by unique id, delete what is handled, fetch the rest, quit.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "platform/os/shield.h"
#include "tarvex/tree.h"
#include "transfer/guarded_connecting.h"
#include "transfer/pop_conversation.h"
#include "transfer/run_failure.h"

namespace tarvex {
namespace {

// Of the messages that could not be fetched, the result of a run tells so many, and so much of each answer: what a
// server sends must not fill the memory.
constexpr std::size_t kMaxNotFetchedTold = 10'000;
constexpr std::size_t kMaxReplyToldBytes = 1'000;

// From the listing: room is made at once for a message that is said to be so large, but never for more than is fetched.
constexpr std::int64_t kLargeBytes = std::int64_t{1} << 20;
constexpr std::int64_t kMostBytes = std::int64_t{256} << 20;

class Retrieval {
public:
    explicit Retrieval(CPopProfile& profile)
        : profile_(profile),
          guard_(CRunGuard::OrDefaults(profile.guard)),
          setting_(profile.setting),
          observer_(profile.observer),
          result_(profile.result),
          conversation_(profile.setting, profile.log) {
        LetGuardConnect(Socket(), guard_, profile, CProtocol::Pop3);
        Socket().SetLeastRate(guard_.LeastBytesPerMinute(profile));
    }

    bool Run(CArray<CReceiveMail*, CReceiveMail*>& mails, const CCheckedMail& handled, CCheckedMail* present) {
        if (!Connect()) return false;
        if (!conversation_.LogIn()) return Refused(CRunStage::Login);
        CString reply;
        std::vector<CMailOnServer> listing;
        if (!conversation_.List(reply, listing)) return Refused(CRunStage::List);
        result_.messages_listed = static_cast<int>(listing.size());
        if (!guard_.Listed(profile_, listing)) return KeepBack();
        if (!AskForSizes(listing, handled)) return false;
        if (!SortOut(listing, handled, present)) return false;
        observer_.messages_to_fetch = static_cast<int>(listing.size());
        PutInOrder(listing);
        return Fetch(listing, mails);
    }

private:
    void Log(CString line) { conversation_.Log(std::move(line)); }
    CPopSocket& Socket() { return conversation_.Socket(); }

    bool Connect() {
        ConnectStep step = ConnectStep::FindServer;
        Socket().AnnounceSteps([&step](ConnectStep begun) { step = begun; });
        const bool connected = conversation_.Connect();
        Socket().AnnounceSteps({});
        return connected || Refused(StageOf(step));
    }

    // Always false.
    bool KeepBack() {
        result_.ending = CRunEnding::KeptBack;
        conversation_.Quit();
        return false;
    }

    // Always false.
    bool Refused(CRunStage stage) {
        Tell(stage, {}, {conversation_.LastFailure(), conversation_.LastReply()});
        return false;
    }

    void Tell(CRunStage stage, std::string_view uidl, const Refusal& refusal) {
        Fill(result_.mailbox, stage, PopClass(refusal), refusal);
        Fill(result_.mailbox.uidl, uidl);
    }

    void TellNotFetched(std::string_view uidl, CFailureClass failure_class, const Refusal& refusal) {
        CArray<CNotFetchedMail>& told = result_.not_fetched;
        if (told.size() == kMaxNotFetchedTold || !Shielded([&told] { told.emplace_back(); })) return;
        told.back().failure_class = failure_class;
        Fill(told.back().uidl, uidl);
        Fill(told.back().reply, refusal.Words().substr(0, kMaxReplyToldBytes));
        Fill(told.back().reason, refusal.failure.reason);
    }

    // Most runs find nothing to delete or to fetch, and the mailbox may be large. False when the server was lost over
    // it.
    bool AskForSizes(std::vector<CMailOnServer>& listing, const CCheckedMail& handled) {
        if (!guard_.WantsSizes(profile_) || conversation_.ListedBy() != ListingKind::Uidl) return true;
        CString uidl;
        const bool all_stay = std::ranges::all_of(listing, [&](const CMailOnServer& mail) {
            uidl = mail.uidl;
            return guard_.IsHandled(profile_, mail, handled.Contains(uidl)) &&
                   (setting_.deletemail == 0 || !guard_.Deletes(profile_, mail));
        });
        if (all_stay || conversation_.AddSizes(listing)) return true;
        const Failure why = Socket().LastFailure();
        Tell(CRunStage::List, {}, {why, {}});
        Log("LIST");
        return conversation_.CloseWith(conversation_.TimedOut() ? kPopTimeOutText : why.reason.c_str());
    }

    // Leaves handled messages out of the listing and deletes them on the server when the profile says so. An id is in
    // `handled` only when an earlier run has saved it, so no run deletes what it fetched itself (B44).
    bool SortOut(std::vector<CMailOnServer>& listing, const CCheckedMail& handled, CCheckedMail* present) {
        std::size_t wanted = 0;
        CString uidl;  // one for all of them: its memory is used again
        for (const CMailOnServer mail : listing) {
            uidl = mail.uidl;
            if (present) present->Add(uidl);
            if (!guard_.IsHandled(profile_, mail, handled.Contains(uidl))) {
                listing[wanted++] = mail;
                continue;
            }
            if (setting_.deletemail == 0 || !guard_.Deletes(profile_, mail)) continue;
            const Deleted deleted = Delete(CString(mail.number), uidl);
            if (deleted == Deleted::GaveUp) return false;
            // The last element goes, also when it is another id because this one was listed before (B51).
            if (present && deleted == Deleted::Yes) present->RemoveLast();
        }
        listing.resize(wanted);
        return true;
    }

    enum class Deleted { Yes, No, GaveUp };

    Deleted Delete(const CString& number, const CString& uidl) {
        const CString reply = Socket().SendDelete(number);
        if (IsNegative(reply)) Tell(CRunStage::Delete, uidl, {Socket().LastFailure(), reply});
        Log("DELE " + number);
        Log(reply);
        if (!IsNegative(reply)) return Deleted::Yes;
        if (!Socket().LastFailure() && guard_.GoesOnAfter(profile_, result_.mailbox)) {
            result_.mailbox = {};
            return Deleted::No;
        }
        Log(conversation_.GiveUp(reply));
        return Deleted::GaveUp;
    }

    // The order of the server, but for what the guard wants last.
    void PutInOrder(std::vector<CMailOnServer>& wanted) {
        std::stable_partition(wanted.begin(), wanted.end(),
                              [this](const auto& mail) { return !guard_.ComesLast(profile_, mail); });
    }

    // False when nothing that was fetched is to be delivered.
    bool Fetch(std::span<const CMailOnServer> wanted, CArray<CReceiveMail*, CReceiveMail*>& mails) {
        result_.messages_not_fetched = static_cast<int>(wanted.size());
        for (; !wanted.empty(); wanted = wanted.subspan(1)) {
            if (TakeKept(wanted.front(), mails)) continue;
            if (!guard_.Fetches(profile_, wanted.front(), held_bytes_)) {
                ++result_.messages_put_off;
                --result_.messages_not_fetched;
                continue;
            }
            std::unique_ptr<CReceiveMail> mail = Mail(wanted.front());
            const CString number(wanted.front().number);
            const bool room = Retrieve(number, wanted.front().size_bytes, mail->text);
            Log("RETR " + number);
            if (!IsNegative(mail->text)) {
                Log(mail->uidl + " received");
                // The status line goes, its line end stays: header lines are found by the line end before them.
                mail->text.erase(0, mail->text.find("\r\n"));
                Keep(std::move(mail), mails);
                continue;
            }
            const Refusal refusal{room ? Socket().LastFailure() : no_room_, mail->text};
            TellNotFetched(mail->uidl, PopClass(refusal), refusal);
            const bool timed_out = conversation_.TimedOut();
            if (timed_out || !room) TellRest(wanted.subspan(1), PopClass(refusal));
            if (timed_out) Tell(CRunStage::Retrieve, mail->uidl, refusal);
            Log(mail->uidl + " receive error");
            if (timed_out)
                return conversation_.CloseWith(kPopTimeOutText) || guard_.DeliversAfter(profile_, result_.mailbox);
            if (!room) break;
        }
        conversation_.Quit();
        return true;
    }

    static std::unique_ptr<CReceiveMail> Mail(const CMailOnServer& listed) {
        auto mail = std::make_unique<CReceiveMail>();
        mail->uidl = listed.uidl;
        mail->listed_bytes = listed.size_bytes;
        return mail;
    }

    bool TakeKept(const CMailOnServer& listed, CArray<CReceiveMail*, CReceiveMail*>& mails) {
        std::optional<CString> kept = guard_.Kept(profile_, listed);
        if (!kept) return false;
        std::unique_ptr<CReceiveMail> mail = Mail(listed);
        mail->text = *std::move(kept);
        Log("* kept : " + mail->uidl);
        ++result_.messages_kept;
        Keep(std::move(mail), mails);
        return true;
    }

    void Keep(std::unique_ptr<CReceiveMail> mail, CArray<CReceiveMail*, CReceiveMail*>& mails) {
        mails.push_back(mail.get());
        held_bytes_ += static_cast<std::int64_t>(mail.release()->text.size());
        ++observer_.messages_fetched;
        ++result_.messages_fetched;
        --result_.messages_not_fetched;
    }

    // What is not asked for any more.
    void TellRest(std::span<const CMailOnServer> rest, CFailureClass failure_class) {
        for (const CMailOnServer& listed : rest) TellNotFetched(listed.uidl, failure_class, {{}, {}});
    }

    // For the dots and line ends that servers do not count, and for the status line.
    static std::size_t RoomFor(std::int64_t size_bytes) {
        const std::int64_t bytes = std::min(size_bytes, kMostBytes);
        return static_cast<std::size_t>(bytes + bytes / 50);
    }

    // False when there is no memory for the message. It and the later ones wait for another run: a mailbox that is
    // larger than the memory is forwarded piece by piece.
    bool Retrieve(const CString& number, std::int64_t size_bytes, CString& text) {
        try {
            // A text that grows needs twice its memory at times. What a size was wrong about is given back.
            if (size_bytes >= kLargeBytes) Shielded([&] { text.reserve(RoomFor(size_bytes)); });
            Socket().SendRetr(number, &text);
            if (size_bytes >= kLargeBytes && text.size() < text.capacity() / 2) text.shrink_to_fit();
            return true;
        } catch (const std::bad_alloc&) {
            CString().swap(text);
            text = "-ERR no memory";
            Socket().Close();
            return false;
        }
    }

    const CPopProfile& profile_;
    CRunGuard& guard_;
    const CPopProfileSetting& setting_;
    CRunObserver& observer_;
    CRunResult& result_;
    std::int64_t held_bytes_ = 0;
    const Failure no_room_{FailureKind::Local, "no memory"};
    PopConversation conversation_;
};

}  // namespace
}  // namespace tarvex

int CPopProfile::PopProcess(CArray<CReceiveMail*, CReceiveMail*>* mails, CCheckedMail* handled, CCheckedMail* present) {
    return tarvex::Shielded(
        0, [&] { return tarvex::Retrieval(*this).Run(*mails, *handled, present) ? 1 : 0; },
        [&](const char* reason) {
            tarvex::FillException(result.mailbox, reason);
            log.AddLine(CString("* POP exception : ") + reason);
        });
}
