// Recording end to end: the library, through its exported interface,
// records a session with the virtual tracker, and the file reads back as
// what the tracker sent, in the order it arrived.
#include "VyxPositionAPI.h"
#include "device/RecordingFormat.h"
#include "device/WireProtocol.h"
#include "sim/ConfigurationImage.h"
#include "sim/VirtualTracker.h"
#include "support/Eventually.h"
#include "support/Loopback.h"
#include "tools/ToolTestFiles.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <map>
#include <ostream>

using namespace std::chrono_literals;
using namespace vyx::device;
using vyx::test::eventually;
namespace sim = vyx::sim;
using Bytes = std::vector<std::uint8_t>;

namespace {

class RecordingSession : public ::testing::Test {
protected:
    void TearDown() override {
        if (handle != nullptr) Vyx_API_Close(&handle);
        tracker.stop();
    }

    int serve(E_Interface link, unsigned char host) {
        iface = link;
        if (iface == Interface_WiFi) tracker.setFraming(sim::LinkFraming::WiFi);
        tracker.start("127.0.0." + std::to_string(host), vyx::test::trackerPort(host));
        if (Vyx_API_Initial(&handle) != RV_SUCCESS) return -100;
        hostByte = host;
        return connect();
    }

    int connect() { return vyx::test::connectToHost(handle, iface, hostByte); }

    T_RecordingInfo info() const {
        T_RecordingInfo i{};
        EXPECT_EQ(Vyx_GetRecordingInfo(handle, &i), RV_SUCCESS);
        return i;
    }

    // Starts recording and acquisition and waits until `frames` are written.
    bool recordFrames(std::uint64_t frames) {
        return Vyx_StartRecording(handle, path.c_str()) == RV_SUCCESS &&
               Vyx_SetAcquireData(handle, iface, DataType_MarkerAndStatus) == RV_SUCCESS &&
               eventually([&] { return info().FramesRecorded >= frames; }, 10s);
    }

    ScratchDirectory scratch;
    const std::string path = scratch.file("session.vyxrec");
    sim::VirtualTracker tracker;
    VyxHandle handle = nullptr;
    E_Interface iface = Interface_Ethernet;
    unsigned char hostByte = 0;
};

struct LinkCase {
    const char* name;
    E_Interface iface;
    unsigned char host;
};
void PrintTo(const LinkCase& c, std::ostream* out) { *out << c.name; }

class RecordingOnLink : public RecordingSession, public ::testing::WithParamInterface<LinkCase> {};

// Checks a frame's wire form; returns its frame counter (none for a status frame).
std::optional<std::uint32_t> parsedFrameId(const RecordingRecord& r) {
    if (r.type == RecordType::WifiStatusFrame) {
        std::array<std::uint8_t, kWifiStatusBytes> status{};
        EXPECT_TRUE(parseWifiStatusFrame(r.payload.data(), r.payload.size(), status.data()));
        return std::nullopt;
    }
    if (r.payload.size() == kMarkerFrameBytes) {
        EXPECT_TRUE(isValidMarkerFrame(r.payload.data(), r.payload.size()));
        return frameIdAt(r.payload.data() + kMarkerOriginOffset);
    }
    std::array<std::uint8_t, kMarkerOriginBytes> origin{};
    EXPECT_EQ(wifiMarkerFrameLength(r.payload.data()), r.payload.size());
    EXPECT_TRUE(parseWifiMarkerFrame(r.payload.data(), r.payload.size(), origin.data()));
    return frameIdAt(origin.data());
}

}  // namespace

TEST_P(RecordingOnLink, RecordsTheConfigurationAndEveryFrameInArrivalOrder) {
    const bool wifi = GetParam().iface == Interface_WiFi;
    ASSERT_EQ(serve(GetParam().iface, GetParam().host), RV_SUCCESS);
    const T_RecordingInfo none = info();
    EXPECT_EQ(none.Active | none.FramesRecorded | none.FramesDropped | none.BytesWritten, 0u);

    // About a second of acquisition.
    const auto started = std::chrono::steady_clock::now();
    ASSERT_TRUE(recordFrames(20));
    EXPECT_EQ(info().Active, 1u);
    EXPECT_EQ(Vyx_StartRecording(handle, scratch.file("other.vyxrec").c_str()), RV_FAILED);
    ASSERT_TRUE(eventually([&] { return std::chrono::steady_clock::now() >= started + 1s; }));
    ASSERT_EQ(Vyx_StopRecording(handle), RV_SUCCESS);
    EXPECT_EQ(Vyx_StopRecording(handle), RV_FAILED);
    const T_RecordingInfo last = info();
    EXPECT_EQ(Vyx_StartRecording(handle, "/nonexistent-directory/x.vyxrec"), RV_FAILED);
    EXPECT_EQ(info().FramesRecorded, last.FramesRecorded);

    const Recording recording = readRecording(path);
    EXPECT_EQ(recording.link, static_cast<int>(GetParam().iface));
    // The configuration replies, byte for byte as the tracker serves them.
    const auto d = tracker.description();
    std::vector<std::pair<RecordType, Bytes>> replies = {
        {RecordType::ConfigurationReply,
         wifi ? sim::encodeWifiConfigurationFrame(d) : sim::encodeShortConfiguration(d)}};
    if (!wifi)
        replies.emplace_back(RecordType::LongConfigurationReply, sim::encodeLongConfiguration(d));
    replies.emplace_back(RecordType::ModelTextReply, sim::encodeModelTextReply(d));
    ASSERT_GT(recording.records.size(), replies.size());
    for (std::size_t i = 0; i < replies.size(); ++i) {
        EXPECT_EQ(recording.records[i].type, replies[i].first) << i;
        EXPECT_EQ(recording.records[i].payload, replies[i].second) << i;
    }

    // Then only frames, each of them counted: in arrival order (frame
    // counters rising, times not falling), none equal to the one before it
    // of its kind, each whole.
    std::map<RecordType, const Bytes*> previous;
    std::uint64_t previousTime = 0;
    std::uint32_t previousId = 0;
    for (std::size_t i = replies.size(); i < recording.records.size(); ++i) {
        const RecordingRecord& r = recording.records[i];
        EXPECT_GE(r.timeNs, previousTime);
        previousTime = r.timeNs;
        EXPECT_TRUE(previous.count(r.type) == 0 || *previous[r.type] != r.payload) << i;
        previous[r.type] = &r.payload;
        if (const auto id = parsedFrameId(r)) {
            EXPECT_GT(*id, previousId);
            previousId = *id;
        }
    }
    EXPECT_EQ(previous.size(), wifi ? 2u : 1u);

    EXPECT_TRUE(recording.finishedCleanly);
    EXPECT_EQ((std::vector<std::uint64_t>{recording.framesRecorded, recording.framesDropped,
                                          std::filesystem::file_size(path), 0, 0}),
              (std::vector<std::uint64_t>{last.FramesRecorded, last.FramesDropped, last.BytesWritten,
                                          last.Active, static_cast<std::uint64_t>(last.LastError)}));
    EXPECT_EQ(recording.framesRecorded, recording.records.size() - replies.size());
}

INSTANTIATE_TEST_SUITE_P(Links, RecordingOnLink,
                         ::testing::Values(LinkCase{"Ethernet", Interface_Ethernet, 230},
                                           LinkCase{"WiFi", Interface_WiFi, 231}),
                         [](const auto& link) { return std::string(link.param.name); });

TEST_F(RecordingSession, EveryOtherWayARecordingEndsLeavesACleanlyFinishedFile) {
    const struct {
        const char* how;
        unsigned char host;
        std::function<void()> end;
    } cases[] = {
        {"closing the handle", 232, [&] { Vyx_API_Close(&handle); }},
        {"the tracker dropping the connection", 233, [&] { tracker.dropConnection(); }},
        {"a new connect (acquisition stopped first, so that only the connect ends it)", 234,
         [&] {
             ASSERT_EQ(Vyx_SetAcquireData(handle, iface, DataType_None), RV_SUCCESS);
             ASSERT_EQ(connect(), RV_SUCCESS);
             EXPECT_EQ(info().Active, 0u);
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.how);
        TearDown();
        ASSERT_EQ(serve(Interface_Ethernet, c.host), RV_SUCCESS);
        ASSERT_TRUE(recordFrames(10));
        c.end();
        if (handle != nullptr) {
            ASSERT_TRUE(eventually([&] { return info().Active == 0; }));
            EXPECT_EQ(Vyx_StopRecording(handle), RV_FAILED);  // finished already
        }
        const Recording recording = readRecording(path);
        EXPECT_TRUE(recording.finishedCleanly);
        // Every record after the three connect replies is a frame.
        EXPECT_EQ(recording.framesRecorded, recording.records.size() - 3);
        if (handle != nullptr) {
            EXPECT_EQ(info().FramesRecorded, recording.framesRecorded);
        }
    }
}
