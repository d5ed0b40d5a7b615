// Robot hand-eye calibration and target poses end to end: the virtual
// tracker sees a tool on a robot's flange while the arm steps from pose to
// pose (sim/RobotScene.h); the test plays the robot controller, reporting
// each flange pose as the arm holds it, and drives the library through its
// exported functions. The truth is the rig's base and tool mount.
#include "VyxPositionAPI.h"
#include "sim/RobotScene.h"
#include "support/SceneSession.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

using namespace vyx::sim;
using namespace vyx::test;

namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;
const char* const kTool = "robot_tool";

void rowsOf(const ToolPose& pose, double rows[3][4]) {
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) rows[i][j] = pose.R[3 * i + j];
        rows[i][3] = pose.T[i];
    }
}

ToolPose poseOfRows(const double rows[3][4]) {
    ToolPose pose{};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) pose.R[3 * i + j] = rows[i][j];
        pose.T[i] = rows[i][3];
    }
    return pose;
}

// The flange pose a robot controller makes of x, y, z, rx, ry, rz: the
// rotation by |r| about r (Rodrigues' formula).
ToolPose poseOfTarget(const float target[6]) {
    const double r[3] = {target[3], target[4], target[5]};
    const double angle = std::hypot(r[0], r[1], r[2]);
    const double k[3] = {r[0] / angle, r[1] / angle, r[2] / angle};
    const double c = std::cos(angle), s = std::sin(angle);
    const double skew[9] = {0, -k[2], k[1], k[2], 0, -k[0], -k[1], k[0], 0};
    ToolPose pose{};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            pose.R[3 * i + j] = (i == j ? c : 0.0) + s * skew[3 * i + j] + (1 - c) * k[i] * k[j];
        pose.T[i] = target[i];
    }
    return pose;
}

double angleDeg(const Point3& a, const Point3& b) { return angleBetween(a, b) * kDegreesPerRadian; }

// Rotation (degrees) and translation (mm) between two poses.
void expectClose(const ToolPose& found, const ToolPose& truth, double deg, double mm) {
    const ToolPose difference = compose(inverse(truth), found);
    const double* m = difference.R;
    const double angle = std::atan2(std::hypot(m[7] - m[5], m[2] - m[6], m[3] - m[1]),
                                    m[0] + m[4] + m[8] - 1.0);
    EXPECT_LT(angle * kDegreesPerRadian, deg);
    EXPECT_LT(distance(point(found.T), point(truth.T)), mm);
}

// A plan: the target point, the entry point and the roll reference, tracker
// coordinates (mm), within reach of the rig's tool.
struct Plan {
    Point3 target, entry, roll;
};
const Plan kPlans[] = {
    {{0, 20, 1500}, {40, -60, 1420}, {150, 20, 1500}},
    {{-60, 80, 1650}, {-90, -10, 1580}, {-60, 80, 1850}},
    {{80, -40, 1450}, {20, -120, 1400}, {80, 100, 1450}},
};

class RobotEndToEnd : public ::testing::Test {
protected:
    // Serves the rig's scene on 127.0.0.host, with `extraTools` (not in view)
    // in the tool directory as well.
    void serve(unsigned char host, const std::vector<RigidBody>& extraTools = {}) {
        Scene tools = robotScene(rig);
        tools.bodies.insert(tools.bodies.end(), extraTools.begin(), extraTools.end());
        ASSERT_NO_FATAL_FAILURE(session.serve(host, robotScene(rig), &tools));
    }

    // One pair per flange pose: the pose as the robot reports it, and the
    // tool as the tracker recognises it while the arm holds that pose.
    std::vector<T_RobotPosePair> gatherPairs() {
        const std::size_t poses = rig.flangeInBase.size();
        std::vector<bool> seen(poses, false);
        std::vector<T_RobotPosePair> pairs;
        for (std::size_t frame = 0; frame < 4 * poses && pairs.size() < poses; ++frame) {
            if (!session.nextFrame()) break;
            const std::size_t k = rig.poseAt(session.sceneFrame());
            if (seen[k]) continue;
            T_VyxSingleToolDataResult r{};
            EXPECT_EQ(Vyx_FindSingleToolInfo(session.handle, &session.markers, kTool, &r, 0),
                      RV_SUCCESS);
            if (r.ValidFlag != 1) continue;  // missing poses fail the count below
            seen[k] = true;
            T_RobotPosePair pair{};
            rowsOf(rig.flangeInBase[k], pair.FlangeInBase);
            for (int i = 0; i < 3; ++i) {
                for (int j = 0; j < 3; ++j) pair.ToolInTracker[i][j] = r.RotationMatrix[i][j];
                pair.ToolInTracker[i][3] = r.Translation[i];
            }
            pairs.push_back(pair);
        }
        EXPECT_EQ(pairs.size(), poses);
        return pairs;
    }

    int targetPose(const Plan& plan, float target[6]) {
        const double points[3][3] = {{plan.target.x, plan.target.y, plan.target.z},
                                     {plan.entry.x, plan.entry.y, plan.entry.z},
                                     {plan.roll.x, plan.roll.y, plan.roll.z}};
        return Vyx_CalculateRobotTargetPose(session.handle, points, target);
    }

    RobotRig rig = robotRig(12);
    SceneSession session;
};

}  // namespace

TEST_F(RobotEndToEnd, CalibratedFromRecognisedPosesTheRobotPutsTheTipOnTheTarget) {
    // Without pixel noise the recognised poses are good to micrometres and
    // 1e-6 rad (float centres, single-precision fit), and so is the
    // calibration: about 1e-4 mm and 1e-4 degrees, and a tip 1.5 m from the
    // tracker lands within a micrometre or so. A wrong frame, an inverted
    // transform or a mirrored roll misses by millimetres or degrees.
    ASSERT_NO_FATAL_FAILURE(serve(190));
    const std::vector<T_RobotPosePair> pairs = gatherPairs();
    ASSERT_EQ(pairs.size(), rig.flangeInBase.size());
    T_RobotCalibrationResult calibration{};
    ASSERT_EQ(Vyx_CalculateRobotCalibration(session.handle, pairs.data(),
                                            static_cast<int>(pairs.size()), &calibration),
              RV_SUCCESS);
    EXPECT_EQ(calibration.PairCount, static_cast<int>(pairs.size()));
    EXPECT_LT(calibration.RmsResidualMm, 0.005);
    EXPECT_LT(calibration.RmsResidualDeg, 0.001);
    expectClose(poseOfRows(calibration.TrackerToBase), inverse(rig.baseInMeasurement), 0.001,
                0.01);
    expectClose(poseOfRows(calibration.ToolToFlange), rig.toolInFlange, 0.001, 0.01);

    ASSERT_EQ(Vyx_SetRobotCalculateRlt(session.handle, calibration.TrackerToBase,
                                       calibration.ToolToFlange, kTool),
              RV_SUCCESS);
    const RigidBody& tool = rig.tool;
    for (const Plan& plan : kPlans) {
        SCOPED_TRACE("target " + std::to_string(plan.target.x) + ", " +
                     std::to_string(plan.target.y));
        float target[6] = {};
        ASSERT_EQ(targetPose(plan, target), RV_SUCCESS);
        // The true robot takes the flange there; the tool goes with it.
        const ToolPose placed =
            compose(rig.baseInMeasurement, compose(poseOfTarget(target), rig.toolInFlange));
        const Point3 tip = toMeasurement(placed, tool.tip);
        const Point3 axis = minus(toMeasurement(placed, tool.tipAxis), tip);
        const Point3 xAxis = minus(toMeasurement(placed, {1, 0, 0}), toMeasurement(placed, {}));
        const Point3 path = unit(minus(plan.entry, plan.target));
        EXPECT_LT(distance(tip, plan.target), 0.01);
        EXPECT_LT(angleDeg(axis, path), 0.001);
        EXPECT_LT(angleDeg(across(xAxis, path), across(minus(plan.roll, plan.target), path)),
                  0.001);
    }
}

TEST_F(RobotEndToEnd, BadInputIsRefusedAndChangesNothing) {
    // A tool the arm could hold but no plan can use: its tip axis has no
    // length.
    RigidBody axisless = rig.tool;
    axisless.name = "axisless";
    axisless.tipAxis = axisless.tip;
    ASSERT_NO_FATAL_FAILURE(serve(191, {axisless}));
    VyxHandle h = session.handle;
    // Each refusal leaves the target as it was.
    const float sentinel[6] = {100, 101, 102, 103, 104, 105};
    const auto expectRefused = [&](const char* why) {
        float target[6];
        std::memcpy(target, sentinel, sizeof target);
        EXPECT_EQ(targetPose(kPlans[0], target), RV_FAILED) << why;
        EXPECT_EQ(std::memcmp(target, sentinel, sizeof target), 0) << why;
    };
    expectRefused("no calibration yet");

    double Z[3][4], X[3][4];
    rowsOf(inverse(rig.baseInMeasurement), Z);
    rowsOf(rig.toolInFlange, X);
    // Set k: 0 an unknown tool, 1 a scaled rotation, 2 a mirrored rotation,
    // 3 a translation not finite.
    const auto trySets = [&] {
        for (int k = 0; k < 4; ++k) {
            double first[3][4], second[3][4];
            std::memcpy(first, Z, sizeof Z);
            std::memcpy(second, X, sizeof X);
            for (auto& row : first)
                for (int j = 0; j < 3; ++j) row[j] *= k == 1 ? 1.01 : 1.0;
            if (k == 2)
                for (auto& row : second) row[0] = -row[0];
            if (k == 3) second[2][3] = std::numeric_limits<double>::quiet_NaN();
            EXPECT_EQ(Vyx_SetRobotCalculateRlt(h, first, second, k == 0 ? "nobody" : kTool),
                      RV_FAILED) << "set " << k;
        }
    };
    trySets();
    expectRefused("still no calibration");

    ASSERT_EQ(Vyx_SetRobotCalculateRlt(h, Z, X, kTool), RV_SUCCESS);
    float before[6], after[6];
    ASSERT_EQ(targetPose(kPlans[0], before), RV_SUCCESS);
    trySets();
    ASSERT_EQ(targetPose(kPlans[0], after), RV_SUCCESS);
    EXPECT_EQ(std::memcmp(before, after, sizeof before), 0) << "the calibration changed";

    ASSERT_EQ(Vyx_SetRobotCalculateRlt(h, Z, X, "axisless"), RV_SUCCESS);
    expectRefused("no tip axis");
}
