// Shared pieces of the fuzz targets: a check that stops the run with a
// message (libFuzzer then keeps the input), and an input as a file for the
// readers that take a path.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#define FUZZ_CHECK(condition)                                                              \
    do {                                                                                   \
        if (!(condition)) {                                                                \
            std::fprintf(stderr, "%s:%d: invariant broken: %s\n", __FILE__, __LINE__,     \
                         #condition);                                                      \
            std::abort();                                                                  \
        }                                                                                  \
    } while (0)

namespace vyx::fuzz {

// The input in an anonymous in-memory file, reachable by a path while the
// object lives.
class InputFile {
public:
    InputFile(const std::uint8_t* data, std::size_t size)
        : fd_(::memfd_create("fuzz-input", MFD_CLOEXEC)) {
        FUZZ_CHECK(fd_ >= 0);
        for (std::size_t done = 0; done < size;) {
            const ssize_t n = ::write(fd_, data + done, size - done);
            FUZZ_CHECK(n > 0);
            done += static_cast<std::size_t>(n);
        }
    }
    ~InputFile() { ::close(fd_); }
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};

}  // namespace vyx::fuzz
