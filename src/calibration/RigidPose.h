// Rigid transforms in double precision for the robot procedures.
//
// A RigidPose (R, t) maps a point p of one frame to R p + t in another; its
// name says which frames, as in "flangeInBase" (flange coordinates into robot
// base coordinates). Lengths are millimetres, angles radians.
//
// Rotation vectors here are exact at every angle: unlike myRodrigues
// (camera/RotationUtils.h), which gives the zero vector for a half-turn, a
// half-turn gives a vector of length pi about its true axis.
#pragma once

#include <Eigen/Core>

struct RigidPose {
    Eigen::Matrix3d R = Eigen::Matrix3d::Identity();
    Eigen::Vector3d t = Eigen::Vector3d::Zero();

    // The inverse mapping (R^T, -R^T t).
    RigidPose inverse() const;
    // This pose after `inner`: p -> R (inner.R p + inner.t) + t.
    RigidPose operator*(const RigidPose& inner) const;
    Eigen::Vector3d operator*(const Eigen::Vector3d& p) const { return R * p + t; }
};

// Largest deviation, per entry, of R^T R from the identity that a caller's
// matrix may have and still count as a rotation (its determinant must be
// positive as well). Single-precision tool poses and rounded robot figures
// lie far inside it; a scaled, sheared or mirrored matrix lies outside.
constexpr double kRotationTolerance = 1e-3;

// Whether every entry of M is finite, M^T M lies within kRotationTolerance of
// the identity and det M > 0.
bool isRotation(const Eigen::Matrix3d& M);

// The rotation nearest to M in the Frobenius norm (U V^T of its singular
// value decomposition, with the sign that makes the determinant +1).
Eigen::Matrix3d nearestRotation(const Eigen::Matrix3d& M);

// A pose from three rows [R | t]. False, leaving `pose` alone, when rows is
// null, a value is not finite or R is not a rotation within
// kRotationTolerance; otherwise R is replaced by its nearest rotation, so
// that everything computed from it is exactly rigid.
bool rigidPoseFromRows(const double (*rows)[4], RigidPose& pose);

// The pose as three rows [R | t].
void rigidPoseToRows(const RigidPose& pose, double (*rows)[4]);

// Rotation vector (axis times angle, angle in [0, pi]) of a rotation matrix,
// through its unit quaternion, accurate for small angles and half-turns.
Eigen::Vector3d rotationVector(const Eigen::Matrix3d& R);

// Rotation matrix of a rotation vector; the zero vector gives the identity.
Eigen::Matrix3d rotationFromVector(const Eigen::Vector3d& v);

// Angle, in [0, pi], of the rotation that takes orientation a to orientation
// b, from the skew part and trace of a^T b (accurate for small angles).
double rotationAngleBetween(const Eigen::Matrix3d& a, const Eigen::Matrix3d& b);

// [v]x, the matrix of the cross product with v: [v]x w = v x w.
Eigen::Matrix3d crossMatrix(const Eigen::Vector3d& v);
