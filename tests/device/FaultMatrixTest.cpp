// Every fault the virtual tracker shows, against every link and kind of
// acquisition, through the exported interface: the code each call gives and
// how long it blocks, that the handle then closes at once, and that a new
// connect, the fault gone, delivers again. Built twice from this file: the
// Ethernet and Wi-Fi cells, and the USB cells (VYX_FAULT_MATRIX_USB) under
// umockdev. README.md ("Faults and what the library promises") tabulates it.
#include "VyxPositionAPI.h"
#include "sim/ImagePattern.h"
#include "sim/MarkerScene.h"
#include "sim/VirtualTracker.h"
#include "support/Eventually.h"
#include "support/SceneSession.h"
#ifdef VYX_FAULT_MATRIX_USB
#include "sim/UsbTracker.h"
#endif

#include <gtest/gtest.h>

#include <chrono>
#include <ostream>
#include <string>
#include <vector>

namespace {

using namespace std::chrono_literals;
using vyx::sim::FaultSettings;
using vyx::sim::ImageCamera;
using Bytes = std::vector<std::uint8_t>;
#ifdef VYX_FAULT_MATRIX_USB
using Tracker = vyx::sim::VirtualUsbTracker;
constexpr bool kUsbBuild = true;
#else
using Tracker = vyx::sim::VirtualTracker;
constexpr bool kUsbBuild = false;
#endif

constexpr E_Interface kUsb = Interface_USB, kEth = Interface_Ethernet, kWifi = Interface_WiFi;

// Connect: the connect meets the fault. Markers, Grey, Colour: the receiver
// thread acquires free-running (images interleaved with marker frames), the
// newest-data call reports its error, and on a link still up acquisition set
// again delivers again. Triggered: a frame on request.
// GreyThenMode: grey images on request, then, the fault gone, a switch to
// trigger mode, which must succeed.
enum Kind { Connect, Markers, Triggered, Grey, Colour, GreyThenMode };

struct Fault {
    const char* name;
    void (*set)(FaultSettings&);
    bool keepsLink = true;  // the connection (or the device) is still there after it
};
// Closing, resetting and vanishing happen at the next marker request, which
// is left unanswered; on USB the device drops off the bus there.
const Fault kCloses{"Closes", [](FaultSettings& f) { f.closeAfterMarkerFrames = 0; }, false};
const Fault kResets{"Resets",
                    [](FaultSettings& f) {
                        f.closeAfterMarkerFrames = 0;
                        f.resetOnClose = true;
                    },
                    false};
const Fault kVanishes{"Vanishes", kCloses.set, false};
const Fault kSilent{"Silent", [](FaultSettings& f) { f.stopAnswering = true; }};
const Fault kBadEndMark{"BadEndMark", [](FaultSettings& f) { f.corruptEndMark = true; }};
const Fault kShortFrame{"ShortFrame", [](FaultSettings& f) { f.shortMarkerFrameBytes = 10; }};
const Fault kBadChecksum1{"BadChecksum", [](FaultSettings& f) { f.badChecksumBlock1 = true; }};
const Fault kBadChecksum2{"BadChecksum", [](FaultSettings& f) { f.badChecksumBlock2 = true; }};
const Fault kNoConfigReply{"NoConfigReply", [](FaultSettings& f) { f.unansweredConfigReads = 3; }};
const Fault kOversized{"OversizedHeader", [](FaultSettings& f) { f.wifiAnnouncedLength = 3600; }};
const Fault kStall{"Stall", [](FaultSettings& f) { f.stallUsbIn = true; }};
const Fault kLateReply{"LateReply", [](FaultSettings& f) { f.replyDelay = 700ms; }};

struct Cell {
    E_Interface link;
    Fault fault;
    Kind kind;
    int code;      // what the call answers
    int seconds;   // longest the call may block, or its error take to show
    int host = 0;  // the tracker serves on 127.0.4.<host>, port 24000 + host
};

// One line per link and fault. Absent on purpose: images on Wi-Fi, whose
// module carries none; images with faults that strike marker frames only
// (closing, resetting and vanishing happen at a marker request, and a bad end
// mark or a short frame spoils only marker frames): the Markers cells show
// them; colour beside grey images, as both take the same request and reply
// step (colour on USB, whose colour block is its own size); a reset on
// request, which fails and recovers as the close does; a bad end mark on
// request on USB, whose triggered read is Ethernet's code, and on Wi-Fi,
// where the oversized header takes the same path; a short frame on request,
// which fails as a bad end mark does, a frame read's time-out later;
// configuration faults but at connect; a reset on USB, which has no
// connection to reset; the Wi-Fi header and the stall on other links; a late
// reply but before a mode switch, the exchange of a soak finding.
const Cell kCells[] = {
    {kEth, kBadChecksum1, Connect, RV_FAILED, 2},
    {kEth, kNoConfigReply, Connect, RV_READ_ERROR, 5},
    {kEth, kCloses, Markers, RV_READ_ERROR, 3}, {kEth, kCloses, Triggered, RV_SUCCESS, 3},
    {kEth, kResets, Markers, RV_READ_ERROR, 3},
    {kEth, kSilent, Markers, RV_READ_ERROR, 5}, {kEth, kSilent, Triggered, RV_READ_ERROR, 8},
    {kEth, kSilent, Grey, RV_READ_ERROR, 3},
    {kEth, kBadEndMark, Markers, RV_READ_ERROR, 3},
    {kEth, kBadEndMark, Triggered, RV_READ_ERROR, 3},
    {kEth, kShortFrame, Markers, RV_READ_ERROR, 5},
    {kEth, kLateReply, GreyThenMode, RV_READ_ERROR, 3},
    {kWifi, kBadChecksum2, Connect, RV_FAILED, 2},
    {kWifi, kNoConfigReply, Connect, RV_FAILED, 3},
    {kWifi, kCloses, Markers, RV_WRITE_ERROR, 4}, {kWifi, kCloses, Triggered, RV_SUCCESS, 3},
    {kWifi, kResets, Markers, RV_WRITE_ERROR, 4},
    {kWifi, kSilent, Markers, RV_READ_ERROR, 5}, {kWifi, kSilent, Triggered, RV_FAILED, 6},
    {kWifi, kBadEndMark, Markers, RV_FAILED, 3},
    {kWifi, kShortFrame, Markers, RV_READ_ERROR, 5},
    {kWifi, kOversized, Markers, RV_FAILED, 3}, {kWifi, kOversized, Triggered, RV_FAILED, 3},
    {kUsb, kBadChecksum2, Connect, RV_FAILED, 2},
    {kUsb, kNoConfigReply, Connect, RV_READ_ERROR, 6},
    {kUsb, kVanishes, Markers, RV_READ_ERROR, 3},
    {kUsb, kVanishes, Triggered, RV_USB_NOT_FOUND, 3},
    {kUsb, kSilent, Markers, RV_READ_ERROR, 3}, {kUsb, kSilent, Triggered, RV_READ_ERROR, 7},
    {kUsb, kSilent, Grey, RV_READ_ERROR, 3},
    {kUsb, kStall, Markers, RV_READ_ERROR, 3}, {kUsb, kStall, Triggered, RV_SUCCESS, 3},
    {kUsb, kStall, Colour, RV_READ_ERROR, 3},
    {kUsb, kBadEndMark, Markers, RV_READ_ERROR, 3},
    {kUsb, kShortFrame, Markers, RV_READ_ERROR, 3},
    {kUsb, kLateReply, GreyThenMode, RV_READ_ERROR, 3},
};

std::string nameOf(const Cell& c) {
    static const char* const links[] = {"Usb", "Ethernet", "Wifi"};
    static const char* const kinds[] = {"Connect", "Markers", "Triggered",
                                        "Grey",    "Colour",  "GreyThenMode"};
    return std::string(links[c.link]) + "_" + c.fault.name + "_" + kinds[c.kind];
}
void PrintTo(const Cell& c, std::ostream* out) { *out << nameOf(c); }

// The cells of this build's links, each with its own loopback host.
std::vector<Cell> cellsOfThisBuild() {
    std::vector<Cell> cells;
    for (const Cell& c : kCells) {
        if ((c.link == kUsb) != kUsbBuild) continue;
        cells.push_back(c);
        cells.back().host = static_cast<int>(&c - kCells) + 1;
    }
    return cells;
}

class FaultMatrix : public ::testing::TestWithParam<Cell> {
protected:
    void SetUp() override {
#ifdef VYX_FAULT_MATRIX_USB
        tracker.setKernelDriverBound(true);  // every connect detaches it
#else
        if (cell.link == kWifi) tracker.setFraming(vyx::sim::LinkFraming::WiFi);
        tracker.start("127.0.4." + std::to_string(cell.host), port());
#endif
    }
    void TearDown() override {
        if (handle != nullptr) Vyx_API_Close(&handle);
    }

    std::uint16_t port() const { return static_cast<std::uint16_t>(24000 + cell.host); }

    int connect() {
        if (handle == nullptr && Vyx_API_Initial(&handle) != RV_SUCCESS) return -100;
        const auto host = static_cast<unsigned char>(cell.host);
        Vyx_SetEthernetConnectIP(handle, 127, 0, 4, host);
        Vyx_SetEthernetConnectPort(handle, port());
        Vyx_SetWifiConnectAddress(handle, 127, 0, 4, host, port());
        return Vyx_ConnectDevice(handle, cell.link, &para);
    }

    int triggered() {
        return Vyx_GetMarkerAndStatusFromHardware(handle, cell.link, &markers, &status);
    }
    int greyOnRequest() {
        return Vyx_GetGreyImageFromHardware(handle, cell.link, c(left), c(right));
    }
    static char* c(Bytes& image) { return reinterpret_cast<char*>(image.data()); }

    // The newest data of a free-running kind.
    int newest() {
        if (cell.kind == Markers) return Vyx_GetMarkerInfo(handle, cell.link, &markers);
        if (cell.kind == Grey) return Vyx_GetGreyImageDual(handle, cell.link, c(left), c(right));
        return Vyx_GetColorImageMiddle(handle, cell.link, c(colour));
    }

    // Checks that a call answers `code` within `limit`.
    template <typename Call>
    void expectWithin(std::chrono::milliseconds limit, int code, Call call) {
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(call(), code);
        EXPECT_LE(std::chrono::steady_clock::now() - start, limit);
    }

    // Whether `image` is image `k` of `camera` as the tracker served it.
    static bool served(const Bytes& image, ImageCamera camera, std::uint32_t k) {
        return image == vyx::sim::expectedImage(camera, k, image.size());
    }

    const Cell& cell = GetParam();
    Tracker tracker;
    VyxHandle handle = nullptr;
    T_VYXPOS_DATAPARA para{};
    T_MarkerInfo markers{};
    T_VyxPosStatusInfo status{};
    // Images of the default device.
    Bytes left = Bytes(1280 * 720), right = left, colour = Bytes(2 * 1280 * 720);
};

TEST_P(FaultMatrix, AnswersInBoundedTimeThenClosesAtOnceAndReconnects) {
    if (cell.kind != Connect) {
        ASSERT_EQ(connect(), RV_SUCCESS);
    }
    FaultSettings faults;
    cell.fault.set(faults);
    tracker.setFaults(faults);
    const std::chrono::milliseconds limit = std::chrono::seconds(cell.seconds);
    if (cell.kind == Connect) {
        expectWithin(limit, cell.code, [&] { return connect(); });
        EXPECT_EQ(para.DeviceType, 100u) << "no model after a failed connect";
        EXPECT_EQ(Vyx_GetMarkerInfo(handle, cell.link, &markers), RV_NOT_CONNECTED);
    } else if (cell.kind == Triggered) {
        expectWithin(limit, cell.code, [&] { return triggered(); });
    } else if (cell.kind == GreyThenMode) {
        expectWithin(limit, cell.code, [&] { return greyOnRequest(); });
        // The late reply comes after the call gave up: it must not be taken
        // for the answers of the next exchange.
        tracker.setFaults({});
        expectWithin(limit, RV_SUCCESS, [&] {
            return Vyx_SetAcquireMode(handle, cell.link, AcquireMode_Trigger1);
        });
    } else {
        const E_DataType type = cell.kind == Markers ? DataType_MarkerAndStatus
                                : cell.kind == Grey  ? DataType_MarkerAndGrey
                                                     : DataType_MarkerAndColor;
        ASSERT_EQ(Vyx_SetAcquireData(handle, cell.link, type), RV_SUCCESS);
        int rc = RV_NO_NEW_FRAME;
        EXPECT_TRUE(vyx::test::eventually([&] { return (rc = newest()) == cell.code; }, limit))
            << "last code " << rc;
        EXPECT_EQ(newest(), cell.code) << "the error holds";
        if (cell.fault.keepsLink) {  // until acquisition is set again, the fault gone
            tracker.setFaults({});
            ASSERT_EQ(Vyx_SetAcquireData(handle, cell.link, type), RV_SUCCESS);
            EXPECT_TRUE(vyx::test::eventually([&] { return newest() == RV_SUCCESS; }, limit));
            // Stopped between images, so that the cameras' images stay in step.
            ASSERT_EQ(Vyx_SetAcquireData(handle, cell.link, DataType_None), RV_SUCCESS);
        }
    }
    expectWithin(1s, RV_SUCCESS, [&] { return Vyx_API_Close(&handle); });

    // A new connect, the fault gone, delivers frames and images as served.
    tracker.setFaults({});
#ifdef VYX_FAULT_MATRIX_USB
    tracker.replug();
#endif
    ASSERT_EQ(connect(), RV_SUCCESS);
    ASSERT_EQ(triggered(), RV_SUCCESS);
    EXPECT_EQ(markers.MarkerNumber, 4u);
    EXPECT_LT(vyx::test::largestMarkerError(markers, vyx::sim::sceneMarkers(markers.ID - 1)), 0.01);
    if (cell.kind == Grey) {
        ASSERT_EQ(greyOnRequest(), RV_SUCCESS);
        const auto k = vyx::sim::servedImageIndex(ImageCamera::LeftGrey, left.at(0));
        EXPECT_TRUE(served(left, ImageCamera::LeftGrey, k));
        EXPECT_TRUE(served(right, ImageCamera::RightGrey, k));
    } else if (cell.kind == Colour) {
        ASSERT_EQ(Vyx_GetColorImageFromHardware(handle, cell.link, c(colour)), RV_SUCCESS);
        EXPECT_TRUE(served(colour, ImageCamera::Colour,
                           vyx::sim::servedImageIndex(ImageCamera::Colour, colour.at(0))));
    }
}

INSTANTIATE_TEST_SUITE_P(Cells, FaultMatrix, ::testing::ValuesIn(cellsOfThisBuild()),
                         [](const auto& cellInfo) { return nameOf(cellInfo.param); });

}  // namespace
