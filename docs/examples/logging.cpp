// docs/examples/logging.cpp
//
// Log files that rotate, records for a system log, and a storm held down to a record a second.
#include <ctype.h>
#include <hybase/hlog.h>
#include <hyplatform/arch.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>

// The library takes the time from these three. A program that defines them itself holds the clock
// in its hands: here, so that the manual can show what is printed. A device has no use for them.
static int64_t now_ms = 1714564800007;  // 2024-05-01 12:00:00.007 UTC
time_t arch_time(void) { return static_cast<time_t>(now_ms / 1000); }
int64_t arch_gettimeofday(void) { return now_ms * 1000; }
int64_t arch_getSystemStartupMs(void) { return now_ms; }

// ---- A callback for a system log ----

// The system log has a clock of its own. No level begins with a digit, every time does.
static const char* WithoutTime(const char* record) {
    return isdigit(static_cast<unsigned char>(record[1])) ? strchr(record, ']') + 1 : record;
}

static int Priority(const char* record) {
    if (strncmp(record, "[ERR]", 5) == 0) return LOG_ERR;
    if (strncmp(record, "[WARN]", 6) == 0) return LOG_WARNING;
    return strncmp(record, "[INFO]", 6) == 0 ? LOG_INFO : LOG_DEBUG;
}

static void ToSyslog(const char* text, int32_t) {
    const char* record = WithoutTime(text);
    syslog(Priority(record), "%s", record);
}

// For services under systemd, whose journal reads the priority in front of a line.
static void ToJournal(const char* text, int32_t) {
    const char* record = WithoutTime(text);
    printf("<%d>%s", Priority(record), record);
}

// ---- At most one record a second ----

class OncePerSecond {
  public:
    // Whether to log now. If so, *left_out is how often the answer was no since the last time.
    bool Now(unsigned int* left_out) {
        const auto now = static_cast<uint32_t>(arch_getSystemStartupMs());
        uint32_t last = m_last;
        if (now - last < 1000 || !m_last.compare_exchange_strong(last, now)) {
            m_left_out++;
            return false;
        }
        *left_out = m_left_out.exchange(0);
        return true;
    }

  private:
    std::atomic<uint32_t> m_last{static_cast<uint32_t>(arch_getSystemStartupMs()) - 1000};
    std::atomic<unsigned int> m_left_out{0};
};

static void LosePicture(int number) {
    static OncePerSecond once;
    unsigned int left_out;
    if (once.Now(&left_out)) HLOG_WARN("picture %d lost, %u more left out\n", number, left_out);
}

// ---- The files ----

static void SetUpLog(const char* folder) {
    hlogParam_t param = {};
    param.file_level = HLOG_LEVEL_INFO;
    param.console_level = HLOG_LEVEL_WARN;  // the callback's, as long as there is one
    param.show_time = 1;
    param.max_size = 300;  // bytes; a device takes some 65536
    param.max_files = 2;
    snprintf(param.dir, sizeof(param.dir), "%s", folder);
    hlog_set_param(&param);
}

static void ShowFiles() {
    std::set<std::filesystem::path> paths;
    for (const auto& entry : std::filesystem::directory_iterator("logs"))
        paths.insert(entry.path());
    for (const auto& path : paths) {
        struct stat info;
        stat(path.c_str(), &info);
        printf("%o %4d bytes %s\n", static_cast<unsigned int>(info.st_mode & 0777),
               static_cast<int>(info.st_size), path.c_str());
        std::ifstream file(path);
        for (std::string line; std::getline(file, line);) printf("    %s\n", line.c_str());
    }
}

int main(int argc, char** argv) {
    setenv("TZ", "UTC0", 1);
    char folder[] = "/tmp/logging-XXXXXX";
    if (mkdtemp(folder) == nullptr || chdir(folder) != 0) return EXIT_FAILURE;
    mkdir("logs", 0750);  // the logger makes no folders

    const bool syslog_wanted = argc == 2 && strcmp(argv[1], "--syslog") == 0;
    hlog_regirst(syslog_wanted ? ToSyslog : ToJournal);
    SetUpLog("logs");
    HLOG_INFO("listening on port %d\n", 8600);  // for the file alone
    HLOG_DEBUG("port %d is for no output\n", 8600);
    for (int number = 1; number <= 250; number++, now_ms += 10) LosePicture(number);
    const int32_t bytes = hlog_printf_ex(HLOG_LEVEL_ERR, "src/gate.cpp", "Open", 12, "stuck\n");
    printf("%d bytes for the file\n", bytes);

    ShowFiles();
    hlogParam_t no_file = {HLOG_LEVEL_ERR, HLOG_LEVEL_ERR, 1, "", 0, 0};
    hlog_set_param(&no_file);
    std::filesystem::remove_all(folder);
    return bytes == 56 ? EXIT_SUCCESS : EXIT_FAILURE;
}
