// Tool frame construction on hand-derived marker sets.
#include "calibration/ToolFrame.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

cv::Mat row(double x, double y, double z) { return (cv::Mat_<double>(1, 3) << x, y, z); }

// The angles between axes are single precision, so rows agree to about 1e-7
// of their size.
void expectRow(const cv::Mat& m, int r, const cv::Vec3d& expected) {
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(m.at<double>(r, k), expected[k], 1e-5) << "row " << r;
}

// The frame of pts[start .. start+3]: T is the centroid, R a proper rotation,
// and local = R (p - T) for the rows used.
void oneSetFrame(const float (*pts)[3], int start, const cv::Vec3d& centroid, cv::Mat& R,
                 cv::Mat& local) {
    cv::Mat T;
    ASSERT_TRUE(GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, pts, 4, start));
    expectRow(T.t(), 0, centroid);
    EXPECT_NEAR(cv::determinant(R), 1.0, 1e-9);
    EXPECT_LT(cv::norm(R * R.t(), cv::Mat::eye(3, 3, CV_64F)), 1e-9);
    for (int i = 0; i < local.rows; ++i) {
        const float* p = pts[start + i];
        const cv::Mat q = R * ((cv::Mat_<double>(3, 1) << p[0], p[1], p[2]) - T);
        EXPECT_LT(cv::norm(q.t(), local.row(i)), 1e-9) << "row " << i;
    }
}

TEST(ToolFrame, FourCoplanarPointsLieInTheToolPlaneWithXTowardsTheFirst) {
    const float pts[4][3] = {{30, 2, 500}, {20, 7, 500}, {10, 2, 500}, {20, -3, 500}};
    cv::Mat R, local;
    ASSERT_NO_FATAL_FAILURE(oneSetFrame(pts, 0, {20, 2, 500}, R, local));
    EXPECT_NEAR(std::fabs(R.at<double>(2, 2)), 1.0, 1e-9);  // Z is the plane's normal
    expectRow(local, 0, {10, 0, 0});
    // Y follows Z x X, whichever sign the normal took.
    expectRow(local, 1, {0, 5 * R.at<double>(2, 2), 0});
}

TEST(ToolFrame, WithStartFourTheXDirectionStillComesFromTheFirstRow) {
    // Rows 4..7: a square about (0, 0, 100) in the plane z = 100. Row 0
    // projects onto that plane at (0, 7, 100), straight along +Y from the centre.
    const float pts[8][3] = {{0, 7, 30}, {50, 50, 50}, {-40, 10, 0}, {9, 9, 9},
                             {5, 0, 100}, {0, 5, 100}, {-5, 0, 100}, {0, -5, 100}};
    cv::Mat R, T, local;
    ASSERT_NO_FATAL_FAILURE(oneSetFrame(pts, 4, {0, 0, 100}, R, local));
    expectRow(R.row(0), 0, {0, 1, 0});
    expectRow(local, 1, {5, 0, 0});
    cv::Mat unused;
    EXPECT_FALSE(GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, unused, nullptr, 4, 0));
    EXPECT_TRUE(unused.empty());
}

TEST(ToolFrame, EqualSingularValuesTakeTheFirstAsTheNormal) {
    const float pts[4][3] = {{1, 1, 1}, {1, -1, -1}, {-1, 1, -1}, {-1, -1, 1}};
    cv::Mat R, local, A, w, u, vt;
    ASSERT_NO_FATAL_FAILURE(oneSetFrame(pts, 0, {0, 0, 0}, R, local));
    cv::Mat(4, 3, CV_32F, const_cast<float*>(pts[0])).convertTo(A, CV_64F);
    cv::SVDecomp(A, w, u, vt, 0);
    ASSERT_NEAR(w.at<double>(0), w.at<double>(2), 1e-9);
    EXPECT_NEAR(std::fabs(R.row(2).dot(vt.row(0))), 1.0, 1e-9);
}

TEST(ToolFrame, AnglesAreNotClampedAndProjectionChecksItsInputs) {
    const cv::Mat a = row(1.7, 0.35, 0.7);  // a.a / (|a| |a|) rounds above 1
    EXPECT_TRUE(std::isnan(ComputeAngleOf2Vects(a, a)));
    EXPECT_FLOAT_EQ(ComputeAngleOf2Vects(row(1, 0, 0), row(0, 2, 0)), float(M_PI / 2));

    const float pts[1][3] = {{3, 4, 5}};
    const double origin[3] = {0, 0, 1};
    cv::Mat out(1, 3, CV_64F, cv::Scalar(-1));
    EXPECT_TRUE(GetProjectOnPlane(pts, 0, origin, row(0, 0, 1), out));
    expectRow(out, 0, {-1, -1, -1});
    EXPECT_FALSE(GetProjectOnPlane(pts, 1, origin, cv::Mat(), out));
    ASSERT_TRUE(GetProjectOnPlane(pts, 1, origin, row(0, 0, 2), out));
    expectRow(out, 0, {3, 4, 1});
}

TEST(ToolFrame, TwoSetsTranslateToTheFirstCentroidButCentreOnTheMidpoint) {
    const float first[4][3] = {{55, 0, 0}, {50, 5, 0}, {45, 0, 0}, {50, -5, 0}};
    const float second[4][3] = {{-45, 0, 0}, {-50, 5, 0}, {-55, 0, 0}, {-50, -5, 0}};
    cv::Mat R, T, local;
    ASSERT_TRUE(GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, first, second, 4, 0));
    expectRow(T.t(), 0, {50, 0, 0});
    expectRow(R.row(0), 0, {1, 0, 0});  // from the second centroid to the first
    ASSERT_EQ(local.rows, 8);
    expectRow(local, 0, {55, 0, 0});
    expectRow(local, 6, {-55, 0, 0});
    EXPECT_FALSE(GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, first, nullptr, 4, 0));
}

}  // namespace
