// The accuracy check and the tool coordinate renewal end to end: the virtual
// tracker plays a length bar and a pointer in a calibrator's hole with exact
// ground truth, the library runs both procedures through its exported
// functions.
//
// Without noise markers reconstruct within about 2e-4 mm, so a length or a
// tip is good to a few micrometres: 0.01 mm and 1e-4 rad catch a wrong
// length, point or axis by orders of magnitude.
#include "VyxPositionAPI.h"
#include "support/SceneSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

using namespace vyx::sim;
using namespace vyx::test;

namespace {

constexpr double kPositionToleranceMm = 0.01;
constexpr double kRotationToleranceRad = 1e-4;

// Points as the row pointers the exported functions take.
struct PointRows {
    explicit PointRows(const std::vector<Point3>& points) {
        for (std::size_t i = 0; i < points.size() && i < 8; ++i) {
            values[i][0] = points[i].x;
            values[i][1] = points[i].y;
            values[i][2] = points[i].z;
            rows[i] = values[i];
        }
    }
    double values[8][3] = {};
    double* rows[8] = {};
};

// Runs `frames` frames of the check, collecting each; returns the last result.
T_AccuracyToolResult measure(SceneSession& s, int frames, double expectedLengthError) {
    T_AccuracyToolResult r{};
    for (int frame = 0; frame < frames; ++frame) {
        EXPECT_TRUE(s.nextFrame());
        EXPECT_EQ(Vyx_CalculateTool(s.handle, &s.markers, &r, true), RV_SUCCESS) << frame;
        EXPECT_EQ(r.ValidFlag, 1);
        EXPECT_EQ(r.PointCount, 8);
        EXPECT_NEAR(r.LengthError, expectedLengthError, kPositionToleranceMm) << frame;
    }
    return r;
}

TEST(AccuracyCheck, ATrueCertificateGivesNoLengthErrorAndTheEndsTrackLikeTools) {
    SceneSession s;
    const LengthBar bar = lengthBarScene(1.0);
    ASSERT_NO_FATAL_FAILURE(s.serve(180, bar.scene));
    PointRows certified(bar.certificate);
    ASSERT_EQ(Vyx_AccuracyToolMade(s.handle, certified.rows, 8), RV_SUCCESS);
    ASSERT_EQ(Vyx_InitAccuracyCheckTool(s.handle, "", "bar_a", "bar_b"), RV_SUCCESS);

    const T_AccuracyToolResult r = measure(s, 40, 0.0);
    EXPECT_EQ(r.CollectedCount, 40);
    EXPECT_NEAR(r.Length, bar.trueLengthMm, kPositionToleranceMm);
    EXPECT_LT(r.MaxError, kPositionToleranceMm);
    // End A's reported pose is the registered end tool's, as tracking finds it.
    const T_VyxSingleToolDataResult endA = s.findSingle("bar_a");
    ASSERT_EQ(endA.ValidFlag, 1);
    ASSERT_EQ(s.findSingle("bar_b").ValidFlag, 1);
    EXPECT_LT(distance(point(endA.Translation), point(r.Translation)), kPositionToleranceMm);
    for (int k = 0; k < 3; ++k)
        EXPECT_LT(angleBetween(axis(endA.RotationMatrix, k), axis(r.RotationMatrix, k)),
                  kRotationToleranceRad);

    float mean = -1, largest = -1;
    std::vector<float> errors(200, 0.0f);
    ASSERT_EQ(Vyx_AccuracyCheckToolCalculateError(s.handle, &mean, &largest, errors.data()),
              RV_SUCCESS);
    EXPECT_LT(largest, kPositionToleranceMm);
    EXPECT_LE(mean, largest);
    EXPECT_FALSE(std::isnan(errors[39]));
    EXPECT_TRUE(std::isnan(errors[40]));

    // A new Init starts the collection over.
    ASSERT_EQ(Vyx_InitAccuracyCheckTool(s.handle, "", "bar_a", "bar_b"), RV_SUCCESS);
    EXPECT_EQ(Vyx_AccuracyCheckToolCalculateError(s.handle, &mean, &largest, errors.data()),
              RV_FAILED);
}

TEST(AccuracyCheck, AScaledCertificateFromTheLibraryShowsTheProvokedLengthError) {
    SceneSession s;
    const double scale = 1.002;
    const LengthBar bar = lengthBarScene(scale);
    // The certificate as an eight-marker tool file.
    Scene tools;
    RigidBody certificate;
    certificate.name = "bar_certificate";
    for (const Point3& p : bar.certificate) certificate.points.push_back({p, Visibility::Both});
    tools.bodies.push_back(certificate);
    ASSERT_NO_FATAL_FAILURE(s.serve(181, bar.scene, &tools));
    ASSERT_EQ(Vyx_InitAccuracyCheckTool(s.handle, "bar_certificate", "bar_a", "bar_b"), RV_SUCCESS);

    const double provoked = bar.trueLengthMm - bar.certifiedLengthMm;  // -0.55 mm
    const T_AccuracyToolResult r = measure(s, 20, provoked);
    // Each end is 0.2 % larger on paper too: a shape error of a tenth of a
    // millimetre at most, ends about 50 mm across.
    EXPECT_GT(r.MaxError, 0.02f);
    EXPECT_LT(r.MaxError, 0.15f);

    float mean = 0, largest = 0;
    ASSERT_EQ(Vyx_AccuracyCheckToolCalculateError(s.handle, &mean, &largest, nullptr), RV_SUCCESS);
    EXPECT_NEAR(mean, std::fabs(provoked), kPositionToleranceMm);
    EXPECT_NEAR(largest, std::fabs(provoked), kPositionToleranceMm);

    // The static form on end A's true points, in the tracker frame.
    const ToolPose pose = s.truePose("lengthbar");
    const std::vector<Point3> local = toolMarkers(s.scene.bodies[0]);
    std::vector<Point3> endA;
    for (std::size_t i = 0; i < 4; ++i) endA.push_back(toMeasurement(pose, local[i]));
    PointRows seen(endA);
    T_AccuracyToolResult still{};
    ASSERT_EQ(Vyx_AccuracyCheckTool(s.handle, seen.rows, 4, &still), RV_SUCCESS);
    EXPECT_EQ(still.PointCount, 4);
    const float endAShape = *std::max_element(r.PointError, r.PointError + 4);
    EXPECT_NEAR(still.MaxError, endAShape, 1e-3);
}

TEST(ToolCoordinateRenewal, TheRenewedPoseHasTheTipAsOriginAndTheShaftAsZ) {
    SceneSession s;
    const Scene scene = tipCalibrationScene();
    ASSERT_NO_FATAL_FAILURE(s.serve(182, scene));
    const RigidBody& pointer = scene.bodies[bodyIndex(scene, "pointer")];
    ASSERT_EQ(Vyx_InitToolCoordinateRenewWithToolId(s.handle, "calibrator", "pointer"), RV_SUCCESS);
    EXPECT_EQ(Vyx_SaveToolCoordinateRenew(s.handle), RV_FAILED);

    t_ToolTipCalProInfo info{};
    int accepted = 0;
    for (int frame = 0; frame < 400 && !info.finished; ++frame) {
        ASSERT_TRUE(s.nextFrame());
        info.frameAccepted = false;
        ASSERT_EQ(Vyx_ProceedToolCoordinateRenew(s.handle, &s.markers, &info), RV_SUCCESS);
        ASSERT_TRUE(info.calibratorFound && info.toolFound) << "frame " << frame;
        accepted += info.frameAccepted ? 1 : 0;
        EXPECT_EQ(info.finished, accepted == 200);
        if (frame == 100) {  // tracking is not disturbed while frames are collected
            const T_VyxSingleToolDataResult during = s.findSingle("pointer");
            EXPECT_LT(distance(point(during.ToolTipsLocal), pointer.tip), 1e-5);
        }
    }
    ASSERT_TRUE(info.finished);
    EXPECT_FLOAT_EQ(info.progress, 1.0f);

    // Tracked in a later frame: the pose's translation is the tip, its Z axis
    // the shaft (hole axis, from the tip towards the markers), its X axis
    // towards marker 0 across the shaft.
    ASSERT_TRUE(s.nextFrame());
    const ToolPose truth = s.truePose("pointer");
    const Point3 tip = toMeasurement(truth, pointer.tip);
    const Point3 shaft = unit(minus(toMeasurement(truth, pointer.tipAxis), tip));
    const Point3 toMarker = minus(s.scene.markersAt(s.sceneFrame())[4], tip);  // pointer marker 0
    const Point3 sideways = unit(across(toMarker, shaft));
    const T_VyxSingleToolDataResult tracked = s.findSingle("pointer");
    ASSERT_EQ(tracked.ValidFlag, 1);
    const double tipError = distance(point(tracked.Translation), tip);
    const double axisError = angleBetween(axis(tracked.RotationMatrix, 2), shaft);
    EXPECT_LT(tipError, kPositionToleranceMm);
    EXPECT_LT(distance(point(tracked.TipCoordinate), tip), kPositionToleranceMm);
    EXPECT_LT(axisError, kRotationToleranceRad);
    EXPECT_LT(angleBetween(axis(tracked.RotationMatrix, 0), sideways), kRotationToleranceRad);

    // Saved through the cache writer and read back: tip (0, 0, 0), the axis
    // point 30 mm up +Z, and the same pose.
    ASSERT_EQ(Vyx_SaveToolCoordinateRenew(s.handle), RV_SUCCESS);
    T_ToolFileData saved{};
    ASSERT_EQ(Vyx_CheckToolFile(s.handle, s.toolFile("pointer").c_str(), &saved), RV_SUCCESS);
    EXPECT_LT(distance(point(saved.TipPoint), {0, 0, 0}), 1e-6);
    EXPECT_LT(distance(point(saved.TipAxisPoint), {0, 0, 30}), kPositionToleranceMm);
    ASSERT_EQ(Vyx_SetToolInfoFilePath(s.handle, s.toolDirectory.c_str(), true), RV_SUCCESS);
    const T_VyxSingleToolDataResult reloaded = s.findSingle("pointer");
    EXPECT_LT(distance(point(reloaded.Translation), point(tracked.Translation)), 1e-4);
}

}  // namespace
