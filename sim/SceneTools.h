// The tools of a scene: each rigid body as a tool (its markers in its own
// frame, its pose over time, its tool file), and built-in scenes: three tools
// for trying tool recognition end to end, the motions tool calibration
// procedures work on (pivoting, a pointer in a calibrator's hole, tools
// carried by a reference), a tool not yet in the library, for making one,
// and a tool whose file is off, for self-calibration.
//
// A body's tool frame (Scene.h, RigidBody): origin at the centroid of its
// points in the rest pose, axes of the measurement frame. A pose maps tool
// coordinates into measurement coordinates, p = R p_tool + T, millimetres.
// The ground truth of every built-in scene is bodyPoseAt() together with
// each body's tip and tipAxis, toolMarkers() and fileMarkers().
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

// The points the body's tool file holds, in the body's order: point i of
// toolMarkers() moved by exactly filePerturbationMm in a direction uniform
// on the sphere, drawn from a generator seeded by filePerturbationSeed and i
// alone (so the same body always gives the same file, and each point its own
// direction); toolMarkers() itself when the perturbation is 0. These are the
// values before the file's "%f" rounding (1e-6 mm). The file keeps the true
// tool frame; what a self-calibration has to remove is the difference from
// toolMarkers(). Throws std::invalid_argument for a body without points or
// with a perturbation that is negative or not finite.
std::vector<Point3> fileMarkers(const RigidBody& body);

// The pose of body `bodyIndex` at frame `frameIndex`: the tool frame carried
// by the body's motion and those of the bodies carrying it (Scene::
// bodyPointAt); in the rest pose the identity rotation and the centroid, which
// is the pose at frame 0 unless something in the chain pivots. Throws
// std::out_of_range for a body index beyond the scene's bodies and
// std::invalid_argument for a body without points or attached to a name no
// earlier body has.
ToolPose bodyPoseAt(const Scene& scene, std::size_t bodyIndex, std::uint64_t frameIndex);

// Writes one tool file "<name>.vyxtool" per listed body into `directory`
// (which must exist): the name, the body's kind ("T" or "C"), the marker
// count N, N lines "x y z mask" of fileMarkers() with mask 2^N - 1, then
// "2", the tip and the second tip-section point; numbers as "%f", one blank
// between fields, each line ended by a line feed. An unlisted body gets no
// file. Every body, listed or not, is checked before any file is written, so
// that a scene's bodies keep distinct names whichever of them are listed:
// its name must be a usable file name and tool name (1 to 199 characters,
// no white space, no '/', not "." or "..", no two bodies alike), it must
// have 1 to 30 points (so that the mask fits a 32-bit integer), kind 'T' or
// 'C' and a file perturbation of zero or more, finite.
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

// Pivoting: one four-marker tool "probe" whose tip rests in a dimple while
// its shaft sweeps a cone about the pivot point. Rest pose: the markers in a
// plane facing the cameras, at (-25, 45), (25, 20), (50, -40), (-50, -25) mm
// in x and y from their centroid (0, -60, 1500) (distances 56 to 113 mm,
// each more than 9 mm from every other), the shaft running 150 mm straight
// down (+Y) from the centroid to the pivot point (0, 90, 1500).
// Ground truth: tip = pivot point - centroid exactly, (0, 150, 0), which
// every pose maps to the pivot point; tipAxis is the middle of the shaft,
// (0, 75, 0). The motion is Motion::pivot about the pivot point, axis from
// the pivot point to the centroid, the given half-angle (the renderer takes
// 0 to below pi / 2; every marker stays in both images up to 0.6 rad; at
// frame 0 the shaft leans towards +X), a precession of 2 pi x 60 /
// framesPerRevolution rad/s, so that framesPerRevolution frames make one
// cone, and a slow spin, 0.1 of the precession (36 degrees a cone), so that
// over the first cone the markers keep facing the cameras and stay more than
// 30 px apart in the images. 60 frames per second, no noise, no strays.
// Throws std::invalid_argument when framesPerRevolution is not positive and
// finite. sim/scenes/pivot_demo.scene is pivotScene(0.5).
Scene pivotScene(double halfAngleRad, double framesPerRevolution = 200);

// Tip calibration in a hole: a still four-marker calibrator "calibrator"
// (kind 'C') about 1.4 m ahead, and a four-marker pointer "pointer" (kind
// 'T') standing in its hole, attached to it and turning about the hole axis
// through the hole's bottom at `radPerSecond` (Motion::rotate). The hole's
// bottom is at (0, 20, 1400) and its axis leans from straight up towards the
// cameras, along (0, -0.8, -0.6).
// Ground truth: the calibrator's tip is the hole's bottom and its tipAxis the
// point 30 mm up the hole axis, (0, -4, 1382), both in its tool frame; the
// pointer's tip and tipAxis are the same two points in the pointer's tool
// frame, where they stay while it turns.
// Calibrator markers: (73, 46), (-87, 150), (-6, 117), (-79, 17) mm in x and
// y from the hole's bottom, in its plane Z = 1400. Pointer markers: in a
// plane through the hole axis, s mm up the axis and r mm across (along X)
// from the tip, (r, s) = (20, 120), (35, 155), (-58, 130), (-30, 135): 122
// to 159 mm from the tip, above the calibrator's markers in both images.
// Every inter-marker distance differs by more than 8.8 mm from every other of
// either tool. All eight markers stay in both images through a whole turn.
// 60 frames per second, no noise. sim/scenes/tip_calibration_demo.scene is
// tipCalibrationScene().
Scene tipCalibrationScene(double radPerSecond = 0.5);

// A reference and the tools it carries, all about 1.5 to 1.7 m ahead: a
// four-marker reference "patient_ref" turning at 0.2 rad/s about the axis
// (1, -2, 6) through (60, 50, 1600); attached to it a four-marker "pointer",
// still relative to it (tip (0, 150, 0), tipAxis (0, 50, 0)), and a
// five-marker "drill" turning relative to it at 0.3 rad/s about (1, 1, 4)
// through (175, 200, 1700) in the rest pose (tip (0, 40, 160), tipAxis
// (0, 15, 60)). Markers, in x and y about an anchor in a plane facing the
// cameras:
//   patient_ref  (83, 43), (31, -64), (-101, -50), (-91, 94) about (-40, 30, 1600)
//   pointer      (54, -26), (-40, 36), (-26, -11), (45, 15) about (120, -110, 1480)
//   drill        (-69, 1), (-54, -55), (86, 32), (-61, 70), (24, 17) about
//                (190, 190, 1700)
// Within a tool every inter-marker distance differs from every other by more
// than 5.6 mm, and from every one of another tool by more than 6.1 mm. Every
// marker stays in both images through a whole turn of the reference. 60
// frames per second, no noise.
Scene referenceScene();

// Making a tool: one body "newtool" of `markerCount` (4 or 5) markers that
// is unlisted, so no tool file knows it, and nothing else in view. Markers,
// about the anchor (0, -10, 1500), roughly in a plane facing the cameras:
//   (54, 43, 0), (-30, 45, 0), (41, -32, 4), (-62, 13, 0), (-11, -21, -3)
// (the first four for markerCount 4), so that they are not coplanar. The
// inter-marker distances run from 45 to 120 mm, each more than 7 mm from
// every other. The body turns at 0.3 rad/s about the axis (1, -1, 3)
// through its centroid, so that its plane tilts up to about 50 degrees from
// facing the cameras and a refinement sees it in varied poses; every marker
// stays in both images through a whole turn (1257 frames). 60 frames per
// second, no noise, no strays.
// Ground truth: toolMarkers() of the body is the constellation a tool maker
// should find (up to the choice of its frame), bodyPoseAt() its pose at
// each frame. Throws std::invalid_argument for another marker count.
Scene toolMakingScene(std::size_t markerCount);

// Self-calibration of a tool whose file is slightly off: one listed
// four-marker body "wand" whose tool file holds its markers each moved by
// `perturbationMm` (filePerturbationMm, seed `seed`), and nothing else in
// view. Markers in a plane facing the cameras, at (61, 11), (9, 48),
// (28, -70), (-46, -6) mm in x and y from the anchor (20, 0, 1500): 64 to
// 120 mm apart, each distance more than 10 mm from every other. It turns at
// 0.3 rad/s about the axis (-1, 2, 5) through its centroid; every marker
// stays in both images through a whole turn (1257 frames). 60 frames per
// second, no noise, no strays.
// Ground truth: toolMarkers() is the true constellation, fileMarkers() what
// the host reads from the file, bodyPoseAt() the true pose. A calibration
// that removes the perturbation gives back toolMarkers() up to a small rigid
// motion of the frame, since the points define the frame only through their
// fit to the file's points; compare shapes (inter-marker distances, or after
// a rigid fit). Throws std::invalid_argument for a perturbation that is
// negative or not finite.
Scene selfCalibrationScene(double perturbationMm = 0.4, std::uint64_t seed = 1);

// A length bar for the accuracy check, with its certificate.
struct LengthBar {
    Scene scene;
    // The certified marker coordinates, in certificate order (end A = 0..3,
    // end B = 4..7): the bar's true tool-frame points (toolMarkers()) scaled
    // about their centroid by the certificate scale, so that a certificate
    // whose scale is not 1 claims a length that the bar does not have.
    std::vector<Point3> certificate;
    // Distance between the true centroids of the two ends, and the one the
    // certificate gives (certificate scale x true length).
    double trueLengthMm = 0.0;
    double certifiedLengthMm = 0.0;
};

// The accuracy check's artefact: one unlisted eight-marker body "lengthbar"
// (no tool file: the host defines the artefact from the certificate), a bar
// with a group of four markers at each end, nothing else in view. Rest pose,
// each group in a plane facing the cameras, x and y about its centre:
//   end A  (40, 40), (-30, 50), (-15, -45), (-20, 10) about (-110, 20, 1480)
//   end B  (25, 0), (-50, 0), (-50, 45), (15, -50)    about (170, 20, 1520)
// so the ends' centroids lie 274.6 mm apart. Within the two groups every
// inter-marker distance (41 to 115 mm) differs from every other by more than
// 3.6 mm, so each end is recognised on its own, and end A's markers never
// pass for end B's. The bar turns at `radPerSecond` about the axis
// (0.25, -0.2, 1) through (0, 0, 1500), off its own centre: its centre
// circles, it points in every direction of its tilted plane of turning, and
// its markers sweep depths of about 1390 to 1620 mm; every marker stays in
// both images, more than 30 px from every other, through a whole turn.
// 60 frames per second, no noise, no strays.
// Ground truth: bodyPoseAt() of body 0, toolMarkers() of it, trueLengthMm.
// Throws std::invalid_argument for a scale that is not positive and finite.
LengthBar lengthBarScene(double certificateScale = 1.0, double radPerSecond = 1.0);

}  // namespace vyx::sim
