// A robot arm in front of the virtual tracker: a tool fixed to its flange,
// the flange driven from pose to pose, and the exact truth of the two
// transforms a robot hand-eye calibration recovers.
//
// Frames: the measurement frame (the tracker's, SceneTools.h), the robot's
// base frame, its flange frame, and the tool frame of the tool body (origin
// at the centroid of its points in the rest pose, axes of the measurement
// frame; the frame its tool file is written in). A ToolPose named "aInB"
// maps a-coordinates into b-coordinates, millimetres. While the arm holds
// flange pose k the tool is at
//     baseInMeasurement * flangeInBase[k] * toolInFlange,
// which robotScene() plays as the tool body's Steps motion (Scene.h), so that
// bodyPoseAt() of the scene gives the same pose.
#pragma once

#include "sim/Scene.h"
#include "sim/SceneTools.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vyx::sim {

// a * b: first b, then a (p -> a.R (b.R p + b.T) + a.T).
ToolPose compose(const ToolPose& a, const ToolPose& b);
// The inverse mapping (R^T, -R^T T).
ToolPose inverse(const ToolPose& pose);

struct RobotRig {
    ToolPose baseInMeasurement{};
    ToolPose toolInFlange{};
    // The flange poses in base coordinates, in the order the arm takes them.
    std::vector<ToolPose> flangeInBase;
    // Frames the arm holds each pose (at least 1).
    std::uint64_t framesPerPose = 1;
    // The tool on the flange: its points in the rest pose, its tip and
    // tipAxis; robotScene() sets its motion.
    RigidBody tool;

    // Index of the flange pose held at a frame: pose k from frame k x
    // framesPerPose on, the last one ever after.
    std::size_t poseAt(std::uint64_t frameIndex) const;
    // The tool's true pose at a frame (in measurement coordinates).
    ToolPose toolPoseAt(std::uint64_t frameIndex) const;
};

// The rig's scene: the tool body alone, stepping through the flange poses at
// 60 frames per second; no noise, no strays. Throws std::invalid_argument for
// a rig without flange poses, with framesPerPose 0 or with a tool without
// points.
Scene robotScene(const RobotRig& rig);

// A rig to calibrate: a four-marker tool "robot_tool" (markers at (62, -8),
// (-47, 45), (-67, -57), (41, 57) mm in a plane, 68 to 157 mm apart, each
// distance more than 15 mm from every other; tip (0, 130, 40) and tipAxis
// (0, 70, 20) in its tool frame) held 190 mm out from the flange; a robot base
// 0.9 m below and to the right of the tracker's line of sight, its Z axis
// up; and `poseCount` flange poses that put the tool within 200 mm of
// (0, 0, 1500), tilted by 14 to 23 degrees about axes spread over the sphere,
// so that every marker stays in both images, facing the cameras, and the
// flange turns about every axis. framesPerPose frames per pose (at least 1).
// Throws std::invalid_argument for a poseCount of 0 or a framesPerPose of 0.
RobotRig robotRig(std::size_t poseCount = 12, std::uint64_t framesPerPose = 1);

}  // namespace vyx::sim
