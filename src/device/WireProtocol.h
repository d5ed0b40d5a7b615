// The tracker's byte protocol, as pure functions over byte buffers: command
// packets, the marker and status frame, image block geometry, configuration
// blocks and the Wi-Fi module's frames. Nothing here touches a transport.
//
// All multi-byte integers on the wire are little-endian.
#pragma once

#include "VyxPositionTypes.h"
#include "device/DeviceGeometry.h"
#include "device/DeviceModel.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace vyx::device {

// ---- Command codes ---------------------------------------------------------

namespace command {
constexpr std::uint8_t kMarkerRequest = 0x0F;      // marker and status frame
constexpr std::uint8_t kWifiMarkerRequest = 0x0E;  // Wi-Fi marker frame
constexpr std::uint8_t kTrigger = 0x0D;            // acquisition trigger
constexpr std::uint8_t kAcquireMode = 0x0C;
constexpr std::uint8_t kLeftGreyFirst = 0xA4;
constexpr std::uint8_t kLeftGreyNext = 0x04;
constexpr std::uint8_t kRightGreyFirst = 0xA8;
constexpr std::uint8_t kRightGreyNext = 0x08;
constexpr std::uint8_t kColorFirst = 0xA1;
constexpr std::uint8_t kColorNext = 0x01;
constexpr std::uint8_t kConfigPrepare = 0xF5;
constexpr std::uint8_t kConfigRead = 0x0A;
constexpr std::uint8_t kMultiConfigRead = 0x1A;
constexpr std::uint8_t kModelTextRead = 0xF8;
constexpr std::uint8_t kCollisionLevel = 0x23;
constexpr std::uint8_t kDualExposure = 0x62;
constexpr std::uint8_t kDualGain = 0xF7;
constexpr std::uint8_t kColorExposure = 0x5A;
constexpr std::uint8_t kFlashDelay = 0x63;
constexpr std::uint8_t kLcdRawPoint = 0xA0;
constexpr std::uint8_t kMarkerParameters = 0x80;
constexpr std::uint8_t kDeviceIP = 0x90;
}  // namespace command

// Parameterised commands travel on Ethernet as packets of this size: the
// command bytes first, zeros after.
constexpr std::size_t kEthernetCommandBytes = 10;

// One command as built for the wire. `length` is the command's own length
// (what USB and Wi-Fi send); `parameterised` commands are padded to
// kEthernetCommandBytes on Ethernet, and system commands also on USB.
struct CommandPacket {
    std::array<std::uint8_t, kEthernetCommandBytes> bytes{};
    std::size_t length = 0;
    bool parameterised = false;
    bool systemCommand = false;
};

// Bytes that a transport sends for a packet: the padded packet on Ethernet
// for parameterised commands (and on USB for system commands), else the
// command's own length.
std::size_t wireLength(const CommandPacket& packet, E_Interface transport);

CommandPacket singleByteCommand(std::uint8_t code);
// Mode command: 0x0C and the mode value.
CommandPacket acquireModeCommand(std::uint8_t mode);
// Level 0 is sent as 1 and levels above 10 as 10.
CommandPacket collisionLevelCommand(unsigned char level);
// 32-bit word: low half left exposure, high half right exposure.
CommandPacket dualExposureCommand(std::uint16_t left, std::uint16_t right);
// 32-bit word: low half left gain, high half right gain.
CommandPacket dualGainCommand(std::uint16_t left, std::uint16_t right);
// 16-bit value clamped to 48..8192.
CommandPacket colorExposureCommand(int exposure);
// Each delay must lie in 0..255; nullopt otherwise (nothing may be sent).
std::optional<CommandPacket> flashDelayCommand(int firstDelay, int secondDelay);
CommandPacket lcdRawPointCommand(bool show);
// Checks 0 <= a <= b <= 100, 5 <= c <= d <= 4000, 1 <= e <= 255; nullopt
// otherwise. b and c are checked but not sent.
std::optional<CommandPacket> markerParametersCommand(int a, int b, int c, int d, int e);
CommandPacket deviceIPCommand(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d);
// Command byte of a system command; nullopt for a value without one.
std::optional<std::uint8_t> systemCommandByte(int command);
CommandPacket systemCommand(std::uint8_t code);

// ---- Marker and status frame (USB and Ethernet) -----------------------------

constexpr std::size_t kMarkerFrameBytes = 4096;
// The marker part of a frame is decoded relative to this offset.
constexpr std::size_t kMarkerOriginOffset = 2;
// Bytes from the marker origin to the end of a frame.
constexpr std::size_t kMarkerOriginBytes = kMarkerFrameBytes - kMarkerOriginOffset;
constexpr std::size_t kMaxPointsPerCamera = 200;

// Offsets from the marker origin.
namespace marker_offset {
constexpr std::size_t kFrameId = 0;
constexpr std::size_t kLeftValue = 1;
constexpr std::size_t kLeftCount = 2;
constexpr std::size_t kRightValue = 5;
constexpr std::size_t kRightCount = 6;
constexpr std::size_t kCameraHeaderBytes = 8;
constexpr std::size_t kLeftPoints = 8;
constexpr std::size_t kRightPoints = 1608;
constexpr std::size_t kExtendedIdMark = 3210;
constexpr std::size_t kExtendedId = 3212;
}  // namespace marker_offset

// Offsets from the start of a frame.
namespace frame_offset {
constexpr std::size_t kSecondLayoutSensors = 3220;  // SensorValue2 low, SensorValue3 high
constexpr std::size_t kSensors = 3224;              // SensorValue0 low, SensorValue1 high
constexpr std::size_t kTemperatures = 4000;         // Temperature0 low, Temperature1 high
constexpr std::size_t kLinkState = 4010;
constexpr std::size_t kFirstLayoutSensor2 = 4020;
constexpr std::size_t kFirstLayoutSensor3 = 4021;
constexpr std::size_t kStateByte0 = 4022;
constexpr std::size_t kStateByte1 = 4023;
constexpr std::size_t kStateWord = 4030;            // StateWord1 low, StateWord0 high
constexpr std::size_t kHardwareCheck = 4040;
}  // namespace frame_offset

// True when all 4096 bytes arrived and the start and end marks are intact.
bool isValidMarkerFrame(const std::uint8_t* frame, std::size_t received);

// Frame id read from a marker origin: the 32-bit counter when the extended-id
// mark is present, otherwise the header's id byte.
std::uint32_t frameIdAt(const std::uint8_t* markerOrigin);

// True when either camera's header value exceeds 5.
bool isOverLimit(const std::uint8_t* markerOrigin);

// The 2D points of both cameras at a marker origin: x, y per point, each
// count clamped to kMaxPointsPerCamera whatever the header byte says.
struct MarkerPoints {
    std::size_t leftCount = 0, rightCount = 0;
    std::array<float, 2 * kMaxPointsPerCamera> left{}, right{};
};
MarkerPoints decodeMarkerPoints(const std::uint8_t* markerOrigin);

// Health of the device from the 64-bit hardware check field: 7 when lane 0 is
// not zero, else 1..6 for the first of the temperature-like lanes out of
// range, else 0.
std::uint32_t hardwareCheckValue(std::uint64_t field);

// Decodes the status part of a marker and status frame. With layout None
// SensorValue2 and SensorValue3 are left as they are in `status`.
void decodeStatus(const std::uint8_t* frame, StatusLayout layout, T_VyxPosStatusInfo& status);

// ---- Image blocks ------------------------------------------------------------

// Bytes of block `index` of an image of `imageBytes` transferred in blocks of
// `blockBytes`: a full block, or the remainder for the last block, or 0 past
// the end.
std::uint32_t imageBlockBytes(std::uint32_t imageBytes, std::uint32_t blockBytes,
                              std::uint32_t index);
// Number of blocks of `blockBytes` that carry `imageBytes` (rounded up).
std::uint32_t imageBlockCount(std::uint32_t imageBytes, std::uint32_t blockBytes);

// ---- Configuration -------------------------------------------------------------

constexpr std::size_t kConfigBlockBytes = 512;
constexpr std::size_t kConfigChecksumCoverage = 470;  // bytes 0..469
constexpr std::size_t kConfigChecksumOffset = 509;    // low byte, then high byte
constexpr std::size_t kConfigShortFormBytes = 2 * kConfigBlockBytes;
constexpr std::size_t kConfigLongFormBytes = 7680;
constexpr std::size_t kModelTextBytes = 20;

// True when a 512-byte configuration block carries a correct CRC-16/MODBUS.
bool configBlockChecksumOk(const std::uint8_t* block);

// ---- Wi-Fi module frames ---------------------------------------------------------

constexpr std::size_t kWifiConfigFrameBytes = 1032;
constexpr std::size_t kWifiStatusFrameBytes = 32;
constexpr std::size_t kWifiStatusBytes = 24;
constexpr std::size_t kWifiMarkerFrameMaxBytes = 3500;
constexpr std::size_t kWifiMarkerHeaderBytes = 4;

// Checks a Wi-Fi configuration frame (marks, announced length equal to the
// bytes received, both block checksums) and copies its two blocks into
// `config` (1024 bytes). Returns false without touching `config` otherwise.
bool parseWifiConfigFrame(const std::uint8_t* frame, std::size_t received, std::uint8_t* config);

// Total length announced by a Wi-Fi marker frame header, or nullopt when the
// header's mark is wrong. A value above kWifiMarkerFrameMaxBytes means the
// stream must be drained.
std::optional<std::uint16_t> wifiMarkerFrameLength(const std::uint8_t* header);

// Rearranges a complete Wi-Fi marker frame (header included, `length` bytes)
// into a marker origin laid out like the wired frame's (kMarkerOriginBytes):
// the camera header, the left points at their offset, the right points moved
// to theirs, the trailer (or the closing word alone) where the wired frame
// has its extended-id fields. Returns false for a frame whose point counts
// do not fit its length or whose closing word is wrong.
bool parseWifiMarkerFrame(const std::uint8_t* frame, std::size_t length, std::uint8_t* markerOrigin);

// Checks a 32-byte Wi-Fi status frame and copies its 24 status bytes out.
bool parseWifiStatusFrame(const std::uint8_t* frame, std::size_t received,
                          std::uint8_t* statusBytes);

// Decodes the 24 status bytes a Wi-Fi status frame keeps. Their layout (this
// library's own, served the same way by the virtual tracker):
//   0-1 Temperature0, 2-3 Temperature1 (int16, hundredths of a degree)
//   4-5 SensorValue0, 6-7 SensorValue1 (uint16, hundredths)
//   8-9 SensorValue2, 10-11 SensorValue3 (int16)
//   12 StateByte0, 13 StateByte1
//   14-17 state word (StateWord1 low half, StateWord0 high half)
//   18 link state byte (0, 1, anything else 2), 19 reserved
//   20-23 hardware check code (0 healthy, 1..7 the first failing check)
void decodeWifiStatus(const std::uint8_t* statusBytes, T_VyxPosStatusInfo& status);

// ---- Little-endian helpers ---------------------------------------------------------

inline std::uint16_t readU16(const std::uint8_t* p) {
    return static_cast<std::uint16_t>(p[0] | (p[1] << 8));
}
inline std::uint32_t readU32(const std::uint8_t* p) {
    return static_cast<std::uint32_t>(p[0]) | (static_cast<std::uint32_t>(p[1]) << 8) |
           (static_cast<std::uint32_t>(p[2]) << 16) | (static_cast<std::uint32_t>(p[3]) << 24);
}
inline void writeU16(std::uint8_t* p, std::uint16_t v) {
    p[0] = static_cast<std::uint8_t>(v & 0xFF);
    p[1] = static_cast<std::uint8_t>(v >> 8);
}
inline void writeU32(std::uint8_t* p, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>((v >> (8 * i)) & 0xFF);
}

}  // namespace vyx::device
