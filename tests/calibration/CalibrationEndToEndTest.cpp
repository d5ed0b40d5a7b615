// The reference tool, tip and pivot calibration and marker-space registration
// end to end: the virtual tracker plays scenes with exact ground truth, the
// library runs each procedure through its exported functions.
//
// Without noise markers reconstruct within about 2e-4 mm and single-precision
// fits near 1.5 m are good to a few micrometres: 0.01 mm and 1e-4 rad catch a
// wrong frame, direction or point by orders of magnitude.
#include "VyxPositionAPI.h"
#include "support/SceneSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

using namespace vyx::sim;
using namespace vyx::test;

namespace {

constexpr double kPositionToleranceMm = 0.01;
constexpr double kRotationToleranceRad = 1e-4;

bool isIdentity(const float r[3][3], const float t[3]) {
    ToolPose identity{{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};
    return rotationErrorRad(identity, r) < kRotationToleranceRad &&
           distance(point(t), {0, 0, 0}) < kPositionToleranceMm;
}

// A result against a true pose (tool into the result's frame) and tip.
void expectPose(const T_VyxToolDataResult& r, const ToolPose& truth, const Point3& tip) {
    SCOPED_TRACE(r.ToolName);
    ASSERT_EQ(r.ValidFlag, 1);
    EXPECT_LT(rotationErrorRad(truth, r.RotationMatrix), kRotationToleranceRad);
    EXPECT_LT(distance(point(r.Translation), point(truth.T)), kPositionToleranceMm);
    EXPECT_LT(distance(point(r.TipCoordinate), toMeasurement(truth, tip)), kPositionToleranceMm);
}

TEST(ReferenceTool, FramesAndToolsComeBackInTheReferenceFrame) {
    SceneSession s;
    Scene tools = referenceScene();
    // A reference that is never in view.
    RigidBody absent = tools.bodies.front();
    absent.name = "absent_ref";
    for (SceneMarker& m : absent.points) m.position.x *= 1.3;
    absent.attachedTo.clear();
    tools.bodies.push_back(absent);
    ASSERT_NO_FATAL_FAILURE(s.serve(160, referenceScene(), &tools));
    std::vector<std::string> names{"pointer", "drill", "patient_ref"};
    std::map<std::string, T_VyxToolDataResult*> found;
    EXPECT_EQ(Vyx_GetToolInfoInRef(s.handle, &s.markers, names, found, 0), RV_FAILED);

    // Markers and tools of delivered frames are in the reference frame, the
    // reference itself at the identity.
    ASSERT_EQ(Vyx_SetReferenceTool(s.handle, "patient_ref"), RV_SUCCESS);
    double markerError = 0.0;
    for (int frame = 0; frame < 5; ++frame) {
        ASSERT_TRUE(s.nextFrame());
        const ToolPose reference = s.truePose("patient_ref");
        std::vector<Point3> expected;
        for (const Point3& p : s.scene.markersAt(s.sceneFrame())) expected.push_back(inFrameOf(reference, p));
        ASSERT_EQ(s.markers.MarkerNumber, expected.size());
        markerError = std::max(markerError, largestMarkerError(s.markers, expected));
        ASSERT_EQ(Vyx_GetToolInfoInRef(s.handle, &s.markers, names, found, 0), RV_SUCCESS);
        ASSERT_EQ(found.size(), 3u);
        EXPECT_TRUE(isIdentity(found["patient_ref"]->RotationMatrix, found["patient_ref"]->Translation));
        for (const char* tool : {"pointer", "drill"}) {
            const RigidBody& body = s.scene.bodies[bodyIndex(s.scene, tool)];
            expectPose(*found[tool], relativePose(reference, s.truePose(tool)), body.tip);
        }
    }
    EXPECT_LT(markerError, kPositionToleranceMm);

    // Tools found in a frame of tracker coordinates are re-expressed too.
    ASSERT_EQ(Vyx_CancelRef(s.handle), RV_SUCCESS);
    ASSERT_TRUE(s.nextFrame());
    EXPECT_LT(largestMarkerError(s.markers, s.scene.markersAt(s.sceneFrame())), kPositionToleranceMm);
    ASSERT_EQ(Vyx_SetReferenceTool(s.handle, "patient_ref"), RV_SUCCESS);
    ASSERT_EQ(Vyx_GetToolInfoInRef(s.handle, &s.markers, names, found, 0), RV_SUCCESS);
    const ToolPose reference = s.truePose("patient_ref");
    expectPose(*found["pointer"], relativePose(reference, s.truePose("pointer")),
               s.scene.bodies[bodyIndex(s.scene, "pointer")].tip);

    // An unknown name keeps the reference.
    EXPECT_EQ(Vyx_SetReferenceTool(s.handle, "no_such_tool"), RV_FAILED);
    ASSERT_TRUE(s.nextFrame());
    T_VyxSingleToolDataResult self = s.findSingle("patient_ref");
    EXPECT_TRUE(self.ValidFlag == 1 && isIdentity(self.RotationMatrix, self.Translation));

    // A reference out of view: tracker coordinates, and no entry of its own.
    ASSERT_EQ(Vyx_SetReferenceTool(s.handle, "absent_ref"), RV_SUCCESS);
    ASSERT_TRUE(s.nextFrame());
    EXPECT_LT(largestMarkerError(s.markers, s.scene.markersAt(s.sceneFrame())), kPositionToleranceMm);
    names = {"pointer", "absent_ref"};
    ASSERT_EQ(Vyx_GetToolInfoInRef(s.handle, &s.markers, names, found, 0), RV_SUCCESS);
    EXPECT_EQ(found.count("absent_ref"), 0u);
    ASSERT_EQ(found.count("pointer"), 1u);
    expectPose(*found["pointer"], s.truePose("pointer"), s.scene.bodies[bodyIndex(s.scene, "pointer")].tip);

    ASSERT_EQ(Vyx_CancelRef(s.handle), RV_SUCCESS);
    EXPECT_EQ(Vyx_GetToolInfoInRef(s.handle, &s.markers, names, found, 0), RV_FAILED);
}

TEST(TipCalibration, TwoHundredFramesInTheHoleGiveTheTipAndSaveIt) {
    SceneSession s;
    const Scene scene = tipCalibrationScene();
    Scene tools = scene;  // the pointer's file starts without a tip
    RigidBody& pointerFile = tools.bodies[bodyIndex(tools, "pointer")];
    pointerFile.tip = pointerFile.tipAxis = {0, 0, 0};
    ASSERT_NO_FATAL_FAILURE(s.serve(161, scene, &tools));
    ASSERT_EQ(Vyx_InitToolTipCalibrationWithToolId(s.handle, "pointer", "calibrator"), RV_SUCCESS);

    // Counting and completion at 200 frames are the unit test's.
    t_ToolTipCalProInfo info{};
    for (int frame = 0; frame < 400 && !info.finished; ++frame) {
        ASSERT_TRUE(s.nextFrame());
        ASSERT_EQ(Vyx_ProceedToolTipCalibration(s.handle, &s.markers, &info), RV_SUCCESS);
        ASSERT_TRUE(info.calibratorFound && info.toolFound) << "frame " << frame;
    }
    ASSERT_TRUE(info.finished);

    const RigidBody& pointer = scene.bodies[bodyIndex(scene, "pointer")];
    ASSERT_TRUE(s.nextFrame());
    const T_VyxSingleToolDataResult tracked = s.findSingle("pointer");
    const double tipError = distance(point(tracked.ToolTipsLocal), pointer.tip);
    const double axisError = distance(point(tracked.ToolTipsLocal + 3), pointer.tipAxis);
    EXPECT_LT(tipError, kPositionToleranceMm);
    EXPECT_LT(axisError, kPositionToleranceMm);

    // Saved and read back: the file holds the tip that tracking uses.
    ASSERT_EQ(Vyx_SaveToolTipCalibration(s.handle), RV_SUCCESS);
    ASSERT_EQ(Vyx_SetToolInfoFilePath(s.handle, s.toolDirectory.c_str(), true), RV_SUCCESS);
    T_ToolFileData saved{};
    ASSERT_EQ(Vyx_CheckToolFile(s.handle, s.toolFile("pointer").c_str(), &saved), RV_SUCCESS);
    EXPECT_LT(distance(point(saved.TipPoint), point(tracked.ToolTipsLocal)), 1e-5);
    const T_VyxSingleToolDataResult reloaded = s.findSingle("pointer");
    EXPECT_LT(distance(point(reloaded.TipCoordinate), point(tracked.TipCoordinate)), 1e-4);
}

// 200 frames of pivoting, checked frame by frame; returns the last info.
T_ToolTipPivotInfo pivotOnce(SceneSession& s) {
    T_ToolTipPivotInfo info{};
    for (int pose = 1; pose <= 200; ++pose) {
        EXPECT_TRUE(s.nextFrame());
        EXPECT_EQ(Vyx_ProceedToolTipPivot(s.handle, &s.markers, &info), RV_SUCCESS);
        EXPECT_EQ(info.finished, pose == 200);
        EXPECT_FLOAT_EQ(info.progress, pose / 200.0f);
    }
    return info;
}

TEST(PivotCalibration, SolvesTheTipAtTheTwoHundredthPoseAndSavesInBothModes) {
    SceneSession s;
    const Scene scene = pivotScene(0.5);
    ASSERT_NO_FATAL_FAILURE(s.serve(162, scene));
    const RigidBody& probe = scene.bodies[0];
    T_ToolTipPivotQuality quality{};
    EXPECT_EQ(Vyx_GetToolTipPivotQuality(s.handle, &quality), RV_FAILED);

    ASSERT_EQ(Vyx_InitToolTipPivotWithToolId(s.handle, "probe", 0), RV_SUCCESS);
    const T_ToolTipPivotInfo info = pivotOnce(s);
    ASSERT_TRUE(info.finished);
    T_ToolTipPivotInfo after = info;
    ASSERT_TRUE(s.nextFrame());
    EXPECT_EQ(Vyx_ProceedToolTipPivot(s.handle, &s.markers, &after), RV_FAILED);
    EXPECT_EQ(std::memcmp(&after, &info, sizeof info), 0);

    const T_VyxSingleToolDataResult tracked = s.findSingle("probe");
    const double tipError = distance(point(tracked.ToolTipsLocal), probe.tip);
    ASSERT_EQ(Vyx_GetToolTipPivotQuality(s.handle, &quality), RV_SUCCESS);
    const double qualityError = distance(point(quality.TipPoint), probe.tip);
    EXPECT_LT(tipError, 0.05);
    EXPECT_LT(qualityError, kPositionToleranceMm);
    EXPECT_EQ(quality.Verdict, PivotVerdict_Good);
    EXPECT_LT(distance(point(tracked.ToolTipsLocal + 3), probe.tipAxis), 1e-5);  // kept

    // Mode 1: the result is the tip; the file's second point stays.
    ASSERT_EQ(Vyx_SaveToolTipPivot(s.handle, 1), RV_SUCCESS);
    T_ToolFileData saved{};
    ASSERT_EQ(Vyx_CheckToolFile(s.handle, s.toolFile("probe").c_str(), &saved), RV_SUCCESS);
    EXPECT_LT(distance(point(saved.TipPoint), point(tracked.ToolTipsLocal)), 1e-5);
    EXPECT_LT(distance(point(saved.TipAxisPoint), probe.tipAxis), 1e-5);

    // Mode 2: a second pivot becomes the second point; the file's tip stays.
    ASSERT_EQ(Vyx_InitToolTipPivotWithToolId(s.handle, "probe", 1), RV_SUCCESS);
    ASSERT_TRUE(pivotOnce(s).finished);
    ASSERT_EQ(Vyx_SaveToolTipPivot(s.handle, 2), RV_SUCCESS);
    T_ToolFileData second{};
    ASSERT_EQ(Vyx_CheckToolFile(s.handle, s.toolFile("probe").c_str(), &second), RV_SUCCESS);
    EXPECT_LT(distance(point(second.TipPoint), point(saved.TipPoint)), 1e-5);
    EXPECT_LT(distance(point(second.TipAxisPoint), probe.tip), 0.05);
}

TEST(MarkerSpaceRegistration, FindsThePointSetWithItsOwnTolerance) {
    SceneSession s;
    Scene demo = trackingDemoScene();
    demo.strayCentresPerCamera = 0;
    ASSERT_NO_FATAL_FAILURE(s.serve(163, demo));
    ASSERT_EQ(Vyx_SetToolFindOffset(s.handle, 0.3f), RV_SUCCESS);
    for (int frame = 0; frame < 10; ++frame) ASSERT_TRUE(s.nextFrame());  // the pointer moved
    T_VyxToolDataResult result{};
    EXPECT_EQ(Vyx_MappingPointSetsForMarkerSpaceReg(s.handle, &s.markers, &result, 0), RV_FAILED);

    // The handpiece's markers as planned, each 0.5 mm off: inter-point
    // distances differ by up to 1 mm, beyond the tool-find offset of 0.3 but
    // within the registration's 1.8.
    const std::size_t handpiece = bodyIndex(demo, "handpiece");
    const std::vector<Point3> local = toolMarkers(demo.bodies[handpiece]);
    float planned[5][3];
    for (std::size_t i = 0; i < local.size(); ++i) {
        const double off = i % 2 == 0 ? 0.5 : -0.5;
        const double p[3] = {local[i].x + off, local[i].y, local[i].z - off};
        for (int k = 0; k < 3; ++k) planned[i][k] = float(p[k]);
    }
    ASSERT_EQ(Vyx_InitMappingPointSetsForMarkerSpaceReg(s.handle, planned, 5), RV_SUCCESS);
    ASSERT_EQ(Vyx_MappingPointSetsForMarkerSpaceReg(s.handle, &s.markers, &result, 0), RV_SUCCESS);
    EXPECT_EQ(result.ValidFlag, 1);
    EXPECT_EQ(result.MatchedMarkerCount, 5);
    EXPECT_LT(distance(point(result.Translation), point(s.truePose("handpiece").T)), 1.0);

    // Replaced by the exact pointer markers: the pointer's pose.
    const std::vector<Point3> pointer = toolMarkers(demo.bodies[bodyIndex(demo, "pointer")]);
    float exact[4][3];
    for (std::size_t i = 0; i < 4; ++i) {
        const double p[3] = {pointer[i].x, pointer[i].y, pointer[i].z};
        for (int k = 0; k < 3; ++k) exact[i][k] = float(p[k]);
    }
    ASSERT_EQ(Vyx_InitMappingPointSetsForMarkerSpaceReg(s.handle, exact, 4), RV_SUCCESS);
    ASSERT_EQ(Vyx_MappingPointSetsForMarkerSpaceReg(s.handle, &s.markers, &result, 0), RV_SUCCESS);
    const ToolPose truth = s.truePose("pointer");
    const double poseError = distance(point(result.Translation), point(truth.T));
    EXPECT_LT(poseError, kPositionToleranceMm);
    EXPECT_LT(rotationErrorRad(truth, result.RotationMatrix), kRotationToleranceRad);
    EXPECT_EQ(result.MatchedMarkerCount, 4);

    T_MarkerInfo full = s.markers;
    full.MarkerNumber = 200;
    EXPECT_EQ(Vyx_MappingPointSetsForMarkerSpaceReg(s.handle, &full, &result, 0), RV_FAILED);
}

}  // namespace
