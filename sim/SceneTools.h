// The tools of a scene: each rigid body as a tool (its markers in its own
// frame, its pose over time, its tool file), and a built-in scene of three
// tools for trying tool recognition end to end.
//
// A body's tool frame (Scene.h, RigidBody): origin at the centroid of its
// points at time 0, axes of the measurement frame. A pose maps tool
// coordinates into measurement coordinates, p = R p_tool + T, millimetres.
#pragma once

#include "sim/Scene.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vyx::sim {

struct ToolPose {
    double R[9];  // rotation, row-major
    double T[3];  // where the tool origin is, mm
};

// R p + T.
Point3 toMeasurement(const ToolPose& pose, const Point3& toolPoint);

// The body's points in its tool frame, in the body's order.
std::vector<Point3> toolMarkers(const RigidBody& body);

// The pose of body `bodyIndex` at frame `frameIndex`: the identity rotation
// and the centroid at frame 0, then whatever the body's motion does. Throws
// std::out_of_range for a body index beyond the scene's bodies and
// std::invalid_argument for a body without points.
ToolPose bodyPoseAt(const Scene& scene, std::size_t bodyIndex, std::uint64_t frameIndex);

// Writes one tool file "<name>.vyxtool" per body into `directory` (which
// must exist): the name, kind "T", the marker count N, N lines "x y z mask"
// of the tool-frame points with mask 2^N - 1, then "2", the tip and the
// second tip-section point; numbers as "%f", one blank between fields, each
// line ended by a line feed. Every body is checked before any file is
// written: its name must be a usable file name and tool name (1 to 199
// characters, no white space, no '/', not "." or "..", no two bodies alike)
// and it must have 1 to 30 points (so that the mask fits a 32-bit integer).
// Returns false when a body fails these checks or a file cannot be written.
bool writeToolFiles(const Scene& scene, const std::string& directory);

// Three tools of passive-marker kind, 1.2 to 2 m ahead, each told apart from
// the others by its inter-marker distances (within a tool every distance
// differs from every other by more than 4 mm, and no distance of one tool
// comes within 4.5 mm of one of another). At frame 0 no two markers are
// within 5 px of the same image row, so a marker hidden from one camera
// there cannot take another marker's partner in the other image.
//   reference  4 markers, still;
//   pointer    4 markers, sliding back and forth (oscillate, 4 s period),
//              tip in its marker plane;
//   handpiece  5 markers, turning about a tilted axis through its centroid at
//              0.5 rad/s;
// plus 2 stray centres per camera (seed 7); 60 frames per second, no noise.
// The same content as sim/scenes/tracking_demo.scene.
Scene trackingDemoScene();

}  // namespace vyx::sim
