// Tracking demo: starts the virtual tracker on loopback with a scene of three
// moving tools, writes their tool files into a scratch directory, connects
// the library to it over Ethernet, and prints a live table of tool poses,
// tips and fit errors for a few seconds before closing cleanly.
//
//   vyx_tracking_demo [--seconds N] [--address 127.0.0.X]
//
// The tracker listens on a free unprivileged port of that address (rather
// than the device's port 7), so the demo needs no root.
#include "VyxPositionAPI.h"
#include "sim/Scene.h"
#include "sim/SceneTools.h"
#include "sim/VirtualTracker.h"

#include <arpa/inet.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

namespace {

struct Options {
    double seconds = 5.0;
    std::string address = "127.0.0.1";
};

bool parseOptions(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--seconds" && i + 1 < argc) {
            options.seconds = std::atof(argv[++i]);
        } else if (arg == "--address" && i + 1 < argc) {
            options.address = argv[++i];
        } else {
            std::fprintf(stderr, "usage: %s [--seconds N] [--address 127.0.0.X]\n", argv[0]);
            return false;
        }
    }
    return true;
}

void printHeader() {
    std::printf("%-10s %-12s %9s %9s %9s   %9s %9s %9s %8s\n", "frame", "tool", "x", "y", "z",
                "tip x", "tip y", "tip z", "err mm");
}

void printTools(const T_MarkerInfo& markers, const T_VyxToolDataResult& first) {
    for (const T_VyxToolDataResult* r = &first; r != nullptr; r = r->next) {
        if (r->ValidFlag == 0) continue;
        std::printf("%-10u %-12s %9.3f %9.3f %9.3f   %9.3f %9.3f %9.3f %8.4f\n", markers.ID,
                    r->ToolName, r->Translation[0], r->Translation[1], r->Translation[2],
                    r->TipCoordinate[0], r->TipCoordinate[1], r->TipCoordinate[2], r->MeanError);
    }
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parseOptions(argc, argv, options)) return 2;
    in_addr parsed{};
    if (inet_pton(AF_INET, options.address.c_str(), &parsed) != 1 ||
        (ntohl(parsed.s_addr) >> 24) != 127) {
        std::fprintf(stderr, "the demo runs on a loopback address (127.0.0.0/8) only\n");
        return 2;
    }
    const std::uint32_t host = ntohl(parsed.s_addr);

    // The virtual tracker and its tools.
    const vyx::sim::Scene scene = vyx::sim::trackingDemoScene();
    const vyx::sim::DeviceDescription description = vyx::sim::defaultDescription();
    vyx::sim::VirtualTracker tracker(description);
    tracker.setMarkerFrameSource(vyx::sim::sceneFrameSource(description, scene));
    try {
        tracker.start(options.address, 0);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "cannot start the virtual tracker on %s: %s\n",
                     options.address.c_str(), e.what());
        return 1;
    }
    char pattern[] = "/tmp/vyx_demo_tools_XXXXXX";
    const char* toolDir = mkdtemp(pattern);
    if (toolDir == nullptr || !vyx::sim::writeToolFiles(scene, toolDir)) {
        std::fprintf(stderr, "cannot write the tool files\n");
        return 1;
    }
    std::printf("virtual tracker on %s:%u, tool files in %s\n", options.address.c_str(),
                static_cast<unsigned>(tracker.port()), toolDir);

    // The library, connected to it.
    VyxHandle handle = nullptr;
    int rc = Vyx_API_Initial(&handle);
    std::printf("%s\n", Vyx_API_GetLibVersion());
    if (rc == RV_SUCCESS)
        rc = Vyx_SetEthernetConnectIP(handle, static_cast<unsigned char>(host >> 24),
                                      static_cast<unsigned char>(host >> 16),
                                      static_cast<unsigned char>(host >> 8),
                                      static_cast<unsigned char>(host));
    if (rc == RV_SUCCESS) rc = Vyx_SetEthernetConnectPort(handle, tracker.port());
    T_VYXPOS_DATAPARA para{};
    if (rc == RV_SUCCESS) rc = Vyx_ConnectDevice(handle, Interface_Ethernet, &para);
    if (rc != RV_SUCCESS) {
        std::fprintf(stderr, "connect failed: %d\n", rc);
        Vyx_API_Close(&handle);
        return 1;
    }
    std::printf("\nconnected: model %.20s (index %u), grey images %u x %u\n", para.DeviceModel,
                para.DeviceType, para.MarkerImageWidth, para.MarkerImageHeight);
    Vyx_SetToolInfoFilePath(handle, toolDir, true);
    int toolCount = 0;
    Vyx_GetCountOfToolInfo(handle, &toolCount);
    std::printf("%d tools loaded\n\n", toolCount);

    Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus);
    printHeader();
    const auto start = std::chrono::steady_clock::now();
    auto nextPrint = start;
    int frames = 0;
    int failures = 0;
    T_MarkerInfo markers{};
    T_VyxToolDataResult results{};
    while (std::chrono::steady_clock::now() - start < std::chrono::duration<double>(options.seconds)) {
        rc = Vyx_GetMarkerInfo(handle, Interface_Ethernet, &markers);
        if (rc == RV_NO_NEW_FRAME) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            continue;
        }
        if (rc != RV_SUCCESS) {
            ++failures;
            std::fprintf(stderr, "frame error %d, restarting acquisition\n", rc);
            Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_MarkerAndStatus);
            continue;
        }
        ++frames;
        if (Vyx_FindToolInfo(handle, &markers, &results, 0) != RV_SUCCESS) continue;
        // A table of all tools five times a second.
        if (std::chrono::steady_clock::now() >= nextPrint) {
            printTools(markers, results);
            nextPrint += std::chrono::milliseconds(200);
        }
    }
    Vyx_SetAcquireData(handle, Interface_Ethernet, DataType_None);
    const double elapsed =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::printf("\n%d frames in %.1f s (%.0f per second), %d errors\n", frames, elapsed,
                frames / elapsed, failures);

    Vyx_API_Close(&handle);
    tracker.stop();
    std::error_code ignored;
    std::filesystem::remove_all(toolDir, ignored);
    std::printf("closed\n");
    return frames > 0 && failures == 0 ? 0 : 1;
}
