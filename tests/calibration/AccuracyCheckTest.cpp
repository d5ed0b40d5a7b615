// The accuracy check on hand-made artefacts: the certified geometry, the
// static comparison, the per-frame measurement on synthetic frames and the
// collected length errors; bad input changes nothing.
#include "calibration/AccuracyCheck.h"
#include "support/SyntheticFrames.h"
#include "tools/ToolTestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

using vyx::test::markerFrame;

namespace {

// A bar about 300 mm long along X, four markers at each end, slightly off a
// plane; inter-marker distances 48 to 95 mm, no two of either end within
// 2.9 mm of each other, so that the ends are told apart.
const std::vector<cv::Vec3d> kCertificate{
    {40, 10, 0},   {-25, 35, 5},  {-30, -30, 0},  {15, -45, -5},
    {343, 4, 0},   {298, 38, 0},  {251, -18, 6},  {324, -43, 0}};

cv::Vec3d centroid(const std::vector<cv::Vec3d>& p, std::size_t first) {
    return (p[first] + p[first + 1] + p[first + 2] + p[first + 3]) / 4.0;
}

const double kTrueLength = cv::norm(centroid(kCertificate, 0) - centroid(kCertificate, 4));

// The certificate turned by `angle` about (1, 2, 2) and placed 1.5 m ahead.
std::vector<cv::Vec3d> placed(const std::vector<cv::Vec3d>& points, double angle) {
    const cv::Vec3d u(1.0 / 3, 2.0 / 3, 2.0 / 3);
    const double c = std::cos(angle), s = std::sin(angle);
    const cv::Matx33d K(0, -u[2], u[1], u[2], 0, -u[0], -u[1], u[0], 0);
    const cv::Matx33d R = cv::Matx33d::eye() + s * K + (1 - c) * K * K;
    std::vector<cv::Vec3d> out;
    for (const cv::Vec3d& p : points) out.push_back(R * p + cv::Vec3d(-50, 30, 1500));
    return out;
}

std::vector<const double*> rowsOf(const std::vector<cv::Vec3d>& points) {
    std::vector<const double*> rows;
    for (const cv::Vec3d& p : points) rows.push_back(p.val);
    return rows;
}

TEST(AccuracyArtefact, KeepsTheCertifiedLengthAndRefusesImpossibleGeometry) {
    AccuracyArtefact a;
    ASSERT_TRUE(makeAccuracyArtefact(kCertificate.data(), 8, a));
    EXPECT_NEAR(a.certifiedLengthMm, kTrueLength, 1e-12);
    // The artefact frame: origin at end A's centroid, X from end B's towards
    // it (as far as X can go in end A's plane, which is tilted a little).
    // Each end's shape is checked by the static form's point errors.
    EXPECT_LT(cv::norm(a.frameT - centroid(kCertificate, 0)), 1e-5);
    const cv::Vec3d x = centroid(kCertificate, 0) - centroid(kCertificate, 4);
    EXPECT_GT((a.frameR * x)[0], 0.99 * kTrueLength);

    std::vector<cv::Vec3d> notFinite = kCertificate, oneEnd = kCertificate;
    notFinite[5][1] = std::nan("");
    for (int i = 4; i < 8; ++i) oneEnd[i] = kCertificate[i - 4];  // both ends in one place
    EXPECT_FALSE(makeAccuracyArtefact(kCertificate.data(), 7, a));
    EXPECT_FALSE(makeAccuracyArtefact(notFinite.data(), 8, a));
    EXPECT_FALSE(makeAccuracyArtefact(oneEnd.data(), 8, a));
}

TEST(AccuracyCheck, BadInputIsRefusedWithoutChangingTheState) {
    AccuracyCheck check;
    T_AccuracyToolResult result{};
    std::vector<const double*> rows = rowsOf(kCertificate);
    EXPECT_EQ(check.checkPoints(rows.data(), 8, result), -1);  // no artefact yet
    EXPECT_EQ(check.defineArtefact(rows.data(), 7), -1);
    EXPECT_EQ(check.defineArtefact(nullptr, 8), -1);
    rows[6] = nullptr;
    EXPECT_EQ(check.defineArtefact(rows.data(), 8), -1);
    EXPECT_FALSE(check.hasArtefact());

    rows = rowsOf(kCertificate);
    ASSERT_EQ(check.defineArtefact(rows.data(), 8), 0);
    ASSERT_EQ(check.measureFrame(markerFrame(placed(kCertificate, 0.3)), result, true, 1.5f), 0);
    const std::vector<cv::Vec3d> shifted = placed(kCertificate, 0.0);
    EXPECT_EQ(check.defineArtefact(rowsOf(shifted).data(), 6), -1);
    EXPECT_EQ(check.artefact()->certified[0], kCertificate[0]);
    EXPECT_EQ(check.collectedCount(), 1u);

    T_AccuracyToolResult untouched{};
    untouched.MeanError = 42.0f;
    for (int count : {3, 5, 9}) EXPECT_EQ(check.checkPoints(rows.data(), count, untouched), -1);
    EXPECT_EQ(untouched.MeanError, 42.0f);
}

TEST(AccuracyCheck, StaticFormComparesEndAOrTheWholeArtefact) {
    AccuracyCheck check;
    ASSERT_EQ(check.defineArtefact(rowsOf(kCertificate).data(), 8), 0);
    const std::vector<cv::Vec3d> seen = placed(kCertificate, 1.1);
    T_AccuracyToolResult r{};
    ASSERT_EQ(check.checkPoints(rowsOf(seen).data(), 8, r), 0);
    EXPECT_EQ(r.ValidFlag, 1);
    EXPECT_EQ(r.PointCount, 8);
    EXPECT_LT(r.MaxError, 1e-4f);
    EXPECT_NEAR(r.Length, kTrueLength, 1e-4);
    EXPECT_NEAR(r.LengthError, 0.0, 1e-4);
    // End A's pose carries its own frame's origin onto its measured centroid.
    EXPECT_LT(cv::norm(cv::Vec3d(r.Translation[0], r.Translation[1], r.Translation[2]) -
                       centroid(seen, 0)),
              1e-3);

    // A bar 0.1 % longer than certified, one marker of end A 0.3 mm off.
    std::vector<cv::Vec3d> longer;
    for (const cv::Vec3d& p : kCertificate) longer.push_back(p * 1.001);
    longer[2] += cv::Vec3d(0, 0, 0.3);
    ASSERT_EQ(check.checkPoints(rowsOf(placed(longer, 0.4)).data(), 8, r), 0);
    EXPECT_NEAR(r.LengthError, 0.001 * kTrueLength, 0.3 / 4 + 1e-3);
    EXPECT_GT(r.PointError[2], 0.1f);
    EXPECT_EQ(r.MaxError, *std::max_element(r.PointError, r.PointError + 4));
    EXPECT_LT(r.PointError[5], 0.1f);  // end B only carries the scale

    ASSERT_EQ(check.checkPoints(rowsOf(seen).data(), 4, r), 0);
    EXPECT_EQ(r.PointCount, 4);
    EXPECT_EQ(r.Length, 0.0f);
    EXPECT_EQ(r.PointError[4], 0.0f);
}

TEST(AccuracyCheck, FramesAreMeasuredAndTheirLengthErrorsCollected) {
    AccuracyCheck check;
    ASSERT_EQ(check.defineArtefact(rowsOf(kCertificate).data(), 8), 0);
    float mean = -1.0f, largest = -1.0f;
    EXPECT_EQ(check.collectedErrors(mean, largest, nullptr), -1);
    EXPECT_EQ(mean, -1.0f);

    // The bar 0.05 % longer than certified, among two stray markers.
    std::vector<cv::Vec3d> longer;
    for (const cv::Vec3d& p : kCertificate) longer.push_back(p * 1.0005);
    T_AccuracyToolResult r{};
    for (int k = 0; k < 203; ++k) {
        std::vector<cv::Vec3d> points = placed(longer, 0.01 * k);
        points.insert(points.begin() + 3, cv::Vec3d(500, -200, 1400));
        points.push_back(cv::Vec3d(-400, 100, 1700));
        ASSERT_EQ(check.measureFrame(markerFrame(points), r, k % 2 == 0, 1.5f), 0) << k;
        ASSERT_EQ(r.ValidFlag, 1);
        ASSERT_NEAR(r.LengthError, 0.0005 * kTrueLength, 1e-4);
    }
    EXPECT_EQ(r.CollectedCount, 102);  // every other frame

    std::vector<cv::Vec3d> onlyEndA = placed(kCertificate, 0.0);
    onlyEndA.resize(4);
    for (int k = 0; k < 5; ++k) onlyEndA.push_back(cv::Vec3d(100.0 * k, 300, 1600));
    r.ValidFlag = 1;
    EXPECT_EQ(check.measureFrame(markerFrame(onlyEndA), r, true, 1.5f), -1);
    EXPECT_EQ(r.ValidFlag, 0);

    std::vector<float> errors(200, 0.0f);
    ASSERT_EQ(check.collectedErrors(mean, largest, errors.data()), 0);
    EXPECT_NEAR(mean, 0.0005 * kTrueLength, 1e-4);
    EXPECT_NEAR(largest, 0.0005 * kTrueLength, 1e-4);
    EXPECT_NEAR(errors[101], 0.0005 * kTrueLength, 1e-4);
    EXPECT_TRUE(std::isnan(errors[102]) && std::isnan(errors[199]));

    // Collection stops at 200.
    for (int k = 0; k < 100; ++k)
        ASSERT_EQ(check.measureFrame(markerFrame(placed(kCertificate, 0.02 * k)), r, true, 1.5f),
                  0);
    EXPECT_EQ(r.CollectedCount, 200);
}

TEST(AccuracyCheckInit, TakesTheArtefactFromTheLibraryAndRegistersBothEnds) {
    ScratchDirectory dir;
    std::string text = "bar\nT\n8\n";
    for (const cv::Vec3d& p : kCertificate)
        text += std::to_string(p[0]) + " " + std::to_string(p[1]) + " " + std::to_string(p[2]) +
                " 255\n";
    writeFile(dir.file("bar.vyxtool"), text + "2\n0 0 0\n0 0 0\n");
    writeFile(dir.file("pointer.vyxtool"), fourMarkerToolText("pointer"));
    ToolLibrary library;
    library.AddFormatToolInfoFromFile(dir.file("bar.vyxtool").c_str());
    library.AddFormatToolInfoFromFile(dir.file("pointer.vyxtool").c_str());
    AccuracyCheck check;
    ASSERT_EQ(library.count(), 2u);
    for (const auto& names : std::vector<std::vector<const char*>>{
             {"pointer", "a", "b"},   // not eight markers
             {"nobody", "a", "b"},    // unknown
             {"", "a", "b"},          // no artefact in force
             {"bar", "a", "a"},       // the same name twice
             {"bar", "", "b"},        // empty
             {"bar", "a b", "c"},     // white space
             {"bar", "pointer", "b"}, // a tool with a file
         })
        EXPECT_EQ(check.init(library, names[0], names[1], names[2]), -1) << names[1];
    EXPECT_FALSE(check.hasArtefact());
    EXPECT_EQ(library.count(), 2u);

    ASSERT_EQ(check.init(library, "bar", "bar_a", "bar_b"), 0);
    ASSERT_EQ(library.count(), 4u);
    const T_ToolPtMatchInfo* endB = library.toolAt(3);
    EXPECT_EQ(endB->toolName, "bar_b");
    EXPECT_EQ(endB->markerCount, 4);
    EXPECT_TRUE(endB->filePath.empty());
    EXPECT_NEAR(check.artefact()->certifiedLengthMm, kTrueLength, 1e-4);

    // A second Init replaces the registered ends in place.
    ASSERT_EQ(check.init(library, "", "bar_a", "bar_b"), 0);
    EXPECT_EQ(library.count(), 4u);
    EXPECT_EQ(library.findLastToolIndex("bar_a"), 2);
}

}  // namespace
