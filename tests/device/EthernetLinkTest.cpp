// The Ethernet link end to end: the library, through its exported interface,
// against the virtual tracker on its own loopback address.
#include "VyxPositionAPI.h"
#include "sim/VirtualTracker.h"
#include "support/Eventually.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using vyx::sim::VirtualTracker;

namespace {

using Bytes = std::vector<std::uint8_t>;

using vyx::test::eventually;

// Runs `action` on its own thread and reports whether it finished within
// `limit`: a watchdog against hangs, not a speed measurement. A hung action
// is left behind (the test fails anyway).
bool finishesWithin(std::function<void()> action, std::chrono::milliseconds limit) {
    auto done = std::make_shared<std::promise<void>>();
    auto future = done->get_future();
    std::thread([action = std::move(action), done] {
        action();
        done->set_value();
    }).detach();
    return future.wait_for(limit) == std::future_status::ready;
}

// One virtual tracker on 127.0.0.<host> port 7 and one engine aimed at it.
class EthernetLink : public ::testing::Test {
protected:
    void TearDown() override {
        if (handle != nullptr) Vyx_API_Close(&handle);
        tracker.stop();
    }

    void startTracker(unsigned char host, vyx::sim::DeviceDescription description =
                                              vyx::sim::defaultDescription()) {
        hostByte = host;
        tracker.setDescription(description);
        tracker.start("127.0.0." + std::to_string(host), 7);
    }

    int connect() {
        if (handle == nullptr && Vyx_API_Initial(&handle) != RV_SUCCESS) return -100;
        Vyx_SetEthernetConnectIP(handle, 127, 0, 0, hostByte);
        para = T_VYXPOS_DATAPARA{};
        return Vyx_ConnectDevice(handle, Interface_Ethernet, &para);
    }

    // Commands logged after `from`, as packets.
    std::vector<Bytes> commandsSince(std::size_t from) const {
        const auto all = tracker.commands();
        return {all.begin() + static_cast<long>(std::min(from, all.size())), all.end()};
    }

    static Bytes padded(Bytes packet) {
        packet.resize(10, 0);
        return packet;
    }

    VirtualTracker tracker;
    VyxHandle handle = nullptr;
    T_VYXPOS_DATAPARA para{};
    unsigned char hostByte = 0;
};

}  // namespace

TEST_F(EthernetLink, ConnectReadsTheConfigurationAndFillsTheDataParameters) {
    startTracker(10);
    ASSERT_EQ(connect(), RV_SUCCESS);
    const std::string model = vyx::sim::kDefaultModelText;
    EXPECT_NE(para.DeviceType, 100u);
    EXPECT_EQ(para.MarkerImageWidth, 1280u);
    EXPECT_EQ(para.MarkerImageHeight, 720u);
    EXPECT_EQ(para.MarkerImagePixelBytes, 1u);
    EXPECT_EQ(para.ColorImagePixelBytes, 2u);
    EXPECT_EQ(std::string(para.DeviceModel, strnlen(para.DeviceModel, 20)), model.substr(0, 20));
    // The configuration fetch went out in its documented order.
    const auto log = tracker.commands();
    std::vector<std::uint8_t> codes;
    for (const auto& c : log) codes.push_back(c.at(0));
    const std::vector<std::uint8_t> sequence{0xF5, 0x0A, 0x1A, 0xF8};
    EXPECT_NE(std::search(codes.begin(), codes.end(), sequence.begin(), sequence.end()), codes.end());
}

struct ModelCase {
    const char* modelText;
    std::uint32_t index;
    std::uint32_t greyWidth;
    std::uint32_t greyHeight;
};

class EthernetModels : public EthernetLink, public ::testing::WithParamInterface<ModelCase> {};

TEST_P(EthernetModels, ModelCodeDecidesIndexAndGeometry) {
    const ModelCase& c = GetParam();
    auto description = vyx::sim::descriptionForModel(c.modelText);
    startTracker(static_cast<unsigned char>(40 + c.index % 50), description);
    ASSERT_EQ(connect(), RV_SUCCESS);
    EXPECT_EQ(para.DeviceType, c.index);
    EXPECT_EQ(para.MarkerImageWidth, c.greyWidth);
    EXPECT_EQ(para.MarkerImageHeight, c.greyHeight);
    EXPECT_EQ(std::string(para.DeviceModel, strnlen(para.DeviceModel, 20)),
              std::string(c.modelText).substr(0, 20));
}

INSTANTIATE_TEST_SUITE_P(
    ModelTable, EthernetModels,
    ::testing::Values(ModelCase{"QX-BAS-0001", 1, 1280, 720},
                      ModelCase{"ZR-C547-A", 6, 2472, 2064},
                      ModelCase{"ZR-C854-B", 10, 1236, 1032},
                      ModelCase{"ZR-D640", 17, 2472, 2064},
                      // No known code: the defaults stand.
                      ModelCase{"XY-UNKNOWN", 100, 1280, 720}),
    [](const ::testing::TestParamInfo<ModelCase>& modelCase) {
        return "index" + std::to_string(modelCase.param.index);
    });

TEST_F(EthernetLink, ManufactureRecordAndMacAddress) {
    auto description = vyx::sim::defaultDescription();
    // 18 characters: digits for the MAC are read at positions 7, 8, 15, 16, 17.
    description.modelText = "QX-PRO-12abcdefg345";
    description.modelText.resize(18);  // "QX-PRO-12abcdefg34"
    description.modelTextReply = description.modelText;
    description.manufactured = {2025, 3, 14};
    startTracker(11, description);
    ASSERT_EQ(connect(), RV_SUCCESS);
    EXPECT_EQ(para.DeviceType, 2u);

    T_ManufactureInfo info{};
    ASSERT_EQ(Vyx_GetManufactureInfo(handle, Interface_Ethernet, &info), RV_SUCCESS);
    EXPECT_EQ(info.ManufactureYear, 2025);
    EXPECT_EQ(info.ManufactureMonth, 3);
    EXPECT_EQ(info.ManufactureDay, 14);
    EXPECT_EQ(info.DeviceModelLength, 18);
    EXPECT_EQ(std::string(info.DeviceModel, 18), "QX-PRO-12abcdefg34");

    // Characters 7, 8, 15, 16, 17 are '1', '2', 'g', '3', '4': digits 1, 2,
    // 6 (letters stand for digits), 3, 4, so N = 12634 = 0x315A. The model
    // byte of index 2 is the text's fourth character, 'P' = 0x50.
    char mac[18] = {};
    ASSERT_EQ(Vyx_GetVyxPositonMacAddress(handle, mac), RV_SUCCESS);
    EXPECT_STREQ(mac, "00:0A:35:50:31:5A");
    // USB and Wi-Fi are not open.
    EXPECT_EQ(Vyx_GetManufactureInfo(handle, Interface_USB, &info), RV_NOT_CONNECTED);
    EXPECT_EQ(Vyx_GetManufactureInfo(handle, static_cast<E_Interface>(7), &info), RV_FAILED);
}

TEST_F(EthernetLink, ModelLengthByteAbove20IsClamped) {
    auto description = vyx::sim::defaultDescription();
    description.modelText = "QX-BAS-ABCDEFGHIJKLMN";  // 21 characters, cut to 20 on the wire
    description.modelLengthOverride = 25;
    description.answersModelTextRequest = false;
    startTracker(12, description);
    ASSERT_EQ(connect(), RV_SUCCESS);
    T_ManufactureInfo info{};
    ASSERT_EQ(Vyx_GetManufactureInfo(handle, Interface_Ethernet, &info), RV_SUCCESS);
    EXPECT_EQ(info.DeviceModelLength, 20);
    EXPECT_EQ(std::string(para.DeviceModel, 20), "QX-BAS-ABCDEFGHIJKLM");
}

TEST_F(EthernetLink, BadConfigurationChecksumsFailTheConnect) {
    startTracker(13);
    vyx::sim::FaultSettings faults;
    faults.badChecksumBlock1 = true;
    tracker.setFaults(faults);
    EXPECT_EQ(connect(), RV_FAILED);
    EXPECT_EQ(para.DeviceType, 100u);
    T_VyxPosStatusInfo status{};
    EXPECT_EQ(Vyx_GetStatusInfo(handle, Interface_Ethernet, &status), RV_NOT_CONNECTED);

    faults.badChecksumBlock1 = false;
    faults.badChecksumBlock2 = true;
    tracker.setFaults(faults);
    EXPECT_EQ(connect(), RV_FAILED);

    // A later successful connect recovers.
    tracker.setFaults({});
    EXPECT_EQ(connect(), RV_SUCCESS);
}

TEST_F(EthernetLink, ConfigurationWithoutSecondBlockOrLongFormIsAccepted) {
    startTracker(14);
    vyx::sim::FaultSettings faults;
    faults.omitSecondConfigBlock = true;
    faults.noLongForm = true;
    // A bad second block does not matter when it never arrives.
    faults.badChecksumBlock2 = true;
    tracker.setFaults(faults);
    EXPECT_EQ(connect(), RV_SUCCESS);
    EXPECT_EQ(para.MarkerImageWidth, 1280u);
}

TEST_F(EthernetLink, SettersPutTheirPacketsOnTheWire) {
    // Index 1 clamps the dual exposure to 16..16384.
    startTracker(15, vyx::sim::descriptionForModel("QX-BAS-7"));
    ASSERT_EQ(connect(), RV_SUCCESS);
    const std::size_t start = tracker.commands().size();
    const E_Interface eth = Interface_Ethernet;

    EXPECT_EQ(Vyx_SetDualExpTime(handle, eth, 10), RV_SUCCESS);            // -> 16
    EXPECT_EQ(Vyx_SetDualExpTimeByDistance(handle, eth, 2000), RV_SUCCESS); // -> 1150
    EXPECT_EQ(Vyx_SetColorExpTime(handle, eth, 9000), RV_SUCCESS);         // -> 8192
    EXPECT_EQ(Vyx_SetCollisinoDetectLevel(handle, eth, 0), RV_SUCCESS);    // -> 1
    EXPECT_EQ(Vyx_SetCollisinoDetectLevel(handle, eth, 200), RV_SUCCESS);  // -> 10
    EXPECT_EQ(Vyx_SetFlashDelay(handle, eth, 12, 34), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetLCDShowRawPoint(handle, eth, true), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetMarkerParameters(handle, eth, 10, 20, 5, 4000, 30), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetSystemCommand(handle, eth, SystemCommand_9), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetVyxPositionIP(handle, eth, 127, 0, 0, 99), RV_SUCCESS);
    // Refusals send nothing.
    EXPECT_EQ(Vyx_SetFlashDelay(handle, eth, 256, 0), RV_FAILED);
    EXPECT_EQ(Vyx_SetMarkerParameters(handle, eth, 0, 0, 50, 10, 1), RV_FAILED);
    EXPECT_EQ(Vyx_SetSystemCommand(handle, eth, SystemCommand_15), RV_FAILED);
    EXPECT_EQ(Vyx_SetFlashDelay(handle, Interface_WiFi, 1, 1), RV_FAILED);
    EXPECT_EQ(Vyx_SetDualExpTime(handle, Interface_USB, 100), RV_NOT_CONNECTED);

    ASSERT_TRUE(tracker.waitForCommands(start + 10, 2000ms));
    std::this_thread::sleep_for(50ms);  // nothing further may arrive
    const auto sent = commandsSince(start);
    const std::vector<Bytes> expected{
        padded({0x62, 16, 0, 16, 0}),
        padded({0x62, 0x7E, 0x04, 0x7E, 0x04}),
        padded({0x5A, 0x00, 0x20}),
        padded({0x23, 1}),
        padded({0x23, 10}),
        padded({0x63, 12, 34, 0x63, 0xFE}),
        padded({0xA0, 0x0A, 1}),
        padded({0x80, 0xFA, 0x05, 0x64, 10, 30, 30, 20}),
        padded({0x4D}),
        padded({0x90, 127, 0, 0, 99, 0x90, 0xFE}),
    };
    EXPECT_EQ(sent, expected);
}

TEST_F(EthernetLink, DeviceAddressComesFromTheConfiguration) {
    auto description = vyx::sim::defaultDescription();
    description.deviceIP = {127, 0, 0, 77};
    startTracker(16, description);
    unsigned char ip[4] = {1, 1, 1, 1};
    ASSERT_EQ(connect(), RV_SUCCESS);
    ASSERT_EQ(Vyx_GetVyxPositionIP(handle, Interface_Ethernet, &ip[0], &ip[1], &ip[2], &ip[3]),
              RV_SUCCESS);
    EXPECT_EQ(Bytes(ip, ip + 4), (Bytes{127, 0, 0, 77}));
    // Setting the device's address does not change the address connected to.
    ASSERT_EQ(Vyx_SetVyxPositionIP(handle, Interface_Ethernet, 127, 0, 0, 78), RV_SUCCESS);
    ASSERT_EQ(Vyx_GetEthernetConnectIP(handle, &ip[0], &ip[1], &ip[2], &ip[3]), RV_SUCCESS);
    EXPECT_EQ(Bytes(ip, ip + 4), (Bytes{127, 0, 0, 16}));
}

namespace {

vyx::sim::MarkerFrame statusFrame() {
    vyx::sim::MarkerFrame f;
    f.status.temperature0Hundredths = -1250;
    f.status.temperature1Hundredths = 3310;
    f.status.sensorValue0Hundredths = 4567;
    f.status.sensorValue1Hundredths = 100;
    f.status.firstLayoutSensorValue2 = -3;
    f.status.firstLayoutSensorValue3 = 7;
    f.status.secondLayoutSensorValue2 = 1000;
    f.status.secondLayoutSensorValue3 = 2000;
    f.status.linkState = 5;
    f.status.stateByte0 = 0x12;
    f.status.stateByte1 = 0x34;
    f.status.stateWord = 0xAABBCCDDu;
    f.status.hardwareCheckLanes = {0, 800 * 16, 150 * 16, 500 * 16};
    return f;
}

}  // namespace

TEST_F(EthernetLink, StatusIsDecodedInTheFirstLayoutAndDeliveredOnce) {
    startTracker(17, vyx::sim::descriptionForModel("QX-BAS-1"));
    tracker.setMarkerFrame(statusFrame());
    ASSERT_EQ(connect(), RV_SUCCESS);
    T_VyxPosStatusInfo status{};
    EXPECT_EQ(Vyx_GetStatusInfo(handle, Interface_Ethernet, &status), RV_NO_NEW_FRAME);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return tracker.markerRequests() >= 3; }));
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_None), RV_SUCCESS);

    ASSERT_EQ(Vyx_GetStatusInfo(handle, Interface_Ethernet, &status), RV_SUCCESS);
    EXPECT_FLOAT_EQ(status.Temperature0, -12.5f);
    EXPECT_FLOAT_EQ(status.Temperature1, 33.1f);
    EXPECT_FLOAT_EQ(status.SensorValue0, 45.67f);
    EXPECT_FLOAT_EQ(status.SensorValue1, 1.0f);
    EXPECT_EQ(status.SensorValue2, -3);
    EXPECT_EQ(status.SensorValue3, 7);
    EXPECT_EQ(status.StateByte0, 0x12);
    EXPECT_EQ(status.StateByte1, 0x34);
    EXPECT_EQ(status.StateWord0, 0xAABB);
    EXPECT_EQ(status.StateWord1, 0xCCDD);
    EXPECT_EQ(status.LinkState, 2u);
    EXPECT_EQ(status.HardwareCheck, 3u);
    // Acquisition has stopped: the same frame is not delivered twice.
    EXPECT_EQ(Vyx_GetStatusInfo(handle, Interface_Ethernet, &status), RV_NO_NEW_FRAME);
}

TEST_F(EthernetLink, StatusOfASecondLayoutModel) {
    startTracker(18, vyx::sim::descriptionForModel("ZR-C544"));
    tracker.setMarkerFrame(statusFrame());
    ASSERT_EQ(connect(), RV_SUCCESS);
    ASSERT_EQ(para.DeviceType, 7u);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus), RV_SUCCESS);
    T_VyxPosStatusInfo status{};
    ASSERT_TRUE(eventually([&] {
        return Vyx_GetStatusInfo(handle, Interface_Ethernet, &status) == RV_SUCCESS;
    }));
    EXPECT_EQ(status.SensorValue2, 1000);
    EXPECT_EQ(status.SensorValue3, 2000);
}

namespace {

// Index k of the served image whose bytes these are, from its first byte.
std::uint32_t servedImageIndex(const Bytes& image, vyx::sim::ImageCamera camera) {
    const auto c = static_cast<std::uint32_t>(camera);
    // byte 0 = 7 k + 85 c (mod 256); 183 is the inverse of 7 modulo 256.
    return (183u * ((image[0] + 256u * 4u - 85u * c) % 256u)) % 256u;
}

}  // namespace

TEST_F(EthernetLink, GreyImagesArriveWholeAndOnce) {
    startTracker(19);
    ASSERT_EQ(connect(), RV_SUCCESS);
    const std::size_t bytes = para.MarkerImageWidth * para.MarkerImageHeight;
    Bytes left(bytes), right(bytes);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_GreyImages), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] {
        return Vyx_GetGreyImageDual(handle, Interface_Ethernet, reinterpret_cast<char*>(left.data()),
                                    reinterpret_cast<char*>(right.data())) == RV_SUCCESS;
    }));
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_None), RV_SUCCESS);

    const auto k = servedImageIndex(left, vyx::sim::ImageCamera::LeftGrey);
    EXPECT_EQ(left, vyx::sim::expectedImage(vyx::sim::ImageCamera::LeftGrey, k, bytes));
    EXPECT_EQ(right, vyx::sim::expectedImage(vyx::sim::ImageCamera::RightGrey, k, bytes));

    // After the stop at most the image completed meanwhile is new; then nothing.
    Vyx_GetGreyImageDual(handle, Interface_Ethernet, reinterpret_cast<char*>(left.data()),
                         reinterpret_cast<char*>(right.data()));
    EXPECT_EQ(Vyx_GetGreyImageDual(handle, Interface_Ethernet, reinterpret_cast<char*>(left.data()),
                                   reinterpret_cast<char*>(right.data())),
              RV_NO_NEW_FRAME);
    // Only grey image requests went out: no marker frames in mask 4.
    for (const auto& c : tracker.commands()) EXPECT_NE(c.at(0), 0x0F);
}

TEST_F(EthernetLink, ColourImageArrivesWholeAndOnce) {
    startTracker(21);
    ASSERT_EQ(connect(), RV_SUCCESS);
    const std::size_t bytes = para.ColorImageWidth * para.ColorImageHeight * 2;
    Bytes image(bytes);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_ColorImage), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] {
        return Vyx_GetColorImageMiddle(handle, Interface_Ethernet,
                                       reinterpret_cast<char*>(image.data())) == RV_SUCCESS;
    }));
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_None), RV_SUCCESS);
    const auto k = servedImageIndex(image, vyx::sim::ImageCamera::Colour);
    EXPECT_EQ(image, vyx::sim::expectedImage(vyx::sim::ImageCamera::Colour, k, bytes));
    Vyx_GetColorImageMiddle(handle, Interface_Ethernet, reinterpret_cast<char*>(image.data()));
    EXPECT_EQ(Vyx_GetColorImageMiddle(handle, Interface_Ethernet,
                                      reinterpret_cast<char*>(image.data())),
              RV_NO_NEW_FRAME);
}

TEST_F(EthernetLink, MarkerFramesInterleaveWithGreyBlocks) {
    startTracker(22);
    ASSERT_EQ(connect(), RV_SUCCESS);
    const std::size_t start = tracker.commands().size();
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndGrey), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return tracker.commands().size() > start + 40; }));
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_None), RV_SUCCESS);
    // Within the first image: left+right request per block, and a marker
    // request after blocks 2, 4, 6, ...
    const auto sent = commandsSince(start);
    std::vector<std::uint8_t> codes;
    for (const auto& c : sent) codes.push_back(c.at(0));
    const std::vector<std::uint8_t> firstBlocks{0xA4, 0xA8, 0x04, 0x08, 0x04, 0x08, 0x0F, 0x04, 0x08,
                                                0x04, 0x08, 0x0F};
    ASSERT_GE(codes.size(), firstBlocks.size());
    EXPECT_EQ(std::vector<std::uint8_t>(codes.begin(), codes.begin() + 12), firstBlocks);
}

TEST_F(EthernetLink, ReceiverErrorIsReportedUntilAcquisitionIsSetAgain) {
    startTracker(23);
    ASSERT_EQ(connect(), RV_SUCCESS);
    vyx::sim::FaultSettings faults;
    faults.corruptEndMark = true;
    tracker.setFaults(faults);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus), RV_SUCCESS);
    T_VyxPosStatusInfo status{};
    ASSERT_TRUE(eventually([&] {
        return Vyx_GetStatusInfo(handle, Interface_Ethernet, &status) == RV_READ_ERROR;
    }));
    // The error stays, and acquisition has stopped.
    EXPECT_EQ(Vyx_GetStatusInfo(handle, Interface_Ethernet, &status), RV_READ_ERROR);
    const auto requests = tracker.markerRequests();
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(tracker.markerRequests(), requests);

    tracker.setFaults({});
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus), RV_SUCCESS);
    EXPECT_TRUE(eventually([&] {
        return Vyx_GetStatusInfo(handle, Interface_Ethernet, &status) == RV_SUCCESS;
    }));
}

TEST_F(EthernetLink, ShortFrameIsAReadError) {
    startTracker(24);
    ASSERT_EQ(connect(), RV_SUCCESS);
    vyx::sim::FaultSettings faults;
    faults.shortMarkerFrameBytes = 4000;
    tracker.setFaults(faults);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus), RV_SUCCESS);
    T_VyxPosStatusInfo status{};
    EXPECT_TRUE(eventually([&] {
        return Vyx_GetStatusInfo(handle, Interface_Ethernet, &status) == RV_READ_ERROR;
    }, 10s));
}

TEST_F(EthernetLink, TrackerClosingMidStreamGivesAnErrorAndNoHang) {
    startTracker(25);
    ASSERT_EQ(connect(), RV_SUCCESS);
    vyx::sim::FaultSettings faults;
    faults.closeAfterMarkerFrames = 20;
    tracker.setFaults(faults);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus), RV_SUCCESS);
    T_VyxPosStatusInfo status{};
    EXPECT_TRUE(eventually([&] {
        return Vyx_GetStatusInfo(handle, Interface_Ethernet, &status) == RV_READ_ERROR;
    }, 10s));
    // Writes to the closed connection fail with a code, not a signal.
    EXPECT_TRUE(eventually([&] {
        return Vyx_SetCollisinoDetectLevel(handle, Interface_Ethernet, 3) == RV_WRITE_ERROR;
    }));
    // Setting acquisition again does not wait on a dead link.
    EXPECT_TRUE(finishesWithin(
        [&] { Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus); }, 5s));
    EXPECT_TRUE(finishesWithin([&] { Vyx_API_Close(&handle); }, 3s));
}

TEST_F(EthernetLink, CloseReturnsWhenTheTrackerStopsAnswering) {
    startTracker(26);
    ASSERT_EQ(connect(), RV_SUCCESS);
    vyx::sim::FaultSettings faults;
    faults.stopAnswering = true;
    tracker.setFaults(faults);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus), RV_SUCCESS);
    // The first request goes unanswered: the receiver now waits in a read.
    ASSERT_TRUE(eventually([&] {
        for (const auto& c : tracker.commands())
            if (c.at(0) == 0x0F) return true;
        return false;
    }));
    EXPECT_TRUE(finishesWithin([&] { Vyx_API_Close(&handle); }, 2s));
    EXPECT_EQ(handle, nullptr);
}

TEST_F(EthernetLink, SilentTrackerTimesOutWithAReadError) {
    startTracker(27);
    ASSERT_EQ(connect(), RV_SUCCESS);
    vyx::sim::FaultSettings faults;
    faults.stopAnswering = true;
    tracker.setFaults(faults);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus), RV_SUCCESS);
    T_VyxPosStatusInfo status{};
    // Four 500 ms time-outs with three 200 ms pauses between them.
    EXPECT_TRUE(eventually([&] {
        return Vyx_GetStatusInfo(handle, Interface_Ethernet, &status) == RV_READ_ERROR;
    }, 10s));
}

TEST_F(EthernetLink, ConnectToAnAddressWithoutTrackerFails) {
    // Nothing listens on 127.0.0.28.
    hostByte = 28;
    testing::internal::CaptureStdout();
    const int rc = connect();
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_NE(rc, RV_SUCCESS);
    EXPECT_NE(printed.find("connect error"), std::string::npos);
    T_VyxPosStatusInfo status{};
    EXPECT_EQ(Vyx_GetStatusInfo(handle, Interface_Ethernet, &status), RV_NOT_CONNECTED);
}

TEST_F(EthernetLink, ReconnectingReplacesTheConnection) {
    startTracker(29);
    ASSERT_EQ(connect(), RV_SUCCESS);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return tracker.markerRequests() > 2; }));
    ASSERT_EQ(connect(), RV_SUCCESS);
    EXPECT_TRUE(tracker.waitForConnections(2, 2000ms));
    // Re-initialising stopped acquisition.
    const auto requests = tracker.markerRequests();
    std::this_thread::sleep_for(100ms);
    EXPECT_EQ(tracker.markerRequests(), requests);
}

TEST_F(EthernetLink, TriggerModeSwitchSendsTheModeAndReadsOneFrame) {
    startTracker(30);
    ASSERT_EQ(connect(), RV_SUCCESS);
    std::size_t start = tracker.commands().size();
    EXPECT_EQ(Vyx_SetAcquireMode(handle, Interface_Ethernet, AcquireMode_Trigger1), RV_SUCCESS);
    EXPECT_EQ(commandsSince(start), (std::vector<Bytes>{{0x0C, 0x01}, {0x0F}}));
    start = tracker.commands().size();
    EXPECT_EQ(Vyx_SetAcquireMode(handle, Interface_Ethernet, AcquireMode_FreeRunning), RV_SUCCESS);
    EXPECT_EQ(commandsSince(start), (std::vector<Bytes>{{0x0C, 0x00}}));
    EXPECT_EQ(Vyx_SetAcquireMode(handle, Interface_WiFi, AcquireMode_FreeRunning), RV_FAILED);
}

TEST_F(EthernetLink, AcquisitionDataNeedsAnOpenTransport) {
    startTracker(31);
    ASSERT_EQ(connect(), RV_SUCCESS);
    EXPECT_EQ(Vyx_SetAcquireData(handle, Interface_USB, DataType_MarkerAndStatus), RV_NOT_CONNECTED);
    EXPECT_EQ(Vyx_SetAcquireData(handle, Interface_WiFi, DataType_MarkerAndStatus), RV_NOT_CONNECTED);
    EXPECT_EQ(Vyx_SetAcquireData(handle, static_cast<E_Interface>(5), DataType_All), RV_FAILED);
    // A mask without a frame kind reads nothing.
    const auto requests = tracker.commands().size();
    EXPECT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MaskBit0), RV_SUCCESS);
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(tracker.commands().size(), requests);
}
