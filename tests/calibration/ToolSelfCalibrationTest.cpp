// Self-calibration over synthetic frames: what counts, what moves.
#include "calibration/ToolSelfCalibration.h"
#include "support/SyntheticFrames.h"
#include "tools/ToolTestFiles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

// A five-marker tool: the four of fourMarkerToolText and (40, 40, 40).
const char* kFiveMarkerTool =
    "five\nT\n5\n0 0 0 31\n50 0 0 31\n0 80 0 31\n0 0 120 31\n40 40 40 31\n2\n0 0 0\n0 0 0\n";

// The tool's first `count` markers at (0, 0, 1500) turned by `angle` about Z,
// marker 1 moved `shift` mm along Z (of the tool).
T_MarkerInfo frameOf(int count, double angle, double shift) {
    const double c = std::cos(angle), s = std::sin(angle);
    const cv::Matx33d R(c, -s, 0, s, c, 0, 0, 0, 1);
    const cv::Vec3d markers[5] = {{0, 0, 0}, {50, 0, shift}, {0, 80, 0}, {0, 0, 120}, {40, 40, 40}};
    std::vector<cv::Vec3d> points;
    for (int i = 0; i < count; ++i) points.push_back(R * markers[i] + cv::Vec3d(0, 0, 1500));
    return vyx::test::markerFrame(points);
}

TEST(ToolSelfCalibration, MovesTheMarkersSeenAndKeepsTheOthersUntilRetried) {
    ScratchDirectory dir;
    writeFile(dir.file("five.vyxtool"), kFiveMarkerTool);
    ToolLibrary library;
    library.AddFormatToolInfoFromFile(dir.file("five.vyxtool").c_str());
    ToolSelfCalibration calibration;
    int count = 0;
    ASSERT_EQ(calibration.init(library, "five", count), 0);
    ASSERT_EQ(count, 5);
    const std::vector<float> asRead = library.toolAt(0)->markerPositions;

    // Marker 4 is never in view and marker 1 sits 0.6 mm off its file position.
    t_ToolFixProInfo info{};
    EXPECT_EQ(calibration.proceed(frameOf(2, 0, 0), info, 1.5f), -1);
    EXPECT_FALSE(info.frameCounted);
    for (int k = 0; k < 100; ++k) {
        ASSERT_EQ(calibration.proceed(frameOf(4, 0.05 * k, 0.6), info, 1.5f), 0);
        ASSERT_TRUE(info.frameCounted);
        ASSERT_EQ(info.finished, k == 99);
    }
    const std::vector<float>& now = library.toolAt(0)->markerPositions;
    EXPECT_EQ(std::vector<float>(now.begin() + 12, now.end()),
              std::vector<float>(asRead.begin() + 12, asRead.end()));
    // The four markers seen now have the distances they were seen at.
    const T_MarkerInfo seen = frameOf(4, 0, 0.6);
    for (int i = 0; i < 4; ++i)
        for (int j = i + 1; j < 4; ++j) {
            const cv::Vec3d a(seen.MarkerCoordinate[i]), b(seen.MarkerCoordinate[j]);
            const cv::Vec3f p(&now[3 * i]), q(&now[3 * j]);
            EXPECT_NEAR(cv::norm(p - q), cv::norm(a - b), 1e-3) << i << "-" << j;
        }
    EXPECT_GT(info.meanError, 0.0f);

    // Finished: frames change nothing until a retry restores and restarts.
    t_ToolFixProInfo after = info;
    EXPECT_EQ(calibration.proceed(frameOf(4, 0, 0.6), after, 1.5f), 0);
    EXPECT_EQ(after.frameCount, 100);
    ASSERT_EQ(calibration.save(ToolFix_Retry), 0);
    EXPECT_EQ(library.toolAt(0)->markerPositions, asRead);
    EXPECT_EQ(calibration.frameCount(), 0u);
    EXPECT_FALSE(calibration.finished());
}

TEST(ToolSelfCalibration, ErrorListSpreadIsTheSampleStandardDeviation) {
    float out = -1.0f;
    GetErroListRMS(out, {});
    EXPECT_EQ(out, -1.0f);
    GetErroListRMS(out, {1.0f, 2.0f, 3.0f, 4.0f});
    EXPECT_FLOAT_EQ(out, std::sqrt(5.0f / 3.0f));
}

}  // namespace
