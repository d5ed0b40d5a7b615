// Temperature compensation of the stereo camera model, and the epipolar
// matrices derived from the compensated model.
//
// The tracker's geometry drifts with its temperature. Before each frame is
// reconstructed, the working left and right camera models and the depth
// scale factor are derived for the camera temperature the device reports
// (CalculateSysPara), and the stereo matrices used by pair matching are
// recomputed from them (CalculateMlrRT_SEF).
#pragma once

#include "camera/CameraParameters.h"

#include <opencv2/core.hpp>

// The camera model used to reconstruct one frame. All matrices are CV_64F.
struct StereoWorkingModel {
    // Working camera models for the current temperature.
    SYSPARA left, right;
    // Depth scale factor: every reconstructed Z is multiplied by it.
    double zFactor = 1.0;

    // Synthetic camera matrices (3x3) with the fixed focal value and each
    // working camera's principal point; pair matching measures epipolar
    // distances in these pixel units.
    cv::Mat KnewL, KnewR;
    // Relative pose (3x3, 3x1). With orthonormal camera rotations and each
    // camera's centre at its T, a point X in left-camera coordinates lies at
    // Rlr * (X - Tlr) in right-camera coordinates.
    cv::Mat Rlr, Tlr;
    // Cross-product matrix of Tlr (3x3).
    cv::Mat S;
    // Essential matrix Rlr * S: xR^T * E * xL = 0 for the normalised
    // coordinates (x, y, 1) of one point seen by both cameras.
    cv::Mat E;
    // Fundamental matrix of E in KnewL / KnewR pixel coordinates.
    cv::Mat F;
};

// Focal value of KnewL and KnewR, in their pixel units (the double nearest
// to 1 / 0.0052).
constexpr double kSyntheticFocalLength = 192.30769230769232;

// Derives model.left, model.right and model.zFactor for a camera temperature
// in degrees Celsius. Leaves the derived stereo matrices untouched.
//
// First from the two calibration sets: when calibTemperature2 exceeds
// calibTemperature1 by at least 0.005, every matrix element (rotation
// elements included, with no re-orthogonalisation) and the depth factor are
// interpolated linearly in the temperature, and extrapolated outside the
// calibrated range; otherwise set 1 is used as it is.
//
// Then, when the temperature table has at least 3 entries, it overrides that
// result: at or below the first table temperature entry 0 is used, at or
// above the last one the last entry; in between, the first adjacent pair of
// entries whose temperatures enclose the temperature is interpolated
// (intrinsics, distortion, translation and depth factor linearly, rotations
// through their rotation vectors). When no pair encloses it, which only a
// NaN temperature (given or in the table) can cause, the last entry is used.
void CalculateSysPara(const CameraParameterBlock& block, double temperature,
                      StereoWorkingModel& model);

// Recomputes KnewL, KnewR, Rlr, Tlr, S, E and F from model.left and
// model.right. The camera rotations are inverted as general matrices, since
// the two-set interpolation can leave them slightly non-orthonormal.
void CalculateMlrRT_SEF(StereoWorkingModel& model);
