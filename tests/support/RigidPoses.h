// Rigid poses for the robot calibration unit tests.
#pragma once

#include "calibration/RigidPose.h"

namespace vyx::test {

constexpr double kPi = 3.141592653589793;

// The pose turning by |rotation| about rotation, then moving by translation.
inline RigidPose pose(const Eigen::Vector3d& rotation, const Eigen::Vector3d& translation) {
    RigidPose p;
    p.R = rotationFromVector(rotation);
    p.t = translation;
    return p;
}

}  // namespace vyx::test
