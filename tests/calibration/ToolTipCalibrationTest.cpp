// Tip calibration over synthetic frames: a pointer whose tip rests in a
// calibrator's hole, turning about the hole's axis.
#include "calibration/ToolTipCalibration.h"
#include "tools/ToolTestFiles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

// Calibrator at (-100, 0, 1500), axes of the tracker; its hole's bottom at
// (30, 30, -40) and the axis point 30 mm up it, in its frame.
const std::vector<cv::Vec3d> kCalibratorMarkers{{0, 0, 0}, {60, 0, 0}, {0, 100, 0}, {25, 45, 70}};
const cv::Vec3d kCalibratorOrigin{-100, 0, 1500};
const cv::Vec3d kHole = kCalibratorOrigin + cv::Vec3d(30, 30, -40);
// The pointer of fourMarkerToolText: tip at (0, 0, -150) of its frame.
const std::vector<cv::Vec3d> kPointerMarkers{{0, 0, 0}, {50, 0, 0}, {0, 80, 0}, {0, 0, 120}};

std::string calibratorText() {
    return "calibrator\nC\n4\n0 0 0 15\n60 0 0 15\n0 100 0 15\n25 45 70 15\n2\n30 30 -40\n30 30 -10\n";
}

// One frame: the calibrator, then the pointer turned by `angle` about the
// hole's axis with its tip in the hole; `shift` moves the pointer's last
// marker along the axis, mm.
T_MarkerInfo frameAt(double angle, double shift = 0.0, bool withCalibrator = true) {
    T_MarkerInfo frame{};
    std::vector<cv::Vec3d> points;
    if (withCalibrator)
        for (const cv::Vec3d& m : kCalibratorMarkers) points.push_back(kCalibratorOrigin + m);
    const cv::Matx33d R(std::cos(angle), -std::sin(angle), 0, std::sin(angle), std::cos(angle), 0,
                        0, 0, 1);
    const cv::Vec3d T = kHole + cv::Vec3d(0, 0, 150);
    for (const cv::Vec3d& m : kPointerMarkers) points.push_back(R * m + T);
    points.back()[2] += shift;
    for (const cv::Vec3d& p : points) {
        for (int k = 0; k < 3; ++k) frame.MarkerCoordinate[frame.MarkerNumber][k] = p[k];
        ++frame.MarkerNumber;
    }
    return frame;
}

class ToolTipCalibrationTest : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(dir.file("pointer.vyxtool"), fourMarkerToolText("pointer"));
        writeFile(dir.file("calibrator.vyxtool"), calibratorText());
        library.AddFormatToolInfoFromFile(dir.file("pointer.vyxtool").c_str());
        library.AddFormatToolInfoFromFile(dir.file("calibrator.vyxtool").c_str());
    }
    int proceed(const T_MarkerInfo& frame) {
        info.frameAccepted = false;
        return calibration.proceed(library, shared, frame, info, 1.5f);
    }
    ScratchDirectory dir;
    ToolLibrary library;
    ToolTipProgress shared;
    ToolTipCalibration calibration;
    t_ToolTipCalProInfo info{};
};

TEST_F(ToolTipCalibrationTest, InitNeedsOneToolAndOneCalibrator) {
    EXPECT_EQ(calibration.init(library, shared, "pointer", "pointer"), -1);
    EXPECT_EQ(calibration.init(library, shared, "calibrator", "calibrator"), -1);
    EXPECT_EQ(calibration.init(library, shared, "calibrator", "nobody"), -1);
    EXPECT_EQ(calibration.init(library, shared, 1, 2), -1);
    EXPECT_EQ(calibration.init(library, shared, -1, 0), -1);
    EXPECT_EQ(calibration.init(library, shared, "calibrator", "pointer"), 0);
    EXPECT_EQ(shared.toolIndex, 0u);
    EXPECT_EQ(library.toolAt(0)->tipPoints, std::vector<float>(6, 0.0f));
}

TEST_F(ToolTipCalibrationTest, FramesThatCannotServeAreRefusedOrNotCounted) {
    ASSERT_EQ(calibration.init(library, shared, 1, 0), 0);
    T_MarkerInfo frame = frameAt(0.0);
    for (std::uint32_t count : {2u, 200u}) {
        frame.MarkerNumber = count;
        info.calibratorFound = info.toolFound = true;
        EXPECT_EQ(proceed(frame), -1) << count;
        EXPECT_TRUE(info.calibratorFound && info.toolFound) << "only finished and progress are written";
    }
    frame.MarkerNumber = 6;  // the calibrator and two pointer markers
    EXPECT_EQ(proceed(frame), -1);
    EXPECT_EQ(proceed(frameAt(0.0, 0.0, false)), 0);
    EXPECT_FALSE(info.calibratorFound);
    EXPECT_TRUE(info.toolFound);
    EXPECT_FALSE(info.frameAccepted);
    EXPECT_EQ(shared.acceptedFrames, 0u);
}

TEST_F(ToolTipCalibrationTest, TwoHundredAgreeingFramesGiveTheHoleAsTip) {
    ASSERT_EQ(calibration.init(library, shared, "pointer", "calibrator"), 0);
    int accepted = 0;
    for (int k = 0; !info.finished; ++k) {
        ASSERT_LT(k, 300);
        // Every fourth frame has a pointer marker 1.2 mm off: its error lies
        // more than 0.25 mm from the mean of the others, so it is not counted.
        const bool bent = k % 4 == 3;
        ASSERT_EQ(proceed(frameAt(0.02 * k, bent ? 1.2 : 0.0)), 0);
        ASSERT_TRUE(info.calibratorFound && info.toolFound);
        EXPECT_EQ(info.frameAccepted, !bent) << "frame " << k;
        accepted += info.frameAccepted;
        if (!info.finished) {
            ASSERT_FLOAT_EQ(info.progress, accepted / 200.0f);
        }
    }
    EXPECT_EQ(accepted, 200);
    EXPECT_FLOAT_EQ(info.progress, 1.0f);
    EXPECT_LT(info.meanError, 1e-3f);
    EXPECT_LT(info.tipDistanceStdDev, 1e-3f);  // the tip is 150 mm from marker 0 in every frame
    const std::vector<float> expected{0, 0, -150, 0, 0, -120};
    std::vector<float> tip = library.toolAt(0)->tipPoints;
    for (int k = 0; k < 6; ++k) EXPECT_NEAR(tip[k], expected[k], 1e-3) << k;

    // Finished: further frames report recognition and progress 0, and leave the tip.
    ASSERT_EQ(proceed(frameAt(1.0)), 0);
    EXPECT_TRUE(info.finished);
    EXPECT_FALSE(info.frameAccepted);
    EXPECT_EQ(info.progress, 0.0f);
    EXPECT_EQ(library.toolAt(0)->tipPoints, tip);
}

}  // namespace
