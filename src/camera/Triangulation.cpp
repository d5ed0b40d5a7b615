#include "camera/Triangulation.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>

namespace {

// Points undistorted together. The iteration runs over the whole block in
// its inner loop, so that independent points overlap in the pipeline and the
// compiler can vectorise; point by point, the chain of dependent divisions
// makes the loop about seven times slower.
constexpr int kUndistortBlock = 16;

// Pairs processed per chunk by Compute3DPoints, in stack buffers.
constexpr int kPairChunk = 64;

// Rays whose angle has a squared sine at or below this are parallel: below
// 1e-6 rad their intersection lies hundreds of kilometres away for any
// practical baseline. Exactly parallel rays leave only rounding noise in the
// determinant, around 1e-16 relative, far below this margin.
constexpr double kParallelSineSquared = 1e-12;

// Strided view of point rows: point i starts at data + i * stride; hasW
// says whether a third (homogeneous) component follows x and y.
struct ConstRows {
    const double* data;
    std::ptrdiff_t stride;
    bool hasW;
};
struct Rows {
    double* data;
    std::ptrdiff_t stride;
    bool hasW;
};

// Inverse of a 3x3 row-major matrix by cofactors; zeros when it is singular.
void invert3x3(const double m[9], double inv[9]) {
    const double c00 = m[4] * m[8] - m[5] * m[7];
    const double c01 = m[5] * m[6] - m[3] * m[8];
    const double c02 = m[3] * m[7] - m[4] * m[6];
    const double det = m[0] * c00 + m[1] * c01 + m[2] * c02;
    if (det == 0.0 || !std::isfinite(det)) {
        std::fill(inv, inv + 9, 0.0);
        return;
    }
    const double s = 1.0 / det;
    inv[0] = c00 * s;
    inv[1] = (m[2] * m[7] - m[1] * m[8]) * s;
    inv[2] = (m[1] * m[5] - m[2] * m[4]) * s;
    inv[3] = c01 * s;
    inv[4] = (m[0] * m[8] - m[2] * m[6]) * s;
    inv[5] = (m[2] * m[3] - m[0] * m[5]) * s;
    inv[6] = c02 * s;
    inv[7] = (m[1] * m[6] - m[0] * m[7]) * s;
    inv[8] = (m[0] * m[4] - m[1] * m[3]) * s;
}

// Normalises n points with the inverse camera matrix and inverts the
// distortion k1, k2, p1, p2, k3 by kUndistortIterations fixed-point steps
// x = (x0 - tangential(x)) / radial(x). A block is read completely before it
// is written, so dst may be src.
void undistortRows(ConstRows src, Rows dst, int n, const double dist[5], const double Kinv[9]) {
    const double k1 = dist[0], k2 = dist[1], p1 = dist[2], p2 = dist[3], k3 = dist[4];
    for (int start = 0; start < n; start += kUndistortBlock) {
        const int count = std::min(kUndistortBlock, n - start);
        double x0[kUndistortBlock] = {}, y0[kUndistortBlock] = {}, w[kUndistortBlock] = {};
        for (int j = 0; j < count; ++j) {
            const double* p = src.data + (start + j) * src.stride;
            const double h = src.hasW ? p[2] : 1.0;
            x0[j] = Kinv[0] * p[0] + Kinv[1] * p[1] + Kinv[2] * h;
            y0[j] = Kinv[3] * p[0] + Kinv[4] * p[1] + Kinv[5] * h;
            w[j] = Kinv[6] * p[0] + Kinv[7] * p[1] + Kinv[8] * h;
        }

        double x[kUndistortBlock], y[kUndistortBlock];
        std::copy(x0, x0 + kUndistortBlock, x);
        std::copy(y0, y0 + kUndistortBlock, y);
        for (int iteration = 0; iteration < kUndistortIterations; ++iteration) {
            // r2 = x^2 + y^2, icdist = 1 / (1 + k1 r2 + k2 r2^2 + k3 r2^3),
            // dx = 2 p1 x y + p2 (r2 + 2 x^2), dy = p1 (r2 + 2 y^2) + 2 p2 x y,
            // factored to share products.
            for (int j = 0; j < kUndistortBlock; ++j) {
                const double xj = x[j], yj = y[j];
                const double twoX = xj + xj, twoY = yj + yj;
                const double twoXY = twoX * yj;
                const double r2 = xj * xj + yj * yj;
                const double icdist = 1.0 / (1.0 + r2 * (k1 + r2 * (k2 + r2 * k3)));
                const double dx = p1 * twoXY + p2 * (r2 + twoX * xj);
                const double dy = p1 * (r2 + twoY * yj) + p2 * twoXY;
                x[j] = (x0[j] - dx) * icdist;
                y[j] = (y0[j] - dy) * icdist;
            }
        }

        for (int j = 0; j < count; ++j) {
            double* q = dst.data + (start + j) * dst.stride;
            q[0] = x[j];
            q[1] = y[j];
            if (dst.hasW) q[2] = w[j];
        }
    }
}

// Ray-midpoint triangulation of n pairs of normalised points. With
// dL = RL * xL and dR = RR * xR, the least-squares solution of
// lambdaL * dL - lambdaR * dR = TR comes from the 2x2 normal equations
//   [ dL.dL  -dL.dR ] [lambdaL]   [  dL.TR ]
//   [-dL.dR   dR.dR ] [lambdaR] = [ -dR.TR ]
// solved in closed form; the output is (lambdaL * dL + lambdaR * dR) / 2.
void triangulateRows(ConstRows left, ConstRows right, int n, const double RL[9],
                     const double RR[9], const double TR[3], Rows out) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (int i = 0; i < n; ++i) {
        const double* l = left.data + i * left.stride;
        const double* r = right.data + i * right.stride;
        const double lw = left.hasW ? l[2] : 1.0;
        const double rw = right.hasW ? r[2] : 1.0;
        const double dL[3] = {RL[0] * l[0] + RL[1] * l[1] + RL[2] * lw,
                              RL[3] * l[0] + RL[4] * l[1] + RL[5] * lw,
                              RL[6] * l[0] + RL[7] * l[1] + RL[8] * lw};
        const double dR[3] = {RR[0] * r[0] + RR[1] * r[1] + RR[2] * rw,
                              RR[3] * r[0] + RR[4] * r[1] + RR[5] * rw,
                              RR[6] * r[0] + RR[7] * r[1] + RR[8] * rw};
        const double a = dL[0] * dL[0] + dL[1] * dL[1] + dL[2] * dL[2];
        const double b = dL[0] * dR[0] + dL[1] * dR[1] + dL[2] * dR[2];
        const double c = dR[0] * dR[0] + dR[1] * dR[1] + dR[2] * dR[2];
        const double eL = dL[0] * TR[0] + dL[1] * TR[1] + dL[2] * TR[2];
        const double eR = dR[0] * TR[0] + dR[1] * TR[1] + dR[2] * TR[2];
        // det = |dL|^2 |dR|^2 sin^2(angle between the rays). The negated test
        // also sends NaN input to the parallel branch.
        const double det = a * c - b * b;
        double* q = out.data + i * out.stride;
        if (!(det > kParallelSineSquared * a * c)) {
            q[0] = nan;
            q[1] = nan;
            q[2] = inf;
            continue;
        }
        const double inverseDet = 1.0 / det;
        const double lambdaL = (c * eL - b * eR) * inverseDet;
        const double lambdaR = (b * eL - a * eR) * inverseDet;
        q[0] = (lambdaL * dL[0] + lambdaR * dR[0]) * 0.5;
        q[1] = (lambdaL * dL[1] + lambdaR * dR[1]) * 0.5;
        q[2] = (lambdaL * dL[2] + lambdaR * dR[2]) * 0.5;
    }
}

void copyMatrix(const cv::Mat& m, double* out) {
    for (int r = 0; r < m.rows; ++r)
        for (int c = 0; c < m.cols; ++c) *out++ = m.at<double>(r, c);
}

void checkPoints(const cv::Mat& points) {
    CV_Assert(points.type() == CV_64F && points.cols == 3);
}

void checkCamera(const cv::Mat& distCoeffs, const cv::Mat& cameraMatrix) {
    CV_Assert(distCoeffs.type() == CV_64F && distCoeffs.total() == 5 &&
              (distCoeffs.rows == 1 || distCoeffs.cols == 1));
    CV_Assert(cameraMatrix.type() == CV_64F && cameraMatrix.rows == 3 && cameraMatrix.cols == 3);
}

// One camera's model as plain arrays.
struct RawCamera {
    double dist[5];
    double Kinv[9];
    double R[9];
};

RawCamera rawCamera(const SYSPARA& para) {
    checkCamera(para.distCoeffs, para.cameraMatrix);
    CV_Assert(para.R.type() == CV_64F && para.R.rows == 3 && para.R.cols == 3);
    RawCamera camera;
    copyMatrix(para.distCoeffs, camera.dist);
    double K[9];
    copyMatrix(para.cameraMatrix, K);
    invert3x3(K, camera.Kinv);
    copyMatrix(para.R, camera.R);
    return camera;
}

ConstRows rowsOf(const cv::Mat& m, int firstRow = 0) {
    return {m.ptr<double>(firstRow), static_cast<std::ptrdiff_t>(m.step1()), true};
}

Rows rowsOf(cv::Mat& m, int firstRow = 0) {
    return {m.ptr<double>(firstRow), static_cast<std::ptrdiff_t>(m.step1()), true};
}

}  // namespace

void undistortNormalise(const double* uv, int n, double* xy, const double dist[5],
                        const double K[9]) {
    double Kinv[9];
    invert3x3(K, Kinv);
    undistortRows({uv, 2, false}, {xy, 2, false}, n, dist, Kinv);
}

void triangulatePairs(const double* xyLeft, const double* xyRight, int n, const double RL[9],
                      const double RR[9], const double TR[3], double* xyzOut) {
    triangulateRows({xyLeft, 2, false}, {xyRight, 2, false}, n, RL, RR, TR, {xyzOut, 3, true});
}

void UndistorNorm(const cv::Mat& points, cv::Mat& normalised, const cv::Mat& distCoeffs,
                  const cv::Mat& cameraMatrix) {
    if (distCoeffs.empty()) return;
    checkCamera(distCoeffs, cameraMatrix);
    if (points.empty()) {
        normalised.release();
        return;
    }
    checkPoints(points);

    double dist[5], K[9], Kinv[9];
    copyMatrix(distCoeffs, dist);
    copyMatrix(cameraMatrix, K);
    invert3x3(K, Kinv);
    // Keep the input alive and unchanged in shape in case normalised refers
    // to the same matrix; create() is then a no-op and the rows are updated
    // in place.
    const cv::Mat input = points;
    normalised.create(input.rows, 3, CV_64F);
    undistortRows(rowsOf(input), rowsOf(normalised), input.rows, dist, Kinv);
}

void Compute3DPoints(const cv::Mat& left, const cv::Mat& right, cv::Mat& out,
                     const SYSPARA& leftPara, const SYSPARA& rightPara) {
    // Headers that keep the inputs alive when out is one of them.
    const cv::Mat leftPoints = left;
    const cv::Mat rightPoints = right;
    out.release();
    if (leftPoints.rows != rightPoints.rows || leftPoints.rows == 0) return;
    if (leftPara.distCoeffs.empty() || rightPara.distCoeffs.empty()) return;
    checkPoints(leftPoints);
    checkPoints(rightPoints);
    const RawCamera leftCamera = rawCamera(leftPara);
    const RawCamera rightCamera = rawCamera(rightPara);
    CV_Assert(rightPara.T.type() == CV_64F && rightPara.T.total() == 3);
    double TR[3];
    copyMatrix(rightPara.T, TR);

    const int n = leftPoints.rows;
    out.create(n, 3, CV_64F);
    double leftNormalised[kPairChunk * 3];
    double rightNormalised[kPairChunk * 3];
    for (int start = 0; start < n; start += kPairChunk) {
        const int count = std::min(kPairChunk, n - start);
        const Rows leftBuffer{leftNormalised, 3, true};
        const Rows rightBuffer{rightNormalised, 3, true};
        undistortRows(rowsOf(leftPoints, start), leftBuffer, count, leftCamera.dist,
                      leftCamera.Kinv);
        undistortRows(rowsOf(rightPoints, start), rightBuffer, count, rightCamera.dist,
                      rightCamera.Kinv);
        triangulateRows({leftNormalised, 3, true}, {rightNormalised, 3, true}, count,
                        leftCamera.R, rightCamera.R, TR, rowsOf(out, start));
    }
}
