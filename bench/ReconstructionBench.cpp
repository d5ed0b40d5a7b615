// Per-frame reconstruction cost: pairing and triangulation of one frame's
// marker centres, next to OpenCV's undistortion and triangulation of the same,
// already known, pairs.
#include "camera/MarkerReconstruction.h"
#include "support/StereoRig.h"
#include "camera/PairMatching.h"
#include "camera/StereoCompensation.h"
#include "camera/StereoProjection.h"

#include <benchmark/benchmark.h>
#include <opencv2/calib3d.hpp>

#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace {

// Reconstructed points must lie this close to the scene: the centres are
// rounded to 32-bit floats, which moves them by up to 3e-5 px.
constexpr double kToleranceMm = 1e-3;

StereoWorkingModel makeRig() { return vyx::test::makeStereoRig(); }

// One frame: scene points in view of both cameras, at least 20 mm apart, and
// their 32-bit centres, centre i of each camera showing point i.
struct Frame {
    std::vector<cv::Vec3d> scene;
    std::vector<float> left, right;
};

Frame makeFrame(const StereoWorkingModel& rig, int markers) {
    std::mt19937 rng(static_cast<unsigned>(1000 + markers));
    std::uniform_real_distribution<double> x(-500, 400), y(-300, 300), z(1500, 2500);
    Frame frame;
    while (static_cast<int>(frame.scene.size()) < markers) {
        const cv::Vec3d p(x(rng), y(rng), z(rng));
        bool apart = true;
        for (const cv::Vec3d& q : frame.scene) apart = apart && cv::norm(p - q) > 20.0;
        double l[2], r[2];
        if (!apart || !projectToImages(p.val, rig, l, r)) continue;
        frame.scene.push_back(p);
        frame.left.insert(frame.left.end(), {float(l[0]), float(l[1])});
        frame.right.insert(frame.right.end(), {float(r[0]), float(r[1])});
    }
    return frame;
}

// Empty when every point lies within kToleranceMm of a distinct scene point
// and every scene point is found; otherwise what went wrong.
std::string checkPoints(const std::vector<cv::Vec3d>& points, const std::vector<cv::Vec3d>& scene) {
    if (points.size() != scene.size())
        return std::to_string(points.size()) + " points for " + std::to_string(scene.size());
    std::vector<bool> used(scene.size(), false);
    for (const cv::Vec3d& p : points) {
        std::size_t nearest = 0;
        for (std::size_t i = 1; i < scene.size(); ++i)
            if (cv::norm(p - scene[i]) < cv::norm(p - scene[nearest])) nearest = i;
        if (used[nearest] || cv::norm(p - scene[nearest]) > kToleranceMm)
            return "a point is off the scene by " + std::to_string(cv::norm(p - scene[nearest])) +
                   " mm";
        used[nearest] = true;
    }
    return {};
}

void reconstructMarkersFrame(benchmark::State& state) {
    const StereoWorkingModel rig = makeRig();
    const Frame frame = makeFrame(rig, static_cast<int>(state.range(0)));
    const int n = static_cast<int>(frame.scene.size());
    const double thresholdPx = pairThresholdForModel(0, -1);
    T_MarkerInfo out{};

    reconstructMarkers(frame.left.data(), n, frame.right.data(), n, rig, thresholdPx, 30000, out);
    std::vector<cv::Vec3d> points;
    for (std::uint32_t k = 0; k < out.MarkerNumber; ++k)
        points.emplace_back(out.MarkerCoordinate[k]);
    const std::string problem = checkPoints(points, frame.scene);
    if (!problem.empty()) {
        state.SkipWithError(problem.c_str());
        return;
    }

    for (auto _ : state) {
        reconstructMarkers(frame.left.data(), n, frame.right.data(), n, rig, thresholdPx, 30000,
                           out);
        benchmark::DoNotOptimize(out.MarkerNumber);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

// OpenCV on the known pairs: undistortPoints for each camera (20 iterations,
// as the library uses), triangulatePoints with the rig's projection matrices
// for normalised coordinates, and the division by the homogeneous coordinate.
// The points are reported in the same frame as the library's: relative to the
// middle of the baseline.
void openCvUndistortTriangulate(benchmark::State& state) {
    const StereoWorkingModel rig = makeRig();
    const Frame frame = makeFrame(rig, static_cast<int>(state.range(0)));
    const int n = static_cast<int>(frame.scene.size());

    cv::Mat leftCentres(n, 1, CV_64FC2), rightCentres(n, 1, CV_64FC2);
    for (int i = 0; i < n; ++i) {
        leftCentres.at<cv::Vec2d>(i) = {frame.left[2 * i], frame.left[2 * i + 1]};
        rightCentres.at<cv::Vec2d>(i) = {frame.right[2 * i], frame.right[2 * i + 1]};
    }
    // A camera at centre C with rotation R sees a point P at R^T (P - C).
    const cv::Mat leftProjection = cv::Mat::eye(3, 4, CV_64F);
    const cv::Mat rightToCamera = rig.right.R.t();
    const cv::Mat rightOffset = -rightToCamera * rig.right.T;
    cv::Mat rightProjection;
    cv::hconcat(rightToCamera, rightOffset, rightProjection);
    const cv::Vec3d halfBaseline(rig.right.T.at<double>(0) * 0.5, rig.right.T.at<double>(1) * 0.5,
                                 rig.right.T.at<double>(2) * 0.5);
    const cv::TermCriteria iterations(cv::TermCriteria::COUNT, 20, 0.0);

    cv::Mat leftNormalised, rightNormalised, homogeneous;
    std::vector<cv::Vec3d> points(static_cast<std::size_t>(n));
    const auto run = [&] {
        cv::undistortPoints(leftCentres, leftNormalised, rig.left.cameraMatrix,
                            rig.left.distCoeffs, cv::noArray(), cv::noArray(), iterations);
        cv::undistortPoints(rightCentres, rightNormalised, rig.right.cameraMatrix,
                            rig.right.distCoeffs, cv::noArray(), cv::noArray(), iterations);
        cv::triangulatePoints(leftProjection, rightProjection, leftNormalised, rightNormalised,
                              homogeneous);
        for (int i = 0; i < n; ++i) {
            const double w = homogeneous.at<double>(3, i);
            points[static_cast<std::size_t>(i)] =
                cv::Vec3d(homogeneous.at<double>(0, i) / w, homogeneous.at<double>(1, i) / w,
                          homogeneous.at<double>(2, i) / w) -
                halfBaseline;
        }
    };

    run();
    const std::string problem = checkPoints(points, frame.scene);
    if (!problem.empty()) {
        state.SkipWithError(problem.c_str());
        return;
    }

    for (auto _ : state) {
        run();
        benchmark::DoNotOptimize(points.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * n);
}

}  // namespace

BENCHMARK(reconstructMarkersFrame)
    ->Arg(10)->Arg(50)->Arg(100)->Arg(200)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(openCvUndistortTriangulate)
    ->Arg(10)->Arg(50)->Arg(100)->Arg(200)
    ->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
