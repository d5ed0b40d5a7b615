#include "device/DeviceGeometry.h"

namespace vyx::device {

DeviceGeometry defaultGeometry() {
    DeviceGeometry g;
    g.greyWidth = 1280;
    g.greyHeight = 720;
    g.greyPixelBytes = 1;
    g.greyImageBytes = g.greyWidth * g.greyHeight * g.greyPixelBytes;
    g.colorWidth = 1280;
    g.colorHeight = 720;
    g.colorPixelBytes = 2;
    g.colorImageBytes = g.colorWidth * g.colorHeight * g.colorPixelBytes;
    g.transferUnitBytes = 1024;
    g.blockCounts = {225, 225, 60, 60};
    for (std::size_t i = 0; i < g.blockCounts.size(); ++i)
        g.blockBytes[i] = g.blockCounts[i] * g.transferUnitBytes;
    return g;
}

BorderWarningBands warningBandsFor(const DeviceGeometry& geometry) {
    const auto w = static_cast<float>(geometry.greyWidth);
    const auto h = static_cast<float>(geometry.greyHeight);
    BorderWarningBands b;
    b.nearLowX = w / 20.0f;
    b.nearHighX = (w - 1.0f) - w / 20.0f;
    b.nearLowY = h / 20.0f;
    b.nearHighY = (h - 1.0f) - h / 20.0f;
    b.farLowX = w / 10.0f;
    b.farHighX = (w - 1.0f) - w / 10.0f;
    b.farLowY = h / 10.0f;
    b.farHighY = (h - 1.0f) - h / 10.0f;
    return b;
}

}  // namespace vyx::device
