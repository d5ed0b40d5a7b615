// Marker frame delivery end to end: frame ids, the once-only rule, the
// triggered calls, extended ids and the over-limit flag. (Images on request
// and frames after faults: FaultMatrixTest.cpp.)
#include "VyxPositionAPI.h"
#include "sim/VirtualTracker.h"
#include "support/CommandLog.h"
#include "support/Eventually.h"
#include "support/Loopback.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using vyx::test::eventually;
constexpr E_Interface kEth = Interface_Ethernet;

class FrameDelivery : public ::testing::Test {
protected:
    void TearDown() override {
        if (handle != nullptr) Vyx_API_Close(&handle);
        tracker.stop();
    }

    void connectTo(unsigned char host) {
        tracker.start("127.0.0." + std::to_string(host), vyx::test::trackerPort(host));
        ASSERT_EQ(Vyx_API_Initial(&handle), RV_SUCCESS);
        ASSERT_EQ(vyx::test::connectToHost(handle, kEth, host), RV_SUCCESS);
    }

    int triggered() { return Vyx_GetMarkerAndStatusFromHardware(handle, kEth, &markers, &status); }

    // Command codes of the requests `action` sends.
    template <typename Action>
    std::vector<std::uint8_t> codesSentBy(Action action) {
        const std::size_t from = tracker.commands().size();
        action();
        return vyx::test::codesSince(tracker, from);
    }

    vyx::sim::VirtualTracker tracker;
    VyxHandle handle = nullptr;
    T_MarkerInfo markers{};
    T_VyxPosStatusInfo status{};
};

}  // namespace

TEST_F(FrameDelivery, AFrameIsDeliveredOnceAndARepeatedIdIsNotNew) {
    vyx::sim::MarkerFrame frame;
    frame.frameId = 7;
    tracker.setMarkerFrame(frame);
    ASSERT_NO_FATAL_FAILURE(connectTo(60));
    EXPECT_EQ(Vyx_GetMarkerInfo(handle, kEth, &markers), RV_NO_NEW_FRAME);
    ASSERT_EQ(Vyx_SetAcquireData(handle, kEth, DataType_MarkerAndStatus), RV_SUCCESS);
    ASSERT_TRUE(eventually([&] { return Vyx_GetMarkerInfo(handle, kEth, &markers) == RV_SUCCESS; }));
    EXPECT_EQ(markers.ID, 7u);
    EXPECT_EQ(markers.MarkerNumber, 0u);
    // The receiver goes on fetching frames, but they all carry id 7.
    const auto requests = tracker.markerRequests();
    ASSERT_TRUE(eventually([&] { return tracker.markerRequests() > requests + 3; }));
    markers.MarkerNumber = 99;
    EXPECT_EQ(Vyx_GetMarkerInfo(handle, kEth, &markers), RV_NO_NEW_FRAME);
    EXPECT_EQ(markers.MarkerNumber, 0u);
}

TEST_F(FrameDelivery, TriggeredCallsSendTheirRequestsAndGiveUpOnARepeatedId) {
    tracker.setMarkerFrameSource([](std::uint64_t request) {
        vyx::sim::MarkerFrame f;
        f.frameId = static_cast<std::uint8_t>(request);
        f.extendedId = 0x12340000u + static_cast<std::uint32_t>(request);
        f.rightValue = request % 2 == 0 ? 6 : 5;
        return f;
    });
    ASSERT_NO_FATAL_FAILURE(connectTo(61));
    // The extended id wins over the id byte; a camera value above 5 is over the limit.
    ASSERT_EQ(Vyx_SetAcquireMode(handle, kEth, AcquireMode_Trigger2), RV_SUCCESS);
    for (int call = 0; call < 4; ++call) {
        ASSERT_EQ(triggered(), RV_SUCCESS);
        const std::uint32_t request = markers.ID - 0x12340000u;
        ASSERT_LT(request, 100u) << markers.ID;
        EXPECT_EQ(markers.OverLimitFlag, request % 2 == 0 ? 1u : 0u);
    }

    // Mode 1 triggers each frame; free running sends no trigger.
    ASSERT_EQ(Vyx_SetAcquireMode(handle, kEth, AcquireMode_Trigger1), RV_SUCCESS);
    EXPECT_EQ(codesSentBy([&] {
                  for (int call = 0; call < 3; ++call) ASSERT_EQ(triggered(), RV_SUCCESS);
              }),
              (std::vector<std::uint8_t>{0x0D, 0x0F, 0x0D, 0x0F, 0x0D, 0x0F}));
    ASSERT_EQ(Vyx_SetAcquireMode(handle, kEth, AcquireMode_FreeRunning), RV_SUCCESS);
    EXPECT_EQ(codesSentBy([&] { ASSERT_EQ(triggered(), RV_SUCCESS); }),
              (std::vector<std::uint8_t>{0x0F}));

    // When every frame repeats the id, the call says so after its attempts.
    vyx::sim::MarkerFrame frame;
    frame.frameId = 3;
    tracker.setMarkerFrame(frame);
    ASSERT_EQ(triggered(), RV_SUCCESS);
    EXPECT_EQ(triggered(), RV_NO_NEW_FRAME);
}
