// A new engine starts from the documented device defaults, before any
// configuration has been read from a tracker.
#include "engine/VyxPosFunc.h"

#include <gtest/gtest.h>

#include <vector>

TEST(EngineDefaults, GeometryAndBorderWarningBandsBeforeAnyConfiguration) {
    VyxPosFunc engine;
    const vyx::device::DeviceGeometry& g = engine.geometry();
    EXPECT_EQ((std::vector<std::uint32_t>{g.greyWidth, g.greyHeight, g.greyImageBytes,
                                          g.colorWidth, g.colorHeight, g.colorImageBytes}),
              (std::vector<std::uint32_t>{1280, 720, 921600, 1280, 720, 1843200}));
    // The colour image travels as exactly 15 Ethernet blocks of two half-blocks.
    EXPECT_EQ(g.blockBytes, (std::array<std::uint32_t, 4>{230400, 230400, 61440, 61440}));
    EXPECT_EQ(engine.deviceModelIndex(), 100u);
    EXPECT_DOUBLE_EQ(engine.depthLimit(), 3000.0);
    EXPECT_FALSE(engine.connected.load());
    EXPECT_TRUE(engine.isRunning());

    // Near bands 5 % and far bands 10 % in from each border of the 1280 x 720 image.
    const vyx::device::BorderWarningBands& b = engine.warningBands();
    EXPECT_EQ((std::vector<float>{b.nearLowX, b.nearHighX, b.nearLowY, b.nearHighY, b.farLowX,
                                  b.farHighX, b.farLowY, b.farHighY}),
              (std::vector<float>{64, 1215, 36, 683, 128, 1151, 72, 647}));
}
