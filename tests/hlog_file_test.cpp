// Log files: numbering, rotation, modes, trimming, what is printed, and what kills leave behind.
#include <gtest/gtest.h>
#include <hybase/hlog.h>
#include <hyplatform/arch.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <thread>

namespace fs = std::filesystem;

time_t arch_time(void) { return 1714651200; }  // 2024-05-02 12:00:00 UTC

namespace {

template <typename Action>
std::string Printed(Action action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

void Open(int32_t max_size, int32_t max_files, int32_t console, const char* dir = "logs") {
    hlogParam_t param = {HLOG_LEVEL_TRACE, console, 0, "", max_size, max_files};
    strcpy(param.dir, dir);
    hlog_set_param(&param);
}

// A header of 20 bytes when the level is 3, and the text.
int32_t Log(int32_t level, const char* text) {
    return hlog_printf_ex(level, "/a/c.cpp", "f", 1, "%s", text);
}

// Each test works in a folder of its own, on the log files in "logs".
struct HlogFile : testing::Test {
    HlogFile() { fs::current_path(mkdtemp(path.data())), fs::create_directory("logs"); }
    ~HlogFile() override { Open(1, 1, -1, ""), fs::remove_all(path); }
    std::string path = testing::TempDir() + "hlogXXXXXX";
    const std::string dots = "[delete]file:. is not log file\n[delete]file:.. is not log file\n";
};

// The clock has gone back a day, to one that has files already.
TEST_F(HlogFile, NumbersGoOnAndAFileWithRoomIsFilledBeforeTheNext) {
    std::ofstream("logs/2024-05-03-00000007.log") << "";
    std::ofstream("logs/2024-05-02-00000008.log") << std::string(49, 'f');
    std::ofstream("logs/2024-05-02-00000009.log") << "some room";
    std::ofstream("logs/notes.txt") << "";
    const std::string newest = "lstname: 2024-05-03-00000007.log\nret: 4\n",
                      kept = dots + "[delete]file:notes.txt is not log file\n";
    EXPECT_EQ(Printed([] { Open(49, 3, 0); }),
              "[last]file:notes.txt is not log file\n" + newest +
                  "create log file: logs/2024-05-02-00000009.log\n" + kept);
    EXPECT_EQ(Printed([] {
                  EXPECT_EQ(Log(3, ""), 20);
                  EXPECT_EQ(Log(4, ""), 0);
              }),
              "");
    EXPECT_EQ(Printed([] { EXPECT_EQ(Log(3, ""), 20); }),
              "[last]file:notes.txt is not log file\n" + newest +
                  "create log file: logs/2024-05-02-00000010.log\n" + kept +
                  "too many log file, delete 2024-05-02-00000008.log\n");
    std::string text;
    std::getline(std::ifstream("logs/2024-05-02-00000009.log"), text);
    EXPECT_EQ(text, "some room[TRACE][c.cpp:1][f] [TRACE][c.cpp:1][f] ");
    EXPECT_EQ(fs::status("logs/2024-05-03-00000007.log").permissions(), fs::perms(0440));
    EXPECT_EQ(fs::status("logs/2024-05-02-00000010.log").permissions(), fs::perms(0640));
    Open(49, 3, -1, "");
    EXPECT_EQ(Log(0, "an empty folder name closes the file"), 0);
}

TEST_F(HlogFile, TrimmingTakesOneFileAPassAndNeverTheFolder) {
    std::ofstream("logs/2024-04-30-1.log") << "";
    EXPECT_EQ(Printed([] { Open(1, -1, -1); }),
              "lstname: 2024-04-30-1.log\nret: 4\ncreate log file: logs/2024-05-02-00000002.log\n" +
                  dots + "too many log file, delete 2024-04-30-1.log\n" + dots +
                  "too many log file, delete 2024-05-02-00000002.log\n" + dots);
    fs::create_directories("logs/2000-1-1-1/file");
    EXPECT_EQ(Printed([] { Open(1, 0, -1); }),
              "lstname: 2000-1-1-1\nret: 4\ncreate log file: logs/2024-05-02-00000002.log\n" +
                  dots + "too many log file, delete 2000-1-1-1\n" +
                  "Failed remove file: 2000-1-1-1, because: Directory not empty\n");
    fs::permissions("logs/2000-1-1-1", fs::perms::owner_all);
}

std::string received;

TEST_F(HlogFile, RecordsReachTheCallbackWhateverBecomesOfTheFile) {
    received.clear();
    hlog_regirst([](const char* text, int32_t) { received += strstr(text, "] ") + 2; });
    rlimit limit;
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit full_disk = {20, limit.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    Printed([] { Open(1 << 20, 5, 4); });
    setrlimit(RLIMIT_FSIZE, &full_disk);
    Log(0, "one, ");
    Log(0, "two, ");
    setrlimit(RLIMIT_FSIZE, &limit);
    Log(0, "three, ");
    EXPECT_EQ(Log(4, "below the file's level, "), 0);
    EXPECT_EQ(fs::file_size("logs/2024-05-02-00000001.log"), 45u);

    fs::rename("logs/2024-05-02-00000001.log", "logs/2024-05-03-00000001.log");
    fs::create_directory("logs/2024-05-02-00000002.log");  // where the next file should be
    Printed([] { Open(1 << 20, 5, 0); });
    EXPECT_EQ(Log(0, "four, "), 0);

    Printed([] { Open(20, 5, 0); });
    fs::remove_all("logs");
    const std::string failed = "Failed open dir: logs, because: No such file or directory\n";
    EXPECT_EQ(Printed([] { EXPECT_EQ(Log(0, "five, "), 24); }),
              failed + "create log file: logs/2024-05-02-00000001.log\n" + failed);
    EXPECT_EQ(Log(0, "six"), 0);
    EXPECT_EQ(received, "one, two, three, below the file's level, four, five, six");
    hlog_regirst(nullptr);
}

// Each line would fill a file, and the callback asks for another folder each time.
TEST_F(HlogFile, LinesAboutFilesCanBeLoggedAndLeaveTheFileAlone) {
    received.clear();
    fs::create_directory("more");
    hlog_set_print(hlog_print_debug);
    hlog_regirst([](const char* text, int32_t) {
        text = strstr(text, "] ") + 2;
        if (strstr(text, "not log file") != nullptr) return;
        received += text;
        Open(1, 1, 4, "more");
    });
    EXPECT_EQ(Printed([] { Open(1, 5, 4); }), "");
    EXPECT_EQ(received, "create log file: logs/2024-05-02-00000001.log\n");
    EXPECT_EQ(Log(0, "two "), 22);
    EXPECT_EQ(received,
              "create log file: logs/2024-05-02-00000001.log\n"
              "two lstname: 2024-05-02-00000002.log\nret: 4\n"
              "create log file: more/2024-05-02-00000003.log\n"
              "too many log file, delete 2024-05-02-00000002.log\n");
    EXPECT_TRUE(fs::exists("more/2024-05-02-00000004.log"));
    EXPECT_EQ(fs::file_size("logs/2024-05-02-00000001.log"), 0u);
    hlog_regirst(nullptr);
    hlog_set_print(nullptr);
}

// 100 processes that log and rotate from several threads are killed; a last one ends by itself.
constexpr int kKills = 100, kThreads = 4;

// How many of its records each thread of each run knows to be written. Outlives the kills.
std::atomic<int> (*written)[kThreads];

// Long records take two writes: a kill finds some of them half done.
std::string Message(int run, int index) {
    return std::to_string(run) + " " + std::to_string(index) +
           std::string(index % 8 == 7 ? 6000 : 30, '.');
}

void LogFromThreads(int run, int records) {
    std::atomic<int> running{kThreads};
    std::thread threads[kThreads];
    Open(32768, 1 << 20, 0);
    for (int t = 0; t < kThreads; t++) {
        threads[t] = std::thread([&, t] {
            for (int i = 0; i < records; written[run][t] = ++i)
                hlog_printf_ex(0, "c", "f", t, "%s\n", Message(run, i).c_str());
            running--;
        });
    }
    while (running > 0) {
        hlog_regirst([](const char*, int32_t) {});
        usleep(2000);
        hlog_regirst(nullptr);
        Open(32768, 1 << 20, 0);
    }
    for (std::thread& thread : threads) thread.join();
}

TEST_F(HlogFile, ThreadsRotationsAndKillsLoseNoNumberAndNoCompleteRecord) {
    void* shared = mmap(nullptr, (kKills + 1) * sizeof(*written), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    written = static_cast<std::atomic<int>(*)[kThreads]>(shared);
    const unsigned seed = std::random_device()();
    std::mt19937 random(seed);
    for (int run = 0; run < kKills; run++) {
        const pid_t child = fork();
        if (child == 0 && freopen("/dev/null", "w", stdout)) LogFromThreads(run, INT32_MAX);
        usleep(1000 + random() % 20000);
        kill(child, SIGKILL);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
    }
    Printed([] { LogFromThreads(kKills, 1000); });

    std::set<fs::path> paths;
    for (const auto& file : fs::directory_iterator("logs")) paths.insert(file.path());
    int found[kKills + 1][kThreads] = {}, files = 0, records = 0, cut = 0;
    for (const fs::path& path : paths) {
        ASSERT_EQ(std::stoi(path.stem().string().substr(11)), ++files) << "seed " << seed;
        std::ifstream file(path);
        for (std::string line; std::getline(file, line); records++) {
            if (file.eof() && ++cut) break;  // no newline
            int t = 0, run = 0;
            ASSERT_EQ(sscanf(line.c_str(), "[ERR][c:%1d][f] %3d", &t, &run), 2) << line;
            ASSERT_TRUE(t < kThreads && run <= kKills) << line;
            ASSERT_EQ(line.substr(14), Message(run, found[run][t]++)) << "seed " << seed;
        }
    }
    for (int run = 0; run <= kKills; run++) {
        for (int t = 0; t < kThreads; t++) {
            const int unknown = found[run][t] - written[run][t];
            ASSERT_TRUE(unknown == 0 || (unknown == 1 && run < kKills)) << "seed " << seed;
        }
    }
    EXPECT_LE(cut, kKills);
    printf("%d kills (seed %u): %d files, %d records, %d cut\n", kKills, seed, files, records, cut);
}

}  // namespace
