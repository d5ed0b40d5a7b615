// The Ethernet link end to end: the library, through its exported interface,
// against the virtual tracker on its own loopback address. What the link does
// when the tracker misbehaves, bad configuration checksums included, is the
// fault matrix's (FaultMatrixTest.cpp).
#include "VyxPositionAPI.h"
#include "sim/ImagePattern.h"
#include "sim/VirtualTracker.h"
#include "support/CommandLog.h"
#include "support/Eventually.h"
#include "support/Loopback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using vyx::sim::FaultSettings;
using vyx::sim::ImageCamera;

namespace {

using Bytes = std::vector<std::uint8_t>;
using vyx::test::eventually;
constexpr E_Interface kEth = Interface_Ethernet;

// One virtual tracker on 127.0.0.<host> and one engine aimed at it.
class EthernetLink : public ::testing::Test {
protected:
    void TearDown() override {
        if (handle != nullptr) Vyx_API_Close(&handle);
        tracker.stop();
    }

    void startTracker(unsigned char host, const vyx::sim::DeviceDescription& description =
                                              vyx::sim::defaultDescription()) {
        hostByte = host;
        tracker.setDescription(description);
        tracker.start("127.0.0." + std::to_string(host), vyx::test::trackerPort(host));
    }

    int connect() {
        if (handle == nullptr && Vyx_API_Initial(&handle) != RV_SUCCESS) return -100;
        para = T_VYXPOS_DATAPARA{};
        return vyx::test::connectToHost(handle, kEth, hostByte, &para);
    }

    vyx::sim::VirtualTracker tracker;
    VyxHandle handle = nullptr;
    T_VYXPOS_DATAPARA para{};
    T_VyxPosStatusInfo status{};
    unsigned char hostByte = 0;
};

Bytes padded(Bytes packet) {
    packet.resize(10, 0);
    return packet;
}

}  // namespace

// Each model on a fresh engine: its code decides the index and the geometry,
// and the manufacture record, the model text (cut to 20, or the
// configuration's own without a model text reply, its length clamped) and
// the addresses come through.
TEST_F(EthernetLink, ConnectDecodesModelGeometryManufactureRecordAndAddresses) {
    // The MAC address: from an 18-character text, characters 7, 8, 15-17 as
    // digits and the model's byte (DeviceModelTest); else the default.
    const char* const usual = "00:0A:35:00:01:02";
    const struct {
        const char* modelText;
        std::uint32_t index, greyWidth, greyHeight;
        const char* mac;
        bool textReply = true;  // false: none, and a length byte of 25
    } cases[] = {{"ZR-D87001-VT-00042", 11, 1280, 720, "00:0A:35:44:04:12"},  // 01042, 'D'
                 {"QX-PRO-12abcdefg34", 2, 1280, 720, "00:0A:35:50:31:5A"},   // 12634, 'P'
                 {"QX-BAS-0001", 1, 1280, 720, usual},
                 {"ZR-C547-A", 6, 2472, 2064, usual},
                 {"ZR-C854-B", 10, 1236, 1032, usual},
                 {"ZR-D640", 17, 2472, 2064, usual},
                 {"XY-UNKNOWN", 100, 1280, 720, usual},  // no known code: defaults
                 {"QX-BAS-ABCDEFGHIJKLMN", 1, 1280, 720, usual, false}};
    startTracker(10);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.modelText);
        auto description = vyx::sim::descriptionForModel(c.modelText);
        description.manufactured = {2025, 3, 14};
        description.deviceIP = {127, 0, 0, 77};
        description.answersModelTextRequest = c.textReply;
        if (!c.textReply) description.modelLengthOverride = 25;
        tracker.setDescription(description);
        if (handle != nullptr) Vyx_API_Close(&handle);
        ASSERT_EQ(connect(), RV_SUCCESS);
        const std::string model = std::string(c.modelText).substr(0, 20);
        EXPECT_EQ(std::string(para.DeviceModel, strnlen(para.DeviceModel, 20)), model);
        EXPECT_EQ((std::vector<std::uint32_t>{para.DeviceType, para.MarkerImageWidth,
                                              para.MarkerImageHeight, para.MarkerImagePixelBytes,
                                              para.ColorImagePixelBytes}),
                  (std::vector<std::uint32_t>{c.index, c.greyWidth, c.greyHeight, 1, 2}));
        T_ManufactureInfo info{};
        ASSERT_EQ(Vyx_GetManufactureInfo(handle, kEth, &info), RV_SUCCESS);
        EXPECT_EQ((std::vector<int>{info.ManufactureYear, info.ManufactureMonth,
                                    info.ManufactureDay, info.DeviceModelLength}),
                  (std::vector<int>{2025, 3, 14, static_cast<int>(model.size())}));
        EXPECT_EQ(std::string(info.DeviceModel, model.size()), model);
        char mac[18] = {};
        ASSERT_EQ(Vyx_GetVyxPositonMacAddress(handle, mac), RV_SUCCESS);
        EXPECT_STREQ(mac, c.mac);
        // The device's address comes from the configuration of a known model;
        // setting it does not change the address connected to.
        unsigned char ip[4] = {1, 1, 1, 1};
        ASSERT_EQ(Vyx_GetVyxPositionIP(handle, kEth, &ip[0], &ip[1], &ip[2], &ip[3]), RV_SUCCESS);
        EXPECT_EQ(Bytes(ip, ip + 4), (c.index == 100 ? Bytes{0, 0, 0, 0} : Bytes{127, 0, 0, 77}));
        ASSERT_EQ(Vyx_SetVyxPositionIP(handle, kEth, 127, 0, 0, 78), RV_SUCCESS);
        ASSERT_EQ(Vyx_GetEthernetConnectIP(handle, &ip[0], &ip[1], &ip[2], &ip[3]), RV_SUCCESS);
        EXPECT_EQ(Bytes(ip, ip + 4), (Bytes{127, 0, 0, 10}));
    }
    // The configuration fetch goes out in this order.
    const auto codes = vyx::test::codesSince(tracker, 0);
    const Bytes order{0xF5, 0x0A, 0x1A, 0xF8};
    EXPECT_NE(std::search(codes.begin(), codes.end(), order.begin(), order.end()), codes.end());
    T_ManufactureInfo info{};
    EXPECT_EQ(Vyx_GetManufactureInfo(handle, Interface_USB, &info), RV_NOT_CONNECTED);
    EXPECT_EQ(Vyx_GetManufactureInfo(handle, static_cast<E_Interface>(7), &info), RV_FAILED);
}

// A block that never arrives cannot spoil the connect with its checksum.
TEST_F(EthernetLink, ReconnectingStopsAcquisitionAndAnAbsentBlockIsNotChecked) {
    startTracker(13);
    ASSERT_EQ(connect(), RV_SUCCESS);
    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_MarkerAndStatus), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return tracker.markerRequests() > 2; }));
    FaultSettings faults;
    faults.omitSecondConfigBlock = faults.noLongForm = faults.badChecksumBlock2 = true;
    tracker.setFaults(faults);
    ASSERT_EQ(connect(), RV_SUCCESS);
    EXPECT_TRUE(tracker.waitForConnections(2, 2000ms));
    EXPECT_EQ(para.MarkerImageWidth, 1280u);
    const auto requests = tracker.markerRequests();
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(tracker.markerRequests(), requests) << "re-initialising stops acquisition";
}

TEST_F(EthernetLink, SettersAndModeSwitchesPutTheirPacketsOnTheWire) {
    // Index 1 clamps the dual exposure to 16..16384.
    startTracker(15, vyx::sim::descriptionForModel("QX-BAS-7"));
    ASSERT_EQ(connect(), RV_SUCCESS);
    const std::size_t start = tracker.commands().size();

    EXPECT_EQ(Vyx_SetDualExpTime(handle, kEth, 10), RV_SUCCESS);             // -> 16
    EXPECT_EQ(Vyx_SetDualExpTimeByDistance(handle, kEth, 2000), RV_SUCCESS);  // -> 1150
    EXPECT_EQ(Vyx_SetColorExpTime(handle, kEth, 9000), RV_SUCCESS);           // -> 8192
    EXPECT_EQ(Vyx_SetCollisinoDetectLevel(handle, kEth, 0), RV_SUCCESS);      // -> 1
    EXPECT_EQ(Vyx_SetCollisinoDetectLevel(handle, kEth, 200), RV_SUCCESS);    // -> 10
    EXPECT_EQ(Vyx_SetFlashDelay(handle, kEth, 12, 34), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetLCDShowRawPoint(handle, kEth, true), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetMarkerParameters(handle, kEth, 10, 20, 5, 4000, 30), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetSystemCommand(handle, kEth, SystemCommand_9), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetVyxPositionIP(handle, kEth, 127, 0, 0, 99), RV_SUCCESS);
    // Trigger mode sends the mode and reads one frame.
    EXPECT_EQ(Vyx_SetAcquireMode(handle, kEth, AcquireMode_Trigger1), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetAcquireMode(handle, kEth, AcquireMode_FreeRunning), RV_SUCCESS);
    // Refusals send nothing, and a mask without a frame kind reads nothing.
    EXPECT_EQ(Vyx_SetFlashDelay(handle, kEth, 256, 0), RV_FAILED);
    EXPECT_EQ(Vyx_SetMarkerParameters(handle, kEth, 0, 0, 50, 10, 1), RV_FAILED);
    EXPECT_EQ(Vyx_SetSystemCommand(handle, kEth, SystemCommand_15), RV_FAILED);
    EXPECT_EQ(Vyx_SetFlashDelay(handle, Interface_WiFi, 1, 1), RV_FAILED);
    EXPECT_EQ(Vyx_SetDualExpTime(handle, Interface_USB, 100), RV_NOT_CONNECTED);
    EXPECT_EQ(Vyx_SetAcquireMode(handle, Interface_WiFi, AcquireMode_FreeRunning), RV_FAILED);
    EXPECT_EQ(Vyx_SetAcquireData(handle, Interface_USB, DataType_MarkerAndStatus), RV_NOT_CONNECTED);
    EXPECT_EQ(Vyx_SetAcquireData(handle, Interface_WiFi, DataType_MarkerAndStatus), RV_NOT_CONNECTED);
    EXPECT_EQ(Vyx_SetAcquireData(handle, static_cast<E_Interface>(5), DataType_All), RV_FAILED);
    EXPECT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_MaskBit0), RV_SUCCESS);

    const std::vector<Bytes> expected{
        padded({0x62, 16, 0, 16, 0}), padded({0x62, 0x7E, 0x04, 0x7E, 0x04}),
        padded({0x5A, 0x00, 0x20}),   padded({0x23, 1}),
        padded({0x23, 10}),           padded({0x63, 12, 34, 0x63, 0xFE}),
        padded({0xA0, 0x0A, 1}),      padded({0x80, 0xFA, 0x05, 0x64, 10, 30, 30, 20}),
        padded({0x4D}),               padded({0x90, 127, 0, 0, 99, 0x90, 0xFE}),
        {0x0C, 0x01},                 {0x0F},
        {0x0C, 0x00}};
    ASSERT_TRUE(tracker.waitForCommands(start + expected.size(), 2000ms));
    std::this_thread::sleep_for(50ms);  // nothing further may arrive
    EXPECT_EQ(vyx::test::commandsSince(tracker, start), expected);
}

TEST_F(EthernetLink, StatusIsDecodedInTheModelsLayoutAndDeliveredOnce) {
    startTracker(17, vyx::sim::descriptionForModel("QX-BAS-1"));
    vyx::sim::MarkerFrame frame;
    // Temperatures, sensor values 0-1, second-layout 2-3, first-layout 2-3,
    // link state, state bytes, state word, hardware check lanes.
    frame.status = {-1250, 3310, 4567, 100, 1000, 2000, -3, 7, 5, 0x12, 0x34, 0xAABBCCDDu,
                    {0, 800 * 16, 150 * 16, 500 * 16}};
    tracker.setMarkerFrame(frame);
    ASSERT_EQ(connect(), RV_SUCCESS);
    EXPECT_EQ(Vyx_GetStatusInfo(handle, kEth, &status), RV_NO_NEW_FRAME);
    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_MarkerAndStatus), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return tracker.markerRequests() >= 3; }));
    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_None), RV_SUCCESS);

    ASSERT_EQ(Vyx_GetStatusInfo(handle, kEth, &status), RV_SUCCESS);
    EXPECT_FLOAT_EQ(status.Temperature0, -12.5f);
    EXPECT_FLOAT_EQ(status.Temperature1, 33.1f);
    EXPECT_FLOAT_EQ(status.SensorValue0, 45.67f);
    EXPECT_FLOAT_EQ(status.SensorValue1, 1.0f);
    EXPECT_EQ((std::vector<long long>{status.SensorValue2, status.SensorValue3, status.StateByte0,
                                      status.StateByte1, status.StateWord0, status.StateWord1,
                                      status.LinkState, status.HardwareCheck}),
              (std::vector<long long>{-3, 7, 0x12, 0x34, 0xAABB, 0xCCDD, 2, 3}));
    // Acquisition has stopped: the same frame is not delivered twice.
    EXPECT_EQ(Vyx_GetStatusInfo(handle, kEth, &status), RV_NO_NEW_FRAME);

    // A second-layout model takes sensor values 2 and 3 from elsewhere.
    tracker.setDescription(vyx::sim::descriptionForModel("ZR-C544"));
    ASSERT_EQ(connect(), RV_SUCCESS);
    ASSERT_EQ(para.DeviceType, 7u);
    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_MarkerAndStatus), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return Vyx_GetStatusInfo(handle, kEth, &status) == RV_SUCCESS; }));
    EXPECT_EQ(status.SensorValue2, 1000);
    EXPECT_EQ(status.SensorValue3, 2000);
}

TEST_F(EthernetLink, ImagesArriveWholeAndOnceAndInterleaveWithMarkerFrames) {
    startTracker(19);
    ASSERT_EQ(connect(), RV_SUCCESS);
    const std::size_t greyBytes = para.MarkerImageWidth * para.MarkerImageHeight;
    const std::size_t colourBytes = para.ColorImageWidth * para.ColorImageHeight * 2;
    Bytes left(greyBytes), right(greyBytes), colour(colourBytes);
    const auto grey = [&] {
        return Vyx_GetGreyImageDual(handle, kEth, reinterpret_cast<char*>(left.data()),
                                    reinterpret_cast<char*>(right.data()));
    };
    const auto middle = [&] {
        return Vyx_GetColorImageMiddle(handle, kEth, reinterpret_cast<char*>(colour.data()));
    };

    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_GreyImages), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return grey() == RV_SUCCESS; }));
    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_None), RV_SUCCESS);
    const auto k = vyx::sim::servedImageIndex(ImageCamera::LeftGrey, left.at(0));
    EXPECT_EQ(left, vyx::sim::expectedImage(ImageCamera::LeftGrey, k, greyBytes));
    EXPECT_EQ(right, vyx::sim::expectedImage(ImageCamera::RightGrey, k, greyBytes));
    // After the stop at most the image completed meanwhile is new; then nothing.
    grey();
    EXPECT_EQ(grey(), RV_NO_NEW_FRAME);

    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_ColorImage), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return middle() == RV_SUCCESS; }));
    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_None), RV_SUCCESS);
    EXPECT_EQ(colour, vyx::sim::expectedImage(
                          ImageCamera::Colour,
                          vyx::sim::servedImageIndex(ImageCamera::Colour, colour.at(0)), colourBytes));
    middle();
    EXPECT_EQ(middle(), RV_NO_NEW_FRAME);
    for (const auto& c : tracker.commands()) EXPECT_NE(c.at(0), 0x0F) << "image masks read no markers";

    // Markers with grey images: left and right requests per block, and a
    // marker request after blocks 2, 4, 6, ... of the new image.
    const std::size_t start = tracker.commands().size();
    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_MarkerAndGrey), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return tracker.commands().size() > start + 12; }));
    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_None), RV_SUCCESS);
    std::vector<std::uint8_t> codes = vyx::test::codesSince(tracker, start);
    codes.resize(12);
    EXPECT_EQ(codes, (std::vector<std::uint8_t>{0xA4, 0xA8, 0x04, 0x08, 0x04, 0x08, 0x0F, 0x04,
                                                0x08, 0x04, 0x08, 0x0F}));
}

TEST_F(EthernetLink, ConnectToAnAddressWithoutTrackerFails) {
    hostByte = 28;  // nothing listens there
    testing::internal::CaptureStdout();
    const int rc = connect();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(rc, RV_SUCCESS);
    EXPECT_NE(printed.find("connect error"), std::string::npos);
    EXPECT_EQ(Vyx_GetStatusInfo(handle, kEth, &status), RV_NOT_CONNECTED);
}
