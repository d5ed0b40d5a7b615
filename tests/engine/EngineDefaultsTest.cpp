// A new engine starts from the documented device defaults, before any
// configuration has been read from a tracker.
#include "engine/VyxPosFunc.h"

#include <gtest/gtest.h>

TEST(EngineDefaults, GeometryBeforeAnyConfiguration) {
    VyxPosFunc engine;
    const vyx::device::DeviceGeometry& g = engine.geometry();
    EXPECT_EQ(g.greyWidth, 1280u);
    EXPECT_EQ(g.greyHeight, 720u);
    EXPECT_EQ(g.greyImageBytes, 921600u);
    EXPECT_EQ(g.colorWidth, 1280u);
    EXPECT_EQ(g.colorHeight, 720u);
    EXPECT_EQ(g.colorImageBytes, 1843200u);
    EXPECT_EQ(g.blockBytes, (std::array<std::uint32_t, 4>{230400, 230400, 61440, 61440}));
    // The colour image travels as exactly 15 Ethernet blocks of two half-blocks.
    EXPECT_EQ(g.colorImageBytes, 15u * 2u * g.blockBytes[3]);
    EXPECT_EQ(engine.deviceModelIndex(), 100u);
    EXPECT_DOUBLE_EQ(engine.depthLimit(), 3000.0);
    EXPECT_FALSE(engine.connected.load());
    EXPECT_TRUE(engine.isRunning());
}

TEST(EngineDefaults, BorderWarningBandsAreFiveAndTenPercentOfTheImage) {
    VyxPosFunc engine;
    const vyx::device::BorderWarningBands& b = engine.warningBands();
    EXPECT_FLOAT_EQ(b.nearLowX, 64.0f);
    EXPECT_FLOAT_EQ(b.nearHighX, 1279.0f - 64.0f);
    EXPECT_FLOAT_EQ(b.nearLowY, 36.0f);
    EXPECT_FLOAT_EQ(b.nearHighY, 719.0f - 36.0f);
    EXPECT_FLOAT_EQ(b.farLowX, 128.0f);
    EXPECT_FLOAT_EQ(b.farHighX, 1279.0f - 128.0f);
    EXPECT_FLOAT_EQ(b.farLowY, 72.0f);
    EXPECT_FLOAT_EQ(b.farHighY, 719.0f - 72.0f);
}
