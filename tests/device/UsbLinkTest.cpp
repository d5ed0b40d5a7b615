// The USB link end to end: the library, through its exported interface and
// the real libusb, against the virtual tracker's USB device emulated in this
// process. Runs under umockdev's preload wrapper; the tracker refuses to run
// without it, so no test reaches a real USB device. Triggered reads, images
// on request, the kernel driver's detach and every fault: FaultMatrixTest.cpp.
#include "VyxPositionAPI.h"
#include "sim/ImagePattern.h"
#include "sim/MarkerScene.h"
#include "sim/UsbTracker.h"
#include "support/CommandLog.h"
#include "support/Eventually.h"
#include "support/SceneSession.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <vector>

using namespace std::chrono_literals;
using vyx::sim::ImageCamera;
using vyx::test::eventually;
using Bytes = std::vector<std::uint8_t>;

namespace {

constexpr E_Interface kUsb = Interface_USB;

class UsbLink : public ::testing::Test {
protected:
    // The tracker outlives the engine: the engine's libusb must end before
    // the emulated device goes.
    void TearDown() override {
        if (handle != nullptr) Vyx_API_Close(&handle);
        tracker.reset();
    }

    int connect() {
        if (handle == nullptr && Vyx_API_Initial(&handle) != RV_SUCCESS) return -100;
        return Vyx_ConnectDevice(handle, kUsb, &para);
    }

    std::unique_ptr<vyx::sim::VirtualUsbTracker> tracker =
        std::make_unique<vyx::sim::VirtualUsbTracker>();
    VyxHandle handle = nullptr;
    T_VYXPOS_DATAPARA para{};
    T_MarkerInfo markers{};
    T_VyxPosStatusInfo status{};
};

TEST_F(UsbLink, SendsSettingsAtTheirOwnLengthAndInterleavesMarkersWithGreyImages) {
    ASSERT_EQ(connect(), RV_SUCCESS);
    EXPECT_EQ(para.MarkerImageWidth, tracker->description().geometry.greyWidth);
    T_ManufactureInfo manufacture{};
    EXPECT_EQ(Vyx_GetManufactureInfo(handle, kUsb, &manufacture), RV_SUCCESS);

    // Settings go out at their own length, system commands as ten bytes;
    // the mode gets no answer, and a trigger mode starts with one
    // triggered frame.
    std::size_t start = tracker->commands().size();
    EXPECT_EQ(Vyx_SetDualExpTime(handle, kUsb, 300), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetFlashDelay(handle, kUsb, 1, 2), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetMarkerParameters(handle, kUsb, 10, 20, 30, 4000, 7), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetSystemCommand(handle, kUsb, SystemCommand_0), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetAcquireMode(handle, kUsb, AcquireMode_Trigger1), RV_SUCCESS);
    ASSERT_EQ(Vyx_GetMarkerAndStatusFromHardware(handle, kUsb, &markers, &status), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetAcquireMode(handle, kUsb, AcquireMode_FreeRunning), RV_SUCCESS);
    const std::vector<Bytes> expected{{0x62, 0x2C, 0x01, 0x2C, 0x01},
                                      {0x63, 1, 2, 0x63, 0xFE},
                                      {0x80, 0xFA, 0x05, 0x64, 10, 7, 7, 6},
                                      {0x20, 0, 0, 0, 0, 0, 0, 0, 0, 0},
                                      {0x0C, 1}, {0x0F}, {0x0D}, {0x0F}, {0x0C, 0}};
    ASSERT_TRUE(tracker->waitForCommands(start + expected.size(), 2000ms));
    EXPECT_EQ(vyx::test::commandsSince(*tracker, start), expected);

    // Free-running markers with grey images: left and right block of each
    // block number, then a marker frame.
    const std::size_t greyBytes = para.MarkerImageWidth * para.MarkerImageHeight;
    Bytes left(greyBytes), right(greyBytes);
    start = tracker->commands().size();
    ASSERT_EQ(Vyx_SetAcquireData(handle, kUsb, DataType_MarkerAndGrey), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] {
        return Vyx_GetGreyImageDual(handle, kUsb, reinterpret_cast<char*>(left.data()),
                                    reinterpret_cast<char*>(right.data())) == RV_SUCCESS;
    }));
    ASSERT_TRUE(eventually([&] { return Vyx_GetMarkerInfo(handle, kUsb, &markers) == RV_SUCCESS; }));
    ASSERT_TRUE(eventually([&] { return Vyx_GetStatusInfo(handle, kUsb, &status) == RV_SUCCESS; }));
    ASSERT_EQ(Vyx_SetAcquireData(handle, kUsb, DataType_None), RV_SUCCESS);
    EXPECT_LT(vyx::test::largestMarkerError(markers, vyx::sim::sceneMarkers(markers.ID - 1)), 0.01);
    const auto k = vyx::sim::servedImageIndex(ImageCamera::LeftGrey, left.at(0));
    EXPECT_EQ(left, vyx::sim::expectedImage(ImageCamera::LeftGrey, k, greyBytes));
    EXPECT_EQ(right, vyx::sim::expectedImage(ImageCamera::RightGrey, k, greyBytes));
    auto codes = vyx::test::codesSince(*tracker, start);
    ASSERT_GE(codes.size(), 6u);
    codes.resize(6);
    EXPECT_EQ(codes, (Bytes{0xA4, 0xA8, 0x0F, 0x04, 0x08, 0x0F}));

    // Writes to a device that vanished fail.
    tracker->unplug();
    EXPECT_EQ(Vyx_SetCollisinoDetectLevel(handle, kUsb, 3), RV_WRITE_ERROR);
}

// Two silent configuration reads: the third attempt, each after the reset
// byte, connects (with three silent reads the connect fails with 3: the
// fault matrix's USB NoConfigReply cell).
TEST_F(UsbLink, ASilentConfigurationIsRetriedAfterTheResetByteThreeTimesInAll) {
    vyx::sim::FaultSettings faults;
    faults.unansweredConfigReads = 2;
    tracker->setFaults(faults);
    EXPECT_EQ(connect(), RV_SUCCESS);
    Bytes attempts;
    for (std::uint8_t code : vyx::test::codesSince(*tracker, 0))
        if (code == 0x0A || code == 0xEE) attempts.push_back(code);
    EXPECT_EQ(attempts, (Bytes{0x0A, 0xEE, 0x0A, 0xEE, 0x0A}));
}

}  // namespace
