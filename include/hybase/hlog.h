/**
 * @file
 * @ingroup logging
 * The process-wide logger.
 */

/**
 * @addtogroup logging
 * The process-wide logger: levelled records to the console or a callback, and to log files that
 * rotate by size.
 *
 *     hlogParam_t param = {HLOG_LEVEL_DEBUG, HLOG_LEVEL_WARN, 1, "/var/log/app", 1 << 20, 5};
 *     hlog_set_param(&param);
 *     HLOG_INFO("listening on port %d\n", port);
 *
 * A record reaches an output when its level is at most that output's threshold; a lower level is
 * more severe. The logger adds no newline: formats end in `"\n"`.
 *
 * One record, the date and time only with `show_time`:
 *
 *     [2024-05-01 12:00:00.007][INFO][main.cpp:12][OpenPort] listening on port 80
 *
 * @par Use
 * Nothing has to be set up or torn down. A process that never calls hlog_set_param() logs levels 0
 * to 2 to the console, from its first constructor to its last destructor.
 *
 * @par Failures
 * Nothing here reports a failure to its caller. What goes wrong with the log files is printed (see
 * hlog_set_print()), and records still reach the console or the callback.
 *
 * @par Threads
 * Every function may be called by any thread at any time, also while others log. One mutex is held
 * for the whole of a record; records are never mixed.
 * @{
 */
#ifndef HYBASE_HLOG_H
#define HYBASE_HLOG_H

#include <hybase/export.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Levels, the most severe first. The names in a record are "ERR" ... "ALL". A level below 0 is
 * shown as "ERR", one above 5 as "ALL"; the thresholds compare it as it is.
 */
enum {
    HLOG_LEVEL_ERR,   /**< 0: something failed */
    HLOG_LEVEL_WARN,  /**< 1: something is odd and goes on */
    HLOG_LEVEL_INFO,  /**< 2: what the owner of a device wants to know; the default threshold */
    HLOG_LEVEL_TRACE, /**< 3: steps on the way */
    HLOG_LEVEL_DEBUG, /**< 4: details for whoever looks for a fault */
    HLOG_LEVEL_ALL    /**< 5: everything else */
};

/**
 * Settings of the logger.
 *
 * Log files are named after the day they were begun and a number that never starts again, not even
 * on another day: `2024-05-01-00000003.log`. Whatever else lies in `dir` is left alone, unless its
 * name begins like that of a log file. The file being written has mode 0640, finished ones 0440.
 * The order of the names is taken for the order of age: when the clock of a device goes back by a
 * day or more, its new files are the first to be deleted.
 */
typedef struct {
    int32_t file_level;    /**< threshold of the log file, default 2 */
    int32_t console_level; /**< threshold of the console or of the callback, default 2 */
    int32_t show_time;     /**< records carry date and local time, default 1 */
    char dir[256];         /**< folder of the log files; empty (the default) means no file */
    int32_t max_size;  /**< bytes at which a file is closed and the next begun, default 1048576 */
    int32_t max_files; /**< log files kept in `dir`, the open one included, default 5 */
} hlogParam_t;

/**
 * Gets one record in place of the console: `text` is zero-terminated, `len` is its length, and both
 * are valid during the call only. A record of more than 2042 characters is cut: its first 2015
 * characters, then `"[log is too long, cut off]\n"`.
 * Runs on the logging thread with the logger's mutex held. It may call hlog_set_param() and
 * hlog_regirst(); it must not log (such a record goes to the log file only) nor wait for a thread
 * that might.
 */
typedef void (*hlogCallback)(const char* text, int32_t len);

/**
 * Emits one record; the macros below fill in file, function and line. `file` may be a full path:
 * only what follows its last '/' is printed.
 * Each record is handed to the log file at once, whatever its length; when that makes the file
 * `max_size` bytes long or more, the next file is begun before the call returns.
 * Returns the number of bytes printed to the log file, which a full disk may lose; 0 when none was.
 * Leaves errno alone.
 */
HYBASE_API int32_t hlog_printf_ex(int32_t level, const char* file, const char* func, int32_t line,
                                  const char* fmt, ...) __attribute__((format(printf, 5, 6)));

/**
 * Replaces all settings and closes the log file, if one is open; when `dir` is not empty, begins
 * the next log file there and deletes the oldest ones beyond `max_files`. A file that cannot be
 * opened leaves the logger without one until the next call.
 * The record is copied. Returns 0; a null `param` changes nothing.
 */
HYBASE_API int32_t hlog_set_param(const hlogParam_t* param);

/**
 * Registers the callback that replaces the console; null restores the console. When it returns, no
 * other thread is inside the former callback. The spelling is part of the interface.
 */
HYBASE_API void hlog_regirst(hlogCallback callback);

/**
 * Prints `text[0..len-1]`, which is zero-terminated and valid during the call only.
 *
 * Called by the thread that has something to print, by several at once, and with whatever lock it
 * holds: the logger's mutex for what is printed about log files, `pending_lock` of a context in a
 * handler of a time-out. So it must not wait for a thread that may log or call the library. It may
 * log: while the log file is being changed its records go to the console or the callback alone, and
 * a new `dir` is opened when the change is done.
 */
typedef void (*hlogPrintFunc)(const char* text, int32_t len);

/**
 * Replaces standard output, process-wide, for all that the library prints there, one call for each
 * line or block of lines: the diagnostics of the RPC engine (a message that is no JSON in full), of
 * vectors, time, struct mapping and sockets, what is printed about log files and what
 * HCParseIni::print() and a server's message printing show. The console's own records are not part
 * of it. Null is standard output again, which is the default: there a slow console holds the
 * printing thread up.
 * Texts that were begun before may still go to the former function.
 */
HYBASE_API void hlog_set_print(hlogPrintFunc func);

/** For hlog_set_print(): drops the text. */
HYBASE_API void hlog_print_nothing(const char* text, int32_t len);

/** For hlog_set_print(): logs the text at the level DEBUG. */
HYBASE_API void hlog_print_debug(const char* text, int32_t len);

/**
 * Emits one record of `level` from here: `HLOG_RECORD(level, "no route to %s\n", host)`. The
 * arguments after the format may be left out. The result is that of hlog_printf_ex().
 */
#define HLOG_RECORD(level, ...) hlog_printf_ex(level, __FILE__, __func__, __LINE__, __VA_ARGS__)

/** HLOG_RECORD at the level ERR: `HLOG_ERR("cannot open %s\n", path)`. */
#define HLOG_ERR(...) HLOG_RECORD(HLOG_LEVEL_ERR, __VA_ARGS__)

/** HLOG_RECORD at the level WARN: `HLOG_WARN("%d retries\n", count)`. */
#define HLOG_WARN(...) HLOG_RECORD(HLOG_LEVEL_WARN, __VA_ARGS__)

/** HLOG_RECORD at the level INFO: `HLOG_INFO("listening on port %d\n", port)`. */
#define HLOG_INFO(...) HLOG_RECORD(HLOG_LEVEL_INFO, __VA_ARGS__)

/** HLOG_RECORD at the level TRACE: `HLOG_TRACE("login of %s\n", user)`. */
#define HLOG_TRACE(...) HLOG_RECORD(HLOG_LEVEL_TRACE, __VA_ARGS__)

/** HLOG_RECORD at the level DEBUG: `HLOG_DEBUG("%d bytes\n", length)`. */
#define HLOG_DEBUG(...) HLOG_RECORD(HLOG_LEVEL_DEBUG, __VA_ARGS__)

/** HLOG_RECORD at the level ALL: `HLOG_ALL("tick\n")`. */
#define HLOG_ALL(...) HLOG_RECORD(HLOG_LEVEL_ALL, __VA_ARGS__)

#ifdef __cplusplus
}
#endif

/** @} */

#endif
