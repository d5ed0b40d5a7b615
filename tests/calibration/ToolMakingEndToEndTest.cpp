// Tool self-calibration and tool making end to end through the virtual
// tracker: a tool file a few tenths of a millimetre off its true
// constellation, and a rigid body no tool file describes yet.
#include "VyxPositionAPI.h"
#include "support/SceneSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

using namespace vyx::sim;
using namespace vyx::test;

namespace {

// Marker positions as the library holds them for a tool, tool frame.
std::vector<Point3> libraryMarkers(SceneSession& s, const char* name) {
    int count = 0;
    float positions[VYX_MAX_MARKERS][3];
    EXPECT_EQ(Vyx_GetSpecificToolFileInfoArray(s.handle, name, &count, &positions[0][0]),
              RV_SUCCESS);
    std::vector<Point3> markers;
    for (int i = 0; i < count; ++i) markers.push_back(point(positions[i]));
    return markers;
}

// Largest distance from a tool's markers, placed by its recognised pose in the
// current frame, to the nearest true marker of the body there.
double largestPlacedError(SceneSession& s, const char* tool, const std::string& body) {
    const T_VyxSingleToolDataResult r = s.findSingle(tool);
    EXPECT_EQ(r.ValidFlag, 1);
    const ToolPose truth = s.truePose(body);
    const ToolPose found{{r.RotationMatrix[0][0], r.RotationMatrix[0][1], r.RotationMatrix[0][2],
                          r.RotationMatrix[1][0], r.RotationMatrix[1][1], r.RotationMatrix[1][2],
                          r.RotationMatrix[2][0], r.RotationMatrix[2][1], r.RotationMatrix[2][2]},
                         {r.Translation[0], r.Translation[1], r.Translation[2]}};
    double largest = 0.0;
    for (const Point3& local : libraryMarkers(s, tool)) {
        double nearest = 1e9;
        for (const Point3& m : toolMarkers(s.scene.bodies[bodyIndex(s.scene, body)]))
            nearest = std::min(nearest, distance(toMeasurement(found, local), toMeasurement(truth, m)));
        largest = std::max(largest, nearest);
    }
    return largest;
}

t_ToolFixProInfo selfCalibrate(SceneSession& s, int frames) {
    t_ToolFixProInfo info{};
    for (int frame = 0; frame < frames; ++frame) {
        EXPECT_TRUE(s.nextFrame());
        EXPECT_EQ(Vyx_ProceedToolSelfCalibration(s.handle, &s.markers, &info), RV_SUCCESS);
        EXPECT_TRUE(info.frameUsed);
        EXPECT_EQ(info.finished, frame == 99) << "frame " << frame;
    }
    return info;
}

TEST(SelfCalibration, APerturbedToolConvergesAndIsKeptDiscardedOrRedone) {
    SceneSession s;
    const Scene scene = selfCalibrationScene(0.4, 1);
    ASSERT_NO_FATAL_FAILURE(s.serve(164, scene));
    const std::vector<Point3> asRead = libraryMarkers(s, "wand");
    int markerCount = 0;
    ASSERT_EQ(Vyx_InitToolSelfCalibrationWithToolId(s.handle, "wand", &markerCount), RV_SUCCESS);
    EXPECT_EQ(markerCount, 4);

    ASSERT_TRUE(s.nextFrame());
    const double before = largestPlacedError(s, "wand", "wand");
    const t_ToolFixProInfo info = selfCalibrate(s, 100);
    ASSERT_TRUE(info.finished);
    EXPECT_EQ(info.frameCount, 100);
    const double after = largestPlacedError(s, "wand", "wand");
    EXPECT_GT(before, 0.2);
    EXPECT_LT(after, 0.01);

    // Discard: the positions as read come back; the procedure stays finished.
    ASSERT_EQ(Vyx_SaveToolSelfCalibration(s.handle, ToolFix_Discard), RV_SUCCESS);
    const std::vector<Point3> restored = libraryMarkers(s, "wand");
    for (std::size_t i = 0; i < asRead.size(); ++i) EXPECT_LT(distance(restored[i], asRead[i]), 1e-6);
    t_ToolFixProInfo idle{};
    ASSERT_EQ(Vyx_ProceedToolSelfCalibration(s.handle, &s.markers, &idle), RV_SUCCESS);
    EXPECT_FALSE(idle.frameUsed);

    // Retry starts over from the first frame; Save keeps the result in the file.
    ASSERT_EQ(Vyx_SaveToolSelfCalibration(s.handle, ToolFix_Retry), RV_SUCCESS);
    ASSERT_TRUE(selfCalibrate(s, 100).finished);
    ASSERT_EQ(Vyx_SaveToolSelfCalibration(s.handle, ToolFix_Save), RV_SUCCESS);
    const std::vector<Point3> kept = libraryMarkers(s, "wand");
    ASSERT_EQ(Vyx_SetToolInfoFilePath(s.handle, s.toolDirectory.c_str(), true), RV_SUCCESS);
    const std::vector<Point3> reloaded = libraryMarkers(s, "wand");
    ASSERT_EQ(reloaded.size(), kept.size());
    for (std::size_t i = 0; i < kept.size(); ++i) EXPECT_LT(distance(reloaded[i], kept[i]), 1e-5);
    ASSERT_TRUE(s.nextFrame());
    EXPECT_LT(largestPlacedError(s, "wand", "wand"), 0.01);
}

class ToolMaking : public ::testing::TestWithParam<int> {};

TEST_P(ToolMaking, ANewBodyBecomesATrackedTool) {
    const int n = GetParam();
    SceneSession s;
    ASSERT_NO_FATAL_FAILURE(s.serve(static_cast<unsigned char>(166 + n), toolMakingScene(n)));
    int count = -1;
    ASSERT_EQ(Vyx_GetCountOfToolInfo(s.handle, &count), RV_SUCCESS);
    ASSERT_EQ(count, 0);
    ASSERT_EQ(Vyx_InitToolMadeInfo(s.handle, n, "made"), RV_SUCCESS);

    // Every marker of the new tool, and nothing else, must be in view.
    ASSERT_TRUE(s.nextFrame());
    ASSERT_EQ(s.markers.MarkerNumber, static_cast<std::uint32_t>(n));
    t_ToolMadeProInfo info{};
    T_MarkerInfo other = s.markers;
    other.MarkerNumber = n - 1;
    EXPECT_EQ(Vyx_ProceedToolMade(s.handle, &other, &info), RV_FAILED);
    other.MarkerNumber = n + 1;
    for (int k = 0; k < 3; ++k) other.MarkerCoordinate[n][k] = s.markers.MarkerCoordinate[0][k] + 300.0;
    EXPECT_EQ(Vyx_ProceedToolMade(s.handle, &other, &info), RV_FAILED);

    // A second Init drops the tool begun (the sanitizer build sees a leak).
    ASSERT_EQ(Vyx_ProceedToolMade(s.handle, &s.markers, &info), RV_SUCCESS);
    ASSERT_EQ(Vyx_InitToolMadeInfo(s.handle, n, "made"), RV_SUCCESS);
    info = t_ToolMadeProInfo{};
    ASSERT_EQ(Vyx_ProceedToolMade(s.handle, &s.markers, &info), RV_SUCCESS);
    EXPECT_TRUE(info.madeFlag);
    EXPECT_FLOAT_EQ(info.progress, 0.1f);
    EXPECT_EQ(Vyx_SaveToolMadeRlt(s.handle, 1), RV_FAILED);  // not finished
    for (int frame = 0; frame < 100; ++frame) {
        ASSERT_TRUE(s.nextFrame());
        ASSERT_EQ(Vyx_ProceedToolMade(s.handle, &s.markers, &info), RV_SUCCESS);
        ASSERT_FALSE(info.madeFlag);
        ASSERT_EQ(info.finished, frame == 99);
        if (!info.finished) {
            ASSERT_FLOAT_EQ(info.progress, frame / 100.0f);
        }
    }
    EXPECT_FLOAT_EQ(info.progress, 1.0f);
    EXPECT_EQ(Vyx_ProceedToolMade(s.handle, &s.markers, &info), RV_FAILED);

    // Saved, read back from its file, and recognised where the body is.
    ASSERT_EQ(Vyx_SaveToolMadeRlt(s.handle, 1), RV_SUCCESS);
    ASSERT_EQ(Vyx_SetToolInfoFilePath(s.handle, s.toolDirectory.c_str(), true), RV_SUCCESS);
    T_ToolFileData file{};
    ASSERT_EQ(Vyx_CheckToolFile(s.handle, s.toolFile("made").c_str(), &file), RV_SUCCESS);
    EXPECT_EQ(file.MarkerCount, n);
    ASSERT_TRUE(s.nextFrame());
    const double error = largestPlacedError(s, "made", "newtool");
    EXPECT_LT(error, 0.01);
}

INSTANTIATE_TEST_SUITE_P(Markers, ToolMaking, ::testing::Values(4, 5));

}  // namespace
