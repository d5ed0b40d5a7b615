// Robot hand-eye calibration on plain pose pairs made from a known truth:
// exact recovery without noise, agreement with OpenCV's robot-world/hand-eye
// solver with noise, refusal of pose sets that leave it undetermined, and the
// checks on the boundary's records.
#include "calibration/HandEyeCalibration.h"
#include "support/RigidPoses.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/core/eigen.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

using vyx::test::kPi;
using vyx::test::pose;

namespace {

constexpr double kDegreesPerRadian = 180.0 / kPi;

// Standard deviations of the noise put on each pair: the tracker's on the
// tool pose, the robot's on the flange pose (per axis, mm and rad).
struct Noise {
    double trackerMm = 0.0, trackerRad = 0.0, robotMm = 0.0, robotRad = 0.0;
};

// Pairs of truth Z (tracker into base) and X (tool into flange): flange poses
// turned by up to maxAngle about random axes from a common orientation and
// spread over +-300 mm, and the tool poses that the tracker sees with them.
std::vector<HandEyePair> makePairs(const RigidPose& Z, const RigidPose& X, int count,
                                   double maxAngle, unsigned seed, const Noise& noise = {}) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::normal_distribution<double> normal(0.0, 1.0);
    const auto unitVector = [&] {
        Eigen::Vector3d v(normal(random), normal(random), normal(random));
        return Eigen::Vector3d(v.normalized());
    };
    const auto jitter = [&](RigidPose& p, double mm, double rad) {
        p.R = rotationFromVector(rad * Eigen::Vector3d(normal(random), normal(random),
                                                       normal(random))) * p.R;
        p.t += mm * Eigen::Vector3d(normal(random), normal(random), normal(random));
    };
    const RigidPose home = pose({0.3, 2.5, -0.4}, {400.0, 0.0, 600.0});
    std::vector<HandEyePair> pairs(static_cast<std::size_t>(count));
    for (HandEyePair& p : pairs) {
        const double angle = maxAngle * std::abs(uniform(random));
        p.flangeInBase = home * pose(angle * unitVector(),
                                     300.0 * Eigen::Vector3d(uniform(random), uniform(random),
                                                             uniform(random)));
        p.toolInTracker = Z.inverse() * p.flangeInBase * X;
        jitter(p.toolInTracker, noise.trackerMm, noise.trackerRad);
        jitter(p.flangeInBase, noise.robotMm, noise.robotRad);
    }
    return pairs;
}

const RigidPose kTrackerToBase = pose({1.2, -0.7, 0.4}, {-350.0, 1200.0, 900.0});
const RigidPose kToolToFlange = pose({0.2, 0.9, -1.6}, {15.0, -30.0, 180.0});

// OpenCV's solution of the same pairs. Its world is the tracker, its camera
// the tool and its gripper the flange; it takes and gives the inverse
// transforms: c_T_w w_T_b = c_T_g g_T_b with c_T_w = B^-1, g_T_b = A^-1,
// w_T_b = Z^-1, c_T_g = X^-1.
HandEyeSolution openCvSolution(const std::vector<HandEyePair>& pairs,
                               cv::RobotWorldHandEyeCalibrationMethod method) {
    std::vector<cv::Mat> Rw2c, tw2c, Rb2g, tb2g;
    const auto add = [](const RigidPose& p, std::vector<cv::Mat>& R, std::vector<cv::Mat>& t) {
        R.emplace_back();
        t.emplace_back();
        cv::eigen2cv(p.R, R.back());
        cv::eigen2cv(p.t, t.back());
    };
    for (const HandEyePair& p : pairs) {
        add(p.toolInTracker.inverse(), Rw2c, tw2c);
        add(p.flangeInBase.inverse(), Rb2g, tb2g);
    }
    cv::Mat Rb2w, tb2w, Rg2c, tg2c;
    cv::calibrateRobotWorldHandEye(Rw2c, tw2c, Rb2g, tb2g, Rb2w, tb2w, Rg2c, tg2c, method);
    const auto toPose = [](const cv::Mat& R, const cv::Mat& t) {
        RigidPose p;
        cv::cv2eigen(R, p.R);
        cv::cv2eigen(t, p.t);
        return p;
    };
    HandEyeSolution s;
    s.trackerToBase = toPose(Rb2w, tb2w).inverse();
    s.toolToFlange = toPose(Rg2c, tg2c).inverse();
    s.residuals = handEyeResiduals(pairs, s.trackerToBase, s.toolToFlange);
    return s;
}

// The refinement's objective per pair: RMS mm^2 plus the weighted RMS rad^2.
double weightedCost(const HandEyeResiduals& r) {
    const double rad = r.rmsDeg / kDegreesPerRadian;
    return r.rmsMm * r.rmsMm + std::pow(kHandEyeRotationWeightMmPerRad * rad, 2);
}

struct PoseError {
    double deg, mm;
};
PoseError errorOf(const RigidPose& estimate, const RigidPose& truth) {
    return {rotationAngleBetween(estimate.R, truth.R) * kDegreesPerRadian,
            (estimate.t - truth.t).norm()};
}

// Both transforms of a solution within deg and mm of Z and X.
void expectNear(const HandEyeSolution& s, const RigidPose& Z, const RigidPose& X, double deg,
                double mm) {
    for (const PoseError e : {errorOf(s.trackerToBase, Z), errorOf(s.toolToFlange, X)}) {
        EXPECT_LT(e.deg, deg);
        EXPECT_LT(e.mm, mm);
    }
}

}  // namespace

TEST(HandEyeCalibration, RecoversTheTruthFromExactPairs) {
    const struct {
        const char* name;
        int count;
        double maxAngle;
        RigidPose toolToFlange;
    } cases[] = {
        {"three pairs", 3, 0.6, kToolToFlange},
        {"tool mounted a half-turn round", 8, 0.5,
         pose(kPi * Eigen::Vector3d(0.6, -0.8, 0.0), {0.0, 0.0, 250.0})},
        {"many small turns", 40, 0.1, kToolToFlange},
        {"large turns", 12, 2.8, kToolToFlange},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto pairs = makePairs(kTrackerToBase, c.toolToFlange, c.count, c.maxAngle, 11);
        HandEyeSolution closed, refined;
        ASSERT_TRUE(solveHandEyeClosedForm(pairs, closed));
        ASSERT_TRUE(calibrateHandEye(pairs, refined));
        for (const HandEyeSolution* s : {&closed, &refined}) {
            expectNear(*s, kTrackerToBase, c.toolToFlange, 1e-8, 1e-6);
            EXPECT_LT(s->residuals.maxMm, 1e-6);
            EXPECT_LT(s->residuals.maxDeg, 1e-8);
        }
    }
}

TEST(HandEyeCalibration, ClosedFormIsOpenCvsShahMethod) {
    // Both take the rotations from the same Kronecker system, so they agree
    // to rounding whatever the noise. The translations solve the same
    // equations, ours in base and Shah's in tool coordinates: while the
    // rotations are exact the two residuals of a pair differ by a rotation
    // only, and the least-squares solutions coincide (with rotation noise
    // too, see the refinement's test).
    const auto pairs =
        makePairs(kTrackerToBase, kToolToFlange, 15, 0.5, 8, Noise{0.2, 0.0, 0.05, 0.0});
    HandEyeSolution closed;
    ASSERT_TRUE(solveHandEyeClosedForm(pairs, closed));
    const HandEyeSolution shah = openCvSolution(pairs, cv::CALIB_ROBOT_WORLD_HAND_EYE_SHAH);
    expectNear(closed, shah.trackerToBase, shah.toolToFlange, 1e-9, 1e-6);
}

TEST(HandEyeCalibration, RefinementFitsBestAndComesClosestToTheTruth) {
    // A tracked tool's pose to 0.1 mm and 0.1 degree, the robot's to 0.02 mm
    // and 0.01 degree; 15 poses turned by up to 30 degrees. The refinement
    // minimises exactly the weighted sum of squares, so no other solution
    // fits the pairs better; and it weighs each pose's orientation, which
    // the translation steps of the closed-form methods leave out, so it lands
    // far closer to the truth than they do (several millimetres off for Z,
    // whose origin lies 1.5 m from the poses). The closed form still agrees
    // with Shah's rotations to rounding, its translations within 5 mm.
    const Noise noise{0.1, 0.0017, 0.02, 0.00017};
    const cv::RobotWorldHandEyeCalibrationMethod methods[2] = {
        cv::CALIB_ROBOT_WORLD_HAND_EYE_SHAH, cv::CALIB_ROBOT_WORLD_HAND_EYE_LI};
    double ours[2] = {}, theirs[2][2] = {};  // summed degrees and mm over the seeds
    const auto addErrors = [](const HandEyeSolution& s, double sums[2]) {
        for (const PoseError e : {errorOf(s.trackerToBase, kTrackerToBase),
                                  errorOf(s.toolToFlange, kToolToFlange)}) {
            sums[0] += e.deg;
            sums[1] += e.mm;
        }
    };
    for (unsigned seed = 1; seed <= 5; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const auto pairs = makePairs(kTrackerToBase, kToolToFlange, 15, 0.5, seed, noise);
        HandEyeSolution closed, refined;
        ASSERT_TRUE(solveHandEyeClosedForm(pairs, closed));
        ASSERT_TRUE(calibrateHandEye(pairs, refined));
        EXPECT_LE(weightedCost(refined.residuals), weightedCost(closed.residuals));
        for (int m = 0; m < 2; ++m) {
            const HandEyeSolution openCv = openCvSolution(pairs, methods[m]);
            if (m == 0) expectNear(closed, openCv.trackerToBase, openCv.toolToFlange, 1e-9, 5.0);
            EXPECT_LE(weightedCost(refined.residuals), weightedCost(openCv.residuals));
            addErrors(openCv, theirs[m]);
        }
        addErrors(refined, ours);
        expectNear(refined, kTrackerToBase, kToolToFlange, 0.1, 1.5);
    }
    for (int m = 0; m < 2; ++m) {
        EXPECT_LT(ours[0], theirs[m][0]) << (m == 0 ? "Shah" : "Li");
        EXPECT_LT(ours[1], theirs[m][1]) << (m == 0 ? "Shah" : "Li");
    }
}

TEST(HandEyeCalibration, RefusesPairsThatLeaveItUndetermined) {
    // Flange poses that all turn about one axis (the base's z, as a robot
    // turning only its last joint), with translations anywhere.
    const auto aboutOneAxis = [](double trackerRad, double otherAxisRad) {
        std::vector<HandEyePair> pairs = makePairs(kTrackerToBase, kToolToFlange, 10, 0.0, 3);
        std::mt19937 random(5);
        std::normal_distribution<double> normal(0.0, 1.0);
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            HandEyePair& p = pairs[i];
            const double k = static_cast<double>(i);
            p.flangeInBase.R = rotationFromVector({otherAxisRad * std::sin(k), 0.0, 0.4 * k - 2.0});
            p.toolInTracker = kTrackerToBase.inverse() * p.flangeInBase * kToolToFlange;
            const Eigen::Vector3d n(normal(random), normal(random), normal(random));
            p.toolInTracker.R = rotationFromVector(trackerRad * n) * p.toolInTracker.R;
        }
        return pairs;
    };
    const struct {
        const char* name;
        std::vector<HandEyePair> pairs;
        bool solvable;
    } cases[] = {
        {"two pairs", makePairs(kTrackerToBase, kToolToFlange, 2, 0.6, 1), false},
        {"one axis", aboutOneAxis(0.0, 0.0), false},
        {"one axis with tracker noise", aboutOneAxis(0.0017, 0.0), false},
        {"turned by a quarter degree at most", makePairs(kTrackerToBase, kToolToFlange, 10,
                                                         0.0044, 2), false},
        {"one axis and 5 degrees about another", aboutOneAxis(0.0, 0.087), true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        HandEyeSolution s;
        s.residuals.worstPair = 77;  // left alone when refused
        EXPECT_EQ(calibrateHandEye(c.pairs, s), c.solvable);
        if (c.solvable)
            EXPECT_LT(errorOf(s.toolToFlange, kToolToFlange).deg, 1e-6);
        else
            EXPECT_EQ(s.residuals.worstPair, 77);
    }
}

TEST(RobotCalibrationRecords, RefuseBadMatricesAndCountsAndNameTheWorstPair) {
    const auto pairs = makePairs(kTrackerToBase, kToolToFlange, 8, 0.6, 4);
    std::vector<T_RobotPosePair> records(pairs.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        rigidPoseToRows(pairs[i].flangeInBase, records[i].FlangeInBase);
        rigidPoseToRows(pairs[i].toolInTracker, records[i].ToolInTracker);
    }
    records[5].FlangeInBase[1][3] += 4.0;  // the robot was off by 4 mm here

    T_RobotCalibrationResult result{};
    ASSERT_EQ(calculateRobotCalibration(records.data(), 8, result), RV_SUCCESS);
    EXPECT_EQ(result.PairCount, 8);
    EXPECT_EQ(result.WorstPairIndex, 5);
    EXPECT_GT(result.MaxResidualMm, 1.0);
    RigidPose Z, X;
    ASSERT_TRUE(rigidPoseFromRows(result.TrackerToBase, Z));
    ASSERT_TRUE(rigidPoseFromRows(result.ToolToFlange, X));
    EXPECT_LT(errorOf(Z, kTrackerToBase).deg, 0.5);
    EXPECT_LT(errorOf(X, kToolToFlange).deg, 0.5);

    const struct {
        const char* name;
        int pair;  // -1: leave the records alone
        double scale, translationY;
        int count;
        bool nullPairs;
        int expected;
    } cases[] = {
        {"rotation within the tolerance", 2, 1.0004, 0.0, 8, false, RV_SUCCESS},
        {"scaled rotation", 2, 1.01, 0.0, 8, false, RV_FAILED},
        {"mirrored rotation", 3, -1.0, 0.0, 8, false, RV_FAILED},
        {"translation not finite", 1, 1.0, std::numeric_limits<double>::infinity(), 8, false,
         RV_FAILED},
        {"two pairs", -1, 1.0, 0.0, 2, false, RV_FAILED},
        {"more than the most", -1, 1.0, 0.0, VYX_MAX_ROBOT_POSE_PAIRS + 1, false, RV_FAILED},
        {"no pairs", -1, 1.0, 0.0, 8, true, RV_FAILED},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<T_RobotPosePair> spoilt = records;
        if (c.pair >= 0) {
            auto& rows = spoilt[static_cast<std::size_t>(c.pair)].ToolInTracker;
            for (auto& row : rows)
                for (int j = 0; j < 3; ++j) row[j] *= c.scale;
            rows[1][3] += c.translationY;
        }
        T_RobotCalibrationResult out{};
        out.PairCount = -5;
        EXPECT_EQ(calculateRobotCalibration(c.nullPairs ? nullptr : spoilt.data(), c.count, out),
                  c.expected);
        EXPECT_EQ(out.PairCount, c.expected == RV_SUCCESS ? c.count : -5);
    }
}
