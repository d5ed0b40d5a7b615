// Frames per second that the links sustain from the virtual tracker over
// loopback: on Ethernet marker frames alone and marker frames interleaved
// with grey image pairs, on Wi-Fi marker frames (five per status frame).
// Each iteration waits for the next new item; the rate is reported as items
// per second.
#include "VyxPositionAPI.h"
#include "sim/VirtualTracker.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

// One tracker and one connected engine per link for the whole run, each on
// its own loopback address and a free unprivileged port.
struct LinkFixture {
    LinkFixture(E_Interface iface, unsigned char host) : link(iface) {
        tracker.setFraming(iface == Interface_WiFi ? vyx::sim::LinkFraming::WiFi
                                                   : vyx::sim::LinkFraming::Ethernet);
        tracker.start("127.0.0." + std::to_string(host), 0);
        if (Vyx_API_Initial(&handle) != RV_SUCCESS) throw std::runtime_error("initial");
        const int rc = iface == Interface_WiFi
                           ? Vyx_SetWifiConnectAddress(handle, 127, 0, 0, host, tracker.port())
                           : (Vyx_SetEthernetConnectIP(handle, 127, 0, 0, host) == RV_SUCCESS
                                  ? Vyx_SetEthernetConnectPort(handle, tracker.port())
                                  : RV_FAILED);
        if (rc != RV_SUCCESS || Vyx_ConnectDevice(handle, iface, &para) != RV_SUCCESS)
            throw std::runtime_error("connect to the virtual tracker failed");
    }
    ~LinkFixture() {
        Vyx_API_Close(&handle);
        tracker.stop();
    }
    E_Interface link;
    vyx::sim::VirtualTracker tracker;
    VyxHandle handle = nullptr;
    T_VYXPOS_DATAPARA para{};
};

LinkFixture& fixture(E_Interface iface) {
    if (iface == Interface_WiFi) {
        static LinkFixture wifi(Interface_WiFi, 251);
        return wifi;
    }
    static LinkFixture ethernet(Interface_Ethernet, 250);
    return ethernet;
}

// Polls until `poll` reports a new item; false after a generous time-out.
template <class Poll>
bool waitForNew(Poll&& poll) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
        const int rc = poll();
        if (rc == RV_SUCCESS) return true;
        if (rc != RV_NO_NEW_FRAME) return false;
        std::this_thread::yield();
    }
    return false;
}

void markerFrames(benchmark::State& state, E_Interface iface) {
    LinkFixture& f = fixture(iface);
    Vyx_SetAcquireData(f.handle, iface, DataType_MarkerAndStatus);
    T_MarkerInfo markers{};
    std::int64_t frames = 0;
    for (auto _ : state) {
        if (!waitForNew([&] { return Vyx_GetMarkerInfo(f.handle, iface, &markers); })) {
            state.SkipWithError("no marker frame arrived");
            break;
        }
        ++frames;
    }
    Vyx_SetAcquireData(f.handle, iface, DataType_None);
    state.SetItemsProcessed(frames);
    // The built-in scene shows four markers: check the path outside the loop.
    if (markers.MarkerNumber != 4) state.SkipWithError("scene markers were not reconstructed");
}
void BM_MarkerFrames(benchmark::State& state) { markerFrames(state, Interface_Ethernet); }
BENCHMARK(BM_MarkerFrames)->Unit(benchmark::kMicrosecond)->MinTime(2.0)->UseRealTime();

void BM_WifiMarkerFrames(benchmark::State& state) { markerFrames(state, Interface_WiFi); }
BENCHMARK(BM_WifiMarkerFrames)->Unit(benchmark::kMicrosecond)->MinTime(2.0)->UseRealTime();

void BM_MarkerFramesWithGreyImages(benchmark::State& state) {
    LinkFixture& f = fixture(Interface_Ethernet);
    const std::size_t bytes = static_cast<std::size_t>(f.para.MarkerImageWidth) * f.para.MarkerImageHeight;
    std::vector<char> left(bytes), right(bytes);
    Vyx_SetAcquireData(f.handle, Interface_Ethernet, DataType_MarkerAndGrey);
    T_MarkerInfo markers{};
    std::int64_t images = 0;
    std::int64_t frames = 0;
    for (auto _ : state) {
        if (!waitForNew([&] {
                if (Vyx_GetMarkerInfo(f.handle, Interface_Ethernet, &markers) == RV_SUCCESS) ++frames;
                return Vyx_GetGreyImageDual(f.handle, Interface_Ethernet, left.data(), right.data());
            })) {
            state.SkipWithError("no grey image arrived");
            break;
        }
        ++images;
    }
    Vyx_SetAcquireData(f.handle, Interface_Ethernet, DataType_None);
    state.SetItemsProcessed(images);
    state.counters["marker_frames_per_s"] =
        benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
    state.counters["MB_per_s"] = benchmark::Counter(static_cast<double>(images) * 2.0 * static_cast<double>(bytes) / 1e6,
                                                    benchmark::Counter::kIsRate);
}
BENCHMARK(BM_MarkerFramesWithGreyImages)->Unit(benchmark::kMillisecond)->MinTime(3.0)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
