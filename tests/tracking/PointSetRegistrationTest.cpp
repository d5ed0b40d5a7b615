#include "tracking/PointSetRegistration.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <utility>
#include <vector>

namespace {

using Points = std::vector<cv::Point3f>;
using FitFunction = bool (*)(const cv::Point3f*, const cv::Point3f*, int, cv::Mat&, cv::Mat&);
const std::pair<const char*, FitFunction> kFits[] = {{"GetRTPoints", GetRTPoints},
                                                     {"GetRTPointsInEigen", GetRTPointsInEigen}};

// Single-precision rounding at a 1 m working distance: a few parts per million.
constexpr double kTranslationToleranceMm = 3e-3;
constexpr double kRotationTolerance = 1e-5;

struct Pose {
    cv::Matx33d R;
    cv::Vec3d T;
};

// A random proper rotation, built from rotations about Z, Y and X, about 1 m in front.
Pose randomPose(std::mt19937& rng) {
    std::uniform_real_distribution<double> angle(-3.1, 3.1), offset(-200, 200);
    const double a = angle(rng), b = angle(rng), c = angle(rng);
    const cv::Matx33d rz(std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a), 0, 0, 0, 1);
    const cv::Matx33d ry(std::cos(b), 0, std::sin(b), 0, 1, 0, -std::sin(b), 0, std::cos(b));
    const cv::Matx33d rx(1, 0, 0, 0, std::cos(c), -std::sin(c), 0, std::sin(c), std::cos(c));
    return {rz * ry * rx, {offset(rng), offset(rng), -1000 + offset(rng)}};
}

// n tool-sized points within 100 mm of the origin.
Points randomPoints(std::mt19937& rng, int n) {
    std::uniform_real_distribution<float> coord(-100, 100);
    Points points;
    for (int k = 0; k < n; ++k) points.emplace_back(coord(rng), coord(rng), coord(rng));
    return points;
}

// R*p + T for every point, plus Gaussian noise of the given deviation in millimetres.
Points transform(const Pose& pose, const Points& points, std::mt19937* rng = nullptr,
                 double noise = 0) {
    std::normal_distribution<double> gauss(0, noise);
    Points out;
    for (const cv::Point3f& p : points) {
        cv::Vec3d q = pose.R * cv::Vec3d(p.x, p.y, p.z) + pose.T;
        if (rng != nullptr) q += cv::Vec3d(gauss(*rng), gauss(*rng), gauss(*rng));
        out.emplace_back(cv::Vec3f(q));
    }
    return out;
}

double maxResidual(const cv::Mat& R, const cv::Mat& T, const Points& first, const Points& second) {
    const Points mapped = transform({cv::Matx33f(R), cv::Vec3f(T)}, first);
    double worst = 0;
    for (size_t k = 0; k < first.size(); ++k)
        worst = std::max(worst, cv::norm(mapped[k] - second[k]));
    return worst;
}

void expectProperRotation(const cv::Mat& R) {
    ASSERT_EQ(R.type(), CV_32F);
    ASSERT_EQ(R.size(), cv::Size(3, 3));
    EXPECT_LT(cv::norm(R.t() * R, cv::Mat::eye(3, 3, CV_32F)), kRotationTolerance);
    EXPECT_NEAR(cv::determinant(R), 1.0, kRotationTolerance);
}

}  // namespace

TEST(RigidFit, RefusesFewerThanThreePointsOrNullArraysAndKeepsMirrorImagesProper) {
    std::mt19937 rng(11);
    const Points points{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    const auto mirror = [](Points p) {
        for (cv::Point3f& q : p) q.x = -q.x;
        return p;
    };
    for (const auto& [name, fit] : kFits) {
        SCOPED_TRACE(name);
        cv::Mat R = cv::Mat::zeros(3, 3, CV_32F), T = cv::Mat::zeros(3, 1, CV_32F);
        EXPECT_FALSE(fit(points.data(), points.data(), 2, R, T));
        EXPECT_FALSE(fit(nullptr, points.data(), 3, R, T));
        EXPECT_FALSE(fit(points.data(), nullptr, 3, R, T));
        EXPECT_EQ(cv::countNonZero(R) + cv::countNonZero(T), 0);
        // The best orthogonal map onto a mirror image is a reflection; the fit
        // still gives a rotation. A planar set and its mirror image differ by
        // a half-turn within the plane, which fits exactly.
        const Points solid = randomPoints(rng, 8);
        ASSERT_TRUE(fit(solid.data(), mirror(solid).data(), 8, R, T));
        expectProperRotation(R);
        Points flat = randomPoints(rng, 6);
        for (cv::Point3f& p : flat) p.z = 0;
        ASSERT_TRUE(fit(flat.data(), mirror(flat).data(), 6, R, T));
        expectProperRotation(R);
        EXPECT_LT(maxResidual(R, T, flat, mirror(flat)), kTranslationToleranceMm);
    }
}

TEST(RigidFit, FitsThreePointsExactlyAndNoisyOnesAlikeInBothPrecisionsAndInverseWhenSwapped) {
    std::mt19937 rng(13);
    for (int trial = 0; trial < 30; ++trial) {
        const Pose truth = randomPose(rng);
        const Points three = randomPoints(rng, 3), threeSeen = transform(truth, three);
        for (const auto& [name, fit] : kFits) {
            cv::Mat R, T;
            ASSERT_TRUE(fit(three.data(), threeSeen.data(), 3, R, T)) << name;
            expectProperRotation(R);
            ASSERT_EQ(T.size(), cv::Size(1, 3));
            EXPECT_LT(maxResidual(R, T, three, threeSeen), kTranslationToleranceMm) << name;
            EXPECT_LT(cv::norm(cv::Matx33d(cv::Matx33f(R)) - truth.R), kRotationTolerance) << name;
        }
        const Points tool = randomPoints(rng, 6), seen = transform(truth, tool, &rng, 0.2);
        cv::Mat Rf, Tf, Rd, Td, Rback, Tback;
        ASSERT_TRUE(GetRTPoints(tool.data(), seen.data(), 6, Rf, Tf));
        ASSERT_TRUE(GetRTPointsInEigen(tool.data(), seen.data(), 6, Rd, Td));
        ASSERT_TRUE(GetRTPoints(seen.data(), tool.data(), 6, Rback, Tback));
        EXPECT_LT(cv::norm(Rf, Rd), kRotationTolerance);
        EXPECT_LT(cv::norm(Tf, Td), kTranslationToleranceMm);
        EXPECT_LT(cv::norm(Rback, Rf.t()), kRotationTolerance);
        EXPECT_LT(cv::norm(Tback, cv::Mat(-Rf.t() * Tf)), kTranslationToleranceMm);
        // 0.2 mm of noise on a 100 mm tool leaves the rotation within a few milliradians.
        EXPECT_LT(cv::norm(cv::Matx33d(cv::Matx33f(Rd)) - truth.R), 1e-2);
    }
}

// A tool record read through its view (MatchViewOf): four markers, the
// working copy 1000 mm further in z, three pairs out of marker order.
class MatchPoints : public ::testing::Test {
protected:
    MatchPoints() {
        tool.markerCount = 4;
        tool.markerPositions = {0, 0, 0, 50, 0, 0, 0, 80, 0, 0, 0, 30};
        tool.markerPositionsCopy = {0, 0, 1000, 50, 0, 1000, 0, 80, 1000, 0, 0, 1030};
        tool.pairs = {{2, 4}, {0, 1}, {3, 0}};
    }
    bool build(bool useWorkingCopy, int direction) {
        return GetMatchPtPoints3fAndMat(useWorkingCopy, tool, observed, first, second,
                                        static_cast<E_RTDirection>(direction));
    }

    T_ToolPtMatchInfo tool;
    cv::Mat observed = (cv::Mat_<float>(5, 3) << 0, 0, -1, 1, 1, -1, 2, 2, -1, 3, 3, -1, 4, 4, -1);
    Points first, second;
};

TEST_F(MatchPoints, FollowsThePairOrderAndSwapsWithTheDirection) {
    const Points seen{{4, 4, -1}, {1, 1, -1}, {0, 0, -1}};
    ASSERT_TRUE(build(false, RTDirection_ToolToTracker));
    EXPECT_EQ(first, (Points{{0, 80, 0}, {0, 0, 0}, {0, 0, 30}}));
    EXPECT_EQ(second, seen);
    ASSERT_TRUE(build(true, RTDirection_TrackerToTool));
    EXPECT_EQ(first, seen);
    EXPECT_EQ(second, (Points{{0, 80, 1000}, {0, 0, 1000}, {0, 0, 1030}}));
    ASSERT_TRUE(build(false, 7));
    EXPECT_EQ(first, seen);
}

TEST_F(MatchPoints, RejectsBadIndicesShortPositionsOrOtherMatricesAndLeavesOutputsAlone) {
    const Points untouched{{9, 9, 9}};
    first = second = untouched;
    for (const T_MatchMarkIdx& bad : {T_MatchMarkIdx{4, 0}, {-1, 0}, {0, 5}, {0, -1}}) {
        tool.pairs.back() = bad;
        EXPECT_FALSE(build(false, 0)) << bad.ToolMarkerIndex << "," << bad.ObservedIndex;
    }
    tool.pairs.back() = {3, 0};
    tool.markerPositionsCopy.resize(11);  // short: refused rather than overrun
    EXPECT_FALSE(build(true, 0));
    observed.convertTo(observed, CV_64F);
    EXPECT_FALSE(build(false, 0));
    EXPECT_TRUE(first == untouched && second == untouched);
    observed.convertTo(observed, CV_32F);
    EXPECT_TRUE(build(false, 0));  // the file positions are whole
}
