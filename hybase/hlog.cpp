#include "hybase/hlog.h"

#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <mutex>

#include "hybase/print.h"
#include "hyplatform/arch.h"
#include "record_quota.h"

// Applications hand the record over as a block of bytes: its layout is the same on every machine.
static_assert(sizeof(hlogParam_t) == 276 && offsetof(hlogParam_t, file_level) == 0 &&
              offsetof(hlogParam_t, console_level) == 4 && offsetof(hlogParam_t, show_time) == 8 &&
              offsetof(hlogParam_t, dir) == 12 && offsetof(hlogParam_t, max_size) == 268 &&
              offsetof(hlogParam_t, max_files) == 272);

namespace {

// ---- Records ------------------------------------------------------------------------------------

constexpr const char* kLevelNames[] = {"ERR", "WARN", "INFO", "TRACE", "DEBUG", "ALL"};

// Entry 0 ends a colour, the prefix of level L is entry L + 1. Level 5 has no colour: what stands
// before its records is the first level name, kept as it always was.
constexpr const char* kColours[] = {"\033[0m",  "\033[31m", "\033[33m",    "\033[37m",
                                    "\033[37m", "\033[37m", kLevelNames[0]};
constexpr const char* kReset = kColours[0];
constexpr const char* kWhite = kColours[HLOG_LEVEL_INFO + 1];

// Date and time in brackets or nothing, level name, source file, line, function.
constexpr char kHeader[] = "%s[%s][%s:%d][%s] ";

// Room for the time stamp, the names that BuildHeader takes at most, a line number and the rest.
constexpr size_t kStampBuffer = 96;
constexpr size_t kHeaderNames = 128;
constexpr size_t kLineDigits = sizeof("-2147483648") - 1;
constexpr size_t kHeaderBuffer =
    kStampBuffer + kHeaderNames + kLineDigits + sizeof("[DEBUG][:][] ");

// What a callback is given at most, and what a longer record becomes.
constexpr int kCallbackBuffer = 2048;
constexpr int kCallbackLimit = 2042;
constexpr int kCutAt = 2015;
constexpr char kCutMark[] = "[log is too long, cut off]\n";
static_assert(kCutAt + sizeof(kCutMark) - 1 == kCallbackLimit);

const char* OrNull(const char* text) { return text != nullptr ? text : "(null)"; }

const char* BaseName(const char* path) {
    const char* slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

// Where a record comes from. Levels beyond the tables are shown as the nearest one.
struct Origin {
    Origin(int32_t record_level, const char* path, const char* function, int32_t source_line)
        : level(record_level),
          shown(std::clamp<int32_t>(record_level, HLOG_LEVEL_ERR, HLOG_LEVEL_ALL)),
          file(BaseName(OrNull(path))),
          func(OrNull(function)),
          line(source_line) {}

    const char* name() const { return kLevelNames[shown]; }
    const char* colour() const { return kColours[shown + 1]; }

    const int32_t level;
    const int32_t shown;
    const char* const file;
    const char* const func;
    const int32_t line;
    const int error = errno;  // of the caller: "%m" in a message means this one
};

// The header as kHeader prints it, for names that fit. Built by hand: printf would make every
// record a tenth slower. Returns its length, 0 when the names are too long.
size_t BuildHeader(char (&text)[kHeaderBuffer], const char* stamp, const Origin& origin) {
    if (strlen(origin.file) + strlen(origin.func) > kHeaderNames) return 0;
    char* end = stpcpy(text, stamp);
    *end++ = '[';
    end = stpcpy(end, origin.name());
    end = stpcpy(end, "][");
    end = stpcpy(end, origin.file);
    *end++ = ':';
    end = std::to_chars(end, end + kLineDigits, origin.line).ptr;
    end = stpcpy(end, "][");
    end = stpcpy(end, origin.func);
    end = stpcpy(end, "] ");
    return end - text;
}

// "[2024-05-01 12:00:00.007]". Kept for the second it is valid: only the milliseconds are new.
class Timestamp {
  public:
    const char* Now();

  private:
    void BreakDown(time_t second);

    time_t second_ = -1;
    char* millis_ = text_;
    char text_[kStampBuffer] = "";
};

const char* Timestamp::Now() {
    // A clock before 1970 is none; -1 stands for no second at all.
    const int64_t now = std::max<int64_t>(arch_gettimeofday(), 0);
    const time_t second = static_cast<time_t>(now / 1000000);
    if (second != second_) BreakDown(second);
    const int millis = static_cast<int>(now / 1000 % 1000);
    millis_[0] = static_cast<char>('0' + millis / 100);
    millis_[1] = static_cast<char>('0' + millis / 10 % 10);
    millis_[2] = static_cast<char>('0' + millis % 10);
    return text_;
}

void Timestamp::BreakDown(time_t second) {
    struct tm now = {};
    arch_localtime_r(&second, &now);
    const int length =
        snprintf(text_, sizeof(text_), "[%d-%02d-%02d %02d:%02d:%02d.000]", now.tm_year + 1900,
                 now.tm_mon + 1, now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
    millis_ = text_ + length - 4;
    second_ = second;
}

// ---- Log files ----------------------------------------------------------------------------------

// Any directory of the settings, a '/' and any name that a directory can hold.
constexpr size_t kPathSize = sizeof(hlogParam_t::dir) + 1 + NAME_MAX + 1;

// The names in a directory, in byte order. (alphasort would follow the program's locale.)
class DirectoryNames {
  public:
    explicit DirectoryNames(const char* dir)
        : count_(scandir(dir, &entries_, nullptr, [](const dirent** a, const dirent** b) {
              return strcmp((*a)->d_name, (*b)->d_name);
          })) {
        if (count_ < 0) Print("Failed open dir: %s, because: %s\n", dir, strerror(errno));
    }
    DirectoryNames(const DirectoryNames&) = delete;
    DirectoryNames& operator=(const DirectoryNames&) = delete;
    ~DirectoryNames() {
        for (int i = 0; i < count_; i++) free(entries_[i]);
        free(entries_);
    }

    int count() const { return count_; }  // negative when the directory cannot be read
    const char* operator[](int index) const { return entries_[index]->d_name; }

  private:
    dirent** entries_ = nullptr;
    const int count_;
};

void JoinPath(char (&path)[kPathSize], const char* dir, const char* name) {
    snprintf(path, sizeof(path), "%s/%s", dir, name);
}

// How many of its four numbers the name of a log file has; what follows the fourth is not looked
// at.
int ScanName(const char* name, int32_t* number) {
    int year, month, day;
    return sscanf(name, "%d-%d-%d-%d.log", &year, &month, &day, number);
}

bool IsLogFile(const char* name) {
    int32_t number;
    return ScanName(name, &number) == 4;
}

// Makes the newest log file read-only. Returns its number, 0 when there is none.
int32_t SealNewest(const char* dir) {
    const DirectoryNames names(dir);
    for (int i = names.count() - 1; i >= 0; i--) {
        if (!IsLogFile(names[i])) {
            Print("[last]file:%s is not log file\n", names[i]);
            continue;
        }
        Print("lstname: %s\n", names[i]);
        char path[kPathSize];
        JoinPath(path, dir, names[i]);
        chmod(path, 0440);
        int32_t number = 0;
        Print("ret: %d\n", ScanName(names[i], &number));
        return number;
    }
    return 0;
}

bool IsFull(const char* path, int32_t max_size) {
    struct stat info;
    return stat(path, &info) == 0 && info.st_size >= max_size;
}

// The file after the newest one, under today's date. One that is there already is used again as
// long as it has room.
void ChooseNext(char (&path)[kPathSize], const hlogParam_t& settings) {
    const time_t now = arch_time();
    struct tm today = {};
    arch_localtime_r(&now, &today);
    char date[64];
    strftime(date, sizeof(date), "%Y-%m-%d", &today);

    // Unsigned: a number found on disk may be the highest there is.
    uint32_t number = static_cast<uint32_t>(SealNewest(settings.dir));
    do {
        number++;
        snprintf(path, sizeof(path), "%s/%s-%08d%s", settings.dir, date,
                 static_cast<int32_t>(number), ".log");
    } while (IsFull(path, settings.max_size));
    Print("create log file: %s\n", path);
}

// Deletes the oldest log file when there are too many. Returns whether there still are.
bool TrimOnce(const hlogParam_t& settings) {
    const DirectoryNames names(settings.dir);
    const char* oldest = nullptr;
    int count = 0;
    for (int i = 0; i < names.count(); i++) {
        if (!IsLogFile(names[i])) {
            Print("[delete]file:%s is not log file\n", names[i]);
        } else if (count++ == 0) {
            oldest = names[i];
        }
    }
    // Without a log file there is nothing to delete, even where max_files is negative.
    if (oldest == nullptr || count <= settings.max_files) return false;

    Print("too many log file, delete %s\n", oldest);
    char path[kPathSize];
    JoinPath(path, settings.dir, oldest);
    if (remove(path) != 0) {
        Print("Failed remove file: %s, because: %s\n", oldest, strerror(errno));
        return false;
    }
    return settings.max_files < count - 1;
}

// The file being written, or none.
class LogFile {
  public:
    bool is_open() const { return stream_ != nullptr; }
    FILE* stream() const { return stream_; }

    // Counts what was printed to the stream and hands it to the system.
    void Flush(int64_t bytes);
    bool IsFull(int32_t max_size) const { return size_ >= max_size; }

    void Close();
    void OpenNext(const hlogParam_t& settings);

  private:
    FILE* stream_ = nullptr;
    int64_t size_ = 0;
};

void LogFile::Flush(int64_t bytes) {
    size_ += bytes;
    fflush(stream_);
}

void LogFile::Close() {
    if (stream_ != nullptr) fclose(stream_);
    stream_ = nullptr;
}

void LogFile::OpenNext(const hlogParam_t& settings) {
    Close();
    char path[kPathSize];
    ChooseNext(path, settings);
    stream_ = fopen(path, "abe");
    if (stream_ != nullptr) {
        chmod(path, 0640);
        fseeko(stream_, 0, SEEK_END);
        size_ = ftello(stream_);
    }
    while (TrimOnce(settings)) {
    }
}

// ---- The logger ---------------------------------------------------------------------------------

// Sets a flag for the length of a scope, however the scope is left.
class FlagScope {
  public:
    explicit FlagScope(bool& flag) : flag_(flag), before_(flag) { flag_ = true; }
    FlagScope(const FlagScope&) = delete;
    FlagScope& operator=(const FlagScope&) = delete;
    ~FlagScope() { flag_ = before_; }

  private:
    bool& flag_;
    const bool before_;
};

// Keeps the pieces of a record together among what other threads print.
class StdoutScope {
  public:
    StdoutScope() { flockfile(stdout); }
    StdoutScope(const StdoutScope&) = delete;
    StdoutScope& operator=(const StdoutScope&) = delete;
    ~StdoutScope() { funlockfile(stdout); }
};

class Logger {
  public:
    // False when no output takes the level. Takes no lock.
    bool Takes(int32_t level) const { return level <= threshold_.load(std::memory_order_relaxed); }

    // Each takes mutex_. Emit returns the bytes written to the log file.
    int32_t Emit(const Origin& origin, const char* format, va_list args);
    void SetParam(const hlogParam_t& param);
    void Register(hlogCallback callback);

  private:
    void ToConsole(const Origin& origin, const char* format, va_list args);
    void ToCallback(const Origin& origin, const char* format, va_list args);
    int32_t ToFile(const Origin& origin, const char* format, va_list args);
    int PrintHeader(FILE* stream, const Origin& origin);
    const char* Stamp() { return settings_.show_time != 0 ? timestamp_.Now() : ""; }
    void ChangeFile();
    void OpenOrClose();
    void UpdateThreshold();

    // Recursive: a callback runs under it and may change the settings. It guards all that follows.
    std::recursive_mutex mutex_;
    hlogParam_t settings_ = {HLOG_LEVEL_INFO, HLOG_LEVEL_INFO, 1, "", 1048576, 5};
    Timestamp timestamp_;
    LogFile file_;
    hlogCallback callback_ = nullptr;
    bool in_callback_ = false;
    // What is printed about log files may be logged: such a record leaves the file alone.
    bool changing_file_ = false;
    bool change_again_ = false;

    // The highest level that any output takes; written under mutex_, read without it.
    std::atomic<int32_t> threshold_{HLOG_LEVEL_INFO};
};

int32_t Logger::Emit(const Origin& origin, const char* format, va_list args) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    // A callback that logs would run itself without end: its records skip it.
    if (origin.level <= settings_.console_level && !in_callback_) {
        va_list copy;
        va_copy(copy, args);
        if (callback_ != nullptr) {
            ToCallback(origin, format, copy);
        } else {
            ToConsole(origin, format, copy);
        }
        va_end(copy);
    }
    // Looked at only now: the callback may have replaced settings and file.
    if (changing_file_ || !file_.is_open() || origin.level > settings_.file_level) return 0;
    return ToFile(origin, format, args);
}

void Logger::ToConsole(const Origin& origin, const char* format, va_list args) {
    StdoutScope whole_record;
    fputs(origin.colour(), stdout);
    PrintHeader(stdout, origin);
    vprintf(format, args);
    fputs(kReset, stdout);
    printf("%s%s", kWhite, kReset);
}

void Logger::ToCallback(const Origin& origin, const char* format, va_list args) {
    char text[kCallbackBuffer] = {};
    const int header = snprintf(text, sizeof(text), kHeader, Stamp(), origin.name(), origin.file,
                                origin.line, origin.func);
    if (header < 0) {
        strcpy(text, "sprintf error\n");
    } else {
        const int start = std::min(header, kCallbackBuffer - 1);
        errno = origin.error;
        const int message = vsnprintf(text + start, kCallbackBuffer - 1 - start, format, args);
        if (int64_t{header} + message > kCallbackLimit)
            memcpy(text + kCutAt, kCutMark, sizeof(kCutMark));
    }
    FlagScope in_callback(in_callback_);
    callback_(text, static_cast<int32_t>(strlen(text)));
}

int32_t Logger::ToFile(const Origin& origin, const char* format, va_list args) {
    const int header = PrintHeader(file_.stream(), origin);
    const int message = vfprintf(file_.stream(), format, args);
    const int64_t bytes = int64_t{std::max(header, 0)} + std::max(message, 0);
    file_.Flush(bytes);
    if (file_.IsFull(settings_.max_size)) {
        ChangeFile();
    }
    return static_cast<int32_t>(bytes);
}

// Leaves errno as the caller had it, for a "%m" in the message that follows.
int Logger::PrintHeader(FILE* stream, const Origin& origin) {
    const char* stamp = Stamp();
    char text[kHeaderBuffer];
    const size_t built = BuildHeader(text, stamp, origin);
    const int length = built > 0 ? static_cast<int>(fwrite(text, 1, built, stream))
                                 : fprintf(stream, kHeader, stamp, origin.name(), origin.file,
                                           origin.line, origin.func);
    errno = origin.error;
    return length;
}

void Logger::SetParam(const hlogParam_t& param) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    settings_ = param;
    settings_.dir[sizeof(settings_.dir) - 1] = '\0';
    UpdateThreshold();  // for what is printed about the change, if it is logged
    ChangeFile();
}

// A callback or a print function that gets to know of the change may set the logger up anew. That
// is done afterwards, once, and without telling the console or the callback about it again.
void Logger::ChangeFile() {
    change_again_ = changing_file_;
    if (changing_file_) return;
    FlagScope changing(changing_file_);
    OpenOrClose();
    if (change_again_) {
        FlagScope quiet(in_callback_);
        OpenOrClose();
    }
    UpdateThreshold();
}

void Logger::OpenOrClose() {
    const hlogParam_t settings = settings_;
    if (settings.dir[0] != '\0') {
        file_.OpenNext(settings);
    } else {
        file_.Close();
    }
}

void Logger::Register(hlogCallback callback) {
    std::lock_guard<std::recursive_mutex> lock(mutex_);
    callback_ = callback;
}

void Logger::UpdateThreshold() {
    const int32_t highest = file_.is_open()
                                ? std::max(settings_.console_level, settings_.file_level)
                                : settings_.console_level;
    threshold_.store(highest, std::memory_order_relaxed);
}

// Initialised by constants: it has its defaults before any code of the process runs, whichever
// threads log first.
Logger g_logger;

}  // namespace

int32_t hlog_printf_ex(int32_t level, const char* file, const char* func, int32_t line,
                       const char* fmt, ...) {
    if (!g_logger.Takes(level) || fmt == nullptr || !QuotaScope::LetsThrough()) return 0;
    const Origin origin(level, file, func, line);
    va_list args;
    va_start(args, fmt);
    const int32_t written = g_logger.Emit(origin, fmt, args);
    va_end(args);
    errno = origin.error;
    return written;
}

int32_t hlog_set_param(const hlogParam_t* param) {
    if (param != nullptr) g_logger.SetParam(*param);
    return 0;
}

void hlog_regirst(hlogCallback callback) { g_logger.Register(callback); }
