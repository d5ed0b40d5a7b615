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

TEST(RigidFit, FitsThreePointsExactlyAndRefusesFewerOrNullArraysLeavingOutputsAlone) {
    std::mt19937 rng(11);
    const Points points{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    for (const auto& [name, fit] : kFits) {
        cv::Mat R = cv::Mat::zeros(3, 3, CV_32F), T = cv::Mat::zeros(3, 1, CV_32F);
        EXPECT_FALSE(fit(points.data(), points.data(), 2, R, T)) << name;
        EXPECT_FALSE(fit(nullptr, points.data(), 3, R, T)) << name;
        EXPECT_FALSE(fit(points.data(), nullptr, 3, R, T)) << name;
        EXPECT_EQ(cv::countNonZero(R) + cv::countNonZero(T), 0) << name;
        for (int trial = 0; trial < 20; ++trial) {
            const Pose truth = randomPose(rng);
            const Points tool = randomPoints(rng, 3), seen = transform(truth, tool);
            ASSERT_TRUE(fit(tool.data(), seen.data(), 3, R, T)) << name;
            expectProperRotation(R);
            ASSERT_EQ(T.size(), cv::Size(1, 3));
            EXPECT_LT(maxResidual(R, T, tool, seen), kTranslationToleranceMm) << name;
            EXPECT_LT(cv::norm(cv::Matx33d(cv::Matx33f(R)) - truth.R), kRotationTolerance) << name;
        }
    }
}

TEST(RigidFit, MirroredPointSetStillGivesAProperRotation) {
    std::mt19937 rng(12);
    for (const auto& [name, fit] : kFits) {
        Points solid = randomPoints(rng, 8), mirrored = solid;
        for (cv::Point3f& p : mirrored) p.x = -p.x;
        cv::Mat R, T;
        ASSERT_TRUE(fit(solid.data(), mirrored.data(), 8, R, T)) << name;
        expectProperRotation(R);

        // A planar set and its mirror image differ by a half-turn within the plane.
        Points flat = randomPoints(rng, 6), flatMirrored;
        for (cv::Point3f& p : flat) {
            p.z = 0;
            flatMirrored.emplace_back(-p.x, p.y, 0.0f);
        }
        ASSERT_TRUE(fit(flat.data(), flatMirrored.data(), 6, R, T)) << name;
        expectProperRotation(R);
        EXPECT_LT(maxResidual(R, T, flat, flatMirrored), kTranslationToleranceMm) << name;
    }
}

TEST(RigidFit, NoisyDataGivesTheInverseWhenSwappedAndTheSamePoseInBothPrecisions) {
    std::mt19937 rng(13);
    for (int trial = 0; trial < 30; ++trial) {
        const Pose truth = randomPose(rng);
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

class MatchPoints : public ::testing::Test {
protected:
    // Four tool markers; the working copy sits 1000 mm further in z.
    std::vector<float> file{0, 0, 0, 50, 0, 0, 0, 80, 0, 0, 0, 30};
    std::vector<float> working{0, 0, 1000, 50, 0, 1000, 0, 80, 1000, 0, 0, 1030};
    std::vector<T_MatchMarkIdx> pairs{{2, 4}, {0, 1}, {3, 0}};
    ToolMatchView tool{4, file.data(), working.data(), &pairs};
    cv::Mat observed = (cv::Mat_<float>(5, 3) << 0, 0, -1, 1, 1, -1, 2, 2, -1, 3, 3, -1, 4, 4, -1);
    Points first, second;

    bool build(bool useWorkingCopy, int direction) {
        return GetMatchPtPoints3fAndMat(useWorkingCopy, tool, observed, first, second,
                                        static_cast<E_RTDirection>(direction));
    }
};

TEST_F(MatchPoints, FollowsThePairOrderAndSwapsWithTheDirection) {
    const Points fileTool{{0, 80, 0}, {0, 0, 0}, {0, 0, 30}};
    const Points workingTool{{0, 80, 1000}, {0, 0, 1000}, {0, 0, 1030}};
    const Points seen{{4, 4, -1}, {1, 1, -1}, {0, 0, -1}};
    ASSERT_TRUE(build(false, RTDirection_ToolToTracker));
    EXPECT_EQ(first, fileTool);
    EXPECT_EQ(second, seen);
    ASSERT_TRUE(build(true, RTDirection_TrackerToTool));
    EXPECT_EQ(first, seen);
    EXPECT_EQ(second, workingTool);
    ASSERT_TRUE(build(false, 7));
    EXPECT_EQ(first, seen);
}

TEST_F(MatchPoints, RejectsBadIndicesOrInputsAndLeavesOutputsAlone) {
    const Points untouched{{9, 9, 9}};
    first = second = untouched;
    const std::vector<T_MatchMarkIdx> badPairs{{4, 0}, {-1, 0}, {0, 5}, {0, -1}};
    for (const T_MatchMarkIdx& bad : badPairs) {
        pairs.back() = bad;
        EXPECT_FALSE(build(false, 0)) << bad.ToolMarkerIndex << "," << bad.ObservedIndex;
    }
    pairs.back() = {3, 0};
    tool.workingPositions = nullptr;
    EXPECT_FALSE(build(true, 0));
    observed.convertTo(observed, CV_64F);
    EXPECT_FALSE(build(false, 0));
    EXPECT_TRUE(first == untouched && second == untouched);
}

TEST_F(MatchPoints, ToolRecordIsReadLikeItsViewAndRefusedWhenItsPositionsAreShort) {
    T_ToolPtMatchInfo record;
    record.markerCount = 4;
    record.markerPositions = file;
    record.markerPositionsCopy = working;
    record.pairs = pairs;
    Points recordFirst, recordSecond;
    for (bool useWorkingCopy : {false, true}) {
        ASSERT_TRUE(build(useWorkingCopy, 0));
        ASSERT_TRUE(GetMatchPtPoints3fAndMat(useWorkingCopy, record, observed, recordFirst,
                                             recordSecond, RTDirection_ToolToTracker));
        EXPECT_EQ(recordFirst, first);
        EXPECT_EQ(recordSecond, second);
    }
    record.markerPositionsCopy.resize(11);
    EXPECT_FALSE(GetMatchPtPoints3fAndMat(true, record, observed, recordFirst, recordSecond,
                                          RTDirection_ToolToTracker));
    EXPECT_TRUE(GetMatchPtPoints3fAndMat(false, record, observed, recordFirst, recordSecond,
                                         RTDirection_ToolToTracker));
}
