// A file with given bytes that lives as long as the object.
#ifndef HYBASE_TESTS_TEMP_FILE_H
#define HYBASE_TESTS_TEMP_FILE_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

struct TempFile {
    explicit TempFile(const std::string& bytes) { std::ofstream(path) << bytes; }
    ~TempFile() { unlink(path.c_str()); }

    static inline int count = 0;
    const std::string path =
        testing::TempDir() + "hybase_" + std::to_string(getpid()) + "_" + std::to_string(count++);
};

#endif
