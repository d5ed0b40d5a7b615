#include "camera/RotationUtils.h"
#include "camera/StereoProjection.h"
#include "camera/Triangulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

SYSPARA makeCamera(double f, double cx, double cy, cv::Vec<double, 5> dist, cv::Vec3d rotation,
                   cv::Vec3d T) {
    SYSPARA camera;
    camera.cameraMatrix = (cv::Mat_<double>(3, 3) << f, 0, cx, 0, f, cy, 0, 0, 1);
    camera.distCoeffs = cv::Mat(dist).clone();
    myRodrigues(rotation, camera.R);
    camera.T = cv::Mat(T).clone();
    return camera;
}

// 1280 x 720 cameras, fx about 1400 px, a 500 mm baseline with small
// misalignments, the right camera toed in by 0.1 rad, mild distortion (k3
// too) and a depth factor away from 1.
StereoWorkingModel realisticRig() {
    StereoWorkingModel rig;
    const cv::Vec<double, 5> dist(-0.1, 0.05, 1e-4, -1e-4, -0.02);
    rig.left = makeCamera(1400, 640, 360, dist, {0.01, 0, 0}, {});
    rig.right = makeCamera(1405, 630, 365, dist, {0, -0.1, 0}, {500, 2.5, -4});
    rig.zFactor = 1.0025;
    return rig;
}

}  // namespace

TEST(StereoProjection, FollowsEachCameraAxisAndDistortion) {
    StereoWorkingModel rig = realisticRig();
    rig.zFactor = 1.0;
    rig.left.distCoeffs = (cv::Mat_<double>(5, 1) << -0.1, 0, 0, 0, 0);
    const cv::Mat halfBaseline = rig.right.T * 0.5;
    double leftUv[2], rightUv[2];

    // 2 m along the left camera's direction (0.2, 0, 1), distorted by hand:
    // x = 0.2 * (1 - 0.1 * 0.04) = 0.1992.
    const cv::Mat leftOffset = rig.left.R * (cv::Mat_<double>(3, 1) << 0.2, 0, 1) * 2000.0;
    const cv::Mat onLeftRay = leftOffset - halfBaseline;
    ASSERT_TRUE(projectToImages(onLeftRay.ptr<double>(), rig, leftUv, rightUv));
    EXPECT_NEAR(leftUv[0], 640 + 1400 * 0.1992, 1e-9);
    EXPECT_NEAR(leftUv[1], 360, 1e-9);
    // 1.5 m along the right camera's optical axis: its principal point.
    const cv::Mat onRightAxis = rig.right.R * (cv::Mat_<double>(3, 1) << 0, 0, 1500) + halfBaseline;
    ASSERT_TRUE(projectToImages(onRightAxis.ptr<double>(), rig, leftUv, rightUv));
    EXPECT_NEAR(rightUv[0], 630, 1e-9);
    EXPECT_NEAR(rightUv[1], 365, 1e-9);

    const cv::Mat behind = -leftOffset - halfBaseline;
    EXPECT_FALSE(projectToImages(behind.ptr<double>(), rig, leftUv, rightUv));
}

TEST(Undistortion, RemovesKnownDistortionAndOnlyNormalisesWithout) {
    const cv::Mat K = (cv::Mat_<double>(3, 3) << 1000, 0, 640, 0, 1000, 360, 0, 0, 1);
    // (0.2, 0.1) distorted by hand with k1 = -0.1, p1 = 1e-3: r2 = 0.05,
    // x = 0.2 * 0.995 + 2e-3 * 0.02 = 0.19904, y = 0.1 * 0.995 + 1e-3 * 0.07 = 0.09957.
    const cv::Mat dist = (cv::Mat_<double>(5, 1) << -0.1, 0, 1e-3, 0, 0);
    const double uv[2] = {839.04, 459.57};
    double xy[2];
    undistortNormalise(uv, 1, xy, dist.ptr<double>(), K.ptr<double>());
    EXPECT_NEAR(xy[0], 0.2, 1e-12);
    EXPECT_NEAR(xy[1], 0.1, 1e-12);

    // Without distortion only the inverse camera matrix acts, on homogeneous rows.
    const cv::Mat points = (cv::Mat_<double>(2, 3) << 740, 260, 1, 1480, 440, 2);
    cv::Mat normalised;
    UndistorNorm(points, normalised, cv::Mat::zeros(5, 1, CV_64F), K);
    const cv::Mat expected = (cv::Mat_<double>(2, 3) << 0.1, -0.1, 1, 0.2, -0.28, 2);
    EXPECT_LT(cv::norm(normalised, expected, cv::NORM_INF), 1e-15);
    // Without coefficients the output keeps what it held.
    cv::Mat untouched = cv::Mat::ones(1, 3, CV_64F) * 7.0;
    UndistorNorm(points, untouched, cv::Mat(), K);
    EXPECT_EQ(cv::norm(untouched, cv::Mat::ones(1, 3, CV_64F) * 7.0, cv::NORM_INF), 0);
}

TEST(Triangulation, PlacesHandWorkedPairsAroundTheBaselineMiddleAndRejectsDegenerateInput) {
    const SYSPARA left = makeCamera(1000, 640, 360, {}, {}, {});
    const SYSPARA right = makeCamera(1000, 640, 360, {}, {}, {500, 0, 0});
    // From the left camera (100, 50, 1000) and (-200, -100, 2000), reported
    // relative to the baseline middle (250, 0, 0); pair 2 has identical rays.
    const cv::Mat l = (cv::Mat_<double>(3, 3) << 740, 410, 1, 540, 310, 1, 700, 400, 1);
    const cv::Mat r = (cv::Mat_<double>(3, 3) << 240, 410, 1, 290, 310, 1, 700, 400, 1);
    cv::Mat out;
    Compute3DPoints(l, r, out, left, right);
    ASSERT_EQ(out.size(), cv::Size(3, 3));
    const cv::Mat expected = (cv::Mat_<double>(2, 3) << -150, 50, 1000, -450, -100, 2000);
    EXPECT_LT(cv::norm(out.rowRange(0, 2), expected, cv::NORM_INF), 1e-9);
    EXPECT_EQ(out.at<double>(2, 2), std::numeric_limits<double>::infinity());

    Compute3DPoints(l, r.rowRange(0, 2), out, left, right);
    EXPECT_TRUE(out.empty());
    out = cv::Mat::ones(2, 3, CV_64F);
    Compute3DPoints(cv::Mat(0, 3, CV_64F), cv::Mat(0, 3, CV_64F), out, left, right);
    EXPECT_TRUE(out.empty());
}

// Points projected through the realistic rig and reconstructed. A float
// centre below 2048 px is off by at most 2^-14 px, so the depth moves by at
// most Z^2 / (f B) x 2^-13; twice that covers toe-in, distortion and the
// lateral error. Double centres leave only rounding, far below 1e-7 mm.
TEST(Triangulation, RecoversPointsProjectedThroughADistortedRig) {
    const StereoWorkingModel rig = realisticRig();
    std::mt19937 random(20240611);
    std::uniform_real_distribution<double> lateral(-500, 500), depth(800, 3000);
    std::vector<cv::Vec3d> truth;
    std::vector<double> leftUv, rightUv;
    cv::Mat leftRows, rightRows;  // (u, v, 1) with float centres, as the frames carry them
    while (truth.size() < 300) {
        const cv::Vec3d p(lateral(random), lateral(random), depth(random));
        double l[2], r[2];
        if (!projectToImages(p.val, rig, l, r) || std::min({l[0], l[1], r[0], r[1]}) < 0 ||
            std::max(l[0], r[0]) >= 1280 || std::max(l[1], r[1]) >= 720)
            continue;
        truth.push_back(p);
        leftUv.insert(leftUv.end(), {l[0], l[1]});
        rightUv.insert(rightUv.end(), {r[0], r[1]});
        leftRows.push_back(cv::Mat(cv::Matx13d(float(l[0]), float(l[1]), 1)));
        rightRows.push_back(cv::Mat(cv::Matx13d(float(r[0]), float(r[1]), 1)));
    }
    const int n = static_cast<int>(truth.size());

    // Double centres through the raw entry points.
    std::vector<double> xyL(2 * n), xyR(2 * n), xyz(3 * n);
    undistortNormalise(leftUv.data(), n, xyL.data(), rig.left.distCoeffs.ptr<double>(),
                       rig.left.cameraMatrix.ptr<double>());
    undistortNormalise(rightUv.data(), n, xyR.data(), rig.right.distCoeffs.ptr<double>(),
                       rig.right.cameraMatrix.ptr<double>());
    triangulatePairs(xyL.data(), xyR.data(), n, rig.left.R.ptr<double>(),
                     rig.right.R.ptr<double>(), rig.right.T.ptr<double>(), xyz.data());
    // Float centres through the matrix interface.
    cv::Mat out;
    Compute3DPoints(leftRows, rightRows, out, rig.left, rig.right);
    ASSERT_EQ(out.rows, n);

    const cv::Vec3d depthScale(1, 1, rig.zFactor);
    for (int i = 0; i < n; ++i) {
        const double z = truth[i][2];
        EXPECT_LT(cv::norm(cv::Vec3d(&xyz[3 * i]).mul(depthScale) - truth[i]), 1e-7) << i;
        EXPECT_LT(cv::norm(cv::Vec3d(out.ptr<double>(i)).mul(depthScale) - truth[i]),
                  z * z / (1400.0 * 500.0) * std::ldexp(1.0, -12))
            << "pair " << i << " at Z " << z;
    }
}
