// Robot hand-eye calibration: where the tracker stands in the robot's base
// frame, and where the tool sits on the robot's flange, from pairs of poses.
//
// A tool is fixed to the robot's flange. At each of several robot poses the
// host records the flange pose in robot base coordinates as the controller
// reports it, A_i = flangeInBase, and the tool's pose in tracker coordinates
// as the tracker recognises it at the same moment, B_i = toolInTracker. Both
// chains give the tool's pose in base coordinates:
//
//     A_i X = Z B_i,    X = toolToFlange,  Z = trackerToBase,
//
// two unknown rigid transforms, fixed over the poses.
//
// Closed form. With R_Z = R_A R_X R_B^T for every pair and vec() stacking
// columns, K vec(R_X) = n vec(R_Z) for K = sum_i R_B_i (x) R_A_i (Kronecker
// product). Every term is orthogonal, so n is K's largest singular value:
// its left and right singular vectors, reshaped, scaled to determinant 1 and
// made exactly orthonormal, give R_Z and R_X. The translations follow from
// the linear least-squares problem R_A_i t_X - t_Z = R_Z t_B_i - t_A_i.
// When the flange turns about one axis only (or hardly turns), n is a
// repeated singular value and the rotations are undetermined: the relative
// gap (s_1 - s_2) / s_1 is about half the mean square angle (rad^2) the flange
// turns about the axes other than its main one, and a gap below
// kHandEyeMinRotationGap (about a degree of such rotation) is refused.
//
// Refinement. Levenberg-Marquardt on the twelve parameters (a rotation
// increment of each of R_X and R_Z, and t_X, t_Z), minimising over the pairs
// the sum of squares of
//     rotation residual     kHandEyeRotationWeightMmPerRad * log(R_A R_X (R_Z R_B)^T)
//     translation residual  R_A t_X + t_A - R_Z t_B - t_Z
// both in base coordinates and in millimetres: the second is how far apart
// the robot (A_i X) and the tracker (Z B_i) put the tool's origin. The
// weight trades a radian of orientation error against 50 mm of position
// error, about the ratio of a tracked tool's position noise to its
// orientation noise (a four-marker tool some 130 mm across, 1.5 m ahead,
// with 0.05 px of noise on its marker centres: about 0.1 mm against 0.2
// degrees, 30 mm per radian); the result changes little for weights from 10
// to 100 mm. Steps are taken only when they lower the sum, so the
// refined solution never fits worse than the closed form. Unlike the closed
// form's translation step, which takes the rotations as exact, it lets each
// pose's orientation error count where it arises, which on a tracker's poses
// makes it far more accurate.
//
// Plain functions over plain data; nothing here keeps state.
#pragma once

#include "VyxPositionTypes.h"
#include "calibration/RigidPose.h"

#include <vector>

// Fewest pose pairs the calibration takes: two relative motions about
// different axes need three poses.
constexpr int kHandEyeMinPairs = 3;
// Least relative gap between the two largest singular values of K.
constexpr double kHandEyeMinRotationGap = 1e-4;
// Millimetres of position residual that weigh as much as one radian of
// orientation residual in the refinement.
constexpr double kHandEyeRotationWeightMmPerRad = 50.0;

struct HandEyePair {
    RigidPose flangeInBase;   // A_i, as the robot reports it
    RigidPose toolInTracker;  // B_i, as the tracker sees it
};

// How well a solution fits the pairs: per pair the distance between the
// tool origins A_i X and Z B_i (mm) and the angle between their orientations
// (degrees), as RMS and largest values. The worst pair is the one with the
// largest weighted residual, sqrt(mm^2 + (kHandEyeRotationWeightMmPerRad *
// rad)^2); -1 without pairs.
struct HandEyeResiduals {
    double rmsMm = 0.0;
    double rmsDeg = 0.0;
    double maxMm = 0.0;
    double maxDeg = 0.0;
    int worstPair = -1;
};

struct HandEyeSolution {
    RigidPose trackerToBase;  // Z
    RigidPose toolToFlange;   // X
    HandEyeResiduals residuals;
};

// The residuals of Z and X over the pairs.
HandEyeResiduals handEyeResiduals(const std::vector<HandEyePair>& pairs,
                                  const RigidPose& trackerToBase, const RigidPose& toolToFlange);

// The closed-form solution, with its residuals. False, leaving `solution`
// alone, for fewer than kHandEyeMinPairs pairs or rotations that leave the
// solution undetermined (see above). The pairs' rotations must be rotations.
bool solveHandEyeClosedForm(const std::vector<HandEyePair>& pairs, HandEyeSolution& solution);

// Refines `solution` in place by Levenberg-Marquardt and updates its
// residuals; the fit never gets worse. False, leaving it alone, for fewer
// than kHandEyeMinPairs pairs.
bool refineHandEye(const std::vector<HandEyePair>& pairs, HandEyeSolution& solution);

// The whole calibration: the closed form, then the refinement.
bool calibrateHandEye(const std::vector<HandEyePair>& pairs, HandEyeSolution& solution);

// The calibration over the boundary's records: count pairs (kHandEyeMinPairs
// to VYX_MAX_ROBOT_POSE_PAIRS), each [R|t] with R a rotation within
// kRotationTolerance and finite values. Fills result and returns 0; returns
// -1, leaving result alone, for a null pointer, a count out of range, a bad
// matrix or undetermined rotations.
int calculateRobotCalibration(const T_RobotPosePair* pairs, int count,
                              T_RobotCalibrationResult& result);
