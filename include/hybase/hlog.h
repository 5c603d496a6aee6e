/*
 * The process-wide logger: levelled records to the console or a callback, and to log files that
 * rotate by size.
 *
 * A record reaches an output when its level is at most that output's threshold; a lower level is
 * more severe. Records are built from a printf format; the logger adds no newline, so formats end
 * in "\n". Nothing here reports a failure to its caller: a logger that cannot write stays quiet.
 * Threads: every function may be called by any thread at any time; records are never mixed.
 */
#ifndef HYBASE_HLOG_H
#define HYBASE_HLOG_H

#include <hybase/export.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    HLOG_LEVEL_ERR,
    HLOG_LEVEL_WARN,
    HLOG_LEVEL_INFO,
    HLOG_LEVEL_TRACE,
    HLOG_LEVEL_DEBUG,
    HLOG_LEVEL_ALL
};

/* Settings of the logger. */
typedef struct {
    int32_t file_level;    /* threshold of the log file, default 2 */
    int32_t console_level; /* threshold of the console or of the callback, default 2 */
    int32_t show_time;     /* records carry date and time, default 1 */
    char dir[256];         /* folder of the log files; empty (the default) means no file */
    int32_t max_size;      /* bytes at which a file is closed and the next begun, default 1048576 */
    int32_t max_files;     /* how many log files are kept in `dir`, default 5 */
} hlogParam_t;

/* Gets one record (zero-terminated, `len` characters, at most 2047) in place of the console. Runs
   on the logging thread with the logger's lock held: it must not log. */
typedef void (*hlogCallback)(const char* text, int32_t len);

/*
 * Emits one record. `file` may be a full path: only what follows its last '/' is printed.
 * Returns the number of bytes written to the log file, 0 when none was.
 * The macros below fill in file, function and line.
 */
HYBASE_API int32_t hlog_printf_ex(int32_t level, const char* file, const char* func, int32_t line,
                                  const char* fmt, ...) __attribute__((format(printf, 5, 6)));

/* Replaces all settings and, when `dir` is not empty, begins the next log file there. Returns 0. */
HYBASE_API int32_t hlog_set_param(const hlogParam_t* param);

/* Registers the callback that replaces the console; null restores the console.
   The spelling is part of the interface. */
HYBASE_API void hlog_regirst(hlogCallback callback);

/* HLOG_ERR("no route to %s\n", host); the arguments after the format may be left out. */
#define HLOG_RECORD(level, ...) hlog_printf_ex(level, __FILE__, __func__, __LINE__, __VA_ARGS__)
#define HLOG_ERR(...) HLOG_RECORD(HLOG_LEVEL_ERR, __VA_ARGS__)
#define HLOG_WARN(...) HLOG_RECORD(HLOG_LEVEL_WARN, __VA_ARGS__)
#define HLOG_INFO(...) HLOG_RECORD(HLOG_LEVEL_INFO, __VA_ARGS__)
#define HLOG_TRACE(...) HLOG_RECORD(HLOG_LEVEL_TRACE, __VA_ARGS__)
#define HLOG_DEBUG(...) HLOG_RECORD(HLOG_LEVEL_DEBUG, __VA_ARGS__)
#define HLOG_ALL(...) HLOG_RECORD(HLOG_LEVEL_ALL, __VA_ARGS__)

#ifdef __cplusplus
}
#endif

#endif
