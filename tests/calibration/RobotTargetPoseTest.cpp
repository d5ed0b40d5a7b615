// Robot target poses on plain data: a flange pose known in advance is
// recovered from the points it puts the tool on, at every rotation angle up
// to a half-turn; points that define no orientation are refused.
#include "calibration/RigidPose.h"
#include "calibration/RobotTargetPose.h"
#include "support/RigidPoses.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>

using vyx::test::kPi;
using vyx::test::pose;

namespace {

const RigidPose kTrackerToBase = pose({0.4, -1.1, 0.8}, {-200.0, 900.0, 1300.0});
const RigidPose kToolToFlange = pose({-0.5, 0.3, 2.0}, {10.0, 20.0, 170.0});
const Eigen::Vector3d kTip(5.0, 140.0, 30.0), kTipAxisPoint(5.0, 80.0, 10.0);

RobotCalibration calibration(const Eigen::Vector3d& tip, const Eigen::Vector3d& axisPoint) {
    RobotCalibration c;
    rigidPoseToRows(kTrackerToBase, c.trackerToBase);
    rigidPoseToRows(kToolToFlange, c.toolToFlange);
    for (int i = 0; i < 3; ++i) {
        c.tip[i] = tip(i);
        c.tipAxisPoint[i] = axisPoint(i);
    }
    return c;
}

// Target, entry 120 mm up the tool's tip axis and a roll reference along the
// tool's X axis (across the tip axis) as the flange pose puts them, in
// tracker coordinates.
void pointsFor(const RigidPose& flangeInBase, double points[3][3]) {
    const RigidPose tool = kTrackerToBase.inverse() * flangeInBase * kToolToFlange;
    const Eigen::Vector3d axis = (kTipAxisPoint - kTip).normalized();
    const Eigen::Vector3d x = Eigen::Vector3d::UnitX() - axis.x() * axis;
    const Eigen::Vector3d target = tool * kTip;
    const Eigen::Vector3d entry = tool * Eigen::Vector3d(kTip + 120.0 * axis);
    const Eigen::Vector3d roll = tool * Eigen::Vector3d(kTip + 40.0 * axis + 70.0 * x);
    for (int i = 0; i < 3; ++i) {
        points[0][i] = target(i);
        points[1][i] = entry(i);
        points[2][i] = roll(i);
    }
}

}  // namespace

TEST(RobotTargetPose, GivesBackTheFlangePoseThatPutsTheToolOnThePoints) {
    // Rotation angles from none to a half-turn: a conversion that drops the
    // axis of a half-turn, or loses it near one, gives a wrong pose there.
    const double angles[] = {0.0, 1e-7, 0.8, kPi - 1e-6, kPi};
    const Eigen::Vector3d axis = Eigen::Vector3d(2.0, -1.0, 2.0).normalized();
    for (double angle : angles) {
        SCOPED_TRACE("angle " + std::to_string(angle));
        const RigidPose flange = pose(angle * axis, {350.0, -120.0, 480.0});
        double points[3][3];
        pointsFor(flange, points);
        float target[6] = {};
        ASSERT_TRUE(robotTargetPose(calibration(kTip, kTipAxisPoint), points, target));
        const RigidPose result =
            pose({target[3], target[4], target[5]}, {target[0], target[1], target[2]});
        // Single-precision output: about 3e-5 mm at 500 mm, 1e-7 rad.
        EXPECT_LT((result.t - flange.t).norm(), 1e-3);
        EXPECT_LT(rotationAngleBetween(result.R, flange.R), 1e-6);
        EXPECT_LE(Eigen::Vector3d(target[3], target[4], target[5]).norm(), kPi + 1e-6);
    }
}

TEST(RobotTargetPose, RefusesPointsAndToolsThatDefineNoOrientation) {
    double good[3][3];
    pointsFor(pose({0.3, 0.2, 0.1}, {300.0, 0.0, 500.0}), good);
    const Eigen::Vector3d aim(good[0][0], good[0][1], good[0][2]);
    const Eigen::Vector3d entry(good[1][0], good[1][1], good[1][2]);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        const char* name;
        int point;  // the one moved, to `to`; -1 for none
        Eigen::Vector3d to, tipAxisPoint;
    } cases[] = {
        {"entry on the target", 1, aim, kTipAxisPoint},
        {"entry 0.0005 mm from the target", 1, aim + Eigen::Vector3d(0, 0, 5e-4), kTipAxisPoint},
        {"roll reference on the path", 2, aim + 3.0 * (entry - aim), kTipAxisPoint},
        {"roll reference on the target", 2, aim, kTipAxisPoint},
        {"target not finite", 0, {nan, 0.0, 0.0}, kTipAxisPoint},
        {"tool without a tip axis", -1, {}, kTip},
        {"tool with its X axis along its tip axis", -1, {}, kTip - 30.0 * Eigen::Vector3d::UnitX()},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        double points[3][3];
        std::copy(&good[0][0], &good[0][0] + 9, &points[0][0]);
        for (int i = 0; i < 3 && c.point >= 0; ++i) points[c.point][i] = c.to(i);
        float target[6] = {1, 2, 3, 4, 5, 6};
        EXPECT_FALSE(robotTargetPose(calibration(kTip, c.tipAxisPoint), points, target));
        for (int i = 0; i < 6; ++i) EXPECT_EQ(target[i], static_cast<float>(i + 1));
    }
    float target[6];
    EXPECT_FALSE(robotTargetPose(calibration(kTip, kTipAxisPoint), nullptr, target));
    EXPECT_TRUE(robotTargetPose(calibration(kTip, kTipAxisPoint), good, target));
}
