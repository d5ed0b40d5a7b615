// The quality of a pivot calibration, from the same poses as its result.
//
// The system A x = -B (rows 3i..3i+2: [R_i | -I] and T_i, x = (t, P)) is
// solved again in double precision by singular value decomposition, and the
// solution is judged by what a user needs to know before trusting a tip:
// how well the poses agree with one fixed pivot (residuals), whether they
// determine the tip at all (smallest singular value, shaft spread), and how
// precise the tip is expected to be.
//
// Predicted precision: with r_i = R_i t + T_i - P the residual of pose i and
// S = 3 / (3n - 6) sum r_i r_i^T their 3 x 3 covariance, the covariance of x
// is M^-1 (sum_i A_i^T S A_i) M^-1, M = A^T A, A_i the rows of pose i. Marker
// noise is several times larger in depth than across, so S is far from
// isotropic, and this sandwich follows it where s^2 M^-1 (which it equals
// for isotropic residuals) would not. The tip's 1-sigma figure is the square
// root of the trace of its 3 x 3 block (the RMS length of the tip error to
// expect), likewise for the pivot point.
#pragma once

#include "VyxPositionTypes.h"

#include <opencv2/core.hpp>

// Verdict thresholds.
constexpr double kPivotMinShaftSpreadDeg = 15.0;
constexpr double kPivotMaxRmsResidualMm = 1.0;
// Below this ratio of the smallest to the largest singular value the poses
// leave a direction of x undetermined: rotations about one axis only.
constexpr double kPivotSingularRatio = 1e-4;

// Assesses the poses in the 3n x 6 system A (CV_32F, n >= 2) and the 3n x 1
// right-hand side B (CV_32F). A system of another shape gives the verdict
// singular with every figure zero.
T_ToolTipPivotQuality assessPivot(const cv::Mat& A, const cv::Mat& B);
