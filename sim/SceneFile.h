// Scene files: a Scene (Scene.h) as text.
//
// One statement per line. '#' starts a comment that runs to the end of the
// line; blank lines are ignored. Keywords are lower case and words are
// separated by spaces or tabs. Numbers are decimal (1500, -0.2, 2.5e-3);
// lengths are millimetres in the measurement frame (X right, Y down, Z away
// from the tracker; the origin between the cameras), times seconds.
//
//   framerate HZ                  frames per second the motions are played
//                                 at (default 60)
//   marker X Y Z [left|right]     a still marker; "left" or "right": seen by
//                                 that camera only
//   body NAME                     starts a rigid body (NAME: one word); the
//                                 point, motion, kind, attach, unlisted,
//                                 perturb, tip and tipaxis lines after it
//                                 belong to it
//   point X Y Z [left|right]      a point of the current body, in its rest
//                                 pose (where it is at time 0 unless it or a
//                                 body carrying it pivots)
//   motion still                  the current body's motion (default still)
//   motion translate VX VY VZ     moves at (VX, VY, VZ) mm/s
//   motion rotate AX AY AZ CX CY CZ RAD_PER_SECOND
//                                 turns about the axis along (AX, AY, AZ)
//                                 through (CX, CY, CZ), right-handed
//   motion oscillate AX AY AZ PERIOD
//                                 swings back and forth without turning:
//                                 moved by (AX, AY, AZ) x sin(2 pi t / PERIOD)
//   motion pivot PX PY PZ AX AY AZ HALF_ANGLE_RAD PRECESSION_RAD_PER_S
//                SPIN_RAD_PER_S   swings about the fixed point (PX, PY, PZ):
//                                 the shaft, at rest along (AX, AY, AZ) from
//                                 that point, sweeps a cone of HALF_ANGLE_RAD
//                                 (0 to below pi / 2) about it while the body
//                                 spins about its shaft (Scene.h: Motion)
//   motion steps SECONDS_PER_STEP is put at each of the placements of the
//                                 'step' lines that follow, in turn, each
//                                 held for SECONDS_PER_STEP, the last ever
//                                 after (Scene.h: Motion)
//   step RX RY RZ TX TY TZ        one placement of the current body's steps:
//                                 a point p goes to R p + (TX, TY, TZ), R the
//                                 turn by the rotation vector (RX, RY, RZ),
//                                 radians, about the origin
//   kind T|C                      the current body is a tool (T, the default)
//                                 or a calibrator (C)
//   attach NAME                   the current body is carried by the earlier
//                                 body NAME: its own motion, then NAME's
//                                 (and so on up the chain) move its points
//   unlisted                      the current body gets no tool file (a
//                                 tool the host does not know yet); it is
//                                 seen and moves as any other
//   perturb MM [seed N]           its tool file holds each point moved by MM
//                                 (0 or more) in a direction drawn from seed
//                                 N (default 0) and the point's index, while
//                                 the markers seen stay true (SceneTools.h:
//                                 fileMarkers; default 0, the true points)
//   tip X Y Z                     the current body's tool tip, in its tool
//                                 frame (default 0 0 -150; Scene.h: RigidBody)
//   tipaxis X Y Z                 its second tip-section point, tool frame
//                                 (default 0 0 -50)
//   noise SIGMA [seed N]          Gaussian pixel noise of SIGMA px on every
//                                 centre coordinate (default 0, seed 0)
//   stray COUNT [seed N]          COUNT random extra centres per camera and
//                                 frame, at most 200 (default 0, seed 0)
//   temperature CELSIUS           camera temperature reported and compensated
//                                 for (default 30)
//   temperature ramp START STEP   START at frame 0, STEP more per frame
//   extendedid on|off             extended frame id and counter (default on)
//   cameravalues LEFT RIGHT       camera values 0-255 of every frame (default
//                                 0 0; a host flags a frame above 5)
//
// A setting given twice takes its last value (also kind, attach, perturb,
// tip and tipaxis). A body needs at least one point and at most one motion
// line; a steps motion needs at least one step line.
// Example:
//
//   framerate 60
//   body tool
//   point 0 0 1500
//   point 60 0 1500
//   point 0 90 1500
//   motion rotate 0 0 1  0 0 1500  0.6
//   noise 0.1 seed 42
#pragma once

#include "sim/Scene.h"

#include <cstddef>
#include <istream>
#include <stdexcept>
#include <string>

namespace vyx::sim {

// A scene file that cannot be read or understood. what() reads
// "SOURCE:LINE: message" ("SOURCE: message" when the file cannot be opened).
class SceneFileError : public std::runtime_error {
public:
    SceneFileError(const std::string& source, std::size_t line, const std::string& message);
    // 1-based line of the fault; 0 when the file could not be read at all.
    std::size_t line() const { return line_; }

private:
    std::size_t line_;
};

// Reads a scene from text; `source` names it in error messages. Throws
// SceneFileError.
Scene parseScene(std::istream& text, const std::string& source = "scene");
Scene parseScene(const std::string& text, const std::string& source = "scene");

// Reads a scene file. Throws SceneFileError.
Scene loadSceneFile(const std::string& path);

// The scene as scene-file text that reads back to the same scene (numbers
// are written exactly). Body names are written with white space and '#'
// replaced by '_', and an empty name as "body".
std::string formatScene(const Scene& scene);

}  // namespace vyx::sim
