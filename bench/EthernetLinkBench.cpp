// Frames per second that the Ethernet link sustains from the virtual tracker
// over loopback: marker frames alone, and marker frames interleaved with grey
// image pairs. Each iteration waits for the next new item; the rate is
// reported as items per second.
#include "VyxPositionAPI.h"
#include "sim/VirtualTracker.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

// One tracker and one connected engine for the whole run.
struct LinkFixture {
    LinkFixture() {
        tracker.start("127.0.0.250", 0);  // a free unprivileged port
        if (Vyx_API_Initial(&handle) != RV_SUCCESS) throw std::runtime_error("initial");
        if (Vyx_SetEthernetConnectIP(handle, 127, 0, 0, 250) != RV_SUCCESS ||
            Vyx_SetEthernetConnectPort(handle, tracker.port()) != RV_SUCCESS ||
            Vyx_ConnectDevice(handle, Interface_Ethernet, &para) != RV_SUCCESS)
            throw std::runtime_error("connect to the virtual tracker failed");
    }
    ~LinkFixture() {
        Vyx_API_Close(&handle);
        tracker.stop();
    }
    vyx::sim::VirtualTracker tracker;
    VyxHandle handle = nullptr;
    T_VYXPOS_DATAPARA para{};
};

LinkFixture& fixture() {
    static LinkFixture instance;
    return instance;
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

void BM_MarkerFrames(benchmark::State& state) {
    LinkFixture& f = fixture();
    Vyx_SetAcquireData(f.handle, Interface_Ethernet, DataType_MarkerAndStatus);
    T_MarkerInfo markers{};
    std::int64_t frames = 0;
    for (auto _ : state) {
        if (!waitForNew([&] { return Vyx_GetMarkerInfo(f.handle, Interface_Ethernet, &markers); })) {
            state.SkipWithError("no marker frame arrived");
            break;
        }
        ++frames;
    }
    Vyx_SetAcquireData(f.handle, Interface_Ethernet, DataType_None);
    state.SetItemsProcessed(frames);
    // The built-in scene shows four markers: check the path outside the loop.
    if (markers.MarkerNumber != 4) state.SkipWithError("scene markers were not reconstructed");
}
BENCHMARK(BM_MarkerFrames)->Unit(benchmark::kMicrosecond)->MinTime(2.0)->UseRealTime();

void BM_MarkerFramesWithGreyImages(benchmark::State& state) {
    LinkFixture& f = fixture();
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
