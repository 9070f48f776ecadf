/* The interface between the card-reading service and a reader library.
 *
 * A reader library is a shared object that drives card-reading hardware. The service loads the
 * libraries listed in its quorvel_service.ini, asks each which functions it serves, and hands every
 * request of a web page to the library that declares the requested function. A library exports the
 * four entry points below under exactly these names; it may be written in any language.
 *
 * Rules for all entry points
 *
 *  1. Order. The service loads the library, calls getversion once, then init once. scommand is
 *     called only after init has succeeded, any number of times. Both getversion and init can come
 *     again after uninit, in the same process.
 *  2. Threads. All calls come from one thread, one at a time, so no entry point needs a lock. The
 *     whole service waits while a call runs: be brief, and give up on hardware that does not
 *     answer. A thread of the library's own must have ended when uninit returns.
 *  3. Ownership. Every buffer belongs to the service. The arguments of init and scommand are valid
 *     only during the call; the two areas handed to getversion stay valid, at the same address,
 *     until the library is unloaded. The library frees nothing of the service's and hands over
 *     nothing to free.
 *  4. Sizes. The buffers have the sizes named below, in bytes, the terminating zero included.
 *     Writing past an end is undefined. No argument is ever null.
 *  5. Texts are zero-terminated. Everything that the library writes is GBK (or GB18030, whose
 *     four-byte codes have the characters that GBK lacks); a byte that begins no character reaches
 *     the page as U+FFFD. The command text comes as the page sent it: UTF-8 from browsers, but
 *     unchecked, so any byte can occur in its strings.
 *  6. Results. Non-zero means success, 0 failure. Nothing else may leave an entry point: no
 *     exception, no longjmp, no exit.
 *  7. The process belongs to the service: leave its signals (handlers and mask), working directory,
 *     environment and standard streams alone, and keep nothing (memory, descriptors, processes)
 *     after uninit. SIGPIPE is ignored.
 *  8. uninit is called only when the library is unloaded while the service goes on running, and not
 *     when the process ends, unless the library is isolated and idle then. Leave no hardware in a
 *     state that needs uninit.
 *  9. Isolation. An administrator can have the library run in a process of its own. The same calls
 *     come in the same order; only requests for this library then wait for it, a call beyond the
 *     time set for it ends the process, and after that, as after a crash, a new one starts with
 *     getversion and init. Rely on neither home.
 */
#ifndef QUORVEL_READER_H
#define QUORVEL_READER_H

#include <stdint.h>

/* Sizes of buffers in bytes, the terminating zero included. They are part of the binary interface
 * and never change. */
#define QUORVEL_PARAMETER_SIZE 1024 /* init: the parameter text */
#define QUORVEL_NAME_SIZE 100       /* scommand: the function name, at most 99 characters */
#define QUORVEL_COMMAND_SIZE 102400 /* scommand: the command text, at most 102399 characters */
#define QUORVEL_REPLY_SIZE 1024     /* scommand: the reply, at most 1023 characters */
#define QUORVEL_VERINFO_SIZE 20     /* getversion: the first area */
#define QUORVEL_ANSWER_SIZE 1024    /* getversion: the answer, at most 1023 digits */
#define QUORVEL_VEREXTRA_SIZE 32    /* getversion: the second area */
#define QUORVEL_ERROR_SIZE 1024     /* getversion: the error text */

/* Marks a definition as visible outside the library. Build everything else with
 * -fvisibility=hidden, so that no other symbol of the library can meet one of the service. */
#if defined(__GNUC__)
#define QUORVEL_EXPORT __attribute__((visibility("default")))
#else
#define QUORVEL_EXPORT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Says which functions the library serves. Called before init: must not touch the hardware.
 *
 * answer    out: QUORVEL_ANSWER_SIZE bytes, zero-filled. The function list in hexadecimal: two
 *           digits (0-9, a-f, A-F) for each byte of the list, an even number of them, so that the
 *           list itself has at most 511 bytes. A character that is no digit loses everything before
 *           it.
 * verinfo   QUORVEL_VERINFO_SIZE and
 * verextra  QUORVEL_VEREXTRA_SIZE bytes, zero-filled, reserved: the service neither fills nor reads
 *           them.
 * error     out: QUORVEL_ERROR_SIZE bytes, zero-filled. The reason, when the result is 0.
 * Returns   non-zero, or 0 to refuse loading; the service then logs the text in error.
 *
 * The list is a text that names the functions in lower case, such as
 * "readcardbas\ncardpresent\n". To route a request the service lowers the requested name (ASCII
 * letters) and searches it in the whole list as a substring; the first library in byte order of
 * the paths whose list contains it gets the request. So
 *   - separate the names (a line feed each does),
 *   - choose names that are not part of another name, of this library or of others: a request for
 *     "read" goes to a library that declares "readcardbas",
 *   - do not declare "config", "getconfig" or a name that begins with "quorvel.": the service
 *     answers these itself. */
QUORVEL_EXPORT int32_t getversion(char* verinfo, char* answer, char* verextra, char* error);

/* Makes the library ready. Touching the hardware is fine, but a reader that is not plugged in is no
 * reason to fail: the library would stay unavailable until the service is started again.
 *
 * parameter in: QUORVEL_PARAMETER_SIZE bytes, a zero-terminated text that is reserved and empty at
 *           present. Accept any content.
 * Returns   non-zero when the library is ready for scommand, or 0. */
QUORVEL_EXPORT int32_t init(char* parameter);

/* Gives back all that init and scommand have acquired. Called once for each init that succeeded,
 * and only in the case of rule 8. */
QUORVEL_EXPORT void uninit(void);

/* Serves one request.
 *
 * name      in: the requested function, its ASCII letters already lowered. Since routing is by
 *           substring, it can be a name that the library does not serve: refuse it.
 * command   in: a JSON object in compact form: the page's request without its member "fid" and with
 *           the string member "platform" (the machine's architecture, such as "x86_64"). Whole
 *           numbers have all their digits, other numbers six digits after the point.
 * reply     out: QUORVEL_REPLY_SIZE bytes, zero-filled. One JSON object with the string member
 *           "result", "true" or "false" (never a JSON boolean), with "errmsg", the reason for
 *           people, when it is "false", and with any further members.
 * Returns   non-zero when the function succeeded, else 0. The page sees the reply alone.
 *
 * The member "fid" of the reply: a reply that contains the five characters "fid" (with the
 * quotation marks) anywhere is passed on byte for byte. Any other reply is parsed and printed again
 * with the member "fid" appended, if that fits: its white space goes, and numbers with a fraction
 * get six digits after the point. Writing "fid" always is the simple and safe choice.
 *
 * The byte 0x5C: as the second byte of a GBK character it is part of the character, not a
 * backslash. Leave it as it is (not doubled) when you escape a text. */
QUORVEL_EXPORT int32_t scommand(const char* name, const char* command, char* reply);

#ifdef __cplusplus
}
#endif

#endif
