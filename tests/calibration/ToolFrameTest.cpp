// Tool frame construction on hand-derived marker sets.
#include "calibration/ToolFrame.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

cv::Mat row(double x, double y, double z) { return (cv::Mat_<double>(1, 3) << x, y, z); }

// The angles between axes are single precision, so rows agree to about 1e-7
// of their size.
void expectRow(const cv::Mat& m, int r, double x, double y, double z) {
    EXPECT_NEAR(m.at<double>(r, 0), x, 1e-5) << "row " << r;
    EXPECT_NEAR(m.at<double>(r, 1), y, 1e-5) << "row " << r;
    EXPECT_NEAR(m.at<double>(r, 2), z, 1e-5) << "row " << r;
}

// R is a proper rotation and local = R (p - T) for the rows used.
void expectConsistent(const cv::Mat& R, const cv::Mat& T, const cv::Mat& local,
                      const float (*pts)[3], int start) {
    EXPECT_NEAR(cv::determinant(R), 1.0, 1e-9);
    EXPECT_LT(cv::norm(R * R.t(), cv::Mat::eye(3, 3, CV_64F)), 1e-9);
    for (int i = 0; i < local.rows; ++i) {
        const cv::Mat p = (cv::Mat_<double>(3, 1) << pts[start + i][0], pts[start + i][1],
                           pts[start + i][2]);
        EXPECT_LT(cv::norm(cv::Mat(R * (p - T)).t(), local.row(i)), 1e-9) << "row " << i;
    }
}

TEST(ToolFrame, FourCoplanarPointsLieInTheToolPlaneWithXTowardsTheFirst) {
    const float pts[4][3] = {{30, 2, 500}, {20, 7, 500}, {10, 2, 500}, {20, -3, 500}};
    cv::Mat R, T, local;
    ASSERT_TRUE(GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, pts, 4, 0));
    expectRow(T.t(), 0, 20, 2, 500);
    expectConsistent(R, T, local, pts, 0);
    EXPECT_NEAR(std::fabs(R.at<double>(2, 2)), 1.0, 1e-9);  // Z is the plane's normal
    expectRow(local, 0, 10, 0, 0);
    // Y follows Z x X, whichever sign the normal took.
    expectRow(local, 1, 0, 5 * R.at<double>(2, 2), 0);
}

TEST(ToolFrame, WithStartFourTheXDirectionStillComesFromTheFirstRow) {
    // Rows 4..7: a square about (0, 0, 100) in the plane z = 100. Row 0
    // projects onto that plane at (0, 7, 100), straight along +Y from the centre.
    const float pts[8][3] = {{0, 7, 30}, {50, 50, 50}, {-40, 10, 0}, {9, 9, 9},
                             {5, 0, 100}, {0, 5, 100}, {-5, 0, 100}, {0, -5, 100}};
    cv::Mat R, T, local;
    ASSERT_TRUE(GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, pts, 4, 4));
    expectRow(T.t(), 0, 0, 0, 100);
    expectConsistent(R, T, local, pts, 4);
    expectRow(R.row(0), 0, 0, 1, 0);
    expectRow(local, 1, 5, 0, 0);
    cv::Mat unused;
    EXPECT_FALSE(GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, unused, nullptr, 4, 0));
    EXPECT_TRUE(unused.empty());
}

TEST(ToolFrame, EqualSingularValuesTakeTheFirstAsTheNormal) {
    const float pts[4][3] = {{1, 1, 1}, {1, -1, -1}, {-1, 1, -1}, {-1, -1, 1}};
    cv::Mat R, T, local;
    ASSERT_TRUE(GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, pts, 4, 0));
    cv::Mat A(4, 3, CV_64F), w, u, vt;
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 3; ++k) A.at<double>(i, k) = pts[i][k];
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
    expectRow(out, 0, -1, -1, -1);
    EXPECT_FALSE(GetProjectOnPlane(pts, 1, origin, cv::Mat(), out));
    ASSERT_TRUE(GetProjectOnPlane(pts, 1, origin, row(0, 0, 2), out));
    expectRow(out, 0, 3, 4, 1);
}

TEST(ToolFrame, TwoSetsTranslateToTheFirstCentroidButCentreOnTheMidpoint) {
    const float first[4][3] = {{55, 0, 0}, {50, 5, 0}, {45, 0, 0}, {50, -5, 0}};
    const float second[4][3] = {{-45, 0, 0}, {-50, 5, 0}, {-55, 0, 0}, {-50, -5, 0}};
    cv::Mat R, T, local;
    ASSERT_TRUE(GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, first, second, 4, 0));
    expectRow(T.t(), 0, 50, 0, 0);
    expectRow(R.row(0), 0, 1, 0, 0);  // from the second centroid to the first
    ASSERT_EQ(local.rows, 8);
    expectRow(local, 0, 55, 0, 0);
    expectRow(local, 6, -55, 0, 0);
    EXPECT_FALSE(GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, first, nullptr, 4, 0));
}

}  // namespace
