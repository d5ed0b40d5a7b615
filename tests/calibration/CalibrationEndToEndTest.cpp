// The reference tool, tip calibration and coordinate renewal, pivot
// calibration and marker-space registration end to end: the virtual tracker
// plays scenes with exact ground truth, the library runs each procedure
// through its exported functions.
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
const ToolPose kIdentity{{1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}};

bool isIdentity(const float r[3][3], const float t[3]) {
    return rotationErrorRad(kIdentity, r) < kRotationToleranceRad &&
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
    const auto expectInFrameOf = [&](const T_VyxToolDataResult& r, const char* tool,
                                     const ToolPose& reference) {
        const RigidBody& body = s.scene.bodies[bodyIndex(s.scene, tool)];
        expectPose(r, relativePose(reference, s.truePose(tool)), body.tip);
    };
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
        for (const Point3& p : s.scene.markersAt(s.sceneFrame()))
            expected.push_back(inFrameOf(reference, p));
        ASSERT_EQ(s.markers.MarkerNumber, expected.size());
        markerError = std::max(markerError, largestMarkerError(s.markers, expected));
        ASSERT_EQ(Vyx_GetToolInfoInRef(s.handle, &s.markers, names, found, 0), RV_SUCCESS);
        ASSERT_EQ(found.size(), 3u);
        const T_VyxToolDataResult& self = *found["patient_ref"];
        EXPECT_TRUE(isIdentity(self.RotationMatrix, self.Translation));
        for (const char* tool : {"pointer", "drill"})
            expectInFrameOf(*found[tool], tool, reference);
    }
    EXPECT_LT(markerError, kPositionToleranceMm);

    // Tools found in a frame of tracker coordinates are re-expressed too.
    ASSERT_EQ(Vyx_CancelRef(s.handle), RV_SUCCESS);
    ASSERT_TRUE(s.nextFrame());
    EXPECT_LT(largestMarkerError(s.markers, s.scene.markersAt(s.sceneFrame())), kPositionToleranceMm);
    ASSERT_EQ(Vyx_SetReferenceTool(s.handle, "patient_ref"), RV_SUCCESS);
    ASSERT_EQ(Vyx_GetToolInfoInRef(s.handle, &s.markers, names, found, 0), RV_SUCCESS);
    expectInFrameOf(*found["pointer"], "pointer", s.truePose("patient_ref"));

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
    expectInFrameOf(*found["pointer"], "pointer", kIdentity);

    ASSERT_EQ(Vyx_CancelRef(s.handle), RV_SUCCESS);
    EXPECT_EQ(Vyx_GetToolInfoInRef(s.handle, &s.markers, names, found, 0), RV_FAILED);
}

// Runs a procedure on the pointer in the calibrator's hole (tip calibration
// or coordinate renewal) frame by frame, 400 frames at most: both tools are
// found in every frame, and it finishes with the 200th frame it accepts.
::testing::AssertionResult finishesInTheHole(
    SceneSession& s, int (*proceed)(VyxHandle, T_MarkerInfo*, t_ToolTipCalProInfo*)) {
    t_ToolTipCalProInfo info{};
    int accepted = 0;
    for (int frame = 0; frame < 400; ++frame) {
        info.frameAccepted = false;
        if (!s.nextFrame() || proceed(s.handle, &s.markers, &info) != RV_SUCCESS ||
            !info.calibratorFound || !info.toolFound)
            return ::testing::AssertionFailure() << "frame " << frame << " not taken";
        accepted += info.frameAccepted ? 1 : 0;
        if (info.finished != (accepted == 200))
            return ::testing::AssertionFailure() << accepted << " frames accepted, finished "
                                                 << info.finished;
        if (info.finished)
            return info.progress == 1.0f ? ::testing::AssertionSuccess()
                                         : ::testing::AssertionFailure() << "progress "
                                                                         << info.progress;
    }
    return ::testing::AssertionFailure() << "not finished after 400 frames";
}

TEST(TipCalibration, TheHoleGivesTheTipAndCoordinateRenewalMakesItTheOrigin) {
    SceneSession s;
    const Scene scene = tipCalibrationScene();
    Scene tools = scene;  // the pointer's file starts without a tip
    RigidBody& pointerFile = tools.bodies[bodyIndex(tools, "pointer")];
    pointerFile.tip = pointerFile.tipAxis = {0, 0, 0};
    ASSERT_NO_FATAL_FAILURE(s.serve(161, scene, &tools));
    const RigidBody& pointer = scene.bodies[bodyIndex(scene, "pointer")];
    const auto reload = [&] {
        return Vyx_SetToolInfoFilePath(s.handle, s.toolDirectory.c_str(), true) == RV_SUCCESS;
    };

    // Tip calibration (which frames count is the unit test's), saved and read
    // back: tracking then uses the file's tip (the file's format is the tool
    // file tests').
    ASSERT_EQ(Vyx_InitToolTipCalibrationWithToolId(s.handle, "pointer", "calibrator"), RV_SUCCESS);
    ASSERT_TRUE(finishesInTheHole(s, Vyx_ProceedToolTipCalibration));
    ASSERT_TRUE(s.nextFrame());
    const T_VyxSingleToolDataResult calibrated = s.findSingle("pointer");
    EXPECT_LT(distance(point(calibrated.ToolTipsLocal), pointer.tip), kPositionToleranceMm);
    EXPECT_LT(distance(point(calibrated.ToolTipsLocal + 3), pointer.tipAxis), kPositionToleranceMm);
    ASSERT_EQ(Vyx_SaveToolTipCalibration(s.handle), RV_SUCCESS);
    ASSERT_TRUE(reload());
    const T_VyxSingleToolDataResult reloaded = s.findSingle("pointer");
    EXPECT_LT(distance(point(reloaded.TipCoordinate), point(calibrated.TipCoordinate)), 1e-4);

    // Coordinate renewal (the old frame kept while frames are collected, and
    // nothing to save until then, are the unit test's), tracked in a later
    // frame: the pose's translation is the tip, its Z axis the shaft (hole
    // axis, from the tip towards the markers), its X axis towards marker 0
    // across the shaft (the unit test's pointer has marker 0 on the shaft).
    ASSERT_EQ(Vyx_InitToolCoordinateRenewWithToolId(s.handle, "calibrator", "pointer"), RV_SUCCESS);
    ASSERT_TRUE(finishesInTheHole(s, Vyx_ProceedToolCoordinateRenew));
    ASSERT_TRUE(s.nextFrame());
    const ToolPose truth = s.truePose("pointer");
    const Point3 tip = toMeasurement(truth, pointer.tip);
    const Point3 shaft = unit(minus(toMeasurement(truth, pointer.tipAxis), tip));
    const Point3 toMarker = minus(s.scene.markersAt(s.sceneFrame())[4], tip);  // pointer marker 0
    const T_VyxSingleToolDataResult renewed = s.findSingle("pointer");
    ASSERT_EQ(renewed.ValidFlag, 1);
    EXPECT_LT(distance(point(renewed.Translation), tip), kPositionToleranceMm);
    EXPECT_LT(distance(point(renewed.TipCoordinate), tip), kPositionToleranceMm);
    EXPECT_LT(angleBetween(axis(renewed.RotationMatrix, 2), shaft), kRotationToleranceRad);
    EXPECT_LT(angleBetween(axis(renewed.RotationMatrix, 0), unit(across(toMarker, shaft))),
              kRotationToleranceRad);
    // Saved (what the file holds is the unit test's) and read back: the same
    // pose, so the file holds the renewed frame.
    ASSERT_EQ(Vyx_SaveToolCoordinateRenew(s.handle), RV_SUCCESS);
    ASSERT_TRUE(reload());
    const T_VyxSingleToolDataResult renewedReloaded = s.findSingle("pointer");
    EXPECT_LT(distance(point(renewedReloaded.Translation), point(renewed.Translation)), 1e-4);
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
    ASSERT_EQ(Vyx_GetToolTipPivotQuality(s.handle, &quality), RV_SUCCESS);
    EXPECT_LT(distance(point(tracked.ToolTipsLocal), probe.tip), 0.05);
    EXPECT_LT(distance(point(quality.TipPoint), probe.tip), kPositionToleranceMm);
    EXPECT_EQ(quality.Verdict, PivotVerdict_Good);
    EXPECT_LT(distance(point(tracked.ToolTipsLocal + 3), probe.tipAxis), 1e-5);  // kept

    // Mode 1: the result is the tip; the file's second point stays. Mode 2: a
    // second pivot becomes the second point; the file's tip stays.
    ASSERT_EQ(Vyx_SaveToolTipPivot(s.handle, 1), RV_SUCCESS);
    T_ToolFileData saved{}, second{};
    ASSERT_EQ(Vyx_CheckToolFile(s.handle, s.toolFile("probe").c_str(), &saved), RV_SUCCESS);
    EXPECT_LT(distance(point(saved.TipPoint), point(tracked.ToolTipsLocal)), 1e-5);
    EXPECT_LT(distance(point(saved.TipAxisPoint), probe.tipAxis), 1e-5);
    ASSERT_EQ(Vyx_InitToolTipPivotWithToolId(s.handle, "probe", 1), RV_SUCCESS);
    ASSERT_TRUE(pivotOnce(s).finished);
    ASSERT_EQ(Vyx_SaveToolTipPivot(s.handle, 2), RV_SUCCESS);
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
    // A body's markers as planned, each `off` mm off in x and -z alternately.
    const auto planned = [&](const char* body, double off, float rows[][3]) {
        const std::vector<Point3> local = toolMarkers(demo.bodies[bodyIndex(demo, body)]);
        for (std::size_t i = 0; i < local.size(); ++i) {
            const double sign = i % 2 == 0 ? 1.0 : -1.0;
            const double p[3] = {local[i].x + sign * off, local[i].y, local[i].z - sign * off};
            for (int k = 0; k < 3; ++k) rows[i][k] = static_cast<float>(p[k]);
        }
        return static_cast<int>(local.size());
    };

    // The handpiece's markers each 0.5 mm off: inter-point distances differ
    // by up to 1 mm, beyond the tool-find offset of 0.3 but within the
    // registration's 1.8.
    float rows[5][3];
    int count = planned("handpiece", 0.5, rows);
    ASSERT_EQ(Vyx_InitMappingPointSetsForMarkerSpaceReg(s.handle, rows, count), RV_SUCCESS);
    ASSERT_EQ(Vyx_MappingPointSetsForMarkerSpaceReg(s.handle, &s.markers, &result, 0), RV_SUCCESS);
    EXPECT_EQ(result.ValidFlag, 1);
    EXPECT_EQ(result.MatchedMarkerCount, 5);
    EXPECT_LT(distance(point(result.Translation), point(s.truePose("handpiece").T)), 1.0);

    // Replaced by the exact pointer markers: the pointer's pose.
    count = planned("pointer", 0.0, rows);
    ASSERT_EQ(Vyx_InitMappingPointSetsForMarkerSpaceReg(s.handle, rows, count), RV_SUCCESS);
    ASSERT_EQ(Vyx_MappingPointSetsForMarkerSpaceReg(s.handle, &s.markers, &result, 0), RV_SUCCESS);
    const ToolPose truth = s.truePose("pointer");
    EXPECT_LT(distance(point(result.Translation), point(truth.T)), kPositionToleranceMm);
    EXPECT_LT(rotationErrorRad(truth, result.RotationMatrix), kRotationToleranceRad);
    EXPECT_EQ(result.MatchedMarkerCount, 4);

    T_MarkerInfo full = s.markers;
    full.MarkerNumber = 200;
    EXPECT_EQ(Vyx_MappingPointSetsForMarkerSpaceReg(s.handle, &full, &result, 0), RV_FAILED);
}

}  // namespace
