// Tool coordinate renewal: the tip-origin frame on hand-derived tools, and
// the whole procedure on synthetic frames of a pointer turning in a
// calibrator's hole.
#include "calibration/ToolCoordinateRenewal.h"
#include "support/SyntheticFrames.h"
#include "tools/ToolTestFiles.h"
#include "tools/ToolFile.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// The pointer of fourMarkerToolText: markers (0, 0, 0), (50, 0, 0),
// (0, 80, 0), (0, 0, 120), tip (0, 0, -150).
const std::vector<float> kPointer{0, 0, 0, 50, 0, 0, 0, 80, 0, 0, 0, 120};

cv::Vec3d renewed(const TipOriginFrame& f, const cv::Vec3d& q) { return f.R * (q - f.origin); }

TEST(TipOriginFrame, PutsTheTipAtTheOriginAndTheShaftOnZTowardsTheMarkers) {
    // Hole bottom at the tip, axis point 30 mm further out: Z must still
    // point from the tip towards the markers. Three markers and the tip
    // landing where they must fix R as a proper rotation.
    const float hole[6] = {0, 0, -150, 0, 0, -180};
    TipOriginFrame f;
    ASSERT_TRUE(tipOriginFrame(kPointer, 4, hole, f));
    EXPECT_NEAR(f.axisLengthMm, 30.0, 1e-9);
    EXPECT_LT(cv::norm(renewed(f, {0, 0, -150})), 1e-12);
    EXPECT_LT(cv::norm(renewed(f, {0, 0, 0}) - cv::Vec3d(0, 0, 150)), 1e-9);
    // Marker 0 lies on the shaft: X comes from marker 1, which lies in +X.
    EXPECT_LT(cv::norm(renewed(f, {50, 0, 0}) - cv::Vec3d(50, 0, 150)), 1e-9);
    EXPECT_LT(cv::norm(renewed(f, {0, 80, 0}) - cv::Vec3d(0, 80, 150)), 1e-9);
}

TEST(TipOriginFrame, RefusesAShortAxisAndMarkersAllOnIt) {
    TipOriginFrame f;
    const float point[6] = {0, 0, -150, 0, 0, -150};
    EXPECT_FALSE(tipOriginFrame(kPointer, 4, point, f));
    const float hole[6] = {0, 0, -150, 0, 0, -120};
    const std::vector<float> onAxis{0, 0, 0, 0, 0.5f, 40, 0, 0, 90};
    EXPECT_FALSE(tipOriginFrame(onAxis, 3, hole, f));
    EXPECT_FALSE(tipOriginFrame(kPointer, 5, hole, f));  // fewer positions than markers
    EXPECT_FALSE(tipOriginFrame(kPointer, 4, nullptr, f));
}

TEST(ToolCoordinateRenewal, RenewsTheToolAfterTwoHundredFramesAndSavesIt) {
    vyx::test::PointerAndCalibrator tools;
    ToolLibrary& library = tools.library;
    ToolCoordinateRenewal renewal;
    EXPECT_EQ(renewal.init(library, "pointer", "pointer"), -1);
    EXPECT_EQ(renewal.save(library), -1);
    ASSERT_EQ(renewal.init(library, "calibrator", "pointer"), 0);
    t_ToolTipCalProInfo info{};
    for (int k = 0; !info.finished; ++k) {
        ASSERT_LT(k, 300);
        ASSERT_EQ(renewal.save(library), -1);
        info.frameAccepted = false;
        ASSERT_EQ(renewal.proceed(library, vyx::test::holeFrame(0.02 * k), info, 1.5f), 0);
        // The tool keeps its tip while frames are collected.
        if (!info.finished) {
            ASSERT_FLOAT_EQ(library.toolAt(0)->tipPoints[2], -150.0f);
        }
    }
    ASSERT_TRUE(renewal.renewed());
    const T_ToolPtMatchInfo& tool = *library.toolAt(0);
    const std::vector<float> tip{0, 0, 0, 0, 0, 30};
    const std::vector<float> markers{0, 0, 150, 50, 0, 150, 0, 80, 150, 0, 0, 270};
    for (int k = 0; k < 6; ++k) EXPECT_NEAR(tool.tipPoints[k], tip[k], 1e-3) << k;
    for (int k = 0; k < 12; ++k) {
        EXPECT_NEAR(tool.markerPositions[k], markers[k], 1e-3) << k;
        EXPECT_EQ(tool.markerPositionsCopy[k], tool.markerPositions[k]);
    }

    ASSERT_EQ(renewal.save(library), 0);
    ToolFileContent saved;
    ASSERT_TRUE(readToolFile(tools.dir.file("pointer.vyxtool").c_str(), saved));
    for (int k = 0; k < 12; ++k) EXPECT_NEAR(saved.markerPositions[k], markers[k], 1e-3) << k;
    EXPECT_NEAR(saved.tipPoints[5], 30.0f, 1e-3);

    // A reloaded library no longer holds the renewed record.
    library.ReleaseToolPtMatchList();
    EXPECT_EQ(renewal.save(library), -1);
}

}  // namespace
