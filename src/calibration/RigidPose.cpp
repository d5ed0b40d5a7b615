#include "calibration/RigidPose.h"

#include <Eigen/Geometry>
#include <Eigen/LU>
#include <Eigen/SVD>

#include <cmath>

RigidPose RigidPose::inverse() const {
    RigidPose out;
    out.R = R.transpose();
    out.t = -(out.R * t);
    return out;
}

RigidPose RigidPose::operator*(const RigidPose& inner) const {
    RigidPose out;
    out.R = R * inner.R;
    out.t = R * inner.t + t;
    return out;
}

bool isRotation(const Eigen::Matrix3d& M) {
    if (!M.allFinite()) return false;
    const Eigen::Matrix3d deviation = M.transpose() * M - Eigen::Matrix3d::Identity();
    return deviation.cwiseAbs().maxCoeff() <= kRotationTolerance && M.determinant() > 0.0;
}

Eigen::Matrix3d nearestRotation(const Eigen::Matrix3d& M) {
    const Eigen::JacobiSVD<Eigen::Matrix3d> svd(M, Eigen::ComputeFullU | Eigen::ComputeFullV);
    Eigen::Matrix3d sign = Eigen::Matrix3d::Identity();
    sign(2, 2) = (svd.matrixU() * svd.matrixV().transpose()).determinant() < 0.0 ? -1.0 : 1.0;
    return svd.matrixU() * sign * svd.matrixV().transpose();
}

bool rigidPoseFromRows(const double (*rows)[4], RigidPose& pose) {
    if (rows == nullptr) return false;
    Eigen::Matrix3d R;
    Eigen::Vector3d t;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) R(i, j) = rows[i][j];
        t(i) = rows[i][3];
    }
    if (!t.allFinite() || !isRotation(R)) return false;
    pose.R = nearestRotation(R);
    pose.t = t;
    return true;
}

void rigidPoseToRows(const RigidPose& pose, double (*rows)[4]) {
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) rows[i][j] = pose.R(i, j);
        rows[i][3] = pose.t(i);
    }
}

Eigen::Vector3d rotationVector(const Eigen::Matrix3d& R) {
    // The quaternion is taken from the largest of its four squared
    // components, and the angle as 2 atan2(|vector part|, |w|): no branch
    // loses precision, near a half-turn included.
    const Eigen::AngleAxisd axisAngle(Eigen::Quaterniond(R).normalized());
    return axisAngle.angle() * axisAngle.axis();
}

Eigen::Matrix3d rotationFromVector(const Eigen::Vector3d& v) {
    const double angle = v.norm();
    if (angle == 0.0) return Eigen::Matrix3d::Identity();
    return Eigen::AngleAxisd(angle, v / angle).toRotationMatrix();
}

double rotationAngleBetween(const Eigen::Matrix3d& a, const Eigen::Matrix3d& b) {
    const Eigen::Matrix3d m = a.transpose() * b;
    const Eigen::Vector3d skew(m(2, 1) - m(1, 2), m(0, 2) - m(2, 0), m(1, 0) - m(0, 1));
    return std::atan2(skew.norm(), m.trace() - 1.0);
}

Eigen::Matrix3d crossMatrix(const Eigen::Vector3d& v) {
    Eigen::Matrix3d m;
    m << 0.0, -v.z(), v.y(), v.z(), 0.0, -v.x(), -v.y(), v.x(), 0.0;
    return m;
}
