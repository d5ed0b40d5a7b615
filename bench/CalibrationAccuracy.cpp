// Accuracy of the calibration procedures under pixel noise, end to end: the
// virtual tracker plays each procedure's scene with Gaussian noise on every
// marker centre, and the library runs the procedure over its exported
// functions.
//   - Pivot calibration, cones of 5 and 30 degrees about a point 1.5 m ahead:
//     tip error of the calibration's own (single-precision) result and of the
//     quality report's double-precision one, the predicted 1-sigma tip
//     precision, pivotError and the verdict; then the RMS over the seeds.
//   - Self-calibration of a tool file 0.4 mm off, and tool making of a new 4-
//     and 5-marker body: the largest distance between a resulting marker
//     position and the true one once the two constellations are rigidly
//     fitted onto each other, and meanError.
//
//   vyx_accuracy_calibration [--seeds N] [--noise PX]
//
// Each run serves on its own loopback address, 127.0.1.2, 127.0.1.3, ...,
// on a free unprivileged port.
#include "SceneBench.h"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

using namespace vyx::sim;

namespace {

const std::string kDirectory =
    (std::filesystem::temp_directory_path() / "vyx_accuracy_calibration").string();


// The virtual tracker playing a scene on its own loopback address, and the
// library connected to it with the scene's tool files loaded.
class Session : public vyx::bench::SceneBenchSession {
public:
    Session(const Scene& scene, int host)
        : SceneBenchSession(scene, scene, static_cast<unsigned char>(1 + host / 250),
                            static_cast<unsigned char>(1 + host % 250), kDirectory) {}

    // Largest distance between the tool's marker positions and the body's
    // true constellation after the rigid fit of one onto the other, so that
    // only the shape counts (the noise of one frame's pose does not). Markers
    // are paired through the tool's pose in the current frame. -1 when the
    // tool is not found.
    double shapeError(const char* tool, const char* body) {
        T_VyxSingleToolDataResult r{};
        int count = 0;
        float local[VYX_MAX_MARKERS][3];
        if (Vyx_FindSingleToolInfo(handle, &markers, tool, &r, 0) != RV_SUCCESS || r.ValidFlag != 1 ||
            Vyx_GetSpecificToolFileInfoArray(handle, tool, &count, &local[0][0]) != RV_SUCCESS)
            return -1.0;
        std::size_t index = 0;
        const Scene& s = scene();
        while (index < s.bodies.size() && s.bodies[index].name != body) ++index;
        const ToolPose truth = truePose(index);
        const std::vector<Point3> design = toolMarkers(s.bodies[index]);
        const cv::Matx33d R(r.RotationMatrix[0][0], r.RotationMatrix[0][1], r.RotationMatrix[0][2],
                            r.RotationMatrix[1][0], r.RotationMatrix[1][1], r.RotationMatrix[1][2],
                            r.RotationMatrix[2][0], r.RotationMatrix[2][1], r.RotationMatrix[2][2]);
        const cv::Vec3d T(r.Translation[0], r.Translation[1], r.Translation[2]);
        cv::Mat from(count, 3, CV_64F), to(count, 3, CV_64F);
        for (int i = 0; i < count; ++i) {
            const cv::Vec3d q(local[i][0], local[i][1], local[i][2]);
            const cv::Vec3d placed = R * q + T;
            std::size_t best = 0;
            double nearest = 1e9;
            for (std::size_t j = 0; j < design.size(); ++j) {
                const Point3 p = toMeasurement(truth, design[j]);
                const double d = cv::norm(placed - cv::Vec3d(p.x, p.y, p.z));
                if (d < nearest) nearest = d, best = j;
            }
            for (int k = 0; k < 3; ++k) from.at<double>(i, k) = q[k];
            to.at<double>(i, 0) = design[best].x;
            to.at<double>(i, 1) = design[best].y;
            to.at<double>(i, 2) = design[best].z;
        }
        return vyx::bench::rigidFitResidual(from, to);
    }
};

const char* verdictText(int verdict) {
    switch (verdict) {
        case PivotVerdict_Good: return "good";
        case PivotVerdict_Singular: return "singular";
        case PivotVerdict_TooLittleRotation: return "too little rotation";
        case PivotVerdict_ResidualTooHigh: return "residual too high";
    }
    return "?";
}

void pivotStudy(int seeds, double noisePx, int& host) {
    for (double degrees : {5.0, 30.0}) {
        std::printf("pivot: cone half-angle %.0f deg, %.3f px noise, %d seeds\n", degrees, noisePx,
                    seeds);
        std::printf("%5s %12s %12s %12s %12s  %s\n", "seed", "tip err", "double err",
                    "predicted", "pivotError", "verdict");
        double squares = 0, doubleSquares = 0, predicted = 0, pivotError = 0;
        int runs = 0;
        for (int seed = 1; seed <= seeds; ++seed) {
            Scene scene = pivotScene(degrees * M_PI / 180.0);
            scene.noiseSigmaPx = noisePx;
            scene.noiseSeed = static_cast<std::uint64_t>(seed);
            Session s(scene, host++);
            T_ToolTipPivotInfo info{};
            T_ToolTipPivotQuality q{};
            T_VyxSingleToolDataResult probe{};
            bool ok = s.ok() && Vyx_InitToolTipPivotWithToolId(s.handle, "probe", 0) == RV_SUCCESS;
            for (int frame = 0; ok && frame < 400 && !info.finished; ++frame)
                if ((ok = s.next())) Vyx_ProceedToolTipPivot(s.handle, &s.markers, &info);
            ok = ok && info.finished && Vyx_GetToolTipPivotQuality(s.handle, &q) == RV_SUCCESS &&
                 Vyx_FindSingleToolInfo(s.handle, &s.markers, "probe", &probe, 0) == RV_SUCCESS;
            if (!ok) {
                std::printf("%5d  failed\n", seed);
                continue;
            }
            const Point3& tip = scene.bodies[0].tip;
            const double e = std::hypot(probe.ToolTipsLocal[0] - tip.x, probe.ToolTipsLocal[1] - tip.y,
                                        probe.ToolTipsLocal[2] - tip.z);
            const double d = std::hypot(q.TipPoint[0] - tip.x, q.TipPoint[1] - tip.y, q.TipPoint[2] - tip.z);
            std::printf("%5d %12.4f %12.4f %12.4f %12.4f  %s\n", seed, e, d, q.TipPrecision,
                        info.pivotError, verdictText(q.Verdict));
            squares += e * e;
            doubleSquares += d * d;
            predicted += q.TipPrecision;
            pivotError += info.pivotError;
            ++runs;
        }
        if (runs > 0)
            std::printf("RMS tip error %.4f mm (single precision), %.4f mm (double); mean predicted "
                        "%.4f mm; mean pivotError %.4f mm\n\n",
                        std::sqrt(squares / runs), std::sqrt(doubleSquares / runs), predicted / runs,
                        pivotError / runs);
    }
}

void selfCalibrationAndMakingStudy(int seeds, double noisePx, int& host) {
    std::printf("self-calibration (file 0.4 mm off) and tool making, %.3f px noise, %d seeds\n",
                noisePx, seeds);
    std::printf("%5s %14s %12s %14s %12s %14s %12s\n", "seed", "selfcal err", "meanError",
                "make4 err", "meanError", "make5 err", "meanError");
    double largest[3] = {0, 0, 0};
    for (int seed = 1; seed <= seeds; ++seed) {
        double error[3] = {-1, -1, -1};
        float meanError[3] = {0, 0, 0};
        {
            Scene scene = selfCalibrationScene(0.4, static_cast<std::uint64_t>(seed));
            scene.noiseSigmaPx = noisePx;
            scene.noiseSeed = static_cast<std::uint64_t>(seed);
            Session s(scene, host++);
            int count = 0;
            t_ToolFixProInfo info{};
            bool ok = s.ok() && Vyx_InitToolSelfCalibrationWithToolId(s.handle, "wand", &count) == RV_SUCCESS;
            for (int frame = 0; ok && frame < 300 && !info.finished; ++frame)
                if ((ok = s.next())) Vyx_ProceedToolSelfCalibration(s.handle, &s.markers, &info);
            if (ok && info.finished && s.next()) {
                error[0] = s.shapeError("wand", "wand");
                meanError[0] = info.meanError;
            }
        }
        for (int n : {4, 5}) {
            Scene scene = toolMakingScene(static_cast<std::size_t>(n));
            scene.noiseSigmaPx = noisePx;
            scene.noiseSeed = static_cast<std::uint64_t>(seed);
            Session s(scene, host++);
            t_ToolMadeProInfo info{};
            bool ok = s.ok() && Vyx_InitToolMadeInfo(s.handle, n, "made") == RV_SUCCESS;
            for (int frame = 0; ok && frame < 300 && !info.finished; ++frame)
                ok = s.next() && Vyx_ProceedToolMade(s.handle, &s.markers, &info) == RV_SUCCESS;
            if (ok && info.finished && Vyx_SaveToolMadeRlt(s.handle, 1) == RV_SUCCESS && s.next()) {
                error[n - 3] = s.shapeError("made", "newtool");
                meanError[n - 3] = info.meanError;
            }
        }
        std::printf("%5d %14.4f %12.4f %14.4f %12.4f %14.4f %12.4f\n", seed, error[0], meanError[0],
                    error[1], meanError[1], error[2], meanError[2]);
        for (int k = 0; k < 3; ++k) largest[k] = std::max(largest[k], error[k]);
    }
    std::printf("largest marker error over the seeds: self-calibration %.4f mm, tool making "
                "%.4f mm (4 markers), %.4f mm (5 markers)\n\n",
                largest[0], largest[1], largest[2]);
}

}  // namespace

int main(int argc, char** argv) {
    int seeds = 20;
    double noisePx = 0.05;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seeds") == 0) seeds = std::atoi(argv[i + 1]);
        if (std::strcmp(argv[i], "--noise") == 0) noisePx = std::atof(argv[i + 1]);
    }
    int host = 1;
    pivotStudy(seeds, noisePx, host);
    selfCalibrationAndMakingStudy(seeds, noisePx, host);
    std::filesystem::remove_all(kDirectory);
    return 0;
}
