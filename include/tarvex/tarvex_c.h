#pragma once

// Tarvex for hosts in C, and for every compiler that cannot use the C++ classes of tarvex/tarvex.h: the same root of a
// data tree, behind a handle. The data tree itself is edited with the `tarvex` command or as text files.
//
//     tarvex_root* root = tarvex_open("/srv/tarvex");
//     if (!root) { fprintf(stderr, "%s\n", tarvex_last_error()); return 1; }
//     for (;;) { tarvex_run(root); wait a while; }
//     tarvex_close(root);
//
// A handle belongs to one thread at a time: two operations on it must not run at once. Different handles are
// independent; two of them on one directory are not, whatever the programs they live in, so never do that.
// The interface is stable: functions may be added, none will change.

#if defined(_WIN32)
#define TARVEX_C_CALL __cdecl
#if defined(TARVEX_BUILDING)
#define TARVEX_C_API __declspec(dllexport)
#elif defined(TARVEX_STATIC)
#define TARVEX_C_API
#else
#define TARVEX_C_API __declspec(dllimport)
#endif
#else
#define TARVEX_C_CALL
#define TARVEX_C_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A root and the runs that it has started. */
typedef struct tarvex_root tarvex_root; /* NOLINT(modernize-use-using): it is C as well */

/* Loads the data tree below a directory, in the system's own path form and code page, and creates the directory when
   only its last level is missing. The tree is loaded once, here: what is edited later counts after tarvex_close and
   another tarvex_open. The caller owns the handle and gives it back with tarvex_close. Null on failure. */
TARVEX_C_API tarvex_root* TARVEX_C_CALL tarvex_open(const char* directory);

/* Starts a run, on a thread of its own, for every profile that is due and not running already, and returns at once: the
   number of runs that are under way then, -1 on failure. What a run did is told by tarvex_ended once it has ended; this
   forgets what was told before. */
TARVEX_C_API int TARVEX_C_CALL tarvex_run(tarvex_root* root);

/* Starts a run of one profile, due or not and switched on or not: 1 when it was started, 0 when the profile is running
   already, -1 on failure. The profile is named by its directory below the root, with slashes: "user0/from0". */
TARVEX_C_API int TARVEX_C_CALL tarvex_start(tarvex_root* root, const char* profile);

/* The interval of a profile's timer in minutes, in seconds. From 1,440 minutes on it is longer than the timer. */
TARVEX_C_API int TARVEX_C_CALL tarvex_interval_seconds(int timer_minutes);

/* The number of runs that are under way, -1 on failure. */
TARVEX_C_API int TARVEX_C_CALL tarvex_running(tarvex_root* root);

/* Waits until no run is under way, at most so many milliseconds (negative: without limit). 1 when none is, 0 when the
   time was up, -1 on failure. */
TARVEX_C_API int TARVEX_C_CALL tarvex_wait(tarvex_root* root, int milliseconds);

/* How a run ended. */
enum tarvex_ending {
    TARVEX_COULD_NOT_BEGIN = 1,   /* no memory for the profile, or no thread */
    TARVEX_NOBODY_TAKES_PART = 2, /* no address is switched on and within its schedule */
    TARVEX_MAILBOX_FAILED = 3,    /* see tarvex_result.mailbox */
    TARVEX_NOTHING_NEW = 4,
    TARVEX_DELIVERED = 5,       /* everything that was fetched */
    TARVEX_DELIVERY_FAILED = 6, /* see tarvex_result.delivery */
    TARVEX_EXCEPTION = 7,       /* mostly want of memory; see tarvex_result.exception */
    TARVEX_KEPT_BACK = 8        /* by the guard, before anything was deleted or fetched */
};

/* How far a conversation had come. */
enum tarvex_stage {
    TARVEX_STAGE_NONE = 0,
    TARVEX_STAGE_CONNECT = 1,
    TARVEX_STAGE_TLS = 2,
    TARVEX_STAGE_GREETING = 3, /* with EHLO and HELO */
    TARVEX_STAGE_LOGIN = 4,
    TARVEX_STAGE_LIST = 5,
    TARVEX_STAGE_DELETE = 6,
    TARVEX_STAGE_RETRIEVE = 7,
    TARVEX_STAGE_MAIL_FROM = 8,
    TARVEX_STAGE_RCPT_TO = 9,
    TARVEX_STAGE_DATA = 10,
    TARVEX_STAGE_END_OF_DATA = 11 /* the whole message has gone, so the server may have taken it */
};

/* What to expect of trying again. */
enum tarvex_failure_class {
    TARVEX_FAILURE_NONE = 0,
    TARVEX_FAILURE_PERMANENT = 1,  /* SMTP 5xx, POP3 "-ERR" */
    TARVEX_FAILURE_TRANSIENT = 2,  /* SMTP 4xx */
    TARVEX_FAILURE_CONNECTION = 3, /* no connection, no TLS, connection lost, SMTP 421 */
    TARVEX_FAILURE_TIME_OUT = 4,
    TARVEX_FAILURE_PROTOCOL = 5, /* the server breaks the rules */
    TARVEX_FAILURE_LOCAL = 6     /* no memory, no socket, interrupted, a setting that cannot be sent */
};

/* How far something was saved. */
enum tarvex_saved {
    TARVEX_NOT_TRIED = 0,
    TARVEX_SAVED = 1,
    TARVEX_LEFT_ALONE = 2, /* the directory is gone, or another's by now */
    TARVEX_NOT_SAVED = 3   /* the file could not be written, and holds what it held before */
};

/* The structs below are only ever handed out: later versions may add members to the end of tarvex_result. A text is
   never null; it is empty where there is none. What a server said is untrusted, and ends at its first NUL. */
/* NOLINTBEGIN(modernize-use-using): it is C as well */

typedef struct tarvex_failure {
    int stage;          /* a tarvex_stage */
    int failure_class;  /* a tarvex_failure_class */
    const char* reply;  /* the server's answer; empty when none came */
    const char* reason; /* in English, where there is no answer */
    const char* uidl;   /* the id of the message, where it is about one */
    const char* sender; /* of the envelope, without angle brackets */
    const char* recipient;
} tarvex_failure;

/* A message that the run wanted and did not get. */
typedef struct tarvex_not_fetched {
    const char* uidl;
    int failure_class;
    const char* reply; /* the first 1,000 bytes; with both empty the message was not asked for any more */
    const char* reason;
} tarvex_not_fetched;

/* A forwarding address, whether it took part or not. */
typedef struct tarvex_address {
    const char* path;    /* its directory below the root, with slashes: "user0/from0/forwardto0" */
    const char* address; /* in Shift-JIS */
    int copies;          /* that the SMTP server took for it */
    int list;            /* how far its list of ids was saved: a tarvex_saved */
} tarvex_address;

typedef struct tarvex_result {
    const char* profile; /* its directory below the root, with slashes: "user0/from0" */
    int ending;          /* a tarvex_ending */
    int messages_listed;
    int messages_fetched;
    int messages_not_fetched;
    int messages_delivered;   /* taken for every address that lacked them, one at least */
    int copies;               /* taken for one address: the sum over the addresses */
    long long bytes_received; /* over the wire, from both servers */
    long long bytes_sent;
    const tarvex_failure* mailbox;  /* what ended the POP3 conversation early */
    const tarvex_failure* delivery; /* the first refusal of the SMTP conversation, which ended it */
    const char* exception;
    int lists;    /* the lists of ids of all addresses: a tarvex_saved, the greatest of them */
    int log;      /* profile.log: a tarvex_saved */
    int settings; /* popprofile.def: a tarvex_saved */
    int address_count;
    const tarvex_address* addresses; /* in the order of the tree; none where there was no memory for them */
    int not_fetched_count;           /* 10,000 at most */
    const tarvex_not_fetched* not_fetched;
    int messages_put_off; /* left for a later run by the guard */
    int copies_set_aside; /* refused by the server, and taken over by the guard */
    int messages_kept;    /* of those fetched: the guard still had them, so they were not fetched again */
    int interrupted;      /* told to end early: what failed then says nothing about the servers */
} tarvex_result;
/* NOLINTEND(modernize-use-using) */

/* The number of runs that have ended and can be asked about, -1 on failure. It grows with each run that ends, until
   tarvex_run or tarvex_forget: so read them before the next tarvex_run. A run that has ended meanwhile is not forgotten
   but told after it. Only a run for whose result there is no memory is not told.
 */
TARVEX_C_API int TARVEX_C_CALL tarvex_ended(tarvex_root* root);

/* What one of the runs did that tarvex_ended has counted, from 0, in the order in which they were seen to end. Owned by
   the handle, until the next tarvex_run, tarvex_forget or tarvex_close. Null on failure. */
TARVEX_C_API const tarvex_result* TARVEX_C_CALL tarvex_ended_run(tarvex_root* root, int index);

/* Frees what tarvex_ended has counted, for hosts that start runs with tarvex_start alone. */
TARVEX_C_API void TARVEX_C_CALL tarvex_forget(tarvex_root* root);

/* Interrupts every run, waits until they have saved their state and returns 1; -1 on failure. The handle stays usable.
 */
TARVEX_C_API int TARVEX_C_CALL tarvex_stop(tarvex_root* root);

/* Stops every run and frees the handle. Null is ignored. To be called for every root before the process ends or the
   library is unloaded, and not from DllMain: at the end of a process Windows kills the runs that are under way. */
TARVEX_C_API void TARVEX_C_CALL tarvex_close(tarvex_root* root);

/* Why the last operation of this thread that failed did so: an English sentence in UTF-8, empty before the first
   failure. It is owned by the library and never freed. */
TARVEX_C_API const char* TARVEX_C_CALL tarvex_last_error(void);

/* ---- a guard: what a host decides in a run

   A run asks its guard at every step that a host may want otherwise. A member that is null gives the answer that a run
   without a guard has. The functions are called on the threads of the runs, for several runs at once; they may block
   their run, and must not call back into this root. The texts are valid during the call; they come from servers and
   may hold anything but a zero byte. */
/* NOLINTBEGIN(modernize-use-using): it is C as well */

typedef struct tarvex_mail {
    const char* profile; /* "user0/from0" */
    const char* uidl;    /* the unique id; empty where the server has none */
    long long size;      /* as the server lists it, in bytes; -1 when it was not asked or gave no number */
    const char* text;    /* the message, `text_bytes` long, zero bytes included; null before it is fetched */
    long long text_bytes;
} tarvex_mail;

enum tarvex_sending {
    TARVEX_SEND_AS_ALWAYS = 0, /* when the address's list lacks the id */
    TARVEX_SEND = 1,           /* whatever the list says */
    TARVEX_HAS_IT = 2,         /* note the id, and do not send it */
    TARVEX_KEEP_BACK = 3       /* neither: the next run asks again */
};

enum tarvex_refusal {
    TARVEX_END_DELIVERY = 0, /* as without a guard */
    TARVEX_HOST_HAS_IT = 1   /* the host holds it durably for this address: go on with the next */
};

enum tarvex_protocol { TARVEX_POP3 = 0, TARVEX_SMTP = 1 };

/* An account at an SMTP server. The texts are bytes, as they go to the server. */
typedef struct tarvex_smtp_account {
    const char* server;
    int port;
    int tls;     /* 0 plain, 1 from the first byte, 2 STARTTLS */
    int esmtp;   /* 0: HELO only, and no login */
    int logs_in; /* 0: no login */
    int method;  /* 0 the best that is offered, 1 PLAIN, 2 LOGIN, 3 CRAM-MD5 */
    const char* user;
    const char* password;
} tarvex_smtp_account;

typedef struct tarvex_guard {
    int size;      /* sizeof(tarvex_guard): later versions add members to the end */
    void* context; /* handed to every function */
    /* Non-zero for yes. Whether the run shall begin; whether it shall go on with what the server lists; whether a
       message needs no fetching (`received`: the lists say so); whether a handled one is deleted on the server, where
       `deletemail` is set; whether the run goes on after a refused deletion. */
    int(TARVEX_C_CALL* begins)(void* context, const char* profile);
    int(TARVEX_C_CALL* listed)(void* context, const char* profile, const tarvex_mail* mails, int count);
    int(TARVEX_C_CALL* is_handled)(void* context, const tarvex_mail* mail, int received);
    int(TARVEX_C_CALL* deletes)(void* context, const tarvex_mail* mail);
    int(TARVEX_C_CALL* goes_on_after)(void* context, const char* profile, const tarvex_failure* refused_deletion);
    /* Whether sizes are wanted before anything is deleted or fetched; whether a message is fetched last; whether it is
       fetched in this run, which holds `held_bytes` already; whether what was fetched is delivered although the mailbox
       failed. */
    int(TARVEX_C_CALL* wants_sizes)(void* context, const char* profile);
    int(TARVEX_C_CALL* comes_last)(void* context, const tarvex_mail* mail);
    int(TARVEX_C_CALL* fetches)(void* context, const tarvex_mail* mail, long long held_bytes);
    long long(TARVEX_C_CALL* least_bytes_per_minute)(void* context, const char* profile); /* 0: no such rule */
    int(TARVEX_C_CALL* delivers_after)(void* context, const char* profile, const tarvex_failure* failed_retrieval);
    /* A tarvex_sending for a fetched message and an address ("user0/from0/forwardto0"). */
    int(TARVEX_C_CALL* sends)(void* context, const tarvex_mail* mail, const char* address, int received);
    /* Whether the server is asked to take it for this address; 0: the host holds it durably by now. */
    int(TARVEX_C_CALL* offers)(void* context, const tarvex_mail* mail, const char* address);
    int(TARVEX_C_CALL* end_of_data_seconds)(void* context, const char* profile); /* 0: the profile's time-out */
    /* A tarvex_refusal. */
    int(TARVEX_C_CALL* refused)(void* context, const tarvex_mail* mail, const char* address,
                                const tarvex_failure* refusal);
    /* The server has taken it for this address. `reply`: its answer to the whole message. */
    void(TARVEX_C_CALL* taken)(void* context, const tarvex_mail* mail, const char* address, const char* reply);
    /* The connection to a server, asked whenever one is wanted: a stream socket that is connected (a descriptor, or a
       SOCKET on Windows), which the run makes non-blocking, shuts down when it is interrupted, and closes. -1 has the
       run connect by itself, any other negative number fails. A host that sets *is_secured to 1 answers for encryption:
       then an SMTP run begins no TLS of its own. */
    long long(TARVEX_C_CALL* connects)(void* context, const char* profile, int protocol, const char* server, int port,
                                       int* is_secured); /* protocol: a tarvex_protocol */
    /* The message, where the host still has it from an earlier run that did not deliver it: `text_bytes` of it, exactly
       as `sends` was told it; no RETR is sent for it then. Null: it is fetched. The text must stay valid until the run
       asks its next question. */
    const char*(TARVEX_C_CALL* kept)(void* context, const tarvex_mail* mail, long long* text_bytes);
    /* It was fetched, and is left for the next run. Its text may have been changed by the profile's settings. */
    void(TARVEX_C_CALL* not_reached)(void* context, const tarvex_mail* mail);
    /* The account that the run sends through. `account` holds the profile's own: change in it what shall be otherwise;
       nothing of that is saved. New texts must stay valid until the run asks its next question. */
    void(TARVEX_C_CALL* sends_through)(void* context, const char* profile, tarvex_smtp_account* account);
    /* The most bytes of the header of a text mail; 0: any number. Above it To and CC are shortened. */
    int(TARVEX_C_CALL* text_mail_header_bytes)(void* context, const char* profile);
} tarvex_guard;
/* NOLINTEND(modernize-use-using) */

/* Has the guard decide in every run that begins from now on, of tarvex_run and of tarvex_start; null ends that. The
   functions are copied; the context must live until the runs have ended. 1, or -1 on failure. */
TARVEX_C_API int TARVEX_C_CALL tarvex_set_guard(tarvex_root* root, const tarvex_guard* guard);

/* ---- text: the tree's files and logs hold Shift-JIS */

/* Writes the Shift-JIS text `text` as UTF-8 to `utf8`, and the UTF-8 `utf8` as Shift-JIS to `text`. Both end with a
   zero byte. `room` is the size of the target in bytes; the caller owns it, and it may be null when `room` is 0. The
   result is the length of the whole converted text without its zero byte: when it is not less than `room`, the target
   was too small and is left as it was.
   To UTF-8 every text has a form: a byte that belongs to no character becomes "?". To Shift-JIS the result is -1, with
   the target left as it was, when the source is not UTF-8 or has a character that Shift-JIS does not have. -1 as well
   for a null source and when memory runs out. */
TARVEX_C_API int TARVEX_C_CALL tarvex_utf8_from_text(const char* text, char* utf8, int room);
TARVEX_C_API int TARVEX_C_CALL tarvex_text_from_utf8(const char* utf8, char* text, int room);

#ifdef __cplusplus
}
#endif
