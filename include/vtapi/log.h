/*
 * The one log facility of the process: a threshold, an output stream and an optional callback.
 *
 * A message of level L is emitted when the configured level, as an unsigned number, is at most L.
 * The text of every line begins with the name of the function that reports, a colon and a blank: an
 * exported one, or enqueue_inline, requeue_inline, dequeue_inline and unqueue_inline, which do the
 * work of the queue.
 * The settings are process-wide. Each is read and written whole, in any thread; changes may
 * overtake each other, so set them up before the library is used from several threads. Lines of
 * several threads do not mix in a stream; a callback is called in the thread that reports, and has
 * to expect several at a time. Emitting a message leaves errno as it was.
 */
#ifndef VTAPI_LOG_H
#define VTAPI_LOG_H

#include <stdio.h>

#include "vtapi/base.h"

VT_BEGIN_DECLS

/* The levels. A configured level of 6 or more silences everything. */
enum vt_log_level {
  VT_LOG_TRACE = 0,
  VT_LOG_DEBUG = 1,
  VT_LOG_INFO = 2, /* the initial setting */
  VT_LOG_WARN = 3,
  VT_LOG_ERROR = 4,
  VT_LOG_FATAL = 5
};

/*
 * log_callback receives one finished line: its level and its text, zero-terminated, at most 511
 * characters, without a time stamp and without a newline. The text lies on the stack of the
 * reporting function and must not be kept.
 */
typedef void (*log_callback)(uint32_t level, const char* text);

/* getLogLevel returns the configured level. */
VT_API uint32_t getLogLevel(void);

/* setLogLevel stores the level, without a range check. */
VT_API void setLogLevel(uint32_t level);

/* getLogFile returns the stream that setLogFile stored, or stdout when there is none. */
VT_API FILE* getLogFile(void);

/*
 * setLogFile directs lines that do not go to a callback to stream; null restores stdout. The
 * stream stays the caller's: the library flushes it after each line and never closes it. Such a
 * line reads "<ctime text> [<LEVEL>] <function>: <message>" and is never truncated.
 */
VT_API void setLogFile(FILE* stream);

/* getLogCallback returns the stored callback, which may be null. */
VT_API log_callback getLogCallback(void);

/*
 * setLogCallback stores the callback and returns 1; null changes nothing and returns 0. The DEBUG
 * line that reports the change is emitted through the settings as they stood before it.
 */
VT_API int setLogCallback(log_callback callback);

/* getLogCallbackEnable returns the byte that enableLogCallback stored, 0 at first. */
VT_API uint32_t getLogCallbackEnable(void);

/*
 * enableLogCallback stores the low byte of flag: non-zero sends lines to the callback (if one is
 * stored) instead of the stream. The DEBUG line that reports the change is emitted through the
 * settings as they stood before it, so switching on reports to the stream and switching off to the
 * callback.
 */
VT_API void enableLogCallback(uint32_t flag);

VT_END_DECLS

#endif /* VTAPI_LOG_H */
