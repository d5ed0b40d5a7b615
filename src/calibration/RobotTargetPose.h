// Robot target poses: the flange pose that brings a tool's tip to a target
// point with its tip axis on a planned path, from a robot hand-eye
// calibration (HandEyeCalibration.h).
//
// Frames: tracker coordinates (where the plan's points are measured), robot
// base coordinates (where the robot takes its poses), flange coordinates, and
// the tool's own frame, in which its tool file gives the tip and the second
// tip-section point. The tool's tip axis runs from the tip towards that
// second point.
//
// Given the target point, an entry point and a roll reference (tracker
// coordinates), the tool is placed with its tip on the target, its tip axis
// pointing from the target towards the entry, and, of the orientations that
// leave, the one that turns the tool's X axis (its part across the tip axis)
// towards the roll reference (its part across the path). The flange pose
// that carries the tool there is
//     flangeInBase = trackerToBase * toolInTracker * toolToFlange^-1.
//
// Plain functions over plain data; nothing here keeps state.
#pragma once

#include "tools/ToolLibrary.h"

// Shortest target-to-entry path, and least distance of the roll reference
// from the line through target and entry, that define an orientation, mm.
// A tool whose tip and second tip-section point are closer than the first
// has no tip axis.
constexpr double kRobotMinPathMm = 1e-3;
constexpr double kRobotMinRollOffsetMm = 1e-3;
// Least sine of the angle between the tool's X axis and its tip axis: an X
// axis along the tip axis cannot set the roll.
constexpr double kRobotMinRollAxisSine = 1e-6;

// What Vyx_SetRobotCalculateRlt holds: both transforms as [R|t] rows, R made
// exactly orthonormal, and the tool's tip section (tool frame, mm) copied
// when the calibration was set.
struct RobotCalibration {
    double trackerToBase[3][4] = {};
    double toolToFlange[3][4] = {};
    double tip[3] = {};
    double tipAxisPoint[3] = {};
};

// The calibration of two [R|t] and the first library tool named `name`
// (its first tip pair; zeros when it has none). False, leaving `out` alone,
// for a null argument, an unknown tool, a value that is not finite or a
// rotation part that is not a rotation within kRotationTolerance.
bool makeRobotCalibration(const double (*trackerToBase)[4], const double (*toolToFlange)[4],
                          const ToolLibrary& library, const char* name, RobotCalibration& out);

// The flange pose for points[0] = target, points[1] = entry, points[2] = roll
// reference (tracker coordinates, mm), as x, y, z (mm) and the rotation
// vector rx, ry, rz (radians, length at most pi), flange into robot base
// coordinates, written to target[0..5]. False, writing nothing, for null
// arguments, points that are not finite or define no orientation, or a tool
// with no tip axis or with its X axis along it.
bool robotTargetPose(const RobotCalibration& calibration, const double (*points)[3],
                     float* target);
