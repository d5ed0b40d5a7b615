#include "device/WireProtocol.h"

#include "device/Crc16.h"

#include <algorithm>
#include <cstring>

namespace vyx::device {
namespace {

CommandPacket packet(std::initializer_list<std::uint8_t> bytes, bool parameterised) {
    CommandPacket p;
    std::copy(bytes.begin(), bytes.end(), p.bytes.begin());
    p.length = bytes.size();
    p.parameterised = parameterised;
    return p;
}

std::uint8_t lowByte(std::uint32_t v) { return static_cast<std::uint8_t>(v & 0xFF); }

// The device's marker and status frame brackets.
constexpr std::uint8_t kFrameStart0 = 0xA5;
constexpr std::uint8_t kFrameStart1 = 0x5A;
constexpr std::uint8_t kFrameEnd0 = 0xFF;
constexpr std::uint8_t kFrameEnd1 = 0xFE;
constexpr std::uint8_t kExtendedIdMark0 = 0xB5;
constexpr std::uint8_t kExtendedIdMark1 = 0x5B;

// Command byte of each system command value; 0 where a value has none.
constexpr std::array<std::uint8_t, 23> kSystemCommandBytes = {
    0x20, 0x21, 0x22, 0x31, 0x30, 0x39, 0x38, 0x40, 0x41, 0x4D, 0x4E, 0x52,
    0x50, 0x51, 0x53, 0x00, 0x58, 0x79, 0x61, 0x60, 0x71, 0x70, 0x72};

}  // namespace

std::size_t wireLength(const CommandPacket& p, E_Interface transport) {
    if (transport == Interface_Ethernet && (p.parameterised || p.systemCommand))
        return kEthernetCommandBytes;
    if (transport == Interface_USB && p.systemCommand) return kEthernetCommandBytes;
    return p.length;
}

CommandPacket singleByteCommand(std::uint8_t code) { return packet({code}, false); }

CommandPacket acquireModeCommand(std::uint8_t mode) {
    return packet({command::kAcquireMode, mode}, false);
}

CommandPacket collisionLevelCommand(unsigned char level) {
    const unsigned char sent = std::clamp<unsigned char>(level, 1, 10);
    return packet({command::kCollisionLevel, sent}, true);
}

CommandPacket dualExposureCommand(std::uint16_t left, std::uint16_t right) {
    return packet({command::kDualExposure, lowByte(left), lowByte(left >> 8u), lowByte(right),
                   lowByte(right >> 8u)},
                  true);
}

CommandPacket dualGainCommand(std::uint16_t left, std::uint16_t right) {
    return packet({command::kDualGain, lowByte(left), lowByte(left >> 8u), lowByte(right),
                   lowByte(right >> 8u)},
                  true);
}

CommandPacket colorExposureCommand(int exposure) {
    const auto value = static_cast<std::uint16_t>(std::clamp(exposure, 48, 8192));
    return packet({command::kColorExposure, lowByte(value), lowByte(value >> 8u)}, true);
}

std::optional<CommandPacket> flashDelayCommand(int firstDelay, int secondDelay) {
    if (firstDelay < 0 || firstDelay > 255 || secondDelay < 0 || secondDelay > 255)
        return std::nullopt;
    return packet({command::kFlashDelay, static_cast<std::uint8_t>(firstDelay),
                   static_cast<std::uint8_t>(secondDelay), 0x63, 0xFE},
                  true);
}

CommandPacket lcdRawPointCommand(bool show) {
    return packet({command::kLcdRawPoint, 0x0A, static_cast<std::uint8_t>(show ? 1 : 0)}, true);
}

std::optional<CommandPacket> markerParametersCommand(int a, int b, int c, int d, int e) {
    if (!(0 <= a && a <= b && b <= 100)) return std::nullopt;
    if (!(5 <= c && c <= d && d <= 4000)) return std::nullopt;
    if (!(1 <= e && e <= 255)) return std::nullopt;
    // Only the low byte of d travels, read as a signed byte and divided by 16
    // with truncation toward zero: d = 4000 gives 0xFA, d = 1000 gives 0xFF.
    const auto dLow = static_cast<std::int8_t>(static_cast<std::uint8_t>(d & 0xFF));
    const auto byte1 = static_cast<std::uint8_t>(static_cast<std::int8_t>(dLow / 16));
    const auto byte7 = static_cast<std::uint8_t>(std::min(e, 21) - 1);
    return packet({command::kMarkerParameters, byte1, 0x05, 0x64, static_cast<std::uint8_t>(a),
                   static_cast<std::uint8_t>(e), static_cast<std::uint8_t>(e), byte7},
                  true);
}

CommandPacket deviceIPCommand(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d) {
    return packet({command::kDeviceIP, a, b, c, d, 0x90, 0xFE}, true);
}

std::optional<std::uint8_t> systemCommandByte(int commandValue) {
    if (commandValue < 0 || commandValue >= static_cast<int>(kSystemCommandBytes.size()))
        return std::nullopt;
    const std::uint8_t code = kSystemCommandBytes[static_cast<std::size_t>(commandValue)];
    if (code == 0) return std::nullopt;
    return code;
}

CommandPacket systemCommand(std::uint8_t code) {
    CommandPacket p = packet({code}, false);
    p.systemCommand = true;
    return p;
}

bool isValidMarkerFrame(const std::uint8_t* frame, std::size_t received) {
    return frame != nullptr && received == kMarkerFrameBytes && frame[0] == kFrameStart0 &&
           frame[1] == kFrameStart1 && frame[kMarkerFrameBytes - 2] == kFrameEnd0 &&
           frame[kMarkerFrameBytes - 1] == kFrameEnd1;
}

std::uint32_t frameIdAt(const std::uint8_t* markerOrigin) {
    if (markerOrigin[marker_offset::kExtendedIdMark] == kExtendedIdMark0 &&
        markerOrigin[marker_offset::kExtendedIdMark + 1] == kExtendedIdMark1)
        return readU32(markerOrigin + marker_offset::kExtendedId);
    return markerOrigin[marker_offset::kFrameId];
}

bool isOverLimit(const std::uint8_t* markerOrigin) {
    return markerOrigin[marker_offset::kLeftValue] > 5 ||
           markerOrigin[marker_offset::kRightValue] > 5;
}

MarkerPoints decodeMarkerPoints(const std::uint8_t* markerOrigin) {
    MarkerPoints points;
    points.leftCount = std::min<std::size_t>(markerOrigin[marker_offset::kLeftCount], kMaxPointsPerCamera);
    points.rightCount = std::min<std::size_t>(markerOrigin[marker_offset::kRightCount], kMaxPointsPerCamera);
    std::memcpy(points.left.data(), markerOrigin + marker_offset::kLeftPoints,
                points.leftCount * 2 * sizeof(float));
    std::memcpy(points.right.data(), markerOrigin + marker_offset::kRightPoints,
                points.rightCount * 2 * sizeof(float));
    return points;
}

std::uint32_t hardwareCheckValue(std::uint64_t field) {
    const auto lane = [field](int i) {
        return static_cast<std::uint16_t>((field >> (16 * i)) & 0xFFFF);
    };
    if (lane(0) != 0) return 7;
    const double a = static_cast<std::int16_t>(lane(1)) * 0.0625;
    const double b = static_cast<std::int16_t>(lane(2)) * 0.0625;
    const double c = static_cast<std::int16_t>(lane(3)) * 0.0625;
    if (a < 700) return 1;
    if (a > 1000) return 2;
    if (b < 200) return 3;
    if (b > 1000) return 4;
    if (c < 200) return 5;
    if (c > 1000) return 6;
    return 0;
}

void decodeStatus(const std::uint8_t* frame, StatusLayout layout, T_VyxPosStatusInfo& status) {
    using namespace frame_offset;
    const auto signedWord = [frame](std::size_t offset) {
        return static_cast<std::int16_t>(readU16(frame + offset));
    };
    status.Temperature0 = static_cast<float>(signedWord(kTemperatures)) / 100.0f;
    status.Temperature1 = static_cast<float>(signedWord(kTemperatures + 2)) / 100.0f;
    status.SensorValue0 = static_cast<float>(readU16(frame + kSensors)) / 100.0f;
    status.SensorValue1 = static_cast<float>(readU16(frame + kSensors + 2)) / 100.0f;
    if (layout == StatusLayout::First) {
        status.SensorValue2 = static_cast<std::int8_t>(frame[kFirstLayoutSensor2]);
        status.SensorValue3 = static_cast<std::int8_t>(frame[kFirstLayoutSensor3]);
    } else if (layout == StatusLayout::Second) {
        status.SensorValue2 = signedWord(kSecondLayoutSensors);
        status.SensorValue3 = signedWord(kSecondLayoutSensors + 2);
    }
    status.StateByte0 = frame[kStateByte0];
    status.StateByte1 = frame[kStateByte1];
    const std::uint32_t stateWord = readU32(frame + kStateWord);
    status.StateWord0 = static_cast<std::uint16_t>(stateWord >> 16);
    status.StateWord1 = static_cast<std::uint16_t>(stateWord & 0xFFFF);
    const std::uint8_t link = frame[kLinkState];
    status.LinkState = link <= 1 ? link : 2u;
    std::uint64_t check = 0;
    for (int i = 7; i >= 0; --i) check = (check << 8) | frame[kHardwareCheck + static_cast<std::size_t>(i)];
    status.HardwareCheck = hardwareCheckValue(check);
}

std::uint32_t imageBlockBytes(std::uint32_t imageBytes, std::uint32_t blockBytes,
                              std::uint32_t index) {
    if (blockBytes == 0) return 0;
    const std::uint64_t start = static_cast<std::uint64_t>(index) * blockBytes;
    if (start >= imageBytes) return 0;
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(blockBytes, imageBytes - start));
}

std::uint32_t imageBlockCount(std::uint32_t imageBytes, std::uint32_t blockBytes) {
    if (blockBytes == 0) return 0;
    return static_cast<std::uint32_t>((static_cast<std::uint64_t>(imageBytes) + blockBytes - 1) /
                                      blockBytes);
}

bool configBlockChecksumOk(const std::uint8_t* block) {
    const std::uint16_t stored = readU16(block + kConfigChecksumOffset);
    return crc16Modbus(block, kConfigChecksumCoverage) == stored;
}

bool parseWifiConfigFrame(const std::uint8_t* frame, std::size_t received, std::uint8_t* config) {
    if (frame == nullptr || received != kWifiConfigFrameBytes) return false;
    if (frame[0] != kFrameStart0 || frame[1] != kFrameStart1) return false;
    if (readU16(frame + 2) != received) return false;
    if (frame[received - 2] != kFrameEnd0 || frame[received - 1] != kFrameEnd1) return false;
    const std::uint8_t* blocks = frame + 4;
    if (!configBlockChecksumOk(blocks) || !configBlockChecksumOk(blocks + kConfigBlockBytes))
        return false;
    std::memcpy(config, blocks, kConfigShortFormBytes);
    return true;
}

std::optional<std::uint16_t> wifiMarkerFrameLength(const std::uint8_t* header) {
    if (header[0] != kFrameStart0 || header[1] != kFrameStart1) return std::nullopt;
    return readU16(header + 2);
}

bool parseWifiMarkerFrame(const std::uint8_t* frame, std::size_t length, std::uint8_t* markerOrigin) {
    constexpr std::size_t kPointBytes = 8;
    constexpr std::size_t kTrailerBytes = 16;
    constexpr std::size_t kClosingWordBytes = 4;
    const std::size_t fixed = kWifiMarkerHeaderBytes + marker_offset::kCameraHeaderBytes;
    if (frame == nullptr || length < fixed + kClosingWordBytes ||
        length > kWifiMarkerFrameMaxBytes)
        return false;
    const std::uint8_t* payload = frame + kWifiMarkerHeaderBytes;
    const std::size_t leftCount = readU16(payload + marker_offset::kLeftCount);
    const std::size_t rightCount = readU16(payload + marker_offset::kRightCount);
    if (leftCount > kMaxPointsPerCamera || rightCount > kMaxPointsPerCamera) return false;
    const std::size_t pointsEnd = fixed + (leftCount + rightCount) * kPointBytes;
    const bool hasTrailer = length == (leftCount + rightCount + 2) * kPointBytes + 12;
    const std::size_t tailBytes = hasTrailer ? kTrailerBytes : kClosingWordBytes;
    if (pointsEnd + tailBytes > length) return false;
    const std::uint8_t* closing = frame + length - kClosingWordBytes;
    if (readU16(closing + 2) != 0xFEFF) return false;

    std::memset(markerOrigin, 0, kMarkerOriginBytes);
    std::memcpy(markerOrigin, payload, marker_offset::kCameraHeaderBytes);
    // The wired frame carries the point counts as single bytes.
    markerOrigin[marker_offset::kLeftCount] = static_cast<std::uint8_t>(leftCount);
    markerOrigin[marker_offset::kLeftCount + 1] = 0;
    markerOrigin[marker_offset::kRightCount] = static_cast<std::uint8_t>(rightCount);
    markerOrigin[marker_offset::kRightCount + 1] = 0;
    const std::uint8_t* points = payload + marker_offset::kCameraHeaderBytes;
    std::memcpy(markerOrigin + marker_offset::kLeftPoints, points, leftCount * kPointBytes);
    std::memcpy(markerOrigin + marker_offset::kRightPoints, points + leftCount * kPointBytes,
                rightCount * kPointBytes);
    // The trailer lands where the wired frame keeps its extended-id fields.
    constexpr std::size_t kTrailerOrigin = marker_offset::kExtendedIdMark - 2;
    std::memcpy(markerOrigin + kTrailerOrigin, frame + length - tailBytes, tailBytes);
    return true;
}

bool parseWifiStatusFrame(const std::uint8_t* frame, std::size_t received,
                          std::uint8_t* statusBytes) {
    if (frame == nullptr || received != kWifiStatusFrameBytes) return false;
    if (frame[0] != kFrameStart0 || frame[1] != kFrameStart1) return false;
    if (readU16(frame + 2) != kWifiStatusFrameBytes) return false;
    if (frame[30] != kFrameEnd0 || frame[31] != kFrameEnd1) return false;
    std::memcpy(statusBytes, frame + 4, kWifiStatusBytes);
    return true;
}

void decodeWifiStatus(const std::uint8_t* b, T_VyxPosStatusInfo& status) {
    const auto signed16 = [&](std::size_t at) { return static_cast<std::int16_t>(readU16(b + at)); };
    status.Temperature0 = static_cast<float>(signed16(0)) / 100.0f;
    status.Temperature1 = static_cast<float>(signed16(2)) / 100.0f;
    status.SensorValue0 = static_cast<float>(readU16(b + 4)) / 100.0f;
    status.SensorValue1 = static_cast<float>(readU16(b + 6)) / 100.0f;
    status.SensorValue2 = signed16(8);
    status.SensorValue3 = signed16(10);
    status.StateByte0 = b[12];
    status.StateByte1 = b[13];
    const std::uint32_t word = readU32(b + 14);
    status.StateWord1 = static_cast<std::uint16_t>(word & 0xFFFF);
    status.StateWord0 = static_cast<std::uint16_t>(word >> 16);
    status.LinkState = b[18] <= 1 ? b[18] : 2u;
    status.HardwareCheck = readU32(b + 20);
}

}  // namespace vyx::device
