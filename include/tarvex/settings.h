#pragma once

// The settings records of the account tree. Each is stored in one file of bracketed keys in a directory of the tree:
//
//     [popserver]
//     pop.example.org
//
// Load reads the record's file in the directory. It returns 1 when the file was read and 0 when it could not be opened;
// a field for which the file holds no value keeps the value it had. Malformed content is never an error.
// Save rewrites the whole file: after a crash at any instant the file holds the old or the new content, whole. It
// returns 0 when the directory text is empty or the file cannot be written, else 1. A line break inside a text would
// end its value in the file: it is written as a blank. Initialize sets every field to its default, as the constructors
// do. The records are plain values: no operation may run on one object from two threads at a time. None throws: where
// memory runs out, Load and Save return 0 and have changed nothing, an assignment leaves its target as it was, and a
// copy construction yields the defaults.

#include "tarvex/text.h"

// The scrambled form in which passwords are stored: Base64 of the complemented bytes. There is no key; it only keeps a
// password from being read at a glance.
TARVEX_API CString EncodePassWord(const CString& plain);

// The plain password of a stored form. A text that cannot be Base64 is taken for a password in clear and stays as it
// is. Trailing 0xFF bytes of the plain text do not survive encoding and decoding.
TARVEX_API CString DecodePassWord(const CString& stored);

// The local time that "year,month,day,hour,minute,second" stands for. A year, month or day of 0 is the current one; the
// seconds are dropped. A text without its five commas or without seconds, or a date that the clock cannot represent,
// yields the current time; an out-of-range date (month 13) is normalised by the clock.
TARVEX_API CTime GetCTime(const CString& text);

// The application-wide settings, stored as appset.def in a directory of the host's choice.
class TARVEX_API CAppSetting {
public:
    CAppSetting();
    CAppSetting(const CAppSetting& other);
    CAppSetting& operator=(const CAppSetting& other);
    virtual ~CAppSetting();

    void Initialize();
    int Load(CString directory);
    int Save(CString directory) const;

    // 1 when the two root paths are equal or the two flags are equal; 0 only when both differ (B14).
    int operator==(const CAppSetting& other) const;

    CString rootpath;            // root directory of the account tree; "TarvexRoot" below the application's directory
    int allowcreatenewuser = 0;  // whether the host lets users be created; the tree itself does not consult it
};

// The login of one user, stored as userset.def in the user's directory.
class TARVEX_API CUserSetting {
public:
    CUserSetting();
    CUserSetting(const CUserSetting& other);
    CUserSetting& operator=(const CUserSetting& other);  // leaves out the version
    virtual ~CUserSetting();

    void Initialize();
    int Load(CString directory);
    int Save(CString directory) const;
    int operator==(const CUserSetting& other) const;  // 1 when all but the versions are equal

    int status = 1;         // stored for the host; consulted by nobody here
    int administrator = 0;  // the user has administrator rights in the host
    CString loginname;
    CString password;  // plain in memory, scrambled in the file
    int version = 0;   // read and written back
};

// One POP3 account: where to collect, where to deliver, how often. Stored as popprofile.def in the profile's directory.
class TARVEX_API CPopProfileSetting {
public:
    CPopProfileSetting();
    CPopProfileSetting(const CPopProfileSetting& other);
    CPopProfileSetting& operator=(const CPopProfileSetting& other);  // leaves out the version and lasttime
    virtual ~CPopProfileSetting();

    void Initialize();
    int Load(CString directory);  // also 2: a stored password was not scrambled and the file must be rewritten
    int Save(CString directory) const;
    int operator==(const CPopProfileSetting& other) const;  // 1 when all but the versions and lasttimes are equal

    int version = 0;        // read and written back
    CString nickname;       // display name
    CString address;        // the profile's own mail address: envelope sender, rewritten From, and name in the log
    CString popuser;        // POP3 user name
    CString popserver;      // POP3 server: host name or address
    CString poppassword;    // POP3 password; plain in memory, scrambled in the file
    CString smtpuser;       // SMTP user name; empty = popuser
    CString smtpserver;     // SMTP server: host name or address; empty = popserver
    CString smtppassword;   // SMTP password; empty = poppassword; plain in memory, scrambled in the file
    int timer = 10;         // minutes between two runs; 0 = on every call of the entry (see JudgeDoOperation)
    int deletemail = 0;     // non-zero: a message is deleted on the POP3 server in the run after it was forwarded
    int apop = 0;           // non-zero: log in with APOP where the server offers it
    int esmtp = 1;          // 0: greet with HELO only, without authentication
    int smtpauth = 0;       // non-zero: authenticate to the SMTP server
    int logmode = 1;        // 0: no log
    int logsize = 1024;     // newest log entries kept; 0 = all
    CTime lasttime = 0;     // when the profile was last judged due; the current time for a new profile
    int status = 1;         // 0: switched off
    int popport = 110;      // TCP port
    int smtpport = 25;      // TCP port
    int sslpop = 0;         // stored only: POP3 is always plain TCP
    int sslsmtp = 0;        // 0 plain; 1 TLS from the first byte; 2 STARTTLS, without which the connection fails
    int replacefrom = 0;    // non-zero: the From field of every message becomes the profile's address
    int replaceto = 0;      // non-zero: the To field of every copy becomes its forwarding address
    int timeout = 30;       // seconds; 0 or less counts as 30
    int smtpauth_mode = 0;  // 0 the best that is offered, 1 PLAIN, 2 LOGIN, 3 CRAM-MD5
};

// One forwarding address. Stored as forwardaddress.def in the address's directory.
class TARVEX_API CForwardAddressSetting {
public:
    CForwardAddressSetting();
    CForwardAddressSetting(const CForwardAddressSetting& other);
    CForwardAddressSetting& operator=(const CForwardAddressSetting& other);  // leaves out the spare integer
    virtual ~CForwardAddressSetting();

    void Initialize();
    int Load(CString directory);  // without an address in the file: the last component of the directory path
    int Save(CString directory) const;
    int operator==(const CForwardAddressSetting& other) const;  // the spare integer is not compared

    int status = 1;    // 0: switched off
    int spare = 0;     // unused; travels only with a copy construction
    CString address;   // where to send: a mail address, with or without display name and comment
    CString nickname;  // display name
    // negative: send as it is; 0: text mail without limit; positive: text mail of at most that many bytes (B17)
    int textonly = -100;
    int cutwhite = 0;    // text mail: 0 keeps, positive compresses, negative cuts white space and compress_words
    int htmltotext = 1;  // text mail: non-zero turns an HTML mail into text
    // text mail: characters for cutwhite, separated by single blanks; "-", "," and the ideographic space
    CString compress_words = "- , \x81\x40";
};
