#include "calibration/PivotQuality.h"

#include <Eigen/Dense>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;
// A tool origin closer than this to the pivot has no shaft direction.
constexpr double kMinShaftLengthMm = 1.0;

// Angle between two vectors, accurate for small and large angles alike.
double angleBetween(const Eigen::Vector3d& a, const Eigen::Vector3d& b) {
    return std::atan2(a.cross(b).norm(), a.dot(b));
}

// Angle of the rotation that takes orientation a to orientation b.
double rotationAngle(const Eigen::Matrix3d& a, const Eigen::Matrix3d& b) {
    const Eigen::Matrix3d m = a.transpose() * b;
    const double skew = Eigen::Vector3d(m(2, 1) - m(1, 2), m(0, 2) - m(2, 0), m(1, 0) - m(0, 1)).norm();
    return std::atan2(skew, m.trace() - 1.0);
}

}  // namespace

T_ToolTipPivotQuality assessPivot(const cv::Mat& A, const cv::Mat& B) {
    T_ToolTipPivotQuality q{};
    q.Verdict = PivotVerdict_Singular;
    if (A.type() != CV_32F || B.type() != CV_32F || A.cols != 6 || B.cols != 1 ||
        A.rows != B.rows || A.rows < 6 || A.rows % 3 != 0)
        return q;
    const int n = A.rows / 3;

    Eigen::MatrixXd a(A.rows, 6);
    Eigen::VectorXd b(A.rows);
    for (int r = 0; r < A.rows; ++r) {
        for (int c = 0; c < 6; ++c) a(r, c) = A.at<float>(r, c);
        b(r) = -static_cast<double>(B.at<float>(r));
    }
    const Eigen::JacobiSVD<Eigen::MatrixXd> svd(a, Eigen::ComputeThinU | Eigen::ComputeThinV);
    const Eigen::VectorXd x = svd.solve(b);
    const Eigen::VectorXd& s = svd.singularValues();
    const Eigen::Vector3d t = x.head<3>(), P = x.tail<3>();

    std::vector<Eigen::Matrix3d> rotations(static_cast<std::size_t>(n));
    std::vector<Eigen::Vector3d> shafts(static_cast<std::size_t>(n));
    double squares = 0.0, largest = 0.0;
    std::vector<double> residuals(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) {
        const Eigen::Matrix3d R = a.block<3, 3>(3 * i, 0);
        const Eigen::Vector3d T = -b.segment<3>(3 * i);
        const double r = (R * t + T - P).norm();
        residuals[static_cast<std::size_t>(i)] = r;
        squares += r * r;
        largest = std::max(largest, r);
        rotations[static_cast<std::size_t>(i)] = R;
        shafts[static_cast<std::size_t>(i)] = T - P;
    }
    const double rms = std::sqrt(squares / n);
    const bool hasShaft = t.norm() >= kMinShaftLengthMm;

    double orientationSpread = 0.0, shaftSpread = 0.0;
    for (int i = 0; i < n; ++i)
        for (int j = i + 1; j < n; ++j) {
            const auto ui = static_cast<std::size_t>(i), uj = static_cast<std::size_t>(j);
            orientationSpread =
                std::max(orientationSpread, rotationAngle(rotations[ui], rotations[uj]));
            if (hasShaft) shaftSpread = std::max(shaftSpread, angleBetween(shafts[ui], shafts[uj]));
        }
    if (!hasShaft) shaftSpread = orientationSpread;

    // Covariance of x: M^-1 (sum_i A_i^T S A_i) M^-1, M = A^T A, with A_i the
    // three rows of pose i and S the 3 x 3 covariance of the residuals,
    // scaled for the six unknowns. Marker noise is far larger in depth than
    // across, so the residuals are not isotropic; with isotropic ones S is
    // s^2 I and this is the familiar s^2 M^-1.
    Eigen::Matrix3d S = Eigen::Matrix3d::Zero();
    for (int i = 0; i < n; ++i) {
        const Eigen::Vector3d r =
            a.block<3, 3>(3 * i, 0) * t - b.segment<3>(3 * i) - P;
        S += r * r.transpose();
    }
    S *= 3.0 / (3.0 * n - 6.0);
    const Eigen::MatrixXd& V = svd.matrixV();
    const Eigen::VectorXd inverseSquares = s.array().square().inverse().matrix();
    const Eigen::MatrixXd Minv = V * inverseSquares.asDiagonal() * V.transpose();
    Eigen::Matrix<double, 6, 6> middle = Eigen::Matrix<double, 6, 6>::Zero();
    for (int i = 0; i < n; ++i) {
        const Eigen::Matrix<double, 3, 6> Ai = a.block<3, 6>(3 * i, 0);
        middle += Ai.transpose() * S * Ai;
    }
    const Eigen::MatrixXd covariance = Minv * middle * Minv;
    const double tipTrace = covariance.topLeftCorner<3, 3>().trace();
    const double pivotTrace = covariance.bottomRightCorner<3, 3>().trace();

    for (int k = 0; k < 3; ++k) {
        q.TipPoint[k] = t(k);
        q.PivotPoint[k] = P(k);
    }
    q.RmsResidual = static_cast<float>(rms);
    q.MaxResidual = static_cast<float>(largest);
    q.OutlierCount = static_cast<int32_t>(
        std::count_if(residuals.begin(), residuals.end(), [&](double r) { return r > 3.0 * rms; }));
    q.PoseCount = n;
    q.AngularSpreadDeg = static_cast<float>(orientationSpread * kDegreesPerRadian);
    q.ShaftSpreadDeg = static_cast<float>(shaftSpread * kDegreesPerRadian);
    q.SmallestSingularValue = static_cast<float>(s(5));
    q.TipPrecision = static_cast<float>(std::sqrt(tipTrace));
    q.PivotPrecision = static_cast<float>(std::sqrt(pivotTrace));

    if (!(s(5) > kPivotSingularRatio * s(0)))
        q.Verdict = PivotVerdict_Singular;
    else if (q.ShaftSpreadDeg < kPivotMinShaftSpreadDeg)
        q.Verdict = PivotVerdict_TooLittleRotation;
    else if (rms > kPivotMaxRmsResidualMm)
        q.Verdict = PivotVerdict_ResidualTooHigh;
    else
        q.Verdict = PivotVerdict_Good;
    return q;
}
