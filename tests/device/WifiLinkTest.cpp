// The Wi-Fi link end to end: the library, through its exported interface,
// against the virtual tracker serving the Wi-Fi module's framing on a
// loopback address.
#include "VyxPositionAPI.h"
#include "sim/MarkerScene.h"
#include "sim/VirtualTracker.h"
#include "support/CommandLog.h"
#include "support/Eventually.h"
#include "support/Loopback.h"
#include "support/SceneSession.h"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

using namespace std::chrono_literals;
using vyx::test::eventually;
using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr E_Interface kWifi = Interface_WiFi;

class WifiLink : public ::testing::Test {
protected:
    void TearDown() override {
        if (handle != nullptr) Vyx_API_Close(&handle);
        tracker.stop();
    }

    int serve(unsigned char host) {
        tracker.setFraming(vyx::sim::LinkFraming::WiFi);
        tracker.start("127.0.0." + std::to_string(host), vyx::test::trackerPort(host));
        if (Vyx_API_Initial(&handle) != RV_SUCCESS) return -100;
        return vyx::test::connectToHost(handle, kWifi, host, &para);
    }

    vyx::sim::VirtualTracker tracker;
    VyxHandle handle = nullptr;
    T_VYXPOS_DATAPARA para{};
    T_MarkerInfo markers{};
    T_VyxPosStatusInfo status{};
};

// Triggered reads, and reads after faults: FaultMatrixTest.cpp.
TEST_F(WifiLink, FreeRunningDeliversReconstructedMarkersFiveFramesToAStatusFrame) {
    ASSERT_EQ(serve(241), RV_SUCCESS);
    EXPECT_EQ(para.MarkerImageWidth, tracker.description().geometry.greyWidth);
    T_ManufactureInfo manufacture{};
    ASSERT_EQ(Vyx_GetManufactureInfo(handle, kWifi, &manufacture), RV_SUCCESS);

    const std::size_t start = tracker.commands().size();
    ASSERT_EQ(Vyx_SetAcquireData(handle, kWifi, DataType_MarkerAndStatus), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return Vyx_GetMarkerInfo(handle, kWifi, &markers) == RV_SUCCESS; }));
    ASSERT_TRUE(eventually([&] { return Vyx_GetStatusInfo(handle, kWifi, &status) == RV_SUCCESS; }));
    ASSERT_EQ(Vyx_SetAcquireData(handle, kWifi, DataType_None), RV_SUCCESS);
    EXPECT_EQ(markers.MarkerNumber, 4u);
    EXPECT_LT(vyx::test::largestMarkerError(markers, vyx::sim::sceneMarkers(markers.ID - 1)), 0.01);
    auto codes = vyx::test::codesSince(tracker, start);
    ASSERT_GE(codes.size(), 6u);
    codes.resize(6);
    EXPECT_EQ(codes, (Bytes{0x0E, 0x0E, 0x0E, 0x0E, 0x0E, 0x0F}));
}

TEST_F(WifiLink, StatusFramesAreDecodedAndSettingsSentAtTheirOwnLength) {
    vyx::sim::MarkerFrame frame;
    frame.status.temperature0Hundredths = -1250;
    frame.status.temperature1Hundredths = 3310;
    frame.status.sensorValue0Hundredths = 4567;
    frame.status.stateByte0 = 0x12;
    frame.status.stateWord = 0xAABBCCDDu;
    frame.status.linkState = 5;
    tracker.setMarkerFrame(frame);
    ASSERT_EQ(serve(242), RV_SUCCESS);
    ASSERT_EQ(Vyx_GetMarkerAndStatusFromHardware(handle, kWifi, &markers, &status), RV_SUCCESS);
    EXPECT_FLOAT_EQ(status.Temperature0, -12.5f);
    EXPECT_FLOAT_EQ(status.Temperature1, 33.1f);
    EXPECT_FLOAT_EQ(status.SensorValue0, 45.67f);
    EXPECT_EQ((std::vector<long long>{status.StateByte0, status.StateWord0, status.StateWord1,
                                      status.LinkState, status.HardwareCheck}),
              (std::vector<long long>{0x12, 0xAABB, 0xCCDD, 2, 0}));

    // What the module does not carry is refused before anything is sent.
    const std::size_t start = tracker.commands().size();
    std::vector<char> image(8);
    EXPECT_EQ(Vyx_SetFlashDelay(handle, kWifi, 1, 2), RV_FAILED);
    EXPECT_EQ(Vyx_SetLCDShowRawPoint(handle, kWifi, true), RV_FAILED);
    EXPECT_EQ(Vyx_SetMarkerParameters(handle, kWifi, 1, 2, 3, 4, 5), RV_FAILED);
    EXPECT_EQ(Vyx_SetAcquireMode(handle, kWifi, AcquireMode_Trigger1), RV_FAILED);
    EXPECT_EQ(Vyx_GetGreyImageDual(handle, kWifi, image.data(), image.data()), RV_FAILED);
    EXPECT_EQ(Vyx_GetColorImageMiddle(handle, kWifi, image.data()), RV_FAILED);
    // The simple setters go out at their own length.
    EXPECT_EQ(Vyx_SetCollisinoDetectLevel(handle, kWifi, 0), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetColorExpTime(handle, kWifi, 100), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetSystemCommand(handle, kWifi, SystemCommand_0), RV_SUCCESS);
    const std::vector<Bytes> expected{{0x23, 0x01}, {0x5A, 100, 0}, {0x20}};
    ASSERT_TRUE(tracker.waitForCommands(start + expected.size(), 2000ms));
    EXPECT_EQ(vyx::test::commandsSince(tracker, start), expected);
}

}  // namespace
