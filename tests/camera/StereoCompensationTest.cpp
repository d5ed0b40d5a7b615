#include "camera/RotationUtils.h"
#include "camera/StereoCompensation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

namespace {

const double kNaN = std::numeric_limits<double>::quiet_NaN();

cv::Mat rotationAboutY(double angle) {
    return (cv::Mat_<double>(3, 3) << std::cos(angle), 0, std::sin(angle), 0, 1, 0,
            -std::sin(angle), 0, std::cos(angle));
}

SYSPARA makeCamera(double fx, const cv::Mat& R, cv::Vec3d T) {
    SYSPARA camera;
    camera.cameraMatrix = (cv::Mat_<double>(3, 3) << fx, 0, 640, 0, 1400, 360, 0, 0, 1);
    camera.distCoeffs = (cv::Mat_<double>(5, 1) << -0.1, 0.05, 1e-4, -1e-4, 0);
    camera.R = R.clone();
    camera.T = cv::Mat(T).clone();
    return camera;
}

double maxDifference(const SYSPARA& a, const SYSPARA& b) {
    return std::max({cv::norm(a.distCoeffs, b.distCoeffs, cv::NORM_INF),
                     cv::norm(a.cameraMatrix, b.cameraMatrix, cv::NORM_INF),
                     cv::norm(a.R, b.R, cv::NORM_INF), cv::norm(a.T, b.T, cv::NORM_INF)});
}

// Calibrations at 20 and 40 degrees differing in two elements only: left fx
// 1600 -> 1610 and right R(0,2) 0.1 -> 0.12; depth factor 1.00 -> 1.02.
CameraParameterBlock twoSetBlock() {
    CameraParameterBlock block;
    block.set1Left = makeCamera(1600, cv::Mat::eye(3, 3, CV_64F), {0, 0, 0});
    block.set1Right = makeCamera(1600, cv::Mat::eye(3, 3, CV_64F), {500, 0, 0});
    block.set1Right.R.at<double>(0, 2) = 0.1;
    block.set2Left = block.set1Left;
    block.set2Right = block.set1Right;
    block.set2Left.cameraMatrix.at<double>(0, 0) = 1610;
    block.set2Right.R.at<double>(0, 2) = 0.12;
    CameraParameterBlock::CalculateSysParaABC(block.differenceLeft, block.set2Left, block.set1Left);
    CameraParameterBlock::CalculateSysParaABC(block.differenceRight, block.set2Right,
                                              block.set1Right);
    block.zFactor2 = 1.02;
    block.zFactorDelta = 0.02;
    return block;
}

// Table entry i: left fx[i] and depth factor 1 + (fx[i] - 1600) / 1000, left
// camera turned about Y by angle[i], right camera by -angle[i].
void setTable(CameraParameterBlock& block, const std::vector<double>& temperatures,
              const std::vector<double>& fx, std::vector<double> angle = {0, 0, 0, 0}) {
    block.multi.clear();
    for (std::size_t i = 0; i < temperatures.size(); ++i) {
        block.multi.left.push_back(makeCamera(fx[i], rotationAboutY(angle[i]), {0, 0, 0}));
        block.multi.right.push_back(makeCamera(fx[i], rotationAboutY(-angle[i]), {500, 0, 0}));
        block.multi.temperatures.push_back(temperatures[i]);
        block.multi.depthFactors.push_back(1.0 + (fx[i] - 1600) / 1000);
    }
}

double leftFx(const StereoWorkingModel& model) { return model.left.cameraMatrix.at<double>(0, 0); }

}  // namespace

TEST(TwoSetCompensation, FollowsTemperatureLinearlyUnlessTheSetsCoincide) {
    CameraParameterBlock block = twoSetBlock();
    StereoWorkingModel model;
    struct Case { double t, fx, r02, zFactor; };
    for (const Case& c : {Case{30, 1605, 0.11, 1.01}, Case{50, 1615, 0.13, 1.03},
                          Case{10, 1595, 0.09, 0.99}}) {
        CalculateSysPara(block, c.t, model);
        SYSPARA left = block.set1Left, right = block.set1Right;
        left.cameraMatrix.at<double>(0, 0) = c.fx;
        right.R.at<double>(0, 2) = c.r02;  // component-wise, not re-orthogonalised
        EXPECT_LT(maxDifference(model.left, left), 1e-12) << "at " << c.t;
        EXPECT_LT(maxDifference(model.right, right), 1e-12) << "at " << c.t;
        EXPECT_NEAR(model.zFactor, c.zFactor, 1e-15) << "at " << c.t;
    }
    for (double secondTemperature : {20.004, 20.0, 15.0}) {
        block.calibTemperature2 = secondTemperature;
        CalculateSysPara(block, 35, model);
        EXPECT_EQ(maxDifference(model.left, block.set1Left), 0);
        EXPECT_EQ(maxDifference(model.right, block.set1Right), 0);
        EXPECT_EQ(model.zFactor, 1.0);
    }
}

TEST(TableCompensation, NeedsThreeEntriesHoldsItsEndsAndInterpolatesTheFirstEnclosingPair) {
    CameraParameterBlock block = twoSetBlock();
    StereoWorkingModel model;
    setTable(block, {10, 30}, {1620, 1640});
    CalculateSysPara(block, 30, model);
    EXPECT_NEAR(leftFx(model), 1605, 1e-12);  // two entries: the two-set result

    setTable(block, {10, 30, 50}, {1620, 1640, 1660}, {0.1, 0.3, 0.5});
    for (double t : {10.0, 0.0, 50.0, 70.0, kNaN}) {
        const std::size_t entry = t < 30 ? 0 : 2;  // NaN: no enclosing pair, the last
        CalculateSysPara(block, t, model);
        EXPECT_EQ(maxDifference(model.left, block.multi.left[entry]), 0) << "at " << t;
        EXPECT_EQ(model.zFactor, block.multi.depthFactors[entry]) << "at " << t;
    }
    // Inside: rotations follow their common axis, the rest linearly.
    for (double t : {20.0, 40.0}) {
        CalculateSysPara(block, t, model);
        const double fx = 1610 + t, angle = t / 100;
        EXPECT_NEAR(leftFx(model), fx, 1e-12) << "at " << t;
        EXPECT_NEAR(model.zFactor, 1.0 + (fx - 1600) / 1000, 1e-15) << "at " << t;
        EXPECT_LT(cv::norm(model.left.R, rotationAboutY(angle), cv::NORM_INF), 1e-12);
        EXPECT_LT(cv::norm(model.right.R, rotationAboutY(-angle), cv::NORM_INF), 1e-12);
    }
    // Not ascending: (10, 40) encloses 30 first, weight 2/3; (20, 50) would give 1630.
    setTable(block, {10, 40, 20, 50}, {1600, 1630, 1620, 1650});
    CalculateSysPara(block, 30, model);
    EXPECT_NEAR(leftFx(model), 1620, 1e-9);
    setTable(block, {10, kNaN, 50}, {1600, 1630, 1650});
    CalculateSysPara(block, 30, model);
    EXPECT_EQ(leftFx(model), 1650);
}

// Cameras placed by hand (centre at T, R mapping camera to measurement
// coordinates) see random points. Fifty generic correspondences fix E up to
// scale, and its norm fixes the scale.
TEST(EpipolarMatrices, HoldForPointsSeenByBothCameras) {
    StereoWorkingModel model;
    cv::Mat RL, RR;
    myRodrigues(cv::Vec3d(0.01, 0.04, 0.02), RL);
    myRodrigues(cv::Vec3d(-0.02, -0.1, -0.03), RR);
    model.left = makeCamera(1400, RL, {-12, 4, 7});
    model.right = makeCamera(1400, RR, {488, -3, 15});
    model.right.cameraMatrix.at<double>(1, 2) = 380;
    CalculateMlrRT_SEF(model);

    const double f = 1.0 / 0.0052;
    const cv::Matx33d knewL(f, 0, 640, 0, f, 360, 0, 0, 1), knewR(f, 0, 640, 0, f, 380, 0, 0, 1);
    const cv::Matx33d E(model.E.ptr<double>()), F(model.F.ptr<double>());
    const cv::Vec3d TL(model.left.T.ptr<double>()), TR(model.right.T.ptr<double>());
    ASSERT_NEAR(cv::norm(E), std::sqrt(2.0) * cv::norm(TR - TL), 1e-9);

    std::mt19937 random(7);
    std::uniform_real_distribution<double> lateral(-500, 500), depth(800, 3000);
    for (int i = 0; i < 50; ++i) {
        const cv::Vec3d p(lateral(random), lateral(random), depth(random));
        cv::Vec3d xL = cv::Matx33d(RL.ptr<double>()).t() * (p - TL);
        cv::Vec3d xR = cv::Matx33d(RR.ptr<double>()).t() * (p - TR);
        xL /= xL[2];
        xR /= xR[2];
        const cv::Vec3d uL = knewL * xL, uR = knewR * xR;
        EXPECT_LT(std::abs(xR.dot(E * xL)) / (cv::norm(E) * cv::norm(xR) * cv::norm(xL)), 1e-13);
        EXPECT_LT(std::abs(uR.dot(F * uL)) / (cv::norm(F) * cv::norm(uR) * cv::norm(uL)), 1e-13);
    }
}
