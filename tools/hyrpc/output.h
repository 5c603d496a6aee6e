// Where results go.
#pragma once

#include <stdio.h>

#include <atomic>
#include <string>

namespace hyrpc {

// A stream of its own: what the library prints on standard output while it works belongs to
// stderr, or nowhere. Write and Error: any thread.
class Output {
  public:
    // Takes standard output over; `verbose` sends what the library says to stderr. False with errno
    // set when there is no standard output.
    bool Open(bool verbose);

    // Writes at once. What failed once is not tried again.
    bool Write(const std::string& text);

    // errno of the first failure, 0 for none.
    int Error() const { return m_error; }

  private:
    FILE* m_file = nullptr;  // never closed: a connection's thread may still write
    std::atomic<int> m_error{0};
};

}  // namespace hyrpc
