#include "sim/CommandFraming.h"

#include <algorithm>
#include <array>

namespace vyx::sim {
namespace {

// Collision level, dual exposure, dual gain, colour exposure, flash delay,
// LCD display, marker parameters, device IP, then the system commands.
constexpr std::array<std::uint8_t, 30> kParameterisedCodes = {
    0x23, 0x62, 0xF7, 0x5A, 0x63, 0xA0, 0x80, 0x90,                    //
    0x20, 0x21, 0x22, 0x31, 0x30, 0x39, 0x38, 0x40, 0x41, 0x4D, 0x4E,  //
    0x52, 0x50, 0x51, 0x53, 0x58, 0x79, 0x61, 0x60, 0x71, 0x70, 0x72};
// The settings come first in the list above.
constexpr std::size_t kSettingCount = 8;

}  // namespace

bool isParameterisedCommand(std::uint8_t commandCode) {
    return std::find(kParameterisedCodes.begin(), kParameterisedCodes.end(), commandCode) !=
           kParameterisedCodes.end();
}

bool isSystemCommand(std::uint8_t commandCode) {
    return std::find(kParameterisedCodes.begin() + kSettingCount, kParameterisedCodes.end(),
                     commandCode) != kParameterisedCodes.end();
}

std::size_t commandLength(std::uint8_t commandCode, LinkFraming framing) {
    if (framing == LinkFraming::Usb) {
        switch (commandCode) {
            case code::kAcquireMode:
            case 0x23: return 2;  // collision level
            case 0x62:            // dual exposure
            case 0xF7:            // dual gain
            case 0x63: return 5;  // flash delay
            case 0x5A:            // colour exposure
            case 0xA0: return 3;  // LCD display
            case 0x80: return 8;  // marker parameters
            case 0x90: return 7;  // device IP
            default: return isSystemCommand(commandCode) ? kParameterisedPacketBytes : 1;
        }
    }
    if (framing == LinkFraming::Ethernet) {
        if (isParameterisedCommand(commandCode)) return kParameterisedPacketBytes;
        return commandCode == code::kAcquireMode ? 2 : 1;
    }
    switch (commandCode) {
        case 0x23: return 2;  // collision level
        case 0x62:            // dual exposure
        case 0xF7: return 5;  // dual gain
        case 0x5A: return 3;  // colour exposure
        case 0x90: return 7;  // device IP
        default: return 1;
    }
}

}  // namespace vyx::sim
