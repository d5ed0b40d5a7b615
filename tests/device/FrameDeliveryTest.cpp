// Marker frame delivery end to end: frame ids, the once-only rule, the
// triggered calls, extended ids and the over-limit flag.
#include "VyxPositionAPI.h"
#include "sim/VirtualTracker.h"
#include "support/Eventually.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using vyx::sim::VirtualTracker;

namespace {

using vyx::test::eventually;

class FrameDelivery : public ::testing::Test {
protected:
    void TearDown() override {
        if (handle != nullptr) Vyx_API_Close(&handle);
        tracker.stop();
    }

    void connectTo(unsigned char host) {
        tracker.start("127.0.0." + std::to_string(host), 7);
        ASSERT_EQ(Vyx_API_Initial(&handle), RV_SUCCESS);
        ASSERT_EQ(Vyx_SetEthernetConnectIP(handle, 127, 0, 0, host), RV_SUCCESS);
        T_VYXPOS_DATAPARA para{};
        ASSERT_EQ(Vyx_ConnectDevice(handle, Interface_Ethernet, &para), RV_SUCCESS);
    }

    std::vector<std::uint8_t> commandCodesSince(std::size_t from) const {
        std::vector<std::uint8_t> codes;
        const auto all = tracker.commands();
        for (std::size_t i = from; i < all.size(); ++i) codes.push_back(all[i].at(0));
        return codes;
    }

    VirtualTracker tracker;
    VyxHandle handle = nullptr;
    T_MarkerInfo markers{};
};

}  // namespace

TEST_F(FrameDelivery, AFrameIsDeliveredOnceAndARepeatedIdIsNotNew) {
    vyx::sim::MarkerFrame frame;
    frame.frameId = 7;
    tracker.setMarkerFrame(frame);
    connectTo(60);
    EXPECT_EQ(Vyx_GetMarkerInfo(handle, Interface_Ethernet, &markers), RV_NO_NEW_FRAME);
    ASSERT_EQ(Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] {
        return Vyx_GetMarkerInfo(handle, Interface_Ethernet, &markers) == RV_SUCCESS;
    }));
    EXPECT_EQ(markers.ID, 7u);
    EXPECT_EQ(markers.MarkerNumber, 0u);
    // The receiver goes on fetching frames, but they all carry id 7.
    const auto requests = tracker.markerRequests();
    ASSERT_TRUE(eventually([&] { return tracker.markerRequests() > requests + 3; }));
    markers.MarkerNumber = 99;
    EXPECT_EQ(Vyx_GetMarkerInfo(handle, Interface_Ethernet, &markers), RV_NO_NEW_FRAME);
    EXPECT_EQ(markers.MarkerNumber, 0u);
}

TEST_F(FrameDelivery, ExtendedIdAndOverLimitFlag) {
    tracker.setMarkerFrameSource([](std::uint64_t request) {
        vyx::sim::MarkerFrame f;
        f.frameId = static_cast<std::uint8_t>(request);
        f.extendedId = 0x12340000u + static_cast<std::uint32_t>(request);
        f.rightValue = request % 2 == 0 ? 6 : 5;
        return f;
    });
    connectTo(61);
    ASSERT_EQ(Vyx_SetAcquireMode(handle, Interface_Ethernet, AcquireMode_Trigger2), RV_SUCCESS);
    T_VyxPosStatusInfo status{};
    for (int call = 0; call < 4; ++call) {
        ASSERT_EQ(Vyx_GetMarkerAndStatusFromHardware(handle, Interface_Ethernet, &markers, &status),
                  RV_SUCCESS);
        const std::uint32_t request = markers.ID - 0x12340000u;
        ASSERT_LT(request, 100u) << markers.ID;
        EXPECT_EQ(markers.OverLimitFlag, request % 2 == 0 ? 1u : 0u);
    }
}

TEST_F(FrameDelivery, TriggerModeOneSendsOneTriggerPerCall) {
    connectTo(62);
    ASSERT_EQ(Vyx_SetAcquireMode(handle, Interface_Ethernet, AcquireMode_Trigger1), RV_SUCCESS);
    const std::size_t start = tracker.commands().size();
    T_VyxPosStatusInfo status{};
    for (int call = 0; call < 3; ++call)
        ASSERT_EQ(Vyx_GetMarkerAndStatusFromHardware(handle, Interface_Ethernet, &markers, &status),
                  RV_SUCCESS);
    EXPECT_EQ(commandCodesSince(start),
              (std::vector<std::uint8_t>{0x0D, 0x0F, 0x0D, 0x0F, 0x0D, 0x0F}));
    // Back in free-running mode the triggered call sends no trigger.
    ASSERT_EQ(Vyx_SetAcquireMode(handle, Interface_Ethernet, AcquireMode_FreeRunning), RV_SUCCESS);
    const std::size_t later = tracker.commands().size();
    ASSERT_EQ(Vyx_GetMarkerAndStatusFromHardware(handle, Interface_Ethernet, &markers, &status),
              RV_SUCCESS);
    EXPECT_EQ(commandCodesSince(later), (std::vector<std::uint8_t>{0x0F}));
}

TEST_F(FrameDelivery, TriggeredCallGivesUpWhenEveryFrameRepeatsTheId) {
    vyx::sim::MarkerFrame frame;
    frame.frameId = 3;
    tracker.setMarkerFrame(frame);
    connectTo(63);
    T_VyxPosStatusInfo status{};
    ASSERT_EQ(Vyx_GetMarkerAndStatusFromHardware(handle, Interface_Ethernet, &markers, &status),
              RV_SUCCESS);
    // Every further frame repeats id 3: after its attempts the call says so.
    EXPECT_EQ(Vyx_GetMarkerAndStatusFromHardware(handle, Interface_Ethernet, &markers, &status),
              RV_NO_NEW_FRAME);
}

TEST_F(FrameDelivery, TriggeredGreyImagesAreTheServedOnes) {
    connectTo(64);
    const std::size_t bytes = 1280u * 720u;
    std::vector<char> left(bytes), right(bytes);
    ASSERT_EQ(Vyx_GetGreyImageFromHardware(handle, Interface_Ethernet, left.data(), right.data()),
              RV_SUCCESS);
    // The first image the tracker served.
    const auto expectedLeft = vyx::sim::expectedImage(vyx::sim::ImageCamera::LeftGrey, 0, bytes);
    const auto expectedRight = vyx::sim::expectedImage(vyx::sim::ImageCamera::RightGrey, 0, bytes);
    EXPECT_TRUE(std::equal(left.begin(), left.end(), expectedLeft.begin(),
                           [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }));
    EXPECT_TRUE(std::equal(right.begin(), right.end(), expectedRight.begin(),
                           [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; }));
}
