// How the tracker presents itself on USB: its vendor and product id, the
// interface the host takes, the two bulk endpoints and their time-out.
#pragma once

#include <cstdint>

namespace vyx::device {

// Vendor and product id of the tracker. The pair is 0x1209:0x0001, taken
// from the open community vendor id's range of product ids reserved for
// testing and prototypes: it never names anyone's shipped product, and a
// production tracker gets its own allocated pair here.
inline constexpr std::uint16_t kTrackerUsbVendorId = 0x1209;
inline constexpr std::uint16_t kTrackerUsbProductId = 0x0001;

// The interface the host reserves, and its bulk endpoints: commands go out
// on 0x01, replies come in on 0x81.
inline constexpr int kTrackerUsbInterface = 0;
inline constexpr std::uint8_t kTrackerUsbOutEndpoint = 0x01;
inline constexpr std::uint8_t kTrackerUsbInEndpoint = 0x81;

// Every bulk transfer gives up after this long.
inline constexpr unsigned int kTrackerUsbTimeoutMs = 500;

}  // namespace vyx::device
