// How the virtual tracker cuts the host's byte stream into commands. On
// Ethernet every parameterised command (the settings and the system commands)
// arrives as a 10-byte packet, the acquisition mode command as 2 bytes, and
// every other command as its single code byte.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vyx::sim {

namespace code {
constexpr std::uint8_t kMarkerRequest = 0x0F;
constexpr std::uint8_t kTrigger = 0x0D;
constexpr std::uint8_t kAcquireMode = 0x0C;
constexpr std::uint8_t kLeftGreyFirst = 0xA4;
constexpr std::uint8_t kLeftGreyNext = 0x04;
constexpr std::uint8_t kRightGreyFirst = 0xA8;
constexpr std::uint8_t kRightGreyNext = 0x08;
constexpr std::uint8_t kColourFirst = 0xA1;
constexpr std::uint8_t kColourNext = 0x01;
constexpr std::uint8_t kConfigPrepare = 0xF5;
constexpr std::uint8_t kConfigRead = 0x0A;
constexpr std::uint8_t kLongConfigRead = 0x1A;
constexpr std::uint8_t kModelTextRead = 0xF8;
}  // namespace code

constexpr std::size_t kParameterisedPacketBytes = 10;

// True for the command codes that travel as 10-byte packets.
bool isParameterisedCommand(std::uint8_t commandCode);

// Bytes of the command that starts with `commandCode`: 10, 2 or 1.
std::size_t commandLength(std::uint8_t commandCode);

}  // namespace vyx::sim
