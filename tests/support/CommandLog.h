// The tail of a virtual tracker's command log, for tests that check what a
// call put on the wire.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vyx::test {

// Commands logged after the first `from`, as packets; works for the TCP and
// the USB tracker alike.
template <class Tracker>
std::vector<std::vector<std::uint8_t>> commandsSince(const Tracker& tracker, std::size_t from) {
    const auto all = tracker.commands();
    return {all.begin() + static_cast<long>(std::min(from, all.size())), all.end()};
}

// Their first bytes, the command codes.
template <class Tracker>
std::vector<std::uint8_t> codesSince(const Tracker& tracker, std::size_t from) {
    std::vector<std::uint8_t> codes;
    for (const auto& c : commandsSince(tracker, from)) codes.push_back(c.at(0));
    return codes;
}

}  // namespace vyx::test
