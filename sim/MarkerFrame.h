// The content of one marker and status frame, and its wire forms: the
// 4096-byte frame of the Ethernet link and the marker and status frames of the
// Wi-Fi link.
//
// Frame layout: 0xA5 0x5A; frame id (2); left camera value (3) and point count
// (4); right camera value (7) and point count (8); 200 left points from 10 and
// 200 right points from 1610, each two little-endian 32-bit floats (x, y in
// pixels); extended-id mark 0xB5 0x5B at 3212 with a 32-bit frame counter at
// 3214; status words at 3220, 3224, 4000, 4010, 4020-4023, 4030 and 4040; end
// mark 0xFF 0xFE at 4094. Bytes not listed are zero.
//
// Wi-Fi marker frame (the answer to 0x0E), L bytes, L at most 3500:
//   0-1   0xA5 0x5A
//   2-3   L (16-bit)
//   then the payload:
//   0     frame id
//   1     left camera value
//   2-3   left point count (16-bit)
//   4     zero
//   5     right camera value
//   6-7   right point count (16-bit)
//   8     the left points, then the right points (8 bytes each, as above)
//   then, with an extended id, a 16-byte trailer: 2 zero bytes, the mark
//   0xB5 0x5B, the 32-bit counter, 6 zero bytes, 0xFF 0xFE, so that
//   L = (left + right + 2) x 8 + 12; without one, the closing word
//   0x00 0x00 0xFF 0xFE, so that L = 4 + 8 + (left + right) x 8 + 4.
// With at most 200 points per camera a frame always fits in 3500 bytes.
//
// Wi-Fi status frame (the answer to 0x0F on the Wi-Fi link), 32 bytes:
// 0xA5 0x5A, length 32 (16-bit), the 24 status bytes, 0x00 0x00, 0xFF 0xFE.
// The 24 status bytes:
//   0-1   Temperature0, int16 hundredths      (temperature0Hundredths)
//   2-3   Temperature1, int16 hundredths      (temperature1Hundredths)
//   4-5   SensorValue0, uint16 hundredths     (sensorValue0Hundredths)
//   6-7   SensorValue1, uint16 hundredths     (sensorValue1Hundredths)
//   8-9   SensorValue2, int16                 (secondLayoutSensorValue2)
//   10-11 SensorValue3, int16                 (secondLayoutSensorValue3)
//   12    StateByte0                          (stateByte0)
//   13    StateByte1                          (stateByte1)
//   14-17 state word, 32-bit: StateWord1 in the low half, StateWord0 in the
//         high half                           (stateWord)
//   18    link state byte                     (linkState)
//   19    zero
//   20-23 hardware check code, 32-bit: 0 healthy, else 1..7 for the first
//         failing check                       (hardwareCheckCode(status))
// The Wi-Fi module sends sensor values 2 and 3 as 16-bit words, whatever the
// model; the first-layout signed bytes are not sent.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
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

// A frame as a device sent it, for a replay.
struct RecordedFrame {
    // The marker frame: 4096 bytes on Ethernet and USB, the Wi-Fi marker
    // frame on Wi-Fi.
    std::vector<std::uint8_t> markerFrame;
    // Wi-Fi: the status frame a status request gets while this frame is the
    // last one served; empty: no reply.
    std::vector<std::uint8_t> wifiStatusFrame;
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
    // Set: the marker request (and on Wi-Fi the status request) is answered
    // with these bytes, and the fields above are not sent.
    std::shared_ptr<const RecordedFrame> recorded;
};

// A frame's wire form, with valid start and end marks.
std::array<std::uint8_t, kMarkerFrameBytes> encodeMarkerFrame(const MarkerFrame& frame);

constexpr std::size_t kWifiMarkerFrameMaxBytes = 3500;
constexpr std::size_t kWifiStatusFrameBytes = 32;
constexpr std::size_t kWifiStatusBytes = 24;

// The Wi-Fi marker frame of a frame, with valid marks; as long as it
// announces.
std::vector<std::uint8_t> encodeWifiMarkerFrame(const MarkerFrame& frame);

// The hardware check code a host derives from the hardware check lanes: 7 when
// lane 0 is non-zero; else, with lanes 1-3 read as signed sixteenths, 1 or 2
// when lane 1 is below 700 or above 1000, 3 or 4 for lane 2 below 200 or
// above 1000, 5 or 6 for lane 3 alike; else 0.
std::uint32_t hardwareCheckCode(const StatusFields& status);

// The 24 status bytes of the Wi-Fi status frame, and the whole frame.
std::array<std::uint8_t, kWifiStatusBytes> encodeWifiStatusBytes(const StatusFields& status);
std::array<std::uint8_t, kWifiStatusFrameBytes> encodeWifiStatusFrame(const StatusFields& status);

}  // namespace vyx::sim
