// Pivot calibration over synthetic poses: the procedure's own result, its
// quality report, and the merge of the result into the tool file.
#include "calibration/PivotCalibration.h"
#include "calibration/PivotQuality.h"
#include "support/SyntheticFrames.h"
#include "tools/ToolFile.h"
#include "tools/ToolTestFiles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

const cv::Vec3d kTip{3.0, 150.0, -8.0};          // tool frame
const cv::Vec3d kPivot{40.0, -120.0, 1500.0};    // tracker frame

cv::Matx33d rotation(cv::Vec3d axis, double angle) {
    axis /= cv::norm(axis);
    const cv::Matx33d K(0, -axis[2], axis[1], axis[2], 0, -axis[0], -axis[1], axis[0], 0);
    return cv::Matx33d::eye() + std::sin(angle) * K + (1 - std::cos(angle)) * K * K;
}

// Poses of a tool swinging about the pivot: the shaft (tip to origin, -kTip
// in the tool frame) sweeps a cone of halfAngle about -Y, spinning twice as
// fast as it precesses; with halfAngle 0 it only spins about its shaft. Each
// translation gets Gaussian noise of sigma mm per axis.
std::vector<std::pair<cv::Matx33d, cv::Vec3d>> conePoses(double halfAngle, double sigma,
                                                          unsigned seed) {
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, sigma);
    const cv::Vec3d shaft = -kTip / cv::norm(kTip);
    std::vector<std::pair<cv::Matx33d, cv::Vec3d>> poses;
    for (int i = 0; i < 200; ++i) {
        const double phi = 2 * M_PI * i / 200.0;
        const cv::Matx33d R = rotation(shaft, phi) * rotation({1, 0, 0}, halfAngle) *
                              rotation(shaft, phi);
        cv::Vec3d T = kPivot - R * kTip;
        for (int k = 0; k < 3; ++k) T[k] += noise(rng);
        poses.emplace_back(R, T);
    }
    return poses;
}

T_ToolTipPivotQuality assess(const std::vector<std::pair<cv::Matx33d, cv::Vec3d>>& poses) {
    cv::Mat A(600, 6, CV_32F, cv::Scalar(0)), B(600, 1, CV_32F);
    for (int i = 0; i < 200; ++i)
        for (int r = 0; r < 3; ++r) {
            for (int c = 0; c < 3; ++c) A.at<float>(3 * i + r, c) = float(poses[i].first(r, c));
            A.at<float>(3 * i + r, 3 + r) = -1.0f;
            B.at<float>(3 * i + r) = float(poses[i].second[r]);
        }
    return assessPivot(A, B);
}

TEST(PivotCalibration, SolvesTheTipOnTheTwoHundredthPoseAndThenRefusesFrames) {
    vyx::test::PointerAndCalibrator tools;
    ToolLibrary& library = tools.library;
    ToolTipProgress shared;
    PivotCalibration pivot;
    ASSERT_EQ(pivot.init(library, shared, "nobody", false), -1);
    ASSERT_EQ(pivot.init(library, shared, "pointer", false), 0);
    EXPECT_EQ(library.toolAt(0)->tipPoints, (std::vector<float>{0, 0, 0, 0, 0, -100}));

    const auto poses = conePoses(0.5, 0.0, 1);
    std::size_t next = 0;
    int recognitionCode = 0;
    bool visible = true;
    const auto recognise = [&](const std::string& name, T_VyxToolDataResult& r) {
        EXPECT_EQ(name, "pointer");
        if (!visible) return recognitionCode;
        const auto& [R, T] = poses[next++];
        r.ValidFlag = 1;
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) r.RotationMatrix[i][j] = float(R(i, j));
            r.Translation[i] = float(T[i]);
        }
        return recognitionCode;
    };

    T_ToolTipPivotInfo info{};
    T_ToolTipPivotQuality quality{};
    EXPECT_FALSE(pivot.quality(quality));
    visible = false;
    EXPECT_EQ(pivot.proceed(library, shared, recognise, info), -1);  // not in view: not counted
    recognitionCode = 5;
    EXPECT_EQ(pivot.proceed(library, shared, recognise, info), 5);
    recognitionCode = 0;
    visible = true;
    // Completion at the 200th pose and the refusal afterwards are checked end
    // to end; here the solved points themselves.
    while (!info.finished) ASSERT_EQ(pivot.proceed(library, shared, recognise, info), 0);
    EXPECT_EQ(next, 200u);
    const std::vector<float>& tip = library.toolAt(0)->tipPoints;
    EXPECT_LT(cv::norm(cv::Vec3d(tip[0], tip[1], tip[2]) - kTip), 0.02);
    EXPECT_EQ(tip[5], -100.0f);  // the second point stays
    ASSERT_TRUE(pivot.quality(quality));
    EXPECT_LT(cv::norm(cv::Vec3d(quality.TipPoint) - kTip), 1e-3);
    EXPECT_LT(cv::norm(cv::Vec3d(quality.PivotPoint) - kPivot), 1e-3);
    ASSERT_EQ(pivot.init(library, shared, "pointer", true), 0);
    EXPECT_FALSE(pivot.quality(quality));
    EXPECT_EQ(library.toolAt(0)->tipPoints, std::vector<float>(6, 0.0f));
}

TEST(PivotQuality, VerdictFollowsTheMotionAndTheResiduals) {
    struct Case {
        const char* name;
        double halfAngle, sigma;
        E_PivotVerdict verdict;
    } cases[] = {
        {"30 degree cone", 30 * M_PI / 180, 0.05, PivotVerdict_Good},
        {"5 degree cone", 5 * M_PI / 180, 0.05, PivotVerdict_TooLittleRotation},
        {"spin about the shaft only", 0.0, 0.0, PivotVerdict_Singular},
        {"slipping tip", 30 * M_PI / 180, 1.5, PivotVerdict_ResidualTooHigh},
    };
    for (const Case& c : cases) {
        const T_ToolTipPivotQuality q = assess(conePoses(c.halfAngle, c.sigma, 7));
        EXPECT_EQ(q.Verdict, c.verdict) << c.name;
        if (c.halfAngle > 0 && c.sigma < 0.1) {
            EXPECT_NEAR(q.ShaftSpreadDeg, 2 * c.halfAngle * 180 / M_PI, 0.5) << c.name;
        }
        EXPECT_GE(q.AngularSpreadDeg, q.ShaftSpreadDeg) << c.name;
    }
}

TEST(PivotQuality, PredictedPrecisionMatchesTheScatterOfTheTip) {
    // Noise of 0.3 mm on every translation: the tip's RMS error over many
    // trials must agree with the precision predicted from one trial's residuals.
    double squares = 0.0, predicted = 0.0;
    int outliers = 0;
    constexpr int kTrials = 40;
    for (int trial = 0; trial < kTrials; ++trial) {
        const T_ToolTipPivotQuality q = assess(conePoses(20 * M_PI / 180, 0.3, 100 + trial));
        const double e = cv::norm(cv::Vec3d(q.TipPoint) - kTip);
        squares += e * e;
        predicted += q.TipPrecision;
        outliers += q.OutlierCount;
        EXPECT_NEAR(q.RmsResidual, 0.3 * std::sqrt(3.0), 0.1);
    }
    const double measured = std::sqrt(squares / kTrials);
    predicted /= kTrials;
    EXPECT_NEAR(measured / predicted, 1.0, 0.25);
    EXPECT_LT(outliers, kTrials);  // Gaussian residuals rarely pass 3 RMS
}

TEST(PivotSave, MergesTheResultIntoTheFileByMode) {
    const std::string head = "probe\nT\n4\n0 0 0 15\n50 0 0 15\n0 80 0 15\n0 0 120 15\n";
    struct Case {
        int mode;
        const char* fileTip;
        const char* expected;
    } cases[] = {
        {1, "2\n9 9 9\n7 7 7\n", "2\n1.000000 2.000000 3.000000\n7.000000 7.000000 7.000000\n"},
        {1, "2\n9 9 9\n0 0 0\n", "2\n1.000000 2.000000 3.000000\n4.000000 5.000000 6.000000\n"},
        {2, "2\n9 9 9\n7 7 7\n", "2\n9.000000 9.000000 9.000000\n1.000000 2.000000 3.000000\n"},
        {2, "2\n0 0 0\n7 7 7\n", "2\n1.000000 2.000000 3.000000\n4.000000 5.000000 6.000000\n"},
        {2, "2\nx 0 0\n7 7 7\n", "2\nnan 0.000000 0.000000\n1.000000 2.000000 3.000000\n"},
        {3, "2\n9 9 9\n7 7 7\n", "2\n"},
    };
    ScratchDirectory dir;
    T_ToolPtMatchInfo tool;
    tool.filePath = dir.file("probe.vyxtool");
    tool.markerCount = 4;
    tool.tipPairCount = 1;
    tool.tipPoints = {1, 2, 3, 4, 5, 6};
    for (const Case& c : cases) {
        writeFile(tool.filePath, head + c.fileTip);
        ASSERT_TRUE(rewritePivotTipSection(tool, c.mode));
        EXPECT_EQ(readFile(tool.filePath), head + c.expected) << "mode " << c.mode << ", " << c.fileTip;
    }
    writeFile(tool.filePath, "probe\nT\n4\n");  // shorter than its head: left alone
    EXPECT_FALSE(rewritePivotTipSection(tool, 1));
    EXPECT_EQ(readFile(tool.filePath), "probe\nT\n4\n");
}

}  // namespace
