// The content of one marker and status frame, and its 4096-byte wire form.
//
// Frame layout: 0xA5 0x5A; frame id (2); left camera value (3) and point count
// (4); right camera value (7) and point count (8); 200 left points from 10 and
// 200 right points from 1610, each two little-endian 32-bit floats (x, y in
// pixels); extended-id mark 0xB5 0x5B at 3212 with a 32-bit frame counter at
// 3214; status words at 3220, 3224, 4000, 4010, 4020-4023, 4030 and 4040; end
// mark 0xFF 0xFE at 4094. Bytes not listed are zero.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace vyx::sim {

constexpr std::size_t kMarkerFrameBytes = 4096;
constexpr std::size_t kMaxPointsPerCamera = 200;

// A marker centre in one camera image, pixels.
struct ImagePoint {
    float x = 0.0f;
    float y = 0.0f;
};

// Status part of the frame. The device words are stored as given; the host
// decodes them (hundredths to floats, layouts by model, the health check).
struct StatusFields {
    std::int16_t temperature0Hundredths = 3125;  // 31.25 degrees Celsius
    // The camera temperature a host compensates its calibration for.
    std::int16_t temperature1Hundredths = 3000;  // 30.00 degrees Celsius
    std::uint16_t sensorValue0Hundredths = 0;
    std::uint16_t sensorValue1Hundredths = 0;
    // Sensor values 2 and 3 as models of the second status layout send them
    // (16-bit words at 3220)...
    std::uint16_t secondLayoutSensorValue2 = 0;
    std::uint16_t secondLayoutSensorValue3 = 0;
    // ...and as models of the first layout send them (signed bytes at 4020).
    std::int8_t firstLayoutSensorValue2 = 0;
    std::int8_t firstLayoutSensorValue3 = 0;
    std::uint8_t linkState = 1;
    std::uint8_t stateByte0 = 0;
    std::uint8_t stateByte1 = 0;
    // 32-bit state word: StateWord1 in the low half, StateWord0 in the high.
    std::uint32_t stateWord = 0;
    // Hardware check field, lane 0 first. Lane 0 non-zero reports a fault;
    // lanes 1-3 are read as signed sixteenths and are healthy from 700 to 1000
    // (lane 1) and from 200 to 1000 (lanes 2 and 3). The default is healthy.
    std::array<std::uint16_t, 4> hardwareCheckLanes{0, 800 * 16, 500 * 16, 500 * 16};
};

struct MarkerFrame {
    std::uint8_t frameId = 0;
    // With a value, the frame carries the extended-id mark and this counter.
    std::optional<std::uint32_t> extendedId;
    // Camera values; a host flags a frame as over the limit above 5.
    std::uint8_t leftValue = 0;
    std::uint8_t rightValue = 0;
    // At most 200 points per camera are sent; further ones are dropped.
    std::vector<ImagePoint> left;
    std::vector<ImagePoint> right;
    // Sent as the point count in place of the number of points sent, e.g.
    // 255 to check that a host clamps it.
    std::optional<std::uint8_t> leftCountOverride;
    std::optional<std::uint8_t> rightCountOverride;
    StatusFields status;
};

// A frame's wire form, with valid start and end marks.
std::array<std::uint8_t, kMarkerFrameBytes> encodeMarkerFrame(const MarkerFrame& frame);

}  // namespace vyx::sim
