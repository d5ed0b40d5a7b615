#include "calibration/RobotTargetPose.h"

#include "calibration/RigidPose.h"

#include <Eigen/Geometry>

namespace {

Eigen::Vector3d vector3(const double p[3]) { return {p[0], p[1], p[2]}; }

// Rows to a pose without checks: the calibration's matrices passed them when
// it was made.
RigidPose poseOf(const double (*rows)[4]) {
    RigidPose pose;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) pose.R(i, j) = rows[i][j];
        pose.t(i) = rows[i][3];
    }
    return pose;
}

// The right-handed orthonormal frame whose first axis is `along` and whose
// second lies in the plane of `along` and `towards`, on the side of
// `towards` (as columns). False when `towards` lies within minOffset of the
// line of the unit vector `along`.
bool frameOf(const Eigen::Vector3d& along, const Eigen::Vector3d& towards, double minOffset,
             Eigen::Matrix3d& frame) {
    const Eigen::Vector3d across = towards - towards.dot(along) * along;
    if (!(across.norm() >= minOffset)) return false;
    const Eigen::Vector3d second = across.normalized();
    frame.col(0) = along;
    frame.col(1) = second;
    frame.col(2) = along.cross(second);
    return true;
}

}  // namespace

bool makeRobotCalibration(const double (*trackerToBase)[4], const double (*toolToFlange)[4],
                          const ToolLibrary& library, const char* name, RobotCalibration& out) {
    RigidPose Z, X;
    if (!rigidPoseFromRows(trackerToBase, Z) || !rigidPoseFromRows(toolToFlange, X)) return false;
    const int index = library.findFirstToolIndex(name);
    if (index < 0) return false;
    const T_ToolPtMatchInfo* tool = library.toolAt(static_cast<std::uint32_t>(index));
    if (tool == nullptr) return false;

    RobotCalibration calibration;
    rigidPoseToRows(Z, calibration.trackerToBase);
    rigidPoseToRows(X, calibration.toolToFlange);
    if (tool->tipPairCount >= 1 && tool->tipPoints.size() >= 6)
        for (int i = 0; i < 3; ++i) {
            calibration.tip[i] = tool->tipPoints[static_cast<std::size_t>(i)];
            calibration.tipAxisPoint[i] = tool->tipPoints[static_cast<std::size_t>(3 + i)];
        }
    out = calibration;
    return true;
}

bool robotTargetPose(const RobotCalibration& calibration, const double (*points)[3],
                     float* target) {
    if (points == nullptr || target == nullptr) return false;
    const Eigen::Vector3d aim = vector3(points[0]), entry = vector3(points[1]),
                          roll = vector3(points[2]);
    if (!aim.allFinite() || !entry.allFinite() || !roll.allFinite()) return false;

    // The path in tracker coordinates, and the tool's tip axis in its own.
    const Eigen::Vector3d path = entry - aim;
    const Eigen::Vector3d tip = vector3(calibration.tip);
    const Eigen::Vector3d axis = vector3(calibration.tipAxisPoint) - tip;
    if (!(path.norm() >= kRobotMinPathMm) || !(axis.norm() >= kRobotMinPathMm)) return false;
    Eigen::Matrix3d planned, tool;
    if (!frameOf(path.normalized(), roll - aim, kRobotMinRollOffsetMm, planned) ||
        !frameOf(axis.normalized(), Eigen::Vector3d::UnitX(), kRobotMinRollAxisSine, tool))
        return false;

    RigidPose toolInTracker;
    toolInTracker.R = planned * tool.transpose();
    toolInTracker.t = aim - toolInTracker.R * tip;
    const RigidPose flangeInBase = poseOf(calibration.trackerToBase) * toolInTracker *
                                   poseOf(calibration.toolToFlange).inverse();
    const Eigen::Vector3d rotation = rotationVector(flangeInBase.R);
    for (int i = 0; i < 3; ++i) {
        target[i] = static_cast<float>(flangeInBase.t(i));
        target[3 + i] = static_cast<float>(rotation(i));
    }
    return true;
}
