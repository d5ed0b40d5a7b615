// How the virtual tracker cuts the host's byte stream into commands.
//
// Ethernet: every parameterised command (the settings and the system
// commands) arrives as a 10-byte packet, the acquisition mode command as 2
// bytes, and every other command as its single code byte.
//
// Wi-Fi: every command arrives at its own length: collision level 2 bytes,
// dual exposure and dual gain 5, colour exposure 3, device IP 7, everything
// else (requests and system commands) 1. The Wi-Fi module does not carry the
// trigger, mode, flash delay, LCD, marker parameter, image and configuration
// prepare / long read commands; they are taken as their single code byte.
//
// USB: each bulk OUT transfer carries one command at its own length: mode
// and collision level 2 bytes, dual exposure, dual gain and flash delay 5,
// colour exposure and LCD 3, marker parameters 8, device IP 7, the system
// commands 10 (the code, then zero filler), every request 1.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vyx::sim {

// The byte framing a link speaks: the tracker's Ethernet port, its Wi-Fi
// module or its USB port.
enum class LinkFraming { Ethernet, WiFi, Usb };

namespace code {
constexpr std::uint8_t kMarkerRequest = 0x0F;  // on Wi-Fi: the status request
constexpr std::uint8_t kWifiMarkerRequest = 0x0E;
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

// True for the command codes that travel as 10-byte packets on Ethernet.
bool isParameterisedCommand(std::uint8_t commandCode);
// True for the system commands: the parameterised commands that are not
// settings. They travel as 10-byte packets on USB too.
bool isSystemCommand(std::uint8_t commandCode);

// Bytes of the command that starts with `commandCode` in the given framing:
// 10, 2 or 1 on Ethernet; 7, 5, 3, 2 or 1 on Wi-Fi; 10, 8, 7, 5, 3, 2 or 1
// on USB.
std::size_t commandLength(std::uint8_t commandCode,
                          LinkFraming framing = LinkFraming::Ethernet);

}  // namespace vyx::sim
