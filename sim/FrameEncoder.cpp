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

}  // namespace vyx::sim
