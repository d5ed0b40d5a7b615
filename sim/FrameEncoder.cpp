#include "sim/MarkerFrame.h"

#include <algorithm>
#include <cstring>

namespace vyx::sim {
namespace {

constexpr std::size_t kFrameId = 2;
constexpr std::size_t kLeftValue = 3;
constexpr std::size_t kLeftCount = 4;
constexpr std::size_t kRightValue = 7;
constexpr std::size_t kRightCount = 8;
constexpr std::size_t kLeftPoints = 10;
constexpr std::size_t kRightPoints = 1610;
constexpr std::size_t kPointBytes = 8;
constexpr std::size_t kExtendedIdMark = 3212;
constexpr std::size_t kExtendedId = 3214;
constexpr std::size_t kSecondLayoutSensors = 3220;
constexpr std::size_t kSensors = 3224;
constexpr std::size_t kTemperatures = 4000;
constexpr std::size_t kLinkState = 4010;
constexpr std::size_t kFirstLayoutSensor2 = 4020;
constexpr std::size_t kFirstLayoutSensor3 = 4021;
constexpr std::size_t kStateByte0 = 4022;
constexpr std::size_t kStateByte1 = 4023;
constexpr std::size_t kStateWord = 4030;
constexpr std::size_t kHardwareCheck = 4040;
constexpr std::size_t kEndMark = 4094;

void putU16(std::uint8_t* p, std::uint16_t value) {
    p[0] = static_cast<std::uint8_t>(value & 0xFF);
    p[1] = static_cast<std::uint8_t>(value >> 8);
}

void putU32(std::uint8_t* p, std::uint32_t value) {
    for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>((value >> (8 * i)) & 0xFF);
}

void putFloat(std::uint8_t* p, float value) {
    std::uint32_t bits = 0;
    static_assert(sizeof bits == sizeof value, "points are 32-bit floats");
    std::memcpy(&bits, &value, sizeof bits);
    putU32(p, bits);
}

// Writes up to 200 points from `base`; returns the number written.
std::uint8_t putPoints(std::uint8_t* base, const std::vector<ImagePoint>& points) {
    const std::size_t count = std::min(points.size(), kMaxPointsPerCamera);
    for (std::size_t i = 0; i < count; ++i) {
        putFloat(base + i * kPointBytes, points[i].x);
        putFloat(base + i * kPointBytes + 4, points[i].y);
    }
    return static_cast<std::uint8_t>(count);
}

}  // namespace

std::array<std::uint8_t, kMarkerFrameBytes> encodeMarkerFrame(const MarkerFrame& frame) {
    std::array<std::uint8_t, kMarkerFrameBytes> out{};
    std::uint8_t* p = out.data();
    p[0] = 0xA5;
    p[1] = 0x5A;
    p[kFrameId] = frame.frameId;
    p[kLeftValue] = frame.leftValue;
    p[kRightValue] = frame.rightValue;
    const std::uint8_t leftCount = putPoints(p + kLeftPoints, frame.left);
    const std::uint8_t rightCount = putPoints(p + kRightPoints, frame.right);
    p[kLeftCount] = frame.leftCountOverride.value_or(leftCount);
    p[kRightCount] = frame.rightCountOverride.value_or(rightCount);

    if (frame.extendedId) {
        p[kExtendedIdMark] = 0xB5;
        p[kExtendedIdMark + 1] = 0x5B;
        putU32(p + kExtendedId, *frame.extendedId);
    }

    const StatusFields& s = frame.status;
    putU16(p + kSecondLayoutSensors, s.secondLayoutSensorValue2);
    putU16(p + kSecondLayoutSensors + 2, s.secondLayoutSensorValue3);
    putU16(p + kSensors, s.sensorValue0Hundredths);
    putU16(p + kSensors + 2, s.sensorValue1Hundredths);
    putU16(p + kTemperatures, static_cast<std::uint16_t>(s.temperature0Hundredths));
    putU16(p + kTemperatures + 2, static_cast<std::uint16_t>(s.temperature1Hundredths));
    p[kLinkState] = s.linkState;
    p[kFirstLayoutSensor2] = static_cast<std::uint8_t>(s.firstLayoutSensorValue2);
    p[kFirstLayoutSensor3] = static_cast<std::uint8_t>(s.firstLayoutSensorValue3);
    p[kStateByte0] = s.stateByte0;
    p[kStateByte1] = s.stateByte1;
    putU32(p + kStateWord, s.stateWord);
    for (std::size_t lane = 0; lane < s.hardwareCheckLanes.size(); ++lane)
        putU16(p + kHardwareCheck + 2 * lane, s.hardwareCheckLanes[lane]);

    p[kEndMark] = 0xFF;
    p[kEndMark + 1] = 0xFE;
    return out;
}

std::vector<std::uint8_t> encodeWifiMarkerFrame(const MarkerFrame& frame) {
    constexpr std::size_t kHeaderBytes = 4;
    constexpr std::size_t kCameraHeaderBytes = 8;
    constexpr std::size_t kTrailerBytes = 16;
    constexpr std::size_t kClosingWordBytes = 4;
    static_assert(kHeaderBytes + kCameraHeaderBytes + 2 * kMaxPointsPerCamera * kPointBytes +
                          kTrailerBytes <=
                      kWifiMarkerFrameMaxBytes,
                  "two full cameras fit in one Wi-Fi marker frame");

    const std::size_t left = std::min(frame.left.size(), kMaxPointsPerCamera);
    const std::size_t right = std::min(frame.right.size(), kMaxPointsPerCamera);
    const std::size_t length = kHeaderBytes + kCameraHeaderBytes + (left + right) * kPointBytes +
                               (frame.extendedId ? kTrailerBytes : kClosingWordBytes);
    std::vector<std::uint8_t> out(length, 0);
    std::uint8_t* p = out.data();
    p[0] = 0xA5;
    p[1] = 0x5A;
    putU16(p + 2, static_cast<std::uint16_t>(length));

    std::uint8_t* payload = p + kHeaderBytes;
    payload[0] = frame.frameId;
    payload[1] = frame.leftValue;
    putU16(payload + 2, frame.leftCountOverride.value_or(static_cast<std::uint8_t>(left)));
    payload[5] = frame.rightValue;
    putU16(payload + 6, frame.rightCountOverride.value_or(static_cast<std::uint8_t>(right)));
    std::uint8_t* points = payload + kCameraHeaderBytes;
    putPoints(points, frame.left);
    putPoints(points + left * kPointBytes, frame.right);

    if (frame.extendedId) {
        std::uint8_t* trailer = p + length - kTrailerBytes;
        trailer[2] = 0xB5;
        trailer[3] = 0x5B;
        putU32(trailer + 4, *frame.extendedId);
    }
    p[length - 2] = 0xFF;
    p[length - 1] = 0xFE;
    return out;
}

std::uint32_t hardwareCheckCode(const StatusFields& status) {
    const auto& lanes = status.hardwareCheckLanes;
    if (lanes[0] != 0) return 7;
    // Lanes 1-3 are signed sixteenths, each with its healthy range.
    const struct {
        double low, high;
    } healthy[] = {{700, 1000}, {200, 1000}, {200, 1000}};
    for (std::uint32_t i = 0; i < 3; ++i) {
        const double value = static_cast<std::int16_t>(lanes[i + 1]) / 16.0;
        if (value < healthy[i].low) return 2 * i + 1;
        if (value > healthy[i].high) return 2 * i + 2;
    }
    return 0;
}

std::array<std::uint8_t, kWifiStatusBytes> encodeWifiStatusBytes(const StatusFields& s) {
    std::array<std::uint8_t, kWifiStatusBytes> out{};
    std::uint8_t* p = out.data();
    putU16(p + 0, static_cast<std::uint16_t>(s.temperature0Hundredths));
    putU16(p + 2, static_cast<std::uint16_t>(s.temperature1Hundredths));
    putU16(p + 4, s.sensorValue0Hundredths);
    putU16(p + 6, s.sensorValue1Hundredths);
    putU16(p + 8, s.secondLayoutSensorValue2);
    putU16(p + 10, s.secondLayoutSensorValue3);
    p[12] = s.stateByte0;
    p[13] = s.stateByte1;
    putU32(p + 14, s.stateWord);
    p[18] = s.linkState;
    putU32(p + 20, hardwareCheckCode(s));
    return out;
}

std::array<std::uint8_t, kWifiStatusFrameBytes> encodeWifiStatusFrame(const StatusFields& status) {
    std::array<std::uint8_t, kWifiStatusFrameBytes> out{};
    out[0] = 0xA5;
    out[1] = 0x5A;
    putU16(out.data() + 2, static_cast<std::uint16_t>(kWifiStatusFrameBytes));
    const auto bytes = encodeWifiStatusBytes(status);
    std::copy(bytes.begin(), bytes.end(), out.begin() + 4);
    out[kWifiStatusFrameBytes - 2] = 0xFF;
    out[kWifiStatusFrameBytes - 1] = 0xFE;
    return out;
}

}  // namespace vyx::sim
