#include "camera/MarkerReconstruction.h"
#include "support/StereoRig.h"

#include "camera/StereoProjection.h"
#include "camera/Triangulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

// Centres as the device sends them: 32-bit (u, v), centre i showing point i.
struct Centres {
    std::vector<float> left, right;
    int count() const { return static_cast<int>(left.size() / 2); }
};

Centres centresOf(const StereoWorkingModel& rig, const std::vector<cv::Vec3d>& points) {
    Centres centres;
    for (const cv::Vec3d& p : points) {
        double l[2], r[2];
        EXPECT_TRUE(projectToImages(p.val, rig, l, r)) << p;
        centres.left.insert(centres.left.end(), {float(l[0]), float(l[1])});
        centres.right.insert(centres.right.end(), {float(r[0]), float(r[1])});
    }
    return centres;
}

// Random points in front of both cameras, apart from each other by 20 mm at least.
std::vector<cv::Vec3d> randomScene(std::mt19937& rng, int n) {
    std::uniform_real_distribution<double> x(-500, 400), y(-300, 300), z(1500, 2500);
    std::vector<cv::Vec3d> points;
    while (static_cast<int>(points.size()) < n) {
        const cv::Vec3d p(x(rng), y(rng), z(rng));
        bool apart = true;
        for (const cv::Vec3d& q : points) apart = apart && cv::norm(p - q) > 20.0;
        if (apart) points.push_back(p);
    }
    return points;
}

// Checks that every reconstructed marker lies within toleranceMm of a distinct
// point of expected, and that there are as many markers as points.
void expectMarkersAt(const T_MarkerInfo& out, const std::vector<cv::Vec3d>& expected,
                     double toleranceMm) {
    ASSERT_EQ(out.MarkerNumber, expected.size());
    std::vector<bool> used(expected.size(), false);
    for (std::uint32_t k = 0; k < out.MarkerNumber; ++k) {
        const cv::Vec3d marker(out.MarkerCoordinate[k]);
        std::size_t nearest = 0;
        for (std::size_t i = 1; i < expected.size(); ++i)
            if (cv::norm(marker - expected[i]) < cv::norm(marker - expected[nearest])) nearest = i;
        EXPECT_LT(cv::norm(marker - expected[nearest]), toleranceMm) << "marker " << k;
        EXPECT_FALSE(used[nearest]) << "marker " << k;
        used[nearest] = true;
    }
}

// A point at depth zMm on the ray of the left image point uv. The left
// camera is unrotated and the output frame's origin lies half the baseline
// to its right.
cv::Vec3d pointSeenLeftAt(const StereoWorkingModel& rig, cv::Vec2d uv, double zMm) {
    double xy[2];
    undistortNormalise(uv.val, 1, xy, rig.left.distCoeffs.ptr<double>(),
                       rig.left.cameraMatrix.ptr<double>());
    return cv::Vec3d(xy[0] * zMm, xy[1] * zMm, zMm) - cv::Vec3d(rig.right.T) / 2;
}

class ReconstructionOnRig : public ::testing::Test {
protected:
    StereoWorkingModel rig = vyx::test::makeStereoRig();
    T_MarkerInfo out{};

    void reconstruct(const Centres& c, double thresholdPx = 3.0, double maxDistanceMm = 30000) {
        EXPECT_EQ(reconstructMarkers(c.left.data(), c.count(), c.right.data(), c.count(), rig,
                                     thresholdPx, maxDistanceMm, out),
                  0);
    }
};

}  // namespace

TEST_F(ReconstructionOnRig, RandomScenesOfUpTo200MarkersReconstructToTheScenePoints) {
    std::mt19937 rng(20240611);
    for (int n : {1, 2, 5, 30, 100, 160, 200}) {
        const std::vector<cv::Vec3d> scene = randomScene(rng, n);
        reconstruct(centresOf(rig, scene));
        // Rounding the centres to 32 bits moves them by up to 3e-5 px.
        expectMarkersAt(out, scene, 1e-3);
        for (std::uint32_t k = 0; k < out.MarkerNumber; ++k) EXPECT_EQ(out.MarkerPairIndex[k], k);
    }
}

TEST_F(ReconstructionOnRig, SkipsCentresAtExactlyZeroButKeepsOthersOnTheAxes) {
    const std::vector<cv::Vec3d> scene{{0, 0, 2000}, {250, -100, 1800}};
    const cv::Vec3d atOrigin = pointSeenLeftAt(rig, {0.0, 0.0}, 2000);
    const cv::Vec3d atHalf = pointSeenLeftAt(rig, {0.0, 0.5}, 2000);
    Centres c = centresOf(rig, {scene[0], atOrigin, scene[1], atHalf});
    c.left[2] = c.left[3] = 0.0f;
    c.left[6] = 0.0f;
    c.left[7] = 0.5f;
    reconstruct(c);
    expectMarkersAt(out, {scene[0], scene[1], atHalf}, 1e-3);
}

TEST_F(ReconstructionOnRig, OnlyTheFirst200CentresOfEachCameraTakePart) {
    // 205 markers, listed in the right image in reverse: markers 0-4 remain in
    // the left image only and 200-204 in the right image only. Those two
    // groups lie at opposite image edges, so none of them can pair up.
    std::mt19937 rng(7);
    std::vector<cv::Vec3d> scene = randomScene(rng, 205);
    for (int i = 0; i < 5; ++i) {
        scene[i][1] = 330.0 + 8.0 * i;
        scene[200 + i][1] = -330.0 - 8.0 * i;
    }
    Centres c = centresOf(rig, scene);
    c.right = centresOf(rig, {scene.rbegin(), scene.rend()}).right;
    reconstruct(c);
    expectMarkersAt(out, std::vector<cv::Vec3d>(scene.begin() + 5, scene.begin() + 200), 1e-3);
}

TEST_F(ReconstructionOnRig, DropsScaledDepthsAtOrBeyondTheLimit) {
    const Centres c = centresOf(rig, {{0, 0, 1800}, {100, 50, 2000}, {-100, 80, 2200}});
    reconstruct(c);
    ASSERT_EQ(out.MarkerNumber, 3u);
    std::vector<double> depth{out.MarkerCoordinate[0][2], out.MarkerCoordinate[1][2],
                              out.MarkerCoordinate[2][2]};
    std::sort(depth.begin(), depth.end());

    rig.zFactor = 1.01;
    const double limit = depth[1] * 1.01;
    reconstruct(c, 3.0, limit);
    ASSERT_EQ(out.MarkerNumber, 1u);
    EXPECT_EQ(out.MarkerCoordinate[0][2], depth[0] * 1.01);
    reconstruct(c, 3.0, std::nextafter(limit, std::numeric_limits<double>::infinity()));
    EXPECT_EQ(out.MarkerNumber, 2u);
}

TEST_F(ReconstructionOnRig, AFailedMatchOnlyZeroesTheCountAndSuccessKeepsFrameFields) {
    out.ID = 77;
    out.OverLimitFlag = 1;
    out.Reserved0 = 5;
    std::memset(out.Reserved1, 0xAB, sizeof out.Reserved1);
    std::memset(out.Reserved2, 0xCD, sizeof out.Reserved2);
    out.Reserved3[1] = 9;
    out.MarkerCoordinate[2][0] = 123.0;
    out.MarkerPairIndex[5] = 9;
    const Centres c = centresOf(rig, {{0, 0, 2000}, {120, 60, 2100}});
    reconstruct(c);
    ASSERT_EQ(out.MarkerNumber, 2u);
    EXPECT_EQ(out.ID, 77u);
    EXPECT_EQ(out.OverLimitFlag, 1u);
    EXPECT_EQ(out.Reserved0, 5u);
    EXPECT_EQ(out.Reserved1[17], 0);
    EXPECT_EQ(out.Reserved2[599], 0xCD);
    EXPECT_EQ(out.Reserved3[1], 0u);
    EXPECT_EQ(out.MarkerCoordinate[2][0], 0.0);
    EXPECT_EQ(out.MarkerPairIndex[5], 0u);

    T_MarkerInfo expected = out;
    expected.MarkerNumber = 0;
    reconstruct(c, 0.0);
    EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
    out.MarkerNumber = 2;
    EXPECT_EQ(reconstructMarkers(nullptr, 2, c.right.data(), 2, rig, 3.0, 30000, out), 0);
    EXPECT_EQ(std::memcmp(&out, &expected, sizeof out), 0);
}
