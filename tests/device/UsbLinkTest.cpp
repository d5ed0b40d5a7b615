// The USB link end to end: the library, through its exported interface and
// the real libusb, against the virtual tracker's USB device emulated in this
// process. Runs under umockdev's preload wrapper; the tracker refuses to run
// without it, so no test reaches a real USB device.
#include "VyxPositionAPI.h"
#include "sim/ImagePattern.h"
#include "sim/UsbTracker.h"
#include "support/CommandLog.h"
#include "support/Eventually.h"
#include "support/SceneSession.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

using namespace std::chrono_literals;
using vyx::sim::ImageCamera;
using vyx::test::eventually;
using vyx::test::finishesWithin;
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

    std::vector<Bytes> commandsSince(std::size_t from) const {
        return vyx::test::commandsSince(*tracker, from);
    }
    std::vector<std::uint8_t> codesSince(std::size_t from) const {
        return vyx::test::codesSince(*tracker, from);
    }

    std::unique_ptr<vyx::sim::VirtualUsbTracker> tracker =
        std::make_unique<vyx::sim::VirtualUsbTracker>();
    VyxHandle handle = nullptr;
    T_VYXPOS_DATAPARA para{};
    T_MarkerInfo markers{};
    T_VyxPosStatusInfo status{};
};

TEST_F(UsbLink, DeliversMarkersStatusAndImagesAndSendsSettingsAtTheirOwnLength) {
    const vyx::sim::Scene scene = [] {
        vyx::sim::Scene s = vyx::sim::trackingDemoScene();
        s.strayCentresPerCamera = 0;
        return s;
    }();
    tracker->setMarkerFrameSource(vyx::sim::sceneFrameSource(tracker->description(), scene));
    tracker->setKernelDriverBound(true);
    ASSERT_EQ(connect(), RV_SUCCESS);
    EXPECT_FALSE(tracker->isKernelDriverBound());
    EXPECT_EQ(para.MarkerImageWidth, tracker->description().geometry.greyWidth);
    T_ManufactureInfo manufacture{};
    EXPECT_EQ(Vyx_GetManufactureInfo(handle, kUsb, &manufacture), RV_SUCCESS);

    // Triggered reads reconstruct the scene as on Ethernet.
    for (int k = 0; k < 2; ++k) {
        ASSERT_EQ(Vyx_GetMarkerAndStatusFromHardware(handle, kUsb, &markers, &status), RV_SUCCESS);
        const auto truth = scene.markersAt(markers.ID - 1);
        ASSERT_EQ(markers.MarkerNumber, truth.size());
        EXPECT_LT(vyx::test::largestMarkerError(markers, truth), 0.01);
    }

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
                                      {0x0C, 1},
                                      {0x0F},
                                      {0x0D},
                                      {0x0F},
                                      {0x0C, 0}};
    ASSERT_TRUE(tracker->waitForCommands(start + expected.size(), 2000ms));
    EXPECT_EQ(commandsSince(start), expected);

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
    EXPECT_LT(vyx::test::largestMarkerError(markers, scene.markersAt(markers.ID - 1)), 0.01);
    const auto k = vyx::sim::servedImageIndex(ImageCamera::LeftGrey, left.at(0));
    EXPECT_EQ(left, vyx::sim::expectedImage(ImageCamera::LeftGrey, k, greyBytes));
    EXPECT_EQ(right, vyx::sim::expectedImage(ImageCamera::RightGrey, k, greyBytes));
    auto codes = codesSince(start);
    ASSERT_GE(codes.size(), 6u);
    codes.resize(6);
    EXPECT_EQ(codes, (std::vector<std::uint8_t>{0xA4, 0xA8, 0x0F, 0x04, 0x08, 0x0F}));

    // A colour image read on request, whole USB blocks.
    const std::size_t colourBytes = para.ColorImageWidth * para.ColorImageHeight * 2;
    Bytes colour(colourBytes);
    testing::internal::CaptureStdout();
    const int rc = Vyx_GetColorImageFromHardware(handle, kUsb, reinterpret_cast<char*>(colour.data()));
    const std::string printed = testing::internal::GetCapturedStdout();
    ASSERT_EQ(rc, RV_SUCCESS);
    EXPECT_EQ(colour, vyx::sim::expectedImage(
                          ImageCamera::Colour,
                          vyx::sim::servedImageIndex(ImageCamera::Colour, colour.at(0)), colourBytes));
    EXPECT_NE(printed.find("USBread times: 8\n"), std::string::npos) << printed;
}

TEST_F(UsbLink, ASilentConfigurationIsRetriedAfterTheResetByteThreeTimesInAll) {
    vyx::sim::FaultSettings faults;
    faults.unansweredConfigReads = 3;
    tracker->setFaults(faults);
    EXPECT_EQ(connect(), RV_READ_ERROR);
    std::vector<std::uint8_t> attempts;
    for (std::uint8_t code : codesSince(0))
        if (code == 0x0A || code == 0xEE) attempts.push_back(code);
    EXPECT_EQ(attempts, (std::vector<std::uint8_t>{0x0A, 0xEE, 0x0A, 0xEE, 0x0A}));
    EXPECT_EQ(Vyx_GetMarkerInfo(handle, kUsb, &markers), RV_NOT_CONNECTED);

    // One silent read: the second attempt connects.
    faults.unansweredConfigReads = 1;
    tracker->setFaults(faults);
    const std::size_t start = tracker->commands().size();
    EXPECT_EQ(connect(), RV_SUCCESS);
    attempts.clear();
    for (std::uint8_t code : codesSince(start))
        if (code == 0x0A || code == 0xEE) attempts.push_back(code);
    EXPECT_EQ(attempts, (std::vector<std::uint8_t>{0x0A, 0xEE, 0x0A}));
}

TEST_F(UsbLink, ADeviceVanishingMidTransferStopsAcquisitionAndCloseIsBounded) {
    ASSERT_EQ(connect(), RV_SUCCESS);
    ASSERT_EQ(Vyx_SetAcquireData(handle, kUsb, DataType_MarkerAndGrey), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return Vyx_GetMarkerInfo(handle, kUsb, &markers) == RV_SUCCESS; }));
    tracker->unplug();
    // The next request or read fails, and the error holds.
    ASSERT_TRUE(eventually([&] {
        const int rc = Vyx_GetMarkerInfo(handle, kUsb, &markers);
        return rc == RV_WRITE_ERROR || rc == RV_READ_ERROR;
    }));
    EXPECT_EQ(Vyx_SetCollisinoDetectLevel(handle, kUsb, 3), RV_WRITE_ERROR);
    // Reconnecting to the vanished device fails without waiting on it.
    EXPECT_TRUE(finishesWithin([&] { EXPECT_EQ(connect(), RV_USB_NOT_FOUND); }, 5s));

    // Once back, the device serves again; it vanishes while an image is
    // being transferred, and the handle still closes at once.
    tracker->replug();
    // Under load the first open after a replug has once failed with 1, as on
    // a host that has not finished enumerating the device: try again briefly.
    ASSERT_TRUE(eventually([&] { return connect() == RV_SUCCESS; }, 3s));
    ASSERT_EQ(Vyx_SetAcquireData(handle, kUsb, DataType_GreyImages), RV_SUCCESS);
    const std::size_t start = tracker->commands().size();
    ASSERT_TRUE(tracker->waitForCommands(start + 3, 2000ms));
    tracker->unplug();
    EXPECT_TRUE(finishesWithin([&] { Vyx_API_Close(&handle); }, 2s));
    EXPECT_EQ(handle, nullptr);
}

}  // namespace
