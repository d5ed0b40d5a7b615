// Frame pacing and recorded replies of the virtual tracker's device core,
// driven without a network, and replays of a small synthetic recording, the
// last one served through the virtual tracker to the library.
#include "VyxPositionAPI.h"
#include "sim/ConfigurationImage.h"
#include "sim/LinkReplies.h"
#include "sim/Replay.h"
#include "support/Loopback.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace vyx::sim;
using vyx::device::RecordType;
using Bytes = std::vector<std::uint8_t>;
using Time = std::chrono::steady_clock::time_point;

// Keeps what the device sends.
struct CapturingLink final : DeviceCore::Link {
    bool send(const std::uint8_t* data, std::size_t size) override {
        return sent.insert(sent.end(), data, data + size), true;
    }
    void close(const char*) override {}
    void report(const std::string& event) override { ADD_FAILURE() << event; }
    Bytes sent;
};

Bytes wire(const MarkerFrame& frame) {
    const auto bytes = encodeMarkerFrame(frame);
    return {bytes.begin(), bytes.end()};
}

// Frame k: ids that are distinct and not consecutive (the id byte at 2).
MarkerFrame numbered(std::uint64_t k) {
    MarkerFrame frame;
    frame.frameId = static_cast<std::uint8_t>(3 * k + 5);
    frame.extendedId = static_cast<std::uint32_t>(0x5000 + 3 * k);
    return frame;
}
int numberOf(const MarkerFrame& served) { return (served.recorded->markerFrame.at(2) - 5) / 3; }

TEST(DeviceCorePacing, ARequestGetsTheFrameOfItsPeriodAndRepeatsWithinIt) {
    DeviceCore core(defaultDescription());
    CapturingLink link;
    Time now{};
    std::vector<std::uint64_t> calls;
    core.setMarkerFrameSource([&calls](std::uint64_t index) {
        calls.push_back(index);
        return numbered(index);
    });
    core.setFrameRate(100.0, [&now] { return now; });  // 10 ms periods
    // A status peek (Wi-Fi) before any request shows the frame the next request gets.
    EXPECT_EQ(wire(core.statusFrame(link).value()), wire(numbered(0)));
    // Milliseconds since setFrameRate, and the period whose frame is served.
    const std::pair<int, std::uint64_t> steps[] = {{0, 0},  {4, 0},  {9, 0},     {10, 1},
                                                   {45, 4}, {50, 5}, {1000, 100}};
    for (const auto& [ms, period] : steps) {
        now = Time{} + std::chrono::milliseconds(ms);
        EXPECT_EQ(wire(core.takeMarkerFrame(link).value()), wire(numbered(period))) << ms;
    }
    EXPECT_EQ(calls, (std::vector<std::uint64_t>{0, 0, 1, 4, 5, 100}));  // once per period
    EXPECT_EQ(core.markerRequests(), std::size(steps));

    // A refused rate leaves the pacing as it was; 0 goes back to request indices.
    for (const double bad : {-1.0, std::nan(""), HUGE_VAL})
        EXPECT_THROW(core.setFrameRate(bad), std::invalid_argument) << bad;
    core.takeMarkerFrame(link);
    EXPECT_EQ(calls.size(), 6u);
    core.setFrameRate(0.0);
    const auto next = numbered(std::size(steps) + 1).extendedId;
    EXPECT_EQ(core.statusFrame(link).value().extendedId, next);
    EXPECT_EQ(core.takeMarkerFrame(link).value().extendedId, next);
}

Bytes pattern(std::size_t size, int seed) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(seed + 7 * i);
    return bytes;
}
Bytes with(Bytes bytes, std::size_t at, std::uint8_t value) { return bytes.at(at) = value, bytes; }

TEST(RecordedReplies, AreServedByteForByteWithTheFaultsThatStillApply) {
    const RecordedReplies wired{pattern(1024, 1), pattern(7680, 2), std::nullopt};
    const RecordedReplies wifi{pattern(1032, 3), std::nullopt, pattern(20, 4)};
    const Bytes wiredFrame = pattern(4096, 5), wifiFrame = pattern(1212, 6),
                status = pattern(32, 7);
    using Fault = void (*)(FaultSettings&);
    const Fault none = [](FaultSettings&) {};
    const struct {
        LinkFraming framing;
        Fault fault;
        std::uint8_t command;
        Bytes reply;
    } cases[] = {
        {LinkFraming::Ethernet, none, 0x0A, wired.configuration},
        {LinkFraming::Ethernet, none, 0x1A, *wired.longForm},
        {LinkFraming::Ethernet, none, 0xF8, {}},  // not recorded
        {LinkFraming::Usb, none, 0x0F, wiredFrame},
        {LinkFraming::Ethernet, [](FaultSettings& f) { f.omitSecondConfigBlock = true; }, 0x0A,
         Bytes(wired.configuration.begin(), wired.configuration.begin() + 512)},
        {LinkFraming::Ethernet, [](FaultSettings& f) { f.corruptEndMark = true; }, 0x0F,
         with(wiredFrame, 4094, 0xFE)},
        {LinkFraming::WiFi, none, 0x0A, wifi.configuration},
        {LinkFraming::WiFi, none, 0xF8, *wifi.modelText},
        {LinkFraming::WiFi, none, 0x0E, wifiFrame},
        {LinkFraming::WiFi, none, 0x0F, status},
        {LinkFraming::WiFi, [](FaultSettings& f) { f.wifiAnnouncedLength = 0x0DAC; }, 0x0E,
         with(with(wifiFrame, 2, 0xAC), 3, 0x0D)},
        {LinkFraming::WiFi, [](FaultSettings& f) { f.badWifiStatusFrame = true; }, 0x0F,
         with(status, 30, 0xFE)},
    };
    for (const auto& c : cases) {
        const bool onWifi = c.framing == LinkFraming::WiFi;
        DeviceDescription description = defaultDescription();
        description.recordedReplies =
            std::make_shared<const RecordedReplies>(onWifi ? wifi : wired);
        DeviceCore core(description);
        MarkerFrame frame;
        frame.recorded = std::make_shared<const RecordedFrame>(
            RecordedFrame{onWifi ? wifiFrame : wiredFrame, onWifi ? status : Bytes{}});
        core.setMarkerFrame(frame);
        FaultSettings fault;
        c.fault(fault);
        core.setFaults(fault);
        CapturingLink link;
        answerCommand({c.command}, c.framing, core, link);
        EXPECT_EQ(link.sent, c.reply)
            << "framing " << int(c.framing) << " command " << int(c.command);
    }
}

constexpr int kUsb = 0, kEthernet = 1, kWifi = 2;

// Status frame s of a Wi-Fi recording, told apart by its first temperature.
StatusFields numberedStatus(int s) {
    StatusFields status;
    status.temperature0Hundredths = static_cast<std::int16_t>(1000 + 100 * s);
    return status;
}

// A recording file of the default device's configuration replies and
// `frames` frames 10 ms apart (on Wi-Fi a status frame after every second
// one), damaged as asked; removed with the object.
struct RecordingFile {
    RecordingFile(int link, std::uint32_t frames, const std::function<void(Bytes&)>& damage = {}) {
        const DeviceDescription d = defaultDescription();
        Bytes file = vyx::device::encodeRecordingHeader(link, 0);
        const auto add = [&file](RecordType type, std::uint64_t ns, const auto& payload) {
            vyx::device::appendRecord(file, type, ns, payload.data(), payload.size());
        };
        const bool wifi = link == kWifi;
        add(RecordType::ConfigurationReply, 0,
            wifi ? encodeWifiConfigurationFrame(d) : encodeShortConfiguration(d));
        if (!wifi) add(RecordType::LongConfigurationReply, 0, encodeLongConfiguration(d));
        add(RecordType::ModelTextReply, 0, encodeModelTextReply(d));
        for (std::uint32_t k = 0; k < frames; ++k) {
            const std::uint64_t ns = 5'000'000 + k * 10'000'000ull;
            add(RecordType::MarkerFrame, ns,
                wifi ? encodeWifiMarkerFrame(numbered(k)) : wire(numbered(k)));
            if (wifi && k % 2 == 1)
                add(RecordType::WifiStatusFrame, ns, encodeWifiStatusFrame(numberedStatus(k / 2)));
        }
        add(RecordType::End, 0, with(Bytes(16), 0, static_cast<std::uint8_t>(frames)));
        if (damage) damage(file);
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(file.data()), static_cast<long>(file.size()));
    }
    ~RecordingFile() { std::remove(path.c_str()); }
    const std::string path = ::testing::TempDir() + "replay_" + std::to_string(::getpid());
};

TEST(Replay, ServesTheFrameOfThePlaybackTimeOrOfTheRequest) {
    const RecordingFile file(kEthernet, 5);  // frames at 0, 10, ..., 40 ms
    Replay replay(file.path);
    EXPECT_EQ(replay.frameCount(), 5u);
    EXPECT_DOUBLE_EQ(replay.durationSeconds(), 0.04);
    // Paced, `at` is milliseconds since the first call; unpaced, the index.
    const struct {
        double speed;
        bool loop;
        std::vector<std::pair<std::uint64_t, int>> steps;  // at, frame served
        std::uint64_t served;
        bool playedOut;
    } cases[] = {
        {1.0, false, {{0, 0}, {9, 0}, {10, 1}, {35, 3}, {100, 4}}, 4, true},
        {2.0, false, {{0, 0}, {10, 2}, {14, 2}, {20, 4}}, 3, true},
        {1.0, true, {{0, 0}, {45, 4}, {50, 0}, {61, 1}, {149, 4}}, 5, false},  // rounds of 50 ms
        {0.0, false, {{7, 0}, {7, 0}, {8, 1}, {30, 4}, {31, 4}}, 3, true},
        {0.0, true, {{7, 0}, {11, 4}, {12, 0}, {13, 1}}, 4, false},
    };
    for (const auto& c : cases) {
        Time now{};
        auto source = replay.frameSource({c.speed, c.loop, [&now] { return now; }});
        for (const auto& [at, frame] : c.steps) {
            now = Time{} + std::chrono::milliseconds(at);
            EXPECT_EQ(numberOf(source(c.speed > 0 ? 3 : at)), frame)
                << c.speed << c.loop << " " << at;
        }
        EXPECT_EQ(replay.framesServed(), c.served) << c.speed << c.loop;
        EXPECT_EQ(replay.playedOut(), c.playedOut) << c.speed << c.loop;
    }
    EXPECT_THROW(replay.frameSource({-1.0, false, {}}), std::invalid_argument);

    // A frame's CRC wrong, a file without frames, one cut inside its third frame.
    const std::size_t frameStart = 32 + 1044 + 7700 + 40, frameBytes = 4116;
    EXPECT_THROW(
        Replay{RecordingFile(kEthernet, 3, [&](Bytes& b) { b.at(frameStart + 99) ^= 1; }).path},
        vyx::device::RecordingError);
    EXPECT_THROW(Replay{RecordingFile(kEthernet, 0).path}, vyx::device::RecordingError);
    const Replay cut(RecordingFile(kEthernet, 3, [&](Bytes& b) {
                         b.resize(frameStart + 2 * frameBytes + 50);
                     }).path);
    EXPECT_EQ(cut.frameCount(), 2u);
    EXPECT_EQ(cut.recording().truncatedAt, frameStart + 2 * frameBytes);
}

// The library connected to a replay in the recording's framing: triggered
// reads deliver the recorded ids in order (on Wi-Fi with the status recorded
// last before each frame), then the last frame stays and is not new.
TEST(Replay, DeliversTheRecordedFramesToTheLibraryInOrder) {
    const std::pair<int, unsigned char> cases[] = {{kEthernet, 235}, {kWifi, 236}, {kUsb, 237}};
    constexpr std::uint32_t kFrames = 6;
    for (const auto& [link, host] : cases) {
        SCOPED_TRACE("link " + std::to_string(link));
        Replay replay(RecordingFile(link, kFrames).path);
        const bool wifi = replay.framing() == LinkFraming::WiFi;
        VirtualTracker tracker(replay.description());
        tracker.setFraming(replay.framing());
        tracker.setMarkerFrameSource(replay.frameSource({0.0, false, {}}));
        tracker.start("127.0.0." + std::to_string(host), vyx::test::trackerPort(host));
        VyxHandle handle = nullptr;
        ASSERT_EQ(Vyx_API_Initial(&handle), RV_SUCCESS);
        const std::unique_ptr<VyxHandle, int (*)(VyxHandle*)> closing(&handle, Vyx_API_Close);
        const E_Interface iface = wifi ? Interface_WiFi : Interface_Ethernet;
        ASSERT_EQ(vyx::test::connectToHost(handle, iface, host), RV_SUCCESS);
        T_MarkerInfo markers{};
        T_VyxPosStatusInfo status{};
        for (std::uint32_t k = 0; k < kFrames; ++k) {
            ASSERT_EQ(Vyx_GetMarkerAndStatusFromHardware(handle, iface, &markers, &status),
                      RV_SUCCESS)
                << k;
            EXPECT_EQ(markers.ID, numbered(k).extendedId) << k;
            // Status s follows frame 2s + 1, so frames 0 to 3 get status 0.
            const int s = std::max<int>(static_cast<int>(k) / 2, 1) - 1;
            if (wifi) {
                EXPECT_FLOAT_EQ(status.Temperature0,
                                numberedStatus(s).temperature0Hundredths / 100.f);
            }
        }
        EXPECT_TRUE(replay.playedOut());
        EXPECT_EQ(Vyx_GetMarkerAndStatusFromHardware(handle, iface, &markers, &status),
                  RV_NO_NEW_FRAME);
        EXPECT_EQ(replay.framesServed(), kFrames);
    }
}

}  // namespace
