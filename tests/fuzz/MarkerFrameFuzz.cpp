// A marker and status frame as a receiver may get it: any bytes, any length,
// decoded and reconstructed with the default device's camera model.
#include "FuzzSupport.h"

#include "camera/CameraParameters.h"
#include "camera/MarkerReconstruction.h"
#include "camera/PairMatching.h"
#include "camera/StereoCompensation.h"
#include "device/WireProtocol.h"
#include "sim/ConfigurationImage.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

using namespace vyx::device;

namespace {

const StereoWorkingModel& defaultModel() {
    static const StereoWorkingModel model = [] {
        const auto config = vyx::sim::encodeShortConfiguration(vyx::sim::defaultDescription());
        CameraParameterBlock block;
        block.configDataMode = 1024;
        block.setCamParam(reinterpret_cast<const char*>(config.data()));
        StereoWorkingModel m;
        CalculateSysPara(block, 25.0, m);
        CalculateMlrRT_SEF(m);
        return m;
    }();
    return model;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::array<std::uint8_t, kMarkerFrameBytes> frame{};
    std::memcpy(frame.data(), data, std::min(size, frame.size()));
    FUZZ_CHECK(!isValidMarkerFrame(frame.data(), size) || size == kMarkerFrameBytes);

    const std::uint8_t* origin = frame.data() + kMarkerOriginOffset;
    const MarkerPoints points = decodeMarkerPoints(origin);
    FUZZ_CHECK(points.leftCount <= kMaxPointsPerCamera && points.rightCount <= kMaxPointsPerCamera);
    frameIdAt(origin);
    isOverLimit(origin);

    // Reconstruction costs the square of the point counts; a few dozen
    // points per camera reach every branch at a useful rate.
    constexpr std::size_t kReconstructed = 24;
    T_MarkerInfo markers{};
    reconstructMarkers(points.left.data(), static_cast<int>(std::min(points.leftCount, kReconstructed)),
                       points.right.data(), static_cast<int>(std::min(points.rightCount, kReconstructed)),
                       defaultModel(),
                       pairThresholdForModel(11, -1), 5000.0, markers);
    FUZZ_CHECK(markers.MarkerNumber <= VYX_MAX_MARKERS);
    for (std::uint32_t i = 0; i < markers.MarkerNumber; ++i)
        for (double v : markers.MarkerCoordinate[i]) FUZZ_CHECK(std::isfinite(v));

    for (const StatusLayout layout : {StatusLayout::First, StatusLayout::Second, StatusLayout::None}) {
        T_VyxPosStatusInfo status{};
        decodeStatus(frame.data(), layout, status);
        FUZZ_CHECK(status.LinkState <= 2 && status.HardwareCheck <= 7);
    }
    return 0;
}
