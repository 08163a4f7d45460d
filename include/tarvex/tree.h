#pragma once

// The account tree: the root directory, its users, their POP profiles and the profiles' forwarding addresses.
//
//     root\user0\userset.def
//     root\user0\from0\popprofile.def, profile.log
//     root\user0\from0\forwardto0\forwardaddress.def, schedule.def, uidl.def
//
// A child is a directory whose name begins with "user", "from" or "forwardto" and that holds its marker file
// (userset.def, popprofile.def, forwardaddress.def), in the order in which the system lists the directory.
//
// The path in memory uses the backslash as separator; "/srv/tarvex\user0" is the directory /srv/tarvex/user0 on Linux.
// Parents own their children: a pointer handed out stays valid until the child is deleted or the parent is reset or
// destroyed, and is never deleted by the caller. A destructor touches nothing on disk.
// The tree belongs to one thread, the host's. It may change the tree freely between two calls of the entry, because
// workers run on copies.
//
// Loading never fails on a file that cannot be read; the members of type CLoaded name it. Such an object has its
// defaults. A child whose directory cannot be entered is left out, and the parent's listing is not whole. A settings
// file of no bytes is not loaded whole, because a save never leaves one; a uidl.def may be empty.
//
// No operation throws. Without memory an operation fails and leaves its target unchanged. An object whose SetPath fails
// like that has no path afterwards, so that it is never saved over its own files.
//
// The members of a class stand under headings that name their purpose and the source file that defines them. A host
// needs what is kept in files, what is judged, and the members at the end. The steps of a run and the operations on
// text are for hosts that build a run of their own.

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "tarvex/guard.h"
#include "tarvex/loaded.h"
#include "tarvex/log.h"
#include "tarvex/mail.h"
#include "tarvex/observer.h"
#include "tarvex/result.h"
#include "tarvex/schedule.h"
#include "tarvex/settings.h"
#include "tarvex/text.h"
#include "tarvex/uidl.h"

namespace tarvex {
class Thread;       // a worker thread
class CSmtpSocket;  // an SMTP connection
}  // namespace tarvex

// One forwarding address of a profile.
class TARVEX_API CForwardAddress {
public:
    CForwardAddress() = default;
    CForwardAddress(const CForwardAddress&) = delete;
    virtual ~CForwardAddress();

    // ---- kept in files (store/forward_address.cpp)

    // Copies the path, the setting and the schedule, and reads the UIDL list from uidl.def in that path: a copy starts
    // from what is on disk, not from the other's list in memory. The takes-part flag is not copied.
    CForwardAddress& operator=(const CForwardAddress& other);

    // Stores the path and loads the setting and the schedule, but not the UIDL list.
    void SetPath(CString path);

    int LoadSetting();
    int SaveSetting();
    int LoadScheduleSetting();  // appends to the terms already held
    int SaveScheduleSetting();

    // Replaces the UIDL list by that of uidl.def. Returns 0, with an empty list, when the file cannot be opened.
    int LoadUidlSetting();

    // Rewrites uidl.def: after a crash it holds the old or the new list. Returns 0 when it cannot be written. An empty
    // path is not refused, unlike by the other Save operations: it names the root of the file system.
    int SaveUidlSetting();

    // ---- judged (engine/schedule.cpp)

    // Whether the address takes part in a run that was judged due at that moment: it is switched on, and its schedule
    // is empty or has a term, switched on, that holds the moment. A term without a date stands for the current day.
    int JudgeTakePart(CTime moment) const;

    // ---- members

    int takes_part = 0;  // whether the address takes part in the current run
    CScheduleSetting schedule;
    CStringArray uidls;  // the unique ids of the messages that this address has received
    CForwardAddressSetting setting;
    CString path;
    CLoaded setting_loaded;   // of the last reading of forwardaddress.def
    CLoaded schedule_loaded;  // of schedule.def
    CLoaded uidls_loaded;     // of uidl.def
};

// One POP3 account with its forwarding addresses.
class TARVEX_API CPopProfile {
public:
    CPopProfile();
    CPopProfile(const CPopProfile&) = delete;
    virtual ~CPopProfile();

    // ---- kept in files (store/pop_profile.cpp)

    // A deep copy for a worker: path, setting with lasttime but without the version, and a new copy of every forwarding
    // address. The log, the worker-thread field, the observer and the result are not copied.
    CPopProfile& operator=(const CPopProfile& other);

    void Reset();                // default settings, no path, no addresses, no result
    void SetPath(CString path);  // Reset, then loads the setting and the forwarding addresses of the directory
    int LoadSetting();  // 1 when popprofile.def was read, else 0; rewrites it when a password was not scrambled
    int SaveSetting();
    int SeekForwardAddress();  // appends the forwarding addresses of the directory; always 1

    // Creates the directory "forwardto%d" with the lowest number that is free or has lost its marker file. The result
    // is owned by the profile; null when the directory cannot be created.
    CForwardAddress* CreateNewForwardAddress(CString nickname, CString address);

    // Deletes the address and everything in its directory. Returns 0 when it is not one of this profile's.
    int DeleteForwardAddress(CForwardAddress* address);

    // ---- judged (engine/entry.cpp)

    // Whether the profile is due: switched on, and its interval has passed since lasttime. Sets lasttime to now when it
    // is. Below 1,440 minutes the interval is `timer` minutes; from there on it is longer (1,440 minutes wait 48
    // hours).
    int JudgeDoOperation();

    // When JudgeDoOperation will find the profile due, as long as it is switched on: a moment that has passed for one
    // that is due. The beginning of time when the profile has no interval and is due at every call.
    CTime NextDue() const;

    // ---- run: the whole (engine/run.cpp) and its two conversations (transfer/)

    // One whole forwarding run ("operation"): judge the addresses, fetch, deliver, remember, log. Always 1; `result`
    // and the log tell the rest. Blocks for as long as the servers take; call it on a copy that no other thread uses.
    int DoOperation();

    // The POP3 conversation of a run (pop_process.cpp). Appends each fetched message to `mails`, which then owns it;
    // leaves out the ids of `handled` (and deletes them on the server when `deletemail` is set); adds the ids that are
    // on the server at the end to `present`, which may be null. Returns 1 when the conversation reached its QUIT, else
    // 0; what was fetched stays, and result.mailbox tells why.
    int PopProcess(CArray<CReceiveMail*, CReceiveMail*>* mails, CCheckedMail* handled, CCheckedMail* present);

    // Connects, greets and authenticates (smtp_opening.cpp). Returns the connection, owned by the caller, who hands it
    // to SmtpProcess and gives it back with CloseSmtpConnection. Null on failure: the log and result.delivery say why.
    tarvex::CSmtpSocket* CreateSmtpConnection();

    // Delivers every message to its destinations (smtp_process.cpp). A message that is delivered to all of them is
    // destroyed; its place is null until all are delivered, when the array is emptied. Returns 0 after the first
    // refusal, which result.delivery tells.
    int SmtpProcess(tarvex::CSmtpSocket* socket, CArray<CReceiveMail*, CReceiveMail*>* mails);

    // ---- text operations: header fields (rewrite/header_fields.cpp), text mails (rewrite/text_mail.cpp)

    // Finds a field by name ("From:"). `start` is the offset of the CR LF before it, `end` of that after its last line;
    // for a name that stands only in the body `end` is less than `start`. Returns 0 when there is no such field.
    int FindHeader(CString* mail, CString name, int* start, int* end);

    // Replaces the From field of every message by the profile's address.
    void ReplaceFrom(CArray<CReceiveMail*, CReceiveMail*>* mails);

    // Replaces the To field of one message by the address.
    void ReplaceTo(CReceiveMail* mail, CString address);

    // Replaces a message by a short text mail in ISO-2022-JP or US-ASCII: a small header from the message's own, the
    // first readable text of its parts, and the terminator "\r\n.\r\n", not dot-stuffed. `textonly`: limit of the text
    // in bytes of Shift-JIS when positive; `cutwhite`, `compress_words`: as in the setting; `htmltotext`: non-zero
    // takes an HTML message. Returns 0, with the text unchanged, for a null pointer and for a text without a blank
    // line, else 1.
    int CutAsTextmail(CString* mail, int textonly, int cutwhite, int htmltotext, CString compress_words);

    // The same of a message that stays as it is; nothing where CutAsTextmail returns 0.
    std::optional<CString> TextMailOf(const CString& mail, int textonly, int cutwhite, int htmltotext,
                                      const CString& compress_words) const;

    // The readable text of a message or MIME part in Shift-JIS: its first text part, in document order and depth first,
    // that holds anything but white space; empty when there is none. `offset` has no effect; `htmltotext` non-zero
    // takes an HTML message, but nested HTML parts are never taken.
    CString PickText(CString part, int offset, int htmltotext);

    // ---- members

    std::vector<std::unique_ptr<CForwardAddress>> forward_addresses;
    CPopProfileSetting setting;
    CProfileLog log;
    std::atomic<tarvex::Thread*> worker_thread{nullptr};  // null unless this copy's run is under way
    CString path;
    CRunObserver observer;  // what this copy's run has done so far
    // What this copy's run did, once worker_thread is null. In a profile of the tree: CouldNotBegin as its ending, and
    // nothing else, when there was no memory for the last copy of it.
    CRunResult result;
    CRunGuard* guard =
        nullptr;               // decides in the runs of this copy; null stands for the defaults. Not owned, not copied
    CLoaded setting_loaded;    // of the last reading of popprofile.def
    CLoaded addresses_loaded;  // of the last listing of the addresses
};

// Closes a connection that CreateSmtpConnection made, without QUIT, and frees it. Null is ignored. To be called on the
// thread that used it last.
TARVEX_API void CloseSmtpConnection(tarvex::CSmtpSocket* connection);

// The same after QUIT, as a run ends a delivery that succeeded. Waits for the answer, at most the profile's time-out.
TARVEX_API void QuitSmtpConnection(tarvex::CSmtpSocket* connection);

// One user with his POP profiles.
class TARVEX_API CUser {
public:
    CUser() = default;
    CUser(const CUser&) = delete;
    CUser& operator=(const CUser&) = delete;
    virtual ~CUser();

    // ---- kept in files (store/user.cpp)

    void SetPath(CString path);  // Reset, then loads the setting and the profiles of the directory
    void Reset();                // destroys all profiles; path and setting stay
    int LoadSetting();
    int SaveSetting();
    int SeekPopProfile();  // appends the profiles of the directory; always 1

    // As CreateNewForwardAddress and DeleteForwardAddress, with "from%d".
    CPopProfile* CreateNewPopProfile(CString nickname, CString address);
    int DeletePopProfile(CPopProfile* profile);

    // ---- members

    CUserSetting setting;
    std::vector<std::unique_ptr<CPopProfile>> profiles;
    CString path;
    CLoaded setting_loaded;   // of the last reading of userset.def
    CLoaded profiles_loaded;  // of the last listing of the profiles
};

// The root of the tree, and the owner of the running copies.
class TARVEX_API CRootPath {
public:
    CRootPath() = default;
    CRootPath(const CRootPath&) = delete;
    CRootPath& operator=(const CRootPath&) = delete;

    // Interrupts the workers that still run, waits until they have saved their state, and frees everything.
    virtual ~CRootPath();

    // ---- kept in files (store/root_path.cpp)

    // Makes the directory exist and loads the tree below it. Returns 0, with the former tree unchanged, when the
    // directory can neither be found nor created; one missing level is created, not several.
    int SetRootPath(CString root);
    CString GetRootPath() const;

    void SeekUser();       // appends the users of the root directory
    void DeleteAllUser();  // in memory only

    // As CreateNewForwardAddress, with "user%d". A directory that is taken over because its marker file is missing
    // yields a user without administrator rights, whatever is asked for.
    CUser* CreateNewUser(CString login_name, CString password, int administrator);
    int DeleteUser(CUser* user);

    // ---- run (engine/entry.cpp)
    //
    // Runs are started by Tarvex and StartRun (tarvex/tarvex.h), which add a copy to running_copies. A host that wants
    // the result of every run takes the copies whose worker has finished out of running_copies itself before it calls
    // Tarvex: both Tarvex and RefreshThread free also what has finished since the host looked.

    // Frees the copies whose worker has finished; trims the process's memory when none is left.
    void RefreshThread();

    // Interrupts every worker, waits for its end and frees all copies. On Windows a file in use may delay it by a
    // minute.
    void KillThread();

    // Waits until every worker has finished, at most that long (negative: without limit). Returns 1 when none runs any
    // more, 0 when the time was up. The copies stay until RefreshThread frees them, so a host can read their
    // results and logs.
    int WaitThread(int milliseconds);

    // ---- members

    std::vector<std::unique_ptr<CUser>> users;
    std::vector<std::unique_ptr<CPopProfile>> running_copies;  // in the order in which they were started
    CString path;
    CRunGuard* guard = nullptr;  // of every run that Tarvex starts; null stands for the defaults. Not owned
    CLoaded users_loaded;        // of the last listing of the users
};
