// The Wi-Fi module's configuration, marker and status frames: any bytes. A
// refused frame must leave the caller's buffer as it was.
#include "FuzzSupport.h"

#include "device/WireProtocol.h"

#include <array>
#include <vector>

using namespace vyx::device;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) return 0;
    const std::uint8_t kind = data[0] % 3;
    const std::uint8_t* frame = data + 1;
    const std::size_t length = size - 1;
    constexpr std::uint8_t kUntouched = 0xC3;

    if (kind == 0) {
        std::array<std::uint8_t, kConfigShortFormBytes> config;
        config.fill(kUntouched);
        if (!parseWifiConfigFrame(frame, length, config.data()))
            for (std::uint8_t b : config) FUZZ_CHECK(b == kUntouched);
    } else if (kind == 1) {
        // The receiver reads the 4-byte header, then as many bytes as it
        // announces, within the frame's limit.
        if (length < kWifiMarkerHeaderBytes) return 0;
        const auto announced = wifiMarkerFrameLength(frame);
        if (!announced || *announced > kWifiMarkerFrameMaxBytes || *announced > length) return 0;
        std::vector<std::uint8_t> origin(kMarkerOriginBytes, kUntouched);
        if (parseWifiMarkerFrame(frame, *announced, origin.data())) {
            const MarkerPoints points = decodeMarkerPoints(origin.data());
            FUZZ_CHECK(points.leftCount <= kMaxPointsPerCamera && points.rightCount <= kMaxPointsPerCamera);
        } else {
            for (std::uint8_t b : origin) FUZZ_CHECK(b == kUntouched);
        }
    } else {
        std::array<std::uint8_t, kWifiStatusBytes> status;
        status.fill(kUntouched);
        if (parseWifiStatusFrame(frame, length, status.data())) {
            T_VyxPosStatusInfo info{};
            decodeWifiStatus(status.data(), info);
            FUZZ_CHECK(info.LinkState <= 2);
        } else {
            for (std::uint8_t b : status) FUZZ_CHECK(b == kUntouched);
        }
    }
    return 0;
}
