// Lens undistortion of marker centres and triangulation of stereo pairs.
//
// Camera model (per camera, see SYSPARA): a pixel (u, v) maps through the
// inverse camera matrix to distorted normalised coordinates, and the
// radial-tangential model k1, k2, p1, p2, k3 is inverted by a fixed number of
// fixed-point iterations. The undistorted normalised point (x, y) defines the
// viewing ray d = R * (x, y, 1) in the measurement frame.
//
// Triangulation frame: the right camera's centre is taken to lie at T (of
// the right camera) from the left camera's centre; the left camera's T plays
// no part. Each pair's output is the midpoint of the two ray points closest
// to each other, expressed relative to the middle of that baseline: a point
// at offset P from the left camera's centre is reported as P - T/2. Depth
// scaling and distance limits belong to the caller.
//
// The cv::Mat functions are built on the raw-array ones, which the per-frame
// path calls directly; neither allocates per point.
#pragma once

#include "camera/CameraParameters.h"

#include <opencv2/core.hpp>

// Iterations of the undistortion loop. Fixed, with no convergence test, so
// that every point costs the same.
constexpr int kUndistortIterations = 20;

// Normalises and undistorts n pixel centres. uv holds n pairs (u, v) in
// pixels, xy receives n pairs (x, y) of undistorted normalised coordinates;
// xy may be uv itself. dist is k1, k2, p1, p2, k3; K is the 3x3 camera matrix
// row-major, whose last row is expected to be (0, 0, 1). A singular K gives
// (0, 0) for every point.
void undistortNormalise(const double* uv, int n, double* xy, const double dist[5],
                        const double K[9]);

// Triangulates n pairs of undistorted normalised points (pairs (x, y), left
// point i with right point i). RL and RR are the camera rotations (3x3
// row-major), TR the right camera's translation in millimetres. Writes n
// triples (X, Y, Z) to xyzOut, in millimetres in the triangulation frame
// above. Rays within 1e-6 rad of parallel have no usable intersection: their
// row is (NaN, NaN, +infinity), so that any depth limit drops it.
void triangulatePairs(const double* xyLeft, const double* xyRight, int n, const double RL[9],
                      const double RR[9], const double TR[3], double* xyzOut);

// Matrix form of the undistortion. points: N x 3 CV_64F rows (u, v, w),
// normally w = 1. normalised becomes N x 3 CV_64F: each row is the inverse
// camera matrix times the point, (x0, y0, w'), with x0 and y0 then replaced
// by the undistorted coordinates and w' kept; it may be points itself.
// When distCoeffs is empty nothing is done and normalised keeps its contents.
// Raises the OpenCV assertion error when points is not N x 3 CV_64F,
// distCoeffs not 5 CV_64F elements or cameraMatrix not 3x3 CV_64F.
void UndistorNorm(const cv::Mat& points, cv::Mat& normalised, const cv::Mat& distCoeffs,
                  const cv::Mat& cameraMatrix);

// Triangulates pairs of image points: row i of left (N x 3 CV_64F, (u, v, 1)
// in pixels) with row i of right, using each camera's distortion, camera
// matrix and rotation and the right camera's translation. out becomes N x 3
// CV_64F (X, Y, Z) in pair order, in the triangulation frame above, with
// parallel-ray rows as in triangulatePairs; the third column of each
// normalised point enters the ray as its third component. out is empty when
// the row counts differ or are zero, or when either camera has no
// distortion coefficients (nothing to undistort with). out may be left or
// right. Raises the OpenCV assertion error on wrongly shaped or typed input.
void Compute3DPoints(const cv::Mat& left, const cv::Mat& right, cv::Mat& out,
                     const SYSPARA& leftPara, const SYSPARA& rightPara);
