#include "calibration/ToolFrame.h"

#include <cmath>

namespace {

const cv::Mat kEx = (cv::Mat_<double>(1, 3) << 1, 0, 0);
const cv::Mat kEy = (cv::Mat_<double>(1, 3) << 0, 1, 0);
const cv::Mat kEz = (cv::Mat_<double>(1, 3) << 0, 0, 1);

// Rows pts[start .. start+n-1] as an n x 3 CV_64F matrix.
cv::Mat pointRows(const float (*pts)[3], int n, int start) {
    cv::Mat rows(n, 3, CV_64F);
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < 3; ++k) rows.at<double>(i, k) = pts[start + i][k];
    return rows;
}

cv::Mat centroidOf(const cv::Mat& rows) {
    cv::Mat c;
    cv::reduce(rows, c, 0, cv::REDUCE_AVG);
    return c;
}

// Every row minus the row vector c, one column at a time.
cv::Mat centred(const cv::Mat& rows, const cv::Mat& c) {
    std::vector<cv::Mat> columns;
    for (int k = 0; k < 3; ++k) columns.push_back(rows.col(k) - c.at<double>(k));
    cv::Mat out;
    cv::hconcat(columns, out);
    return out;
}

// Normal of the best-fit plane of centred rows: the right singular vector of
// the smallest singular value, the first one where several are equal.
cv::Mat planeNormal(const cv::Mat& centredRows) {
    cv::Mat w, u, vt;
    cv::SVDecomp(centredRows, w, u, vt, 0);
    int k = 0;
    for (int i = 1; i < w.rows; ++i)
        if (w.at<double>(i) < w.at<double>(k)) k = i;
    return vt.row(k).clone();
}

// (M v^T)^T for a 3 x 3 M and a 1 x 3 v.
cv::Mat turned(const cv::Mat& M, const cv::Mat& v) { return cv::Mat(M * v.t()).t(); }

// The rotation into the tool frame from its plane normal and X direction:
// about Y to bring Z towards the normal's XZ part, about X onto the normal,
// then about Z onto the X direction; R = (Ry Rx Rz)^T.
cv::Mat toolRotation(const cv::Mat& N, const cv::Mat& xdir) {
    cv::Mat Nxz = N.clone();
    Nxz.at<double>(1) = 0.0;
    const double ty = ComputeAngleOf2Vects(Nxz, kEz);
    cv::Mat Ry = (cv::Mat_<double>(3, 3) << std::cos(ty), 0, std::sin(ty), 0, 1, 0,
                  -std::sin(ty), 0, std::cos(ty));
    AdjustRotatoDerection(Ry, kEz, Nxz, kEy);

    const cv::Mat ez1 = turned(Ry, kEz);
    const double tx = ComputeAngleOf2Vects(N, ez1);
    cv::Mat Rx = (cv::Mat_<double>(3, 3) << 1, 0, 0, 0, std::cos(tx), -std::sin(tx), 0,
                  std::sin(tx), std::cos(tx));
    AdjustRotatoDerection(Rx, ez1, N, turned(Ry, kEx));
    const cv::Mat Ryx = Ry * Rx;

    const cv::Mat ex2 = turned(Ryx, kEx);
    const double tz = ComputeAngleOf2Vects(ex2, xdir);
    cv::Mat Rz = (cv::Mat_<double>(3, 3) << std::cos(tz), -std::sin(tz), 0, std::sin(tz),
                  std::cos(tz), 0, 0, 0, 1);
    AdjustRotatoDerection(Rz, ex2, xdir, N);
    return cv::Mat(Ryx * Rz).t();
}

}  // namespace

float ComputeAngleOf2Vects(cv::Mat a, cv::Mat b) {
    return static_cast<float>(std::acos(a.dot(b) / (cv::norm(a) * cv::norm(b))));
}

bool GetProjectOnPlane(const float (*pts)[3], int n, const double* planePoint, cv::Mat normal,
                       cv::Mat& out) {
    if (pts == nullptr || planePoint == nullptr || normal.empty() || normal.total() < 3)
        return false;
    if (n <= 0) return true;
    if (out.type() != CV_64F || out.rows < n || out.cols < 3) return false;
    cv::Mat N;
    normal.reshape(1, 1).convertTo(N, CV_64F);
    const double nx = N.at<double>(0), ny = N.at<double>(1), nz = N.at<double>(2);
    const double d = nx * planePoint[0] + ny * planePoint[1] + nz * planePoint[2];
    const double s = nx * nx + ny * ny + nz * nz;
    for (int i = 0; i < n; ++i) {
        const double x = pts[i][0], y = pts[i][1], z = pts[i][2];
        double* row = out.ptr<double>(i);
        row[0] = ((ny * ny + nz * nz) * x - (ny * y + nz * z - d) * nx) / s;
        row[1] = ((nx * nx + nz * nz) * y - (nx * x + nz * z - d) * ny) / s;
        row[2] = ((nx * nx + ny * ny) * z - (nx * x + ny * y - d) * nz) / s;
    }
    return true;
}

void AdjustRotatoDerection(cv::Mat& R, cv::Mat a, cv::Mat b, cv::Mat ref) {
    const cv::Vec3d va(a.at<double>(0), a.at<double>(1), a.at<double>(2));
    const cv::Vec3d vb(b.at<double>(0), b.at<double>(1), b.at<double>(2));
    const cv::Vec3d vr(ref.at<double>(0), ref.at<double>(1), ref.at<double>(2));
    const cv::Vec3d cross = va.cross(vb);
    const cv::Vec3d u = cross / cv::norm(cross);
    if (cv::norm(u - vr) > 1.0) R = cv::Mat(R.t());
}

bool GetToolSelfCoordsAndRTtoOriginalSysCooor(cv::Mat& R, cv::Mat& T, cv::Mat& local,
                                              const float (*pts)[3], int n, int start) {
    if (pts == nullptr) return false;
    const cv::Mat P = pointRows(pts, n, start);
    const cv::Mat c = centroidOf(P);
    const cv::Mat A = centred(P, c);
    const cv::Mat N = planeNormal(A);

    // The first n rows of the array, whatever start is.
    cv::Mat projected(n, 3, CV_64F);
    GetProjectOnPlane(pts, n, c.ptr<double>(), N, projected);
    cv::Mat xdir = projected.row(0) - c;
    xdir /= cv::norm(xdir);

    R = toolRotation(N, xdir).clone();
    T = c.t();
    local = cv::Mat(R * A.t()).t();
    return true;
}

bool GetToolSelfCoordsAndRTtoOriginalSysCooor(cv::Mat& R, cv::Mat& T, cv::Mat& local,
                                              const float (*pts1)[3], const float (*pts2)[3],
                                              int n, int start) {
    if (pts1 == nullptr || pts2 == nullptr) return false;
    const cv::Mat P1 = pointRows(pts1, n, start), P2 = pointRows(pts2, n, start);
    const cv::Mat c1 = centroidOf(P1), c2 = centroidOf(P2);
    const cv::Mat m = 0.5 * (c1 + c2);
    const cv::Mat N = planeNormal(centred(P1, c1));
    cv::Mat xdir = c1 - c2;
    xdir /= cv::norm(xdir);

    R = toolRotation(N, xdir).clone();
    T = c1.t();
    cv::vconcat(cv::Mat(R * centred(P1, m).t()).t(), cv::Mat(R * centred(P2, m).t()).t(), local);
    return true;
}
