// Conversions between rotation representations, and small vector measures.
//
// Representations:
//   rotation matrix   3x3, maps a point p to R*p;
//   rotation vector   three components, direction = axis, length = angle;
//   roll-pitch-yaw    angles about X, Y and Z, composed as R = Rz(yaw)*Ry(pitch)*Rx(roll);
//   quaternion        unit (w, x, y, z).
// All angles are radians. Vector arguments may be 1x3 or 3x1. Every vector
// result is a 1x3 cv::Mat. Apart from the matrix-to-vector myRodrigues, which
// raises the OpenCV assertion error on a bad argument, the functions trust the
// caller for shapes and types.
//
// The matrix-to-vector conversions share two rules that callers rely on:
//   * an angle too small to resolve gives the zero vector (threshold 1e-6 on
//     sin(angle) in myRodrigues, 1e-5 on the angle everywhere else);
//   * myRodrigues maps a half-turn (angle pi) to the zero vector as well,
//     since its axis cannot be read from the antisymmetric part of R.
#pragma once

#include <opencv2/core.hpp>

// Rotation vector of a 3x3 CV_64F rotation matrix. Raises cv::Exception with
// code cv::Error::StsAssert when src is not 3x3 or not CV_64F.
void myRodrigues(const cv::Mat& src, cv::Vec<double, 3>& dst);

// 3x3 CV_64F rotation matrix of a rotation vector (Rodrigues formula). A vector
// shorter than 1e-6 gives the identity.
void myRodrigues(const cv::Vec<double, 3>& src, cv::Mat& dst);

// Euclidean length of a vector of any single-channel type.
float vectorMagnitude(const cv::Mat& v);

// a x b of two 3-element CV_32F vectors, as a 1x3 CV_32F vector.
cv::Mat crossProduct(const cv::Mat& a, const cv::Mat& b);

// Angle between two vectors of the same type, in [0, pi]. The cosine is
// clamped to [-1, 1], so that rounding cannot turn parallel vectors into NaN.
// A zero-length argument gives NaN.
float calculateAngle(const cv::Mat& a, const cv::Mat& b);

// Distance between rows i and j of an N x 3 CV_64F point matrix.
double Calcudis(cv::Mat& points, int i, int j);

// Distance between points i and j of an array of (x, y, z) doubles.
double Calcudis(double (*points)[3], int i, int j);

// Rotation vector of a 3x3 rotation matrix (CV_32F or CV_64F), as a 1x3 CV_64F
// vector, obtained through the unit quaternion of R. When quaternionOut is not
// null, that quaternion is written to quaternionOut[0..3] as w, x, y, z; it is
// the one with w >= 0, so the vector's length lies in [0, pi].
cv::Mat Matrix2RotVet(cv::Mat R, float* quaternionOut);

// Roll, pitch and yaw (1x3 CV_64F) of a CV_64F rotation vector. Pitch lies in
// [-pi/2, pi/2], roll and yaw in [-pi, pi]. The zero vector has no axis and
// gives non-finite angles; callers pass a non-zero rotation.
cv::Mat RotVec2RPY(cv::Mat rotVec);

// RotVec2RPY for a CV_32F rotation vector; the result is 1x3 CV_32F.
cv::Mat RotVec2RPYf(cv::Mat rotVec);

// Rotation vector (1x3 CV_32F) of CV_32F roll, pitch and yaw, with length in
// [0, pi]. An angle below 1e-5 gives the zero vector.
cv::Mat RPY2RotVec(cv::Mat rpy);

// 3x3 rotation matrix of a rotation vector (Rodrigues formula). The result is
// CV_32F for a CV_32F vector and CV_64F otherwise. A vector shorter than 1e-6
// gives the identity.
cv::Mat RotVet2Matrix2(cv::Mat rotVec);

// Rotation vector (1x3 CV_32F) of a 3x3 CV_32F (or CV_64F) rotation matrix, through the
// unit quaternion as in Matrix2RotVet.
cv::Mat Matrix2RotVet2(cv::Mat R);

// Same as RotVet2Matrix2.
cv::Mat RotVet2Matrix(cv::Mat rotVec);
