#include "camera/RotationUtils.h"

#include <algorithm>
#include <cmath>

namespace {

// Below this length a rotation vector is treated as no rotation when building
// a matrix; below this sine myRodrigues cannot recover the axis.
constexpr double kMinRodriguesAngle = 1e-6;
// Below this angle the quaternion-based conversions report the zero vector.
constexpr double kMinQuaternionAngle = 1e-5;

struct Quaternion {
    double w, x, y, z;
};

// The three components of a 1x3 or 3x1 vector of any depth, in double.
cv::Vec3d readVector3(const cv::Mat& v) {
    cv::Mat_<double> d;
    v.convertTo(d, CV_64F);
    return {d(0), d(1), d(2)};
}

cv::Matx33d readMatrix33(const cv::Mat& m) {
    cv::Mat_<double> d;
    m.convertTo(d, CV_64F);
    return cv::Matx33d(d(0, 0), d(0, 1), d(0, 2),
                       d(1, 0), d(1, 1), d(1, 2),
                       d(2, 0), d(2, 1), d(2, 2));
}

cv::Mat rowVector(const cv::Vec3d& v, int depth) {
    cv::Mat row = (cv::Mat_<double>(1, 3) << v[0], v[1], v[2]);
    if (depth != CV_64F) row.convertTo(row, depth);
    return row;
}

// R = cos(theta) I + (1 - cos(theta)) k kT + sin(theta) [k]x with k the unit axis.
cv::Matx33d matrixFromRotationVector(const cv::Vec3d& r) {
    const double theta = cv::norm(r);
    if (theta < kMinRodriguesAngle) return cv::Matx33d::eye();
    const cv::Vec3d k = r / theta;
    const double c = std::cos(theta);
    const double s = std::sin(theta);
    const cv::Matx33d cross(0, -k[2], k[1],
                            k[2], 0, -k[0],
                            -k[1], k[0], 0);
    return c * cv::Matx33d::eye() + (1 - c) * (cv::Matx31d(k) * cv::Matx13d(k[0], k[1], k[2])) +
           s * cross;
}

// Unit quaternion of a rotation matrix. The branch follows the largest of the
// trace and the diagonal, so the square root never sees a small argument.
Quaternion quaternionFromMatrix(const cv::Matx33d& R) {
    const double trace = R(0, 0) + R(1, 1) + R(2, 2);
    Quaternion q{};
    if (trace > R(0, 0) && trace > R(1, 1) && trace > R(2, 2)) {
        const double root = std::sqrt(1 + trace);
        const double t = 0.5 / root;
        q.w = 0.5 * root;
        q.x = (R(2, 1) - R(1, 2)) * t;
        q.y = (R(0, 2) - R(2, 0)) * t;
        q.z = (R(1, 0) - R(0, 1)) * t;
    } else if (R(0, 0) >= R(1, 1) && R(0, 0) >= R(2, 2)) {
        const double root = std::sqrt(1 + R(0, 0) - R(1, 1) - R(2, 2));
        const double t = 0.5 / root;
        q.x = 0.5 * root;
        q.w = (R(2, 1) - R(1, 2)) * t;
        q.y = (R(0, 1) + R(1, 0)) * t;
        q.z = (R(0, 2) + R(2, 0)) * t;
    } else if (R(1, 1) >= R(2, 2)) {
        const double root = std::sqrt(1 + R(1, 1) - R(0, 0) - R(2, 2));
        const double t = 0.5 / root;
        q.y = 0.5 * root;
        q.w = (R(0, 2) - R(2, 0)) * t;
        q.x = (R(0, 1) + R(1, 0)) * t;
        q.z = (R(1, 2) + R(2, 1)) * t;
    } else {
        const double root = std::sqrt(1 + R(2, 2) - R(0, 0) - R(1, 1));
        const double t = 0.5 / root;
        q.z = 0.5 * root;
        q.w = (R(1, 0) - R(0, 1)) * t;
        q.x = (R(0, 2) + R(2, 0)) * t;
        q.y = (R(1, 2) + R(2, 1)) * t;
    }
    // q and -q are the same rotation; w >= 0 keeps the angle within [0, pi].
    if (q.w < 0) q = {-q.w, -q.x, -q.y, -q.z};
    return q;
}

// Rotation vector of a unit quaternion with w >= 0.
cv::Vec3d rotationVectorFromQuaternion(const Quaternion& q) {
    const double theta = 2 * std::acos(std::clamp(q.w, -1.0, 1.0));
    if (theta < kMinQuaternionAngle) return {0, 0, 0};
    const double scale = theta / std::sin(theta / 2);
    return {q.x * scale, q.y * scale, q.z * scale};
}

// Quaternion of a rotation vector. A zero vector divides zero by zero.
Quaternion quaternionFromRotationVector(const cv::Vec3d& r) {
    const double theta = cv::norm(r);
    const double s = std::sin(theta / 2) / theta;
    return {std::cos(theta / 2), r[0] * s, r[1] * s, r[2] * s};
}

// Roll, pitch and yaw of R = Rz(yaw)*Ry(pitch)*Rx(roll) given as a quaternion.
cv::Vec3d rpyFromQuaternion(const Quaternion& q) {
    const double roll = std::atan2(2 * (q.w * q.x + q.y * q.z),
                                   q.w * q.w - q.x * q.x - q.y * q.y + q.z * q.z);
    const double pitch = std::asin(std::clamp(-2 * (q.x * q.z - q.w * q.y), -1.0, 1.0));
    const double yaw = std::atan2(2 * (q.w * q.z + q.x * q.y),
                                  q.w * q.w + q.x * q.x - q.y * q.y - q.z * q.z);
    return {roll, pitch, yaw};
}

Quaternion quaternionFromRpy(double roll, double pitch, double yaw) {
    const double cr = std::cos(roll / 2), sr = std::sin(roll / 2);
    const double cp = std::cos(pitch / 2), sp = std::sin(pitch / 2);
    const double cy = std::cos(yaw / 2), sy = std::sin(yaw / 2);
    Quaternion q{cr * cp * cy + sr * sp * sy,
                 sr * cp * cy - cr * sp * sy,
                 cr * sp * cy + sr * cp * sy,
                 cr * cp * sy - sr * sp * cy};
    if (q.w < 0) q = {-q.w, -q.x, -q.y, -q.z};
    return q;
}

}  // namespace

void myRodrigues(const cv::Mat& src, cv::Vec<double, 3>& dst) {
    if (!(src.rows == 3 && src.cols == 3 && src.type() == CV_64F)) {
        cv::error(cv::Error::StsAssert, "src.rows == 3 && src.cols == 3 && src.type() == CV_64F",
                  "myRodrigues", __FILE__, __LINE__);
    }
    const cv::Mat_<double> R(src);
    const double c = (R(0, 0) + R(1, 1) + R(2, 2) - 1) * 0.5;
    const double s2 = 1 - c * c;
    // The axis comes from the antisymmetric part of R, which vanishes at 0 and
    // at pi; both ends give the zero vector.
    if (s2 > 0 && std::sqrt(s2) >= kMinRodriguesAngle) {
        const double k = std::acos(c) / (2 * std::sqrt(s2));
        dst = {(R(2, 1) - R(1, 2)) * k, (R(0, 2) - R(2, 0)) * k, (R(1, 0) - R(0, 1)) * k};
    } else {
        dst = {0, 0, 0};
    }
}

void myRodrigues(const cv::Vec<double, 3>& src, cv::Mat& dst) {
    cv::Mat(matrixFromRotationVector(src)).copyTo(dst);
}

float vectorMagnitude(const cv::Mat& v) {
    return static_cast<float>(std::sqrt(v.dot(v)));
}

cv::Mat crossProduct(const cv::Mat& a, const cv::Mat& b) {
    const cv::Vec3f u(a.at<float>(0), a.at<float>(1), a.at<float>(2));
    const cv::Vec3f v(b.at<float>(0), b.at<float>(1), b.at<float>(2));
    const cv::Vec3f w = u.cross(v);
    return (cv::Mat_<float>(1, 3) << w[0], w[1], w[2]);
}

float calculateAngle(const cv::Mat& a, const cv::Mat& b) {
    const double cosine = a.dot(b) / (cv::norm(a) * cv::norm(b));
    return static_cast<float>(std::acos(std::clamp(cosine, -1.0, 1.0)));
}

double Calcudis(cv::Mat& points, int i, int j) {
    const double dx = points.at<double>(i, 0) - points.at<double>(j, 0);
    const double dy = points.at<double>(i, 1) - points.at<double>(j, 1);
    const double dz = points.at<double>(i, 2) - points.at<double>(j, 2);
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

double Calcudis(double (*points)[3], int i, int j) {
    const double dx = points[i][0] - points[j][0];
    const double dy = points[i][1] - points[j][1];
    const double dz = points[i][2] - points[j][2];
    return std::sqrt(dx * dx + dy * dy + dz * dz);
}

cv::Mat Matrix2RotVet(cv::Mat R, float* quaternionOut) {
    const Quaternion q = quaternionFromMatrix(readMatrix33(R));
    if (quaternionOut != nullptr) {
        quaternionOut[0] = static_cast<float>(q.w);
        quaternionOut[1] = static_cast<float>(q.x);
        quaternionOut[2] = static_cast<float>(q.y);
        quaternionOut[3] = static_cast<float>(q.z);
    }
    return rowVector(rotationVectorFromQuaternion(q), CV_64F);
}

cv::Mat RotVec2RPY(cv::Mat rotVec) {
    return rowVector(rpyFromQuaternion(quaternionFromRotationVector(readVector3(rotVec))), CV_64F);
}

cv::Mat RotVec2RPYf(cv::Mat rotVec) {
    return rowVector(rpyFromQuaternion(quaternionFromRotationVector(readVector3(rotVec))), CV_32F);
}

cv::Mat RPY2RotVec(cv::Mat rpy) {
    const cv::Vec3d angles = readVector3(rpy);
    const Quaternion q = quaternionFromRpy(angles[0], angles[1], angles[2]);
    return rowVector(rotationVectorFromQuaternion(q), CV_32F);
}

cv::Mat RotVet2Matrix2(cv::Mat rotVec) {
    cv::Mat R(matrixFromRotationVector(readVector3(rotVec)));
    if (rotVec.depth() == CV_32F) R.convertTo(R, CV_32F);
    return R;
}

cv::Mat Matrix2RotVet2(cv::Mat R) {
    return rowVector(rotationVectorFromQuaternion(quaternionFromMatrix(readMatrix33(R))), CV_32F);
}

cv::Mat RotVet2Matrix(cv::Mat rotVec) {
    return RotVet2Matrix2(rotVec);
}
