// Frames per second that the links sustain from the virtual tracker: on
// Ethernet (loopback TCP) and USB (the emulated device) marker frames alone
// and marker frames interleaved with grey image pairs, on Wi-Fi (loopback
// TCP) marker frames (five per status frame). Each iteration waits for the
// next new item; the rate is reported as items per second.
//
// The USB benchmarks need umockdev's preload (run the program under
// umockdev-wrapper) and are skipped without it. Their rates are those of the
// emulation: every transfer is an ioctl round trip through umockdev's socket
// to the emulated device, a few hundred per second, far below a real bus.
#include "VyxPositionAPI.h"
#include "sim/UsbTracker.h"
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

// The emulated USB tracker and an engine connected to it. The tracker
// outlives the engine, whose libusb must end first.
struct UsbFixture {
    UsbFixture() {
        if (Vyx_API_Initial(&handle) != RV_SUCCESS ||
            Vyx_ConnectDevice(handle, Interface_USB, &para) != RV_SUCCESS)
            throw std::runtime_error("connect to the virtual USB tracker failed");
    }
    ~UsbFixture() { Vyx_API_Close(&handle); }
    vyx::sim::VirtualUsbTracker tracker;
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

// The connected engine for a link; nullptr (and the benchmark skipped) when
// the USB emulation cannot run here.
VyxHandle connectedHandle(E_Interface iface, benchmark::State& state,
                          T_VYXPOS_DATAPARA* para = nullptr) {
    if (iface == Interface_USB) {
        if (!vyx::sim::VirtualUsbTracker::umockdevPreloadLoaded()) {
            state.SkipWithError("USB needs umockdev's preload: run under umockdev-wrapper");
            return nullptr;
        }
        static UsbFixture usb;
        if (para != nullptr) *para = usb.para;
        return usb.handle;
    }
    LinkFixture& f = fixture(iface);
    if (para != nullptr) *para = f.para;
    return f.handle;
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
    const VyxHandle handle = connectedHandle(iface, state);
    if (handle == nullptr) return;
    Vyx_SetAcquireData(handle, iface, DataType_MarkerAndStatus);
    T_MarkerInfo markers{};
    std::int64_t frames = 0;
    for (auto _ : state) {
        if (!waitForNew([&] { return Vyx_GetMarkerInfo(handle, iface, &markers); })) {
            state.SkipWithError("no marker frame arrived");
            break;
        }
        ++frames;
    }
    Vyx_SetAcquireData(handle, iface, DataType_None);
    state.SetItemsProcessed(frames);
    // The built-in scene shows four markers: check the path outside the loop.
    if (markers.MarkerNumber != 4) state.SkipWithError("scene markers were not reconstructed");
}
void BM_MarkerFrames(benchmark::State& state) { markerFrames(state, Interface_Ethernet); }
BENCHMARK(BM_MarkerFrames)->Unit(benchmark::kMicrosecond)->MinTime(2.0)->UseRealTime();

void BM_WifiMarkerFrames(benchmark::State& state) { markerFrames(state, Interface_WiFi); }
BENCHMARK(BM_WifiMarkerFrames)->Unit(benchmark::kMicrosecond)->MinTime(2.0)->UseRealTime();

void markerFramesWithGreyImages(benchmark::State& state, E_Interface iface) {
    T_VYXPOS_DATAPARA para{};
    const VyxHandle handle = connectedHandle(iface, state, &para);
    if (handle == nullptr) return;
    const std::size_t bytes = static_cast<std::size_t>(para.MarkerImageWidth) * para.MarkerImageHeight;
    std::vector<char> left(bytes), right(bytes);
    Vyx_SetAcquireData(handle, iface, DataType_MarkerAndGrey);
    T_MarkerInfo markers{};
    std::int64_t images = 0;
    std::int64_t frames = 0;
    for (auto _ : state) {
        if (!waitForNew([&] {
                if (Vyx_GetMarkerInfo(handle, iface, &markers) == RV_SUCCESS) ++frames;
                return Vyx_GetGreyImageDual(handle, iface, left.data(), right.data());
            })) {
            state.SkipWithError("no grey image arrived");
            break;
        }
        ++images;
    }
    Vyx_SetAcquireData(handle, iface, DataType_None);
    state.SetItemsProcessed(images);
    state.counters["marker_frames_per_s"] =
        benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
    state.counters["MB_per_s"] = benchmark::Counter(static_cast<double>(images) * 2.0 * static_cast<double>(bytes) / 1e6,
                                                    benchmark::Counter::kIsRate);
}
void BM_MarkerFramesWithGreyImages(benchmark::State& state) {
    markerFramesWithGreyImages(state, Interface_Ethernet);
}
BENCHMARK(BM_MarkerFramesWithGreyImages)->Unit(benchmark::kMillisecond)->MinTime(3.0)->UseRealTime();

void BM_UsbMarkerFrames(benchmark::State& state) { markerFrames(state, Interface_USB); }
BENCHMARK(BM_UsbMarkerFrames)->Unit(benchmark::kMicrosecond)->MinTime(3.0)->UseRealTime();

void BM_UsbMarkerFramesWithGreyImages(benchmark::State& state) {
    markerFramesWithGreyImages(state, Interface_USB);
}
BENCHMARK(BM_UsbMarkerFramesWithGreyImages)->Unit(benchmark::kMillisecond)->MinTime(5.0)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
