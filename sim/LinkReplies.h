// What the tracker sends for each command on a link of any framing: the
// device core's answer in the Ethernet, Wi-Fi or USB wire form. The command
// tables are in VirtualTracker.h (Ethernet, Wi-Fi) and UsbTracker.h (USB).
#pragma once

#include "sim/CommandFraming.h"
#include "sim/DeviceCore.h"

#include <cstdint>
#include <vector>

namespace vyx::sim {

// Answers one command packet, as cut by commandLength(code, framing), unless
// the faults keep the tracker silent; under a reply delay, that much later.
void answerCommand(const std::vector<std::uint8_t>& packet, LinkFraming framing,
                   DeviceCore& core, DeviceCore::Link& link);

}  // namespace vyx::sim
