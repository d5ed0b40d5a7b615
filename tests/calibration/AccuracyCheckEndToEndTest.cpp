// The accuracy check end to end: the virtual tracker plays a length bar with
// exact ground truth, the library runs the check through its exported
// functions, with the artefact given by the host or read from the library.
//
// Without noise markers reconstruct within about 2e-4 mm, so a length is good
// to a few micrometres: 0.01 mm and 1e-4 rad catch a wrong length, point or
// axis by orders of magnitude.
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

TEST(AccuracyCheck, TheLengthErrorIsTheCertificatesAndTheEndsTrackLikeTools) {
    SceneSession s;
    const LengthBar bar = lengthBarScene(1.002);
    // A certificate 0.2 % too long as an eight-marker tool file.
    Scene tools;
    RigidBody certificate;
    certificate.name = "bar_certificate";
    for (const Point3& p : bar.certificate) certificate.points.push_back({p, Visibility::Both});
    tools.bodies.push_back(certificate);
    ASSERT_NO_FATAL_FAILURE(s.serve(180, bar.scene, &tools));
    float mean = -1, largest = -1;
    std::vector<float> errors(200, 0.0f);

    // The true geometry given by the host: no length error.
    PointRows trueCertificate(toolMarkers(bar.scene.bodies[0]));
    ASSERT_EQ(Vyx_AccuracyToolMade(s.handle, trueCertificate.rows, 8), RV_SUCCESS);
    ASSERT_EQ(Vyx_InitAccuracyCheckTool(s.handle, "", "bar_a", "bar_b"), RV_SUCCESS);
    T_AccuracyToolResult r = measure(s, 40, 0.0);
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
    ASSERT_EQ(Vyx_AccuracyCheckToolCalculateError(s.handle, &mean, &largest, errors.data()),
              RV_SUCCESS);
    EXPECT_LT(largest, kPositionToleranceMm);
    EXPECT_LE(mean, largest);
    EXPECT_FALSE(std::isnan(errors[39]));
    EXPECT_TRUE(std::isnan(errors[40]));

    // A new Init starts the collection over, whether it keeps the artefact in
    // force or takes the library's.
    for (const char* artefact : {"", "bar_certificate"}) {
        ASSERT_EQ(Vyx_InitAccuracyCheckTool(s.handle, artefact, "bar_a", "bar_b"), RV_SUCCESS);
        EXPECT_EQ(Vyx_AccuracyCheckToolCalculateError(s.handle, &mean, &largest, errors.data()),
                  RV_FAILED);
    }
    const double provoked = bar.trueLengthMm - bar.certifiedLengthMm;  // -0.55 mm
    r = measure(s, 20, provoked);
    // Each end is 0.2 % larger on paper too: a shape error of a tenth of a
    // millimetre at most, ends about 50 mm across.
    EXPECT_GT(r.MaxError, 0.02f);
    EXPECT_LT(r.MaxError, 0.15f);
    ASSERT_EQ(Vyx_AccuracyCheckToolCalculateError(s.handle, &mean, &largest, nullptr), RV_SUCCESS);
    EXPECT_NEAR(mean, std::fabs(provoked), kPositionToleranceMm);
    EXPECT_NEAR(largest, std::fabs(provoked), kPositionToleranceMm);

    // The static form on end A's true points, in the tracker frame.
    const ToolPose pose = s.truePose("lengthbar");
    const std::vector<Point3> local = toolMarkers(s.scene.bodies[0]);
    std::vector<Point3> endAPoints;
    for (std::size_t i = 0; i < 4; ++i) endAPoints.push_back(toMeasurement(pose, local[i]));
    PointRows seen(endAPoints);
    T_AccuracyToolResult still{};
    ASSERT_EQ(Vyx_AccuracyCheckTool(s.handle, seen.rows, 4, &still), RV_SUCCESS);
    EXPECT_EQ(still.PointCount, 4);
    EXPECT_NEAR(still.MaxError, *std::max_element(r.PointError, r.PointError + 4), 1e-3);
}

}  // namespace
