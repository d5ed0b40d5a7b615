// Tip calibration over synthetic frames: a pointer whose tip rests in a
// calibrator's hole, turning about the hole's axis.
#include "calibration/ToolTipCalibration.h"
#include "support/SyntheticFrames.h"
#include "tools/ToolTestFiles.h"

#include <gtest/gtest.h>

#include <vector>

using vyx::test::holeFrame;

namespace {

class ToolTipCalibrationTest : public ::testing::Test, protected vyx::test::PointerAndCalibrator {
protected:
    int proceed(const T_MarkerInfo& frame) {
        info.frameAccepted = false;
        return calibration.proceed(library, shared, frame, info, 1.5f);
    }
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
    T_MarkerInfo frame = holeFrame(0.0);
    for (std::uint32_t count : {2u, 200u}) {
        frame.MarkerNumber = count;
        info.calibratorFound = info.toolFound = true;
        EXPECT_EQ(proceed(frame), -1) << count;
        EXPECT_TRUE(info.calibratorFound && info.toolFound) << "only finished and progress are written";
    }
    frame.MarkerNumber = 6;  // the calibrator and two pointer markers
    EXPECT_EQ(proceed(frame), -1);
    EXPECT_EQ(proceed(holeFrame(0.0, 0.0, false)), 0);
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
        ASSERT_EQ(proceed(holeFrame(0.02 * k, bent ? 1.2 : 0.0)), 0);
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
    ASSERT_EQ(proceed(holeFrame(1.0)), 0);
    EXPECT_TRUE(info.finished);
    EXPECT_FALSE(info.frameAccepted);
    EXPECT_EQ(info.progress, 0.0f);
    EXPECT_EQ(library.toolAt(0)->tipPoints, tip);
}

}  // namespace
