// Soak: the tracking demo scene streamed from the virtual tracker at full rate
// (unpaced: every request gets the next frame) on each chosen link for a given
// time, with the scene's tools recognised in every frame delivered, the
// acquisition kind switched and the handle closed and reopened every so often.
// Meant for long runs, under AddressSanitizer too, to catch leaks, hangs and
// errors that only show over time.
//
//   vyx_soak [--seconds N] [--links ethernet,wifi,usb] [--reconnect-every SEC]
//            [--switch-every SEC] [--address 127.0.0.N]
//
// Defaults: 60 s, all three links, a reconnect every 15 s, a switch every 5 s
// (0 turns either off). Each link has its own tracker, handle and thread, so
// the links run side by side: Ethernet on 127.0.0.N, Wi-Fi on 127.0.0.N+1
// (N = 238), each on a free unprivileged port; the USB handle gets 127.0.0.N+2
// as its unused network addresses, so that no handle keeps the library's
// defaults. USB needs umockdev's preload (run under umockdev-wrapper, with
// ASAN_OPTIONS=verify_asan_link_order=0 under ASan) and is skipped without it.
//
// Kinds, in turn: free-running marker frames (the receiver thread acquires,
// Vyx_GetMarkerInfo polls), triggered marker frames (acquisition mode 1,
// Vyx_GetMarkerAndStatusFromHardware), triggered frames with both grey images
// (Vyx_GetMarkerStatusAndGreyImageFromHardware), and free-running frames
// interleaved with colour images (Vyx_GetColorImageMiddle). The Wi-Fi module
// has neither images nor acquisition modes: there the triggered kind fetches
// each frame on request and the image kinds are left out.
//
// Every call is timed. Reported per link: frames and their rate, tools found,
// reconnects, errors by call and result code, the longest close, connect and
// single call; for the process, VmRSS at start, after 10 s and at the end, and
// the peak (VmHWM, or the highest VmRSS seen if that is higher). A progress line every 10 s. Exit code 1 when a call took
// over 5 s, no frame came for 5 s or a connect failed, else 0; a call still
// hanging 15 s after the end gets reported and the program exits at once.
#include "VyxPositionAPI.h"
#include "sim/DeviceDescription.h"
#include "sim/Scene.h"
#include "sim/SceneTools.h"
#include "sim/UsbTracker.h"
#include "sim/VirtualTracker.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Count = unsigned long long;
constexpr double kBound = 5.0;  // seconds

double since(Clock::time_point t) { return std::chrono::duration<double>(Clock::now() - t).count(); }
Clock::duration secs(double s) {
    return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(s));
}
// "VmRSS" or "VmHWM" of /proc/self/status, MiB.
double memoryMiB(const std::string& field) {
    std::ifstream in("/proc/self/status");
    for (std::string line; std::getline(in, line);)
        if (line.rfind(field + ":", 0) == 0) return std::atof(line.c_str() + field.size() + 1) / 1024;
    return 0;
}

enum Kind { Free, Trigger, Grey, Colour, KindCount };
const char* const kKindNames[KindCount] = {"free", "trigger", "grey", "colour"};

struct Options {
    double seconds = 60, reconnectEvery = 15, switchEvery = 5;
    std::vector<std::string> links{"ethernet", "wifi", "usb"};
    int addressBase = 238;
};

// One link's figures, written by its thread and read by the main thread,
// both under `lock`.
struct Link {
    std::string name;
    E_Interface iface = Interface_Ethernet;
    unsigned char host = 0;
    unsigned short port = 0;
    std::vector<Kind> kinds;
    std::mutex lock;
    Kind kind = Free;
    Count frames = 0, tools = 0, greyImages = 0, colourImages = 0;
    Count reconnects = 0, failedConnects = 0, switches = 0;
    std::array<Count, KindCount> framesByKind{};
    std::map<std::pair<std::string, int>, Count> errors;  // (call, result) -> count
    double longestClose = 0, longestConnect = 0, longestCall = 0;
    std::string longestCallName = "-";
    std::vector<std::string> overBound;  // the first ten calls or waits beyond the bound
    // The call in progress, for the main thread's watchdog.
    std::atomic<const char*> busyCall{nullptr};
    std::atomic<Clock::rep> busySince{0};
    std::atomic<bool> done{false};
};

// One link's loop, on its own thread with its own handle.
class Session {
public:
    Session(Link& link, const Options& o, std::string tools, Clock::time_point end)
        : l_(link), o_(o), tools_(std::move(tools)), end_(end) {}

    void run() {
        Clock::time_point nextSwitch = Clock::now() + secs(o_.switchEvery);
        Clock::time_point nextReconnect = Clock::now() + secs(o_.reconnectEvery);
        bool connected = connect();
        while (Clock::now() < end_) {
            if (!connected) {  // retried after a pause
                std::this_thread::sleep_for(std::chrono::seconds(1));
                connected = connect();
            } else if (o_.reconnectEvery > 0 && Clock::now() >= nextReconnect) {
                nextReconnect += secs(o_.reconnectEvery);
                close();
                connected = connect();
                std::lock_guard<std::mutex> g(l_.lock);
                l_.reconnects += connected;
            } else {
                if (o_.switchEvery > 0 && Clock::now() >= nextSwitch) {
                    nextSwitch += secs(o_.switchEvery);
                    std::lock_guard<std::mutex> g(l_.lock);
                    l_.kind = l_.kinds[(kindIndex_ = (kindIndex_ + 1) % l_.kinds.size())];
                    ++l_.switches;
                    needsSetup_ = true;
                }
                if (needsSetup_) setUpKind();
                step();
            }
        }
        close();
        l_.done = true;
    }

private:
    // One library call, timed; a result but 0 is an error, except 5 ("nothing
    // new") where the caller polls. Returns the result and sets *took.
    template <class F>
    int call(const char* name, F&& f, bool polls = false, double* took = nullptr) {
        const Clock::time_point t0 = Clock::now();
        l_.busySince = t0.time_since_epoch().count();
        l_.busyCall = name;
        const int rc = f();
        l_.busyCall = nullptr;
        const double s = since(t0);
        if (took != nullptr) *took = s;
        std::lock_guard<std::mutex> g(l_.lock);
        if (s > l_.longestCall) {
            l_.longestCall = s;
            l_.longestCallName = name;
        }
        if (s > kBound) overBound(std::string(name) + " took " + std::to_string(s) + " s");
        if (rc != RV_SUCCESS && !(polls && rc == RV_NO_NEW_FRAME)) ++l_.errors[{name, rc}];
        return rc;
    }
    void overBound(const std::string& what) {  // under l_.lock
        if (l_.overBound.size() < 10) l_.overBound.push_back(what);
    }

    // A new handle pointed at the link's loopback tracker, connected, with the
    // scene's tools loaded; false (and no handle) when the connect failed.
    bool connect() {
        const unsigned char h = l_.host;
        call("Vyx_API_Initial", [&] { return Vyx_API_Initial(&handle_); });
        call("Vyx_SetEthernetConnectIP", [&] { return Vyx_SetEthernetConnectIP(handle_, 127, 0, 0, h); });
        call("Vyx_SetEthernetConnectPort", [&] { return Vyx_SetEthernetConnectPort(handle_, l_.port); });
        call("Vyx_SetWifiConnectAddress",
             [&] { return Vyx_SetWifiConnectAddress(handle_, 127, 0, 0, h, l_.port); });
        double took = 0;
        const int rc = call(
            "Vyx_ConnectDevice", [&] { return Vyx_ConnectDevice(handle_, l_.iface, &para_); }, false, &took);
        {
            std::lock_guard<std::mutex> g(l_.lock);
            l_.longestConnect = std::max(l_.longestConnect, took);
            l_.failedConnects += rc != RV_SUCCESS;
        }
        if (rc != RV_SUCCESS) {
            close();
            return false;
        }
        call("Vyx_SetToolInfoFilePath",
             [&] { return Vyx_SetToolInfoFilePath(handle_, tools_.c_str(), true); });
        left_.resize(std::size_t{para_.MarkerImageWidth} * para_.MarkerImageHeight);
        right_.resize(left_.size());
        colour_.resize(std::size_t{para_.ColorImageWidth} * para_.ColorImageHeight *
                       para_.ColorImagePixelBytes);
        needsSetup_ = true;
        return true;
    }

    void close() {
        if (handle_ == nullptr) return;
        double took = 0;
        call("Vyx_API_Close", [&] { return Vyx_API_Close(&handle_); }, false, &took);
        std::lock_guard<std::mutex> g(l_.lock);
        l_.longestClose = std::max(l_.longestClose, took);
    }

    // Acquisition stopped first, then the kind's mode and data.
    void setUpKind() {
        needsSetup_ = false;
        const Kind kind = l_.kinds[kindIndex_];
        const E_Interface i = l_.iface;
        call("Vyx_SetAcquireData", [&] { return Vyx_SetAcquireData(handle_, i, DataType_None); });
        const bool triggered = kind == Trigger || kind == Grey;
        const E_AcquireMode mode = triggered ? AcquireMode_Trigger1 : AcquireMode_FreeRunning;
        if (i != Interface_WiFi)
            call("Vyx_SetAcquireMode", [&] { return Vyx_SetAcquireMode(handle_, i, mode); });
        const E_DataType data = kind == Free ? DataType_MarkerAndStatus : DataType_MarkerAndColor;
        if (!triggered) call("Vyx_SetAcquireData", [&] { return Vyx_SetAcquireData(handle_, i, data); });
        lastFrame_ = Clock::now();
    }

    // One acquisition of the current kind; tool recognition on a new frame.
    void step() {
        const Kind kind = l_.kinds[kindIndex_];
        const E_Interface i = l_.iface;
        const bool polls = kind == Free || kind == Colour;
        int rc = RV_FAILED;
        bool image = false;
        if (polls) {
            rc = call("Vyx_GetMarkerInfo", [&] { return Vyx_GetMarkerInfo(handle_, i, &markers_); }, true);
            if (kind == Colour)
                image = call("Vyx_GetColorImageMiddle",
                             [&] { return Vyx_GetColorImageMiddle(handle_, i, colour_.data()); },
                             true) == RV_SUCCESS;
        } else if (kind == Trigger) {
            rc = call("Vyx_GetMarkerAndStatusFromHardware", [&] {
                return Vyx_GetMarkerAndStatusFromHardware(handle_, i, &markers_, &status_);
            });
        } else {
            rc = call("Vyx_GetMarkerStatusAndGreyImageFromHardware", [&] {
                return Vyx_GetMarkerStatusAndGreyImageFromHardware(handle_, i, &markers_, &status_,
                                                                    left_.data(), right_.data());
            });
            image = rc == RV_SUCCESS;
        }
        Count found = 0;
        if (rc == RV_SUCCESS) {
            T_VyxToolDataResult results{};
            if (call("Vyx_FindToolInfo",
                     [&] { return Vyx_FindToolInfo(handle_, &markers_, &results, 0); }) == RV_SUCCESS)
                for (const T_VyxToolDataResult* r = &results; r != nullptr; r = r->next)
                    found += r->ValidFlag;
            lastFrame_ = Clock::now();
        }
        {
            std::lock_guard<std::mutex> g(l_.lock);
            if (rc == RV_SUCCESS) {
                ++l_.frames;
                ++l_.framesByKind[kind];
                l_.tools += found;
            }
            if (image) ++(kind == Grey ? l_.greyImages : l_.colourImages);
            if (since(lastFrame_) > kBound) {
                overBound(std::string("no ") + kKindNames[kind] + " frame for 5 s");
                ++l_.errors[{"(no frame for 5 s)", RV_NO_NEW_FRAME}];
                lastFrame_ = Clock::now();
            }
        }
        if (polls && rc == RV_NO_NEW_FRAME) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        } else if (rc != RV_SUCCESS) {  // a receiver error stays until the data is set again
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            needsSetup_ = true;
        }
    }

    Link& l_;
    const Options& o_;
    std::string tools_;
    Clock::time_point end_;
    VyxHandle handle_ = nullptr;
    T_VYXPOS_DATAPARA para_{};
    T_MarkerInfo markers_{};
    T_VyxPosStatusInfo status_{};
    std::vector<char> left_, right_, colour_;
    std::size_t kindIndex_ = 0;
    bool needsSetup_ = true;
    Clock::time_point lastFrame_ = Clock::now();
};

bool parse(int argc, char** argv, Options& o) {
    for (int a = 1; a + 1 < argc; a += 2) {
        const std::string arg = argv[a], value = argv[a + 1];
        if (arg == "--seconds") o.seconds = std::atof(value.c_str());
        else if (arg == "--reconnect-every") o.reconnectEvery = std::atof(value.c_str());
        else if (arg == "--switch-every") o.switchEvery = std::atof(value.c_str());
        else if (arg == "--address" && value.rfind("127.0.0.", 0) == 0)
            o.addressBase = std::atoi(value.c_str() + 8);
        else if (arg == "--links") {
            o.links.clear();
            for (std::size_t p = 0, q = 0; q != std::string::npos; p = q + 1) {
                q = value.find(',', p);
                o.links.push_back(value.substr(p, q == std::string::npos ? q : q - p));
                if (o.links.back() != "ethernet" && o.links.back() != "wifi" && o.links.back() != "usb")
                    return false;
            }
        } else {
            return false;
        }
    }
    return argc % 2 == 1 && o.seconds > 0 && o.reconnectEvery >= 0 && o.switchEvery >= 0 &&
           o.addressBase >= 1 && o.addressBase <= 252;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!parse(argc, argv, o)) {
        std::fprintf(stderr, "usage: vyx_soak [--seconds N] [--links ethernet,wifi,usb] "
                             "[--reconnect-every SEC] [--switch-every SEC] [--address 127.0.0.N]\n");
        return 2;
    }
    const double rssStart = memoryMiB("VmRSS");
    char pattern[] = "/tmp/vyx_soak_XXXXXX";
    const vyx::sim::Scene scene = vyx::sim::trackingDemoScene();
    if (mkdtemp(pattern) == nullptr || !vyx::sim::writeToolFiles(scene, pattern)) return 2;
    const std::string tools = pattern;

    // The USB device comes before any handle's libusb and goes after all.
    std::unique_ptr<vyx::sim::VirtualUsbTracker> usb;
    std::vector<std::unique_ptr<vyx::sim::VirtualTracker>> trackers;
    std::vector<std::unique_ptr<Link>> links;
    for (const std::string& name : o.links) {
        auto l = std::make_unique<Link>();
        l->name = name;
        l->iface = name == "usb" ? Interface_USB : name == "wifi" ? Interface_WiFi : Interface_Ethernet;
        l->host = static_cast<unsigned char>(o.addressBase + (name == "usb" ? 2 : name == "wifi"));
        l->kinds = {Free, Trigger};
        const auto source = vyx::sim::sceneFrameSource(vyx::sim::defaultDescription(), scene);
        if (l->iface == Interface_USB) {
            if (!vyx::sim::VirtualUsbTracker::umockdevPreloadLoaded()) {
                std::printf("usb: skipped (needs umockdev's preload: run under umockdev-wrapper)\n");
                continue;
            }
            usb = std::make_unique<vyx::sim::VirtualUsbTracker>();
            usb->setMarkerFrameSource(source);
            l->port = static_cast<unsigned short>(17000 + l->host);  // nothing listens there
        } else {
            trackers.push_back(std::make_unique<vyx::sim::VirtualTracker>());
            trackers.back()->setFraming(l->iface == Interface_WiFi ? vyx::sim::LinkFraming::WiFi
                                                                   : vyx::sim::LinkFraming::Ethernet);
            trackers.back()->setMarkerFrameSource(source);
            trackers.back()->start("127.0.0." + std::to_string(l->host), 0);
            l->port = trackers.back()->port();
        }
        if (l->iface != Interface_WiFi) l->kinds = {Free, Trigger, Grey, Colour};
        std::printf("%s: 127.0.0.%d port %u\n", name.c_str(), l->host, l->port);
        links.push_back(std::move(l));
    }
    std::printf("soak: %.0f s, reconnect every %.0f s, switch every %.0f s\n", o.seconds,
                o.reconnectEvery, o.switchEvery);
    std::fflush(stdout);

    const Clock::time_point start = Clock::now();
    std::vector<std::thread> threads;
    for (auto& l : links)
        threads.emplace_back([&o, &tools, end = start + secs(o.seconds), link = l.get()] {
            Session(*link, o, tools, end).run();
        });

    // Progress every 10 s; after the end, the threads get 15 s to finish.
    std::vector<Count> lastFrames(links.size(), 0);
    double rssWarm = 0, rssPeak = rssStart, nextProgress = 10;
    std::string stuck;
    for (bool done = false; !done && stuck.empty();) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const double elapsed = since(start);
        rssPeak = std::max(rssPeak, memoryMiB("VmRSS"));
        const bool progress = elapsed >= nextProgress && elapsed < o.seconds;
        if (progress) std::printf("[%4.0f s]", elapsed);
        done = true;
        for (std::size_t k = 0; k < links.size(); ++k) {
            Link& l = *links[k];
            done = done && l.done;
            if (elapsed > o.seconds + 3 * kBound && !l.done) {
                const char* c = l.busyCall;
                const double busy = std::chrono::duration<double>(
                    Clock::now().time_since_epoch() - Clock::duration(l.busySince)).count();
                stuck += " " + l.name + " in " + (c != nullptr ? c : "(between calls)") + " for " +
                         std::to_string(busy) + " s;";
            }
            if (!progress) continue;
            std::lock_guard<std::mutex> g(l.lock);
            Count errors = 0;
            for (const auto& e : l.errors) errors += e.second;
            std::printf(" %s %s %llu fr %.0f/s err %llu reconn %llu |", l.name.c_str(),
                        kKindNames[l.kind], l.frames, double(l.frames - lastFrames[k]) / 10, errors,
                        l.reconnects);
            lastFrames[k] = l.frames;
        }
        if (progress) {
            std::printf(" rss %.1f MiB\n", memoryMiB("VmRSS"));
            std::fflush(stdout);
            if (rssWarm == 0) rssWarm = memoryMiB("VmRSS");
            nextProgress += 10;
        }
    }
    if (stuck.empty())
        for (auto& t : threads) t.join();

    bool failed = !stuck.empty();
    std::printf("\nsoak report after %.1f s\n", since(start));
    for (auto& lp : links) {
        Link& l = *lp;
        std::lock_guard<std::mutex> g(l.lock);
        std::printf("%s: %llu frames, %.1f/s, %llu tools found (%.2f a frame)\n  frames by kind:",
                    l.name.c_str(), l.frames, double(l.frames) / o.seconds, l.tools,
                    l.frames ? double(l.tools) / double(l.frames) : 0.0);
        for (Kind k : l.kinds) std::printf(" %s %llu", kKindNames[k], l.framesByKind[k]);
        std::printf("; grey image pairs %llu, colour images %llu, kind switches %llu\n",
                    l.greyImages, l.colourImages, l.switches);
        std::printf("  reconnects %llu, failed connects %llu; longest close %.1f ms, connect %.1f ms,"
                    " call %.1f ms (%s)\n  errors:%s\n", l.reconnects, l.failedConnects,
                    l.longestClose * 1e3, l.longestConnect * 1e3, l.longestCall * 1e3,
                    l.longestCallName.c_str(), l.errors.empty() ? " none" : "");
        for (const auto& e : l.errors)
            std::printf("    %s -> %d: %llu\n", e.first.first.c_str(), e.first.second, e.second);
        for (const std::string& what : l.overBound) std::printf("  beyond 5 s: %s\n", what.c_str());
        failed = failed || l.failedConnects > 0 || !l.overBound.empty();
    }
    if (stuck.empty()) {  // trackers after the handles, the USB device after libusb
        trackers.clear();
        usb.reset();
    }
    std::printf("memory (VmRSS): start %.1f MiB, after 10 s %.1f MiB, end %.1f MiB, peak %.1f MiB\n",
                rssStart, rssWarm, memoryMiB("VmRSS"), std::max(rssPeak, memoryMiB("VmHWM")));
    if (!stuck.empty()) std::printf("stuck:%s\n", stuck.c_str());
    std::printf("result: %s\n", failed ? "FAIL" : "OK");
    std::fflush(stdout);
    std::error_code ignored;
    std::filesystem::remove_all(tools, ignored);
    if (!stuck.empty()) std::_Exit(1);  // stuck threads cannot be joined
    return failed ? 1 : 0;
}
