// A file with given bytes that lives as long as the object.
#ifndef HYBASE_TESTS_TEMP_FILE_H
#define HYBASE_TESTS_TEMP_FILE_H

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

class TempFile {
  public:
    explicit TempFile(const std::string& bytes) : path(testing::TempDir() + "hybase_XXXXXX") {
        fd_ = mkstemp(path.data());
        EXPECT_EQ(write(fd_, bytes.data(), bytes.size()), ssize_t(bytes.size()));
    }
    ~TempFile() {
        close(fd_);
        unlink(path.c_str());
    }
    // Makes it longer without taking room on the disk.
    void Extend(int64_t size) { EXPECT_EQ(ftruncate64(fd_, size), 0); }

    std::string path;

  private:
    int fd_;
};

#endif
