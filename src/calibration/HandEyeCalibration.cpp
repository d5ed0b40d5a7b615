#include "calibration/HandEyeCalibration.h"

#include <Eigen/Cholesky>
#include <Eigen/LU>
#include <Eigen/SVD>

#include <algorithm>
#include <cmath>

namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;
constexpr int kMaxIterations = 100;
constexpr int kMaxDampingIncreases = 12;

using Matrix6x12 = Eigen::Matrix<double, 6, 12>;
using Matrix12 = Eigen::Matrix<double, 12, 12>;
using Vector12 = Eigen::Matrix<double, 12, 1>;
using Vector6 = Eigen::Matrix<double, 6, 1>;

// The right Jacobian inverse of the rotation group at phi: log(exp(phi)
// exp(xi)) = phi + Jr^-1(phi) xi to first order in xi.
Eigen::Matrix3d rightJacobianInverse(const Eigen::Vector3d& phi) {
    const double theta = phi.norm();
    const Eigen::Matrix3d skew = crossMatrix(phi);
    const double c = theta < 1e-5 ? 1.0 / 12.0 + theta * theta / 720.0
                                  : 1.0 / (theta * theta) -
                                        (1.0 + std::cos(theta)) / (2.0 * theta * std::sin(theta));
    return Eigen::Matrix3d::Identity() + 0.5 * skew + c * skew * skew;
}

// The Gauss-Newton system of the refinement at the current solution: the
// normal matrix J^T J, the gradient J^T r and the sum of squares r^T r.
// Parameters, in order: the rotation increment dx of R_X (R_X exp(dx)), the
// rotation increment dz of R_Z (exp(dz) R_Z), t_X and t_Z.
double normalEquations(const std::vector<HandEyePair>& pairs, const HandEyeSolution& s,
                       Matrix12* H, Vector12* g) {
    const Eigen::Matrix3d& RX = s.toolToFlange.R;
    const Eigen::Matrix3d& RZ = s.trackerToBase.R;
    const double w = kHandEyeRotationWeightMmPerRad;
    double cost = 0.0;
    if (H != nullptr) H->setZero();
    if (g != nullptr) g->setZero();
    for (const HandEyePair& p : pairs) {
        const RigidPose& A = p.flangeInBase;
        const RigidPose& B = p.toolInTracker;
        const Eigen::Matrix3d G = RZ * B.R;
        const Eigen::Vector3d e = rotationVector(A.R * RX * G.transpose());
        const Eigen::Vector3d zb = RZ * B.t;
        Vector6 r;
        r << w * e, A.R * s.toolToFlange.t + A.t - zb - s.trackerToBase.t;
        cost += r.squaredNorm();
        if (H == nullptr || g == nullptr) continue;
        const Eigen::Matrix3d Jinv = rightJacobianInverse(e);
        Matrix6x12 J = Matrix6x12::Zero();
        J.block<3, 3>(0, 0) = w * Jinv * G;
        J.block<3, 3>(0, 3) = -w * Jinv;
        J.block<3, 3>(3, 3) = crossMatrix(zb);
        J.block<3, 3>(3, 6) = A.R;
        J.block<3, 3>(3, 9) = -Eigen::Matrix3d::Identity();
        *H += J.transpose() * J;
        *g += J.transpose() * r;
    }
    return cost;
}

HandEyeSolution stepped(const HandEyeSolution& s, const Vector12& d) {
    HandEyeSolution out = s;
    out.toolToFlange.R = s.toolToFlange.R * rotationFromVector(d.segment<3>(0));
    out.trackerToBase.R = rotationFromVector(d.segment<3>(3)) * s.trackerToBase.R;
    out.toolToFlange.t += d.segment<3>(6);
    out.trackerToBase.t += d.segment<3>(9);
    return out;
}

// A 3 x 3 matrix from a singular vector of K, whose entries stack the
// matrix's columns, scaled to determinant 1 and made a rotation. False when
// the matrix is singular.
bool rotationFromSingularVector(const Eigen::Matrix<double, 9, 1>& v, Eigen::Matrix3d& R) {
    Eigen::Matrix3d M;
    for (int column = 0; column < 3; ++column)
        for (int row = 0; row < 3; ++row) M(row, column) = v(3 * column + row);
    const double det = M.determinant();
    if (!std::isfinite(det) || det == 0.0) return false;
    R = nearestRotation(M / std::cbrt(det));
    return true;
}

}  // namespace

HandEyeResiduals handEyeResiduals(const std::vector<HandEyePair>& pairs,
                                  const RigidPose& trackerToBase, const RigidPose& toolToFlange) {
    HandEyeResiduals out;
    if (pairs.empty()) return out;
    double squaresMm = 0.0, squaresRad = 0.0, worst = -1.0;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const RigidPose byRobot = pairs[i].flangeInBase * toolToFlange;
        const RigidPose byTracker = trackerToBase * pairs[i].toolInTracker;
        const double mm = (byRobot.t - byTracker.t).norm();
        const double rad = rotationAngleBetween(byRobot.R, byTracker.R);
        squaresMm += mm * mm;
        squaresRad += rad * rad;
        out.maxMm = std::max(out.maxMm, mm);
        out.maxDeg = std::max(out.maxDeg, rad * kDegreesPerRadian);
        const double weighted = std::hypot(mm, kHandEyeRotationWeightMmPerRad * rad);
        if (weighted > worst) {
            worst = weighted;
            out.worstPair = static_cast<int>(i);
        }
    }
    const double n = static_cast<double>(pairs.size());
    out.rmsMm = std::sqrt(squaresMm / n);
    out.rmsDeg = std::sqrt(squaresRad / n) * kDegreesPerRadian;
    return out;
}

bool solveHandEyeClosedForm(const std::vector<HandEyePair>& pairs, HandEyeSolution& solution) {
    if (pairs.size() < static_cast<std::size_t>(kHandEyeMinPairs)) return false;

    // K = sum_i R_B_i (x) R_A_i: entry (3a + b, 3c + d) is R_B(a, c) R_A(b, d).
    Eigen::Matrix<double, 9, 9> K = Eigen::Matrix<double, 9, 9>::Zero();
    for (const HandEyePair& p : pairs)
        for (int a = 0; a < 3; ++a)
            for (int c = 0; c < 3; ++c)
                K.block<3, 3>(3 * a, 3 * c) += p.toolInTracker.R(a, c) * p.flangeInBase.R;
    const Eigen::JacobiSVD<Eigen::Matrix<double, 9, 9>> svd(
        K, Eigen::ComputeFullU | Eigen::ComputeFullV);
    const auto& sigma = svd.singularValues();
    if (!(sigma(0) > 0.0) || (sigma(0) - sigma(1)) / sigma(0) < kHandEyeMinRotationGap)
        return false;

    HandEyeSolution out;
    if (!rotationFromSingularVector(svd.matrixV().col(0), out.toolToFlange.R) ||
        !rotationFromSingularVector(svd.matrixU().col(0), out.trackerToBase.R))
        return false;

    // R_A_i t_X - t_Z = R_Z t_B_i - t_A_i, by its normal equations.
    Eigen::Matrix<double, 6, 6> N = Eigen::Matrix<double, 6, 6>::Zero();
    Vector6 b = Vector6::Zero();
    for (const HandEyePair& p : pairs) {
        Eigen::Matrix<double, 3, 6> rows;
        rows << p.flangeInBase.R, -Eigen::Matrix3d::Identity();
        N += rows.transpose() * rows;
        b += rows.transpose() * (out.trackerToBase.R * p.toolInTracker.t - p.flangeInBase.t);
    }
    const Vector6 t = N.ldlt().solve(b);
    if (!t.allFinite()) return false;
    out.toolToFlange.t = t.head<3>();
    out.trackerToBase.t = t.tail<3>();
    out.residuals = handEyeResiduals(pairs, out.trackerToBase, out.toolToFlange);
    solution = out;
    return true;
}

bool refineHandEye(const std::vector<HandEyePair>& pairs, HandEyeSolution& solution) {
    if (pairs.size() < static_cast<std::size_t>(kHandEyeMinPairs)) return false;
    HandEyeSolution current = solution;
    Matrix12 H;
    Vector12 g;
    double lambda = 1e-3;
    for (int iteration = 0; iteration < kMaxIterations; ++iteration) {
        const double cost = normalEquations(pairs, current, &H, &g);
        if (!(cost > 0.0)) break;
        bool accepted = false;
        Vector12 step = Vector12::Zero();
        double newCost = cost;
        for (int attempt = 0; attempt < kMaxDampingIncreases && !accepted; ++attempt) {
            Matrix12 damped = H;
            damped.diagonal() += lambda * H.diagonal();
            step = damped.ldlt().solve(-g);
            if (!step.allFinite()) break;
            const HandEyeSolution candidate = stepped(current, step);
            newCost = normalEquations(pairs, candidate, nullptr, nullptr);
            if (newCost < cost) {
                current = candidate;
                accepted = true;
                lambda = std::max(lambda * 0.1, 1e-12);
            } else {
                lambda *= 10.0;
            }
        }
        if (!accepted) break;  // no step lowers the sum: converged
        const bool tinyStep = step.head<6>().cwiseAbs().maxCoeff() < 1e-13 &&
                              step.tail<6>().cwiseAbs().maxCoeff() < 1e-10;
        if (tinyStep || cost - newCost <= 1e-15 * cost) break;
    }
    current.residuals = handEyeResiduals(pairs, current.trackerToBase, current.toolToFlange);
    solution = current;
    return true;
}

bool calibrateHandEye(const std::vector<HandEyePair>& pairs, HandEyeSolution& solution) {
    HandEyeSolution out;
    if (!solveHandEyeClosedForm(pairs, out) || !refineHandEye(pairs, out)) return false;
    solution = out;
    return true;
}

int calculateRobotCalibration(const T_RobotPosePair* pairs, int count,
                              T_RobotCalibrationResult& result) {
    if (pairs == nullptr || count < kHandEyeMinPairs || count > VYX_MAX_ROBOT_POSE_PAIRS)
        return RV_FAILED;
    std::vector<HandEyePair> poses(static_cast<std::size_t>(count));
    for (std::size_t i = 0; i < poses.size(); ++i)
        if (!rigidPoseFromRows(pairs[i].FlangeInBase, poses[i].flangeInBase) ||
            !rigidPoseFromRows(pairs[i].ToolInTracker, poses[i].toolInTracker))
            return RV_FAILED;
    HandEyeSolution solution;
    if (!calibrateHandEye(poses, solution)) return RV_FAILED;

    T_RobotCalibrationResult out{};
    rigidPoseToRows(solution.trackerToBase, out.TrackerToBase);
    rigidPoseToRows(solution.toolToFlange, out.ToolToFlange);
    out.RmsResidualMm = solution.residuals.rmsMm;
    out.RmsResidualDeg = solution.residuals.rmsDeg;
    out.MaxResidualMm = solution.residuals.maxMm;
    out.MaxResidualDeg = solution.residuals.maxDeg;
    out.PairCount = count;
    out.WorstPairIndex = solution.residuals.worstPair;
    result = out;
    return RV_SUCCESS;
}
