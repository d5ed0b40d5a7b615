// Accuracy of pivot calibration under pixel noise, end to end: the virtual
// tracker plays a tool pivoting about a fixed point about 1.5 m ahead with
// Gaussian noise on every marker centre, and the library calibrates it over
// its exported functions. Per cone half-angle and noise seed it reports the
// tip error of the calibration's own (single-precision) result and of the
// quality report's double-precision one, the predicted 1-sigma tip precision,
// pivotError and the verdict; then the RMS over the seeds.
//
//   vyx_accuracy_calibration [--seeds N] [--noise PX]
//
// It serves on 127.0.1.1, 127.0.1.2, ... port 7 (loopback only; port 7 needs
// root).
#include "VyxPositionAPI.h"
#include "sim/DeviceDescription.h"
#include "sim/Scene.h"
#include "sim/SceneTools.h"
#include "sim/VirtualTracker.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

using namespace vyx::sim;

namespace {

struct Run {
    bool ok = false;
    double tipError = 0, doubleTipError = 0;
    T_ToolTipPivotInfo info{};
    T_ToolTipPivotQuality quality{};
};

double distanceTo(const double* a, const Point3& b) {
    return std::hypot(a[0] - b.x, a[1] - b.y, a[2] - b.z);
}

Run pivotRun(const Scene& scene, int host, const std::string& directory) {
    Run run;
    VirtualTracker tracker;
    tracker.setMarkerFrameSource(sceneFrameSource(defaultDescription(), scene));
    tracker.start("127.0.1." + std::to_string(host), 7);
    VyxHandle handle = nullptr;
    Vyx_API_Initial(&handle);
    Vyx_SetEthernetConnectIP(handle, 127, 0, 1, static_cast<unsigned char>(host));
    T_VYXPOS_DATAPARA para{};
    T_MarkerInfo markers{};
    T_VyxPosStatusInfo status{};
    if (writeToolFiles(scene, directory) &&
        Vyx_ConnectDevice(handle, Interface_Ethernet, &para) == RV_SUCCESS &&
        Vyx_SetToolInfoFilePath(handle, directory.c_str(), true) == RV_SUCCESS &&
        Vyx_InitToolTipPivotWithToolId(handle, "probe", 0) == RV_SUCCESS) {
        for (int frame = 0; frame < 400 && !run.info.finished; ++frame) {
            if (Vyx_GetMarkerAndStatusFromHardware(handle, Interface_Ethernet, &markers, &status) !=
                RV_SUCCESS)
                break;
            Vyx_ProceedToolTipPivot(handle, &markers, &run.info);
        }
        T_VyxSingleToolDataResult probe{};
        if (run.info.finished &&
            Vyx_GetToolTipPivotQuality(handle, &run.quality) == RV_SUCCESS &&
            Vyx_FindSingleToolInfo(handle, &markers, "probe", &probe, 0) == RV_SUCCESS) {
            const double tip[3] = {probe.ToolTipsLocal[0], probe.ToolTipsLocal[1],
                                   probe.ToolTipsLocal[2]};
            run.tipError = distanceTo(tip, scene.bodies[0].tip);
            run.doubleTipError = distanceTo(run.quality.TipPoint, scene.bodies[0].tip);
            run.ok = true;
        }
    }
    Vyx_API_Close(&handle);
    tracker.stop();
    return run;
}

const char* verdictText(int verdict) {
    switch (verdict) {
        case PivotVerdict_Good: return "good";
        case PivotVerdict_Singular: return "singular";
        case PivotVerdict_TooLittleRotation: return "too little rotation";
        case PivotVerdict_ResidualTooHigh: return "residual too high";
    }
    return "?";
}

}  // namespace

int main(int argc, char** argv) {
    int seeds = 20;
    double noisePx = 0.05;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seeds") == 0) seeds = std::atoi(argv[i + 1]);
        if (std::strcmp(argv[i], "--noise") == 0) noisePx = std::atof(argv[i + 1]);
    }
    const std::filesystem::path directory =
        std::filesystem::temp_directory_path() / "vyx_accuracy_calibration";
    std::filesystem::create_directories(directory);
    int host = 1;
    for (double degrees : {5.0, 30.0}) {
        std::printf("cone half-angle %.0f deg, %.3f px noise, %d seeds\n", degrees, noisePx, seeds);
        std::printf("%5s %12s %12s %12s %12s  %s\n", "seed", "tip err", "double err",
                    "predicted", "pivotError", "verdict");
        double squares = 0, doubleSquares = 0, predicted = 0, pivotError = 0;
        int runs = 0;
        for (int seed = 1; seed <= seeds; ++seed) {
            Scene scene = pivotScene(degrees * M_PI / 180.0);
            scene.noiseSigmaPx = noisePx;
            scene.noiseSeed = static_cast<std::uint64_t>(seed);
            const Run run = pivotRun(scene, host++, directory.string());
            if (!run.ok) {
                std::printf("%5d  failed\n", seed);
                continue;
            }
            std::printf("%5d %12.4f %12.4f %12.4f %12.4f  %s\n", seed, run.tipError,
                        run.doubleTipError, run.quality.TipPrecision, run.info.pivotError,
                        verdictText(run.quality.Verdict));
            squares += run.tipError * run.tipError;
            doubleSquares += run.doubleTipError * run.doubleTipError;
            predicted += run.quality.TipPrecision;
            pivotError += run.info.pivotError;
            ++runs;
        }
        if (runs == 0) continue;
        std::printf("RMS tip error %.4f mm (single precision), %.4f mm (double); mean predicted "
                    "%.4f mm; mean pivotError %.4f mm\n\n",
                    std::sqrt(squares / runs), std::sqrt(doubleSquares / runs), predicted / runs,
                    pivotError / runs);
    }
    std::filesystem::remove_all(directory);
    return 0;
}
