#include "camera/PairMatching.h"
#include "support/StereoRig.h"

#include "camera/StereoCompensation.h"
#include "camera/StereoProjection.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <vector>

namespace {

// Image rows (u, v, 1) of scene points, row i showing point i.
struct StereoImages {
    cv::Mat left = cv::Mat(0, 3, CV_64F);
    cv::Mat right = cv::Mat(0, 3, CV_64F);
};

StereoImages imagesOf(const StereoWorkingModel& rig, const std::vector<cv::Vec3d>& points) {
    StereoImages images;
    for (const cv::Vec3d& p : points) {
        double l[2], r[2];
        EXPECT_TRUE(projectToImages(p.val, rig, l, r)) << p;
        images.left.push_back(cv::Mat(cv::Matx13d(l[0], l[1], 1.0)));
        images.right.push_back(cv::Mat(cv::Matx13d(r[0], r[1], 1.0)));
    }
    return images;
}

int rowIndex(const cv::Mat& rows, const cv::Mat& row) {
    for (int i = 0; i < rows.rows; ++i)
        if (cv::norm(rows.row(i), row, cv::NORM_INF) == 0.0) return i;
    return -2;
}

class PairMatchingOnRig : public ::testing::Test {
protected:
    StereoWorkingModel rig = vyx::test::makeStereoRig();
    cv::Mat matchedLeft, matchedRight, pairIndex;
    int count = -1;

    int match(const cv::Mat& left, const cv::Mat& right, double thresholdPx = 3.0) {
        return PairMatching(left, right, matchedLeft, matchedRight, pairIndex, count, rig.E,
                            thresholdPx, rig.left.distCoeffs, rig.left.cameraMatrix,
                            rig.right.distCoeffs, rig.right.cameraMatrix);
    }

    // Row i of a one-row matrix is admissible as a pair on its own.
    bool admissible(const cv::Mat& left, int l, const cv::Mat& right, int r) {
        return match(left.row(l), right.row(r)) == 1;
    }

    // For each output pair, the input row number when both sides show the
    // same point, otherwise -1.
    std::vector<int> pairedRows(const StereoImages& images) const {
        std::vector<int> rows;
        for (int k = 0; k < count; ++k) {
            const int l = rowIndex(images.left, matchedLeft.row(k));
            rows.push_back(l == rowIndex(images.right, matchedRight.row(k)) ? l : -1);
        }
        return rows;
    }
};

}  // namespace

TEST(PairThreshold, FollowsTheModelTableUnlessOverridden) {
    const double table[18] = {3, 3, 0, 3, 0, 3, 6, 3, 3, 6, 3, 3, 6, 3, 0, 6, 3, 4};
    for (std::uint32_t model = 0; model < 18; ++model)
        EXPECT_EQ(pairThresholdForModel(model, -1), table[model]) << model;
    for (std::uint32_t model : {18u, 31u, 32u, 100u, 0xFFFFFFFFu})
        EXPECT_EQ(pairThresholdForModel(model, -1), 0.0) << model;
    EXPECT_EQ(pairThresholdForModel(2, 5), 5.0);
    EXPECT_EQ(pairThresholdForModel(6, 0), 0.0);
    EXPECT_EQ(pairThresholdForModel(100, 12), 12.0);
}

TEST(SortStruct, OrdersByAscendingUAndKeepsEqualUInTheirOrder) {
    std::vector<PointsIndexStruct> points{{3.0, 0}, {1.0, 1}, {3.0, 2},
                                          {1.0, 3}, {2.0, 4}, {-1.0, 5}};
    SortStruct(points);
    const int expected[] = {5, 1, 3, 4, 0, 2};
    for (std::size_t i = 0; i < points.size(); ++i) EXPECT_EQ(points[i].index, expected[i]) << i;
}

TEST_F(PairMatchingOnRig, FailsWithAZeroThresholdMissingCameraDataOrAThirdCoordinateOtherThanOne) {
    const StereoImages images = imagesOf(rig, {{0, 0, 2000}, {200, 50, 1800}, {-150, -90, 2300}});
    EXPECT_EQ(match(images.left, images.right), 1);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(match(images.left, images.right, 0.0), 0);
    EXPECT_EQ(match(images.left.row(0), images.right.row(0), 0.0), 0);
    EXPECT_TRUE(matchedLeft.empty() && matchedRight.empty() && pairIndex.empty());
    EXPECT_EQ(count, 0);
    EXPECT_EQ(PairMatching(images.left, images.right, matchedLeft, matchedRight, pairIndex, count,
                           rig.E, 3.0, rig.left.distCoeffs, cv::Mat(), rig.right.distCoeffs,
                           rig.right.cameraMatrix),
              0);
    EXPECT_EQ(match(cv::Mat(0, 3, CV_64F), images.right), 0);

    cv::Mat right = images.right.clone(), left = images.left.clone();
    right.at<double>(1, 2) = 1.0 + 1e-12;
    left.at<double>(2, 2) = 0.0;
    ASSERT_EQ(match(images.left, images.right), 1);
    EXPECT_EQ(match(images.left, right), 0);
    EXPECT_TRUE(matchedLeft.empty() && count == 0);
    EXPECT_EQ(match(left, images.right), 0);
}

TEST_F(PairMatchingOnRig, ASinglePairIsAcceptedOnlyNearTheEpipolarLine) {
    const StereoImages images = imagesOf(rig, {{100, -40, 2100}});
    ASSERT_EQ(match(images.left, images.right), 1);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(cv::norm(matchedLeft, images.left, cv::NORM_INF), 0.0);
    EXPECT_EQ(cv::norm(matchedRight, images.right, cv::NORM_INF), 0.0);
    ASSERT_EQ(pairIndex.type(), CV_32S);
    ASSERT_EQ(pairIndex.size(), cv::Size(1, 1));
    EXPECT_EQ(pairIndex.at<std::int32_t>(0, 0), 0);

    cv::Mat far = images.right.clone();
    far.at<double>(0, 1) += 20.0;
    EXPECT_EQ(match(images.left, far), 0);
}

TEST_F(PairMatchingOnRig, MarkersSeenByOneCameraOnlyArePrunedWithoutDisturbingTheOthers) {
    const std::vector<cv::Vec3d> scene{
        {-200, -150, 1900}, {0, -60, 2000}, {150, 20, 2100}, {300, 110, 2200}, {-50, 180, 1700}};
    const StereoImages images = imagesOf(rig, scene);
    // Extra centres on image rows that no marker's epipolar band reaches.
    StereoImages extra = imagesOf(rig, {{100, 250, 2000}, {-100, -250, 2000}});
    cv::Mat left = images.left.clone(), right = images.right.clone();
    left.push_back(extra.left.row(0));
    right.push_back(extra.right.row(1));
    cv::Mat reordered;
    cv::vconcat(right.rowRange(3, 6), right.rowRange(0, 3), reordered);

    ASSERT_EQ(match(left, reordered), 1);
    EXPECT_EQ(count, 5);
    const std::vector<int> rows = pairedRows(images);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(std::count(rows.begin(), rows.end(), i), 1) << i;
    ASSERT_EQ(pairIndex.type(), CV_32S);
    ASSERT_EQ(pairIndex.size(), cv::Size(5, 1));
    for (int k = 0; k < 5; ++k) EXPECT_EQ(pairIndex.at<std::int32_t>(0, k), k);
}

TEST_F(PairMatchingOnRig, ARowOfMarkersSharingOneEpipolarLinePairsInOrder) {
    // Equal Y and Z: every marker lies in one plane with the baseline, so all
    // epipolar distances are zero up to the rounding of 32-bit centres. The
    // larger row forms one group beyond the exact solver's size.
    for (int n : {8, StereoPairMatcher::kMaxExactGroupSize + 16}) {
        std::vector<cv::Vec3d> row;
        for (int i = 0; i < n; ++i) row.push_back({-500.0 + 900.0 * i / n, 40.0, 2000.0});
        StereoImages images = imagesOf(rig, row);
        for (cv::Mat* m : {&images.left, &images.right})
            cv::Mat(cv::Mat_<float>(*m)).convertTo(*m, CV_64F);  // 32-bit centres
        ASSERT_TRUE(admissible(images.left, 0, images.right, n - 1));
        cv::Mat reversed;
        cv::flip(images.right, reversed, 0);

        ASSERT_EQ(match(images.left, reversed), 1);
        std::vector<int> inOrder(static_cast<std::size_t>(n));
        std::iota(inOrder.begin(), inOrder.end(), 0);
        EXPECT_EQ(pairedRows(images), inOrder) << n << " markers";
    }
}

TEST_F(PairMatchingOnRig, CrossingMarkersAtDifferentDepthsPairByDistanceNotByImageOrder) {
    // The near marker lies right of the far one in the left image and left of
    // it in the right image; their epipolar lines are 1.5 px apart.
    const StereoImages images = imagesOf(rig, {{-136.4, 1.0, 900}, {0, 0, 3000}});
    ASSERT_GT(images.left.at<double>(0, 0), images.left.at<double>(1, 0));
    ASSERT_LT(images.right.at<double>(0, 0), images.right.at<double>(1, 0));
    ASSERT_TRUE(admissible(images.left, 0, images.right, 1));
    ASSERT_TRUE(admissible(images.left, 1, images.right, 0));

    ASSERT_EQ(match(images.left, images.right), 1);
    EXPECT_EQ(pairedRows(images), (std::vector<int>{1, 0}));
}

TEST_F(PairMatchingOnRig, MorePairsWinOverASmallerTotalDistance) {
    // Two markers whose epipolar lines lie about 2.4 px apart. Right centre 0
    // is moved 1.4 px towards marker 1's line, right centre 1 a further 1.2 px
    // away from marker 0's: the closest candidate (left 1 with right 0) would
    // leave both others without a partner.
    StereoImages images = imagesOf(rig, {{-100, 0, 2000}, {150, 3.42, 2000}});
    const double towardsOne =
        images.right.at<double>(1, 1) > images.right.at<double>(0, 1) ? 1.0 : -1.0;
    images.right.at<double>(0, 1) += 1.4 * towardsOne;
    images.right.at<double>(1, 1) += 1.2 * towardsOne;
    ASSERT_TRUE(admissible(images.left, 0, images.right, 0));
    ASSERT_TRUE(admissible(images.left, 1, images.right, 0));
    ASSERT_TRUE(admissible(images.left, 1, images.right, 1));
    ASSERT_FALSE(admissible(images.left, 0, images.right, 1));

    ASSERT_EQ(match(images.left, images.right), 1);
    EXPECT_EQ(pairedRows(images), (std::vector<int>{0, 1}));
}
