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
   number of runs that are under way then, -1 on failure. How a run went stands in the profile's profile.log. */
TARVEX_C_API int TARVEX_C_CALL tarvex_run(tarvex_root* root);

/* The number of runs that are under way, -1 on failure. */
TARVEX_C_API int TARVEX_C_CALL tarvex_running(tarvex_root* root);

/* Waits until no run is under way, at most so many milliseconds (negative: without limit). 1 when none is, 0 when the
   time was up, -1 on failure. */
TARVEX_C_API int TARVEX_C_CALL tarvex_wait(tarvex_root* root, int milliseconds);

/* Interrupts every run, waits until they have saved their state and returns 1; -1 on failure. The handle stays usable.
 */
TARVEX_C_API int TARVEX_C_CALL tarvex_stop(tarvex_root* root);

/* Stops every run and frees the handle. Null is ignored. To be called for every root before the process ends or the
   library is unloaded, and not from DllMain: at the end of a process Windows kills the runs that are under way. */
TARVEX_C_API void TARVEX_C_CALL tarvex_close(tarvex_root* root);

/* Why the last operation of this thread that failed did so: an English sentence in UTF-8, empty before the first
   failure. It is owned by the library and never freed. */
TARVEX_C_API const char* TARVEX_C_CALL tarvex_last_error(void);

#ifdef __cplusplus
}
#endif
