// One forwarding run of one profile, from the start line of its log to its end line.
//
// A run must keep one rule whatever fails: a message reaches every address at least once. The server names messages by
// unique ids; each address has a list of the ids it has received (uidl.def). The whole run is work on these lists.
// An example: the mailbox holds a, b and c; two addresses take part, and the SMTP server refuses c.
//
//     step                                    list of phone   list of office   messages
//
//     load the lists                          a  b  x         a
//     handled: in both lists                                                   a is not fetched (deleted: deletemail)
//     fetch the rest                                                           b  c
//     drop ids that left the server           a  b            a
//     give out destinations, note their ids   a  b  c         a  b  c          b -> office, c -> phone and office
//     deliver: b is taken, c is refused                                        c is left
//     take back the ids of what is left       a  b            a  b
//     save the lists
//
// So the next run fetches c again. Ids are noted before the delivery and taken back after it, in memory only: a crash
// at any instant leaves the lists of the run before on disk, and the worst that follows is a message sent twice. A list
// from which ids could not be taken back is never saved.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "engine/bookkeeping.h"
#include "platform/net/sockets.h"
#include "platform/net/traffic.h"
#include "platform/os/clock.h"
#include "platform/os/files.h"
#include "platform/os/shield.h"
#include "platform/os/threads.h"
#include "tarvex/tree.h"

namespace tarvex {
namespace {

// The messages of a run, destroyed with it.
struct MailOwner {
    ReceivedMails mails;

    MailOwner() = default;
    MailOwner(const MailOwner&) = delete;
    MailOwner& operator=(const MailOwner&) = delete;
    ~MailOwner() {
        for (const CReceiveMail* mail : mails) delete mail;
    }
};

// A directory as the run found it. During the run the host may delete it and give its path to another profile or
// address. The run must not replace the files of that one.
class OwnDirectory {
public:
    explicit OwnDirectory(const CString& path) : path_(path) {
        known_ = Shielded([&] { identity_ = IdentifyDirectory(path_); });
    }

    // True when memory is too short to find out: then the run saves its state.
    bool IsStillThere() const {
        return !known_ || Shielded(true, [&] { return IdentifyDirectory(path_) == identity_; });
    }

private:
    const CString& path_;
    DirectoryIdentity identity_;
    bool known_ = false;
};

CSaved Saved(bool saved) { return saved ? CSaved::Saved : CSaved::Failed; }

class Operation {
public:
    explicit Operation(CPopProfile& profile) : profile_(profile), result_(profile.result), directory_(profile.path) {}

    // Whatever goes wrong in between, what is not delivered is taken back, and the lists, the log and the settings are
    // saved.
    void Run() {
        TellAddresses();
        Guarded([this] { Start(); });
        Guarded([this] {
            if (!Guard().Begins(profile_)) {
                ending_ = CRunEnding::KeptBack;
            } else if (JudgeAddresses()) {
                Forward();
            } else {
                ending_ = CRunEnding::NobodyTakesPart;
            }
        });
        Guarded([this] { Log("---- End Operation at " + FormatLongTime(CurrentTime())); });
        SaveProfile();
        result_.ending = ending_;
        result_.interrupted = ThreadInterrupted();
    }

private:
    CRunGuard& Guard() const { return CRunGuard::OrDefaults(profile_.guard); }
    void Log(CString line) { profile_.log.AddLine(std::move(line)); }

    // Runs one step; an exception is logged and ends the step. True when there was none.
    template <class Step>
    bool Guarded(Step&& step) {
        return Shielded(
            false,
            [&step] {
                step();
                return true;
            },
            [this](const char* reason) {
                Shielded([&] {
                    if (result_.exception.empty()) result_.exception = reason;
                });
                Log(CString("* Operation exception : ") + reason);
            });
    }

    // An entry of the result for each address; none at all, or none of its texts, where there is no memory for them.
    void TellAddresses() {
        const auto& addresses = profile_.forward_addresses;
        if (!Shielded([&] { result_.addresses.resize(addresses.size()); })) return;
        for (std::size_t i = 0; i < addresses.size(); ++i) {
            Shielded([&] {
                result_.addresses[i].path = addresses[i]->path;
                result_.addresses[i].address = addresses[i]->setting.address;
            });
        }
    }

    void SaveProfile() {
        if (!directory_.IsStillThere()) {
            result_.log = result_.settings = CSaved::LeftAlone;
            return;
        }
        bool saved = false;
        Guarded([&] { saved = profile_.log.Save(profile_.path) != 0; });
        if (profile_.log.log_mode != 0) result_.log = Saved(saved);
        result_.settings = Saved(profile_.SaveSetting() != 0);
    }

    // The start line shows when the profile was judged due, not when the worker got going.
    void Start() {
        const CString start_time = FormatLongTime(profile_.setting.lasttime);
        profile_.log.SetLogMode(profile_.setting.logmode);
        profile_.log.SetLogSize(profile_.setting.logsize);
        profile_.log.Load(profile_.path);
        Log("\r\n---- Operation starting at " + start_time);
    }

    // Decides which addresses take part; false when none does.
    bool JudgeAddresses() {
        for (const auto& address : profile_.forward_addresses) {
            JudgeAddress(*address);
            if (address->takes_part) taking_part_.push_back(address.get());
        }
        return !taking_part_.empty();
    }

    void JudgeAddress(CForwardAddress& address) {
        address.takes_part = address.setting.status != 0 ? 1 : 0;
        if (!address.takes_part) {
            Log("* disabled : " + address.setting.address);
            return;
        }
        Log("* enabled : " + address.setting.address);
        if (address.schedule.terms.empty()) {
            Log("* disable schedule : " + address.setting.address);
            return;
        }
        Log("* enable schedule : " + address.setting.address);
        address.takes_part = address.JudgeTakePart(profile_.setting.lasttime);
        Log(address.takes_part ? " - operation continued by schedule setting"
                               : " - operation ignored by schedule setting");
    }

    void Forward() {
        std::vector<OwnDirectory> directories;
        directories.reserve(profile_.forward_addresses.size());
        for (const auto& address : profile_.forward_addresses) directories.emplace_back(address->path);
        for (CForwardAddress* address : taking_part_) address->LoadUidlSetting();
        CCheckedMail handled = CollectHandled(taking_part_);

        MailOwner owner;
        CCheckedMail present;
        if (!profile_.PopProcess(&owner.mails, &handled, &present)) {
            ending_ = result_.ending == CRunEnding::KeptBack ? CRunEnding::KeptBack : CRunEnding::MailboxFailed;
            Log("* POP Process error : " + profile_.setting.address);
            return;
        }
        Log("* POP Process - success : " + profile_.setting.address);

        Guarded([&] {
            Remember(owner.mails, present);
            Deliver(owner.mails);
        });
        const bool taken_back = Guarded([&] { TakeBack(owner.mails); });
        for (std::size_t i = 0; i < directories.size(); ++i) SaveList(i, directories[i], taken_back);
        Guarded([&] { TellNotReached(owner.mails); });
    }

    // A list from which undelivered messages could not be taken back must not reach the disk.
    void SaveList(std::size_t index, const OwnDirectory& directory, bool taken_back) {
        CSaved saved = CSaved::LeftAlone;
        if (directory.IsStillThere()) {
            saved = Saved(taken_back && profile_.forward_addresses[index]->SaveUidlSetting() != 0);
        }
        if (index < result_.addresses.size()) result_.addresses[index].list = saved;
        result_.lists = std::max(result_.lists, saved);
    }

    void Remember(ReceivedMails& mails, const CCheckedMail& present) {
        for (const auto& address : profile_.forward_addresses) {
            std::erase_if(address->uidls, [&present](const CString& uidl) { return !present.Contains(uidl); });
        }
        AssignDestinations(mails, taking_part_,
                           [this](const auto&... question) { return Guard().Sends(profile_, question...); });
    }

    void Deliver(ReceivedMails& mails) {
        if (mails.empty()) {
            ending_ = CRunEnding::NothingNew;
            Log("You have no mail to Forward");
            return;
        }
        if (profile_.setting.replacefrom != 0) profile_.ReplaceFrom(&mails);
        const std::unique_ptr<CSmtpSocket> socket(profile_.CreateSmtpConnection());
        ending_ = CRunEnding::DeliveryFailed;
        if (!socket) {
            Log("* SMTP Process - error to create socket : ");
        } else if (profile_.SmtpProcess(socket.get(), &mails)) {
            ending_ = CRunEnding::Delivered;
            const CString reply = socket->SendQuit();
            Log("QUIT");
            Log(reply);
            Log("* SMTP Process - success : ");
        } else {
            Log("* SMTP Process - error : ");
        }
    }

    void TellNotReached(ReceivedMails& mails) {
        std::erase(mails, nullptr);
        if (!mails.empty()) Guard().NotReached(profile_, mails);
    }

    CPopProfile& profile_;
    CRunResult& result_;
    const OwnDirectory directory_;
    CRunEnding ending_ = CRunEnding::Exception;  // until it is known
    std::vector<CForwardAddress*> taking_part_;
};

}  // namespace
}  // namespace tarvex

int CPopProfile::DoOperation() {
    const tarvex::TrafficScope traffic(observer.bytes_received, observer.bytes_sent);
    const std::int64_t received_before = observer.bytes_received;
    const std::int64_t sent_before = observer.bytes_sent;
    result = {};
    tarvex::Operation(*this).Run();
    result.bytes_received = observer.bytes_received - received_before;
    result.bytes_sent = observer.bytes_sent - sent_before;
    return 1;
}
