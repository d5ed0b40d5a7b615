// Addresses of the end-to-end tests: each test serves its virtual tracker on
// its own loopback address 127.0.0.<host> and on an unprivileged port, so
// that no test needs root.
#pragma once

#include <cstdint>

namespace vyx::test {

inline std::uint16_t trackerPort(unsigned char host) {
    return static_cast<std::uint16_t>(17000 + host);
}

}  // namespace vyx::test
