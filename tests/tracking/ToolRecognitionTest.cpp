#include "tracking/ToolRecognition.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <random>

namespace {

using ToolList = std::list<std::unique_ptr<T_ToolPtMatchInfo>>;

// Four-marker shapes without a distance-preserving relabelling, mm, tool frame.
const std::vector<cv::Vec3f> kProbe{{0, 0, 0}, {50, 0, 0}, {0, 80, 0}, {30, 40, 60}};
const std::vector<cv::Vec3f> kCalibrator{{0, 0, 0}, {-70, 10, 0}, {-20, -65, 5}, {10, 30, 45}};
const cv::Vec3f kTip{0, 0, -150}, kTipAxis{0, 0, -100};

std::unique_ptr<T_ToolPtMatchInfo> makeTool(const std::string& name,
                                            const std::vector<cv::Vec3f>& markers,
                                            char kind = 'T') {
    auto tool = std::make_unique<T_ToolPtMatchInfo>();
    const int n = static_cast<int>(markers.size());
    tool->toolName = name;
    tool->toolKind = kind;
    tool->markerCount = n;
    for (const cv::Vec3f& m : markers)
        tool->markerPositions.insert(tool->markerPositions.end(), m.val, m.val + 3);
    tool->markerPositionsCopy = tool->markerPositions;
    tool->markerMasks.assign(n, (1 << n) - 1);
    tool->distanceTable = cv::Mat::zeros(n, n, CV_32F);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j)
            tool->distanceTable.at<float>(i, j) = float(cv::norm(markers[i] - markers[j]));
    }
    tool->tipPairCount = 1;
    tool->tipPoints = {kTip[0], kTip[1], kTip[2], kTipAxis[0], kTipAxis[1], kTipAxis[2]};
    return tool;
}

struct Pose {
    cv::Vec3d rotationVector;
    cv::Matx33d R;
    cv::Vec3d T;
    cv::Vec3d apply(const cv::Vec3f& p) const { return R * cv::Vec3d(p) + T; }
};

Pose makePose(const cv::Vec3d& rotationVector, const cv::Vec3d& T) {
    const double angle = cv::norm(rotationVector);
    const cv::Vec3d u = rotationVector / angle;
    const cv::Matx33d K(0, -u[2], u[1], u[2], 0, -u[0], -u[1], u[0], 0);
    const cv::Matx33d R = cv::Matx33d::eye() + std::sin(angle) * K + (1 - std::cos(angle)) * K * K;
    return {rotationVector, R, T};
}

Pose randomPose(std::mt19937& rng) {
    std::normal_distribution<double> gauss;
    std::uniform_real_distribution<double> angle(0.1, 3.0), offset(-150, 150);
    cv::Vec3d axis(gauss(rng), gauss(rng), gauss(rng));
    return makePose(axis / cv::norm(axis) * angle(rng),
                    {offset(rng), offset(rng), -1200 + offset(rng)});
}

// Markers of one frame; build() shuffles them into a T_MarkerInfo.
struct Scene {
    std::vector<cv::Vec3d> points;
    // Places a tool's markers (all but `hidden`), with Gaussian noise; returns
    // the points' indices in the scene, -1 for the hidden one.
    std::vector<int> place(const std::vector<cv::Vec3f>& markers, const Pose& pose,
                           std::mt19937& rng, double noiseMm = 0, int hidden = -1) {
        std::normal_distribution<double> noise(0, noiseMm > 0 ? noiseMm : 1);
        std::vector<int> indices;
        for (int k = 0; k < int(markers.size()); ++k) {
            if (k == hidden) {
                indices.push_back(-1);
                continue;
            }
            cv::Vec3d p = pose.apply(markers[k]);
            if (noiseMm > 0) p += cv::Vec3d(noise(rng), noise(rng), noise(rng));
            indices.push_back(int(points.size()));
            points.push_back(p);
        }
        return indices;
    }
    // Stray markers at least 150 mm beside the tools (which lie within
    // x < 750): no distance from a tool marker to them matches a tool distance.
    void addStrays(int count, std::mt19937& rng) {
        std::uniform_real_distribution<double> x(900, 1200), yz(-300, 300);
        for (int k = 0; k < count; ++k) points.push_back({x(rng), yz(rng), -1200 + yz(rng)});
    }
    // order[i] is the frame index of scene point i.
    T_MarkerInfo build(std::mt19937& rng, std::vector<int>& order) const {
        T_MarkerInfo frame{};
        order.resize(points.size());
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), rng);
        frame.MarkerNumber = uint32_t(points.size());
        for (size_t i = 0; i < points.size() && i < VYX_MAX_MARKERS; ++i) {
            for (int c = 0; c < 3; ++c) frame.MarkerCoordinate[order[i]][c] = points[i][c];
        }
        return frame;
    }
};

// Angle of R_a^T R_b, radians.
double rotationAngleBetween(const float (*reported)[3], const cv::Matx33d& truth) {
    cv::Matx33d R;
    for (int k = 0; k < 9; ++k) R.val[k] = reported[k / 3][k % 3];
    const cv::Matx33d D = R.t() * truth;
    // atan2 of sine and cosine stays accurate near 0, where acos does not.
    const cv::Vec3d s(D(2, 1) - D(1, 2), D(0, 2) - D(2, 0), D(1, 0) - D(0, 1));
    return std::atan2(cv::norm(s) / 2, (cv::trace(D) - 1) / 2);
}

double distance(const float* a, const cv::Vec3d& b) {
    return cv::norm(cv::Vec3d(a[0], a[1], a[2]) - b);
}

cv::Mat observedOf(const T_MarkerInfo& frame) {
    cv::Mat m(int(frame.MarkerNumber), 3, CV_32F);
    for (int i = 0; i < m.rows; ++i) {
        for (int c = 0; c < 3; ++c) m.at<float>(i, c) = float(frame.MarkerCoordinate[i][c]);
    }
    return m;
}

// A tool library with its settings and chain storage, and the caller's first record.
struct Search {
    ToolList tools;
    ResultChain chain;
    RecognitionSettings settings;
    T_VyxToolDataResult first{};
    int run(const T_MarkerInfo& frame, const std::vector<std::string>& names, int minMatch = 0) {
        return findNamedTools(tools, frame, names, &first, minMatch, settings, chain);
    }
};

}  // namespace

TEST(ToolRecognition, RecoversPoseTipsAndMarkerIndicesOfToolsAmongStrayMarkers) {
    std::mt19937 rng(21);
    Search search;
    search.tools.push_back(makeTool("probe", kProbe));
    search.tools.push_back(makeTool("calibrator", kCalibrator, 'C'));
    for (int trial = 0; trial < 30; ++trial) {
        const Pose probePose = randomPose(rng);
        Pose calibratorPose = randomPose(rng);
        calibratorPose.T[0] += 500;
        Scene scene;
        const std::vector<int> probeAt = scene.place(kProbe, probePose, rng);
        const std::vector<int> calibratorAt = scene.place(kCalibrator, calibratorPose, rng);
        scene.addStrays(20, rng);
        std::vector<int> order;
        const T_MarkerInfo frame = scene.build(rng, order);

        ASSERT_EQ(search.run(frame, {"calibrator", "probe"}), 0);
        const T_VyxToolDataResult* results[] = {&search.first, search.first.next};
        ASSERT_NE(results[1], nullptr);
        const Pose* poses[] = {&calibratorPose, &probePose};
        const std::vector<int>* placed[] = {&calibratorAt, &probeAt};
        for (int t = 0; t < 2; ++t) {
            const T_VyxToolDataResult& r = *results[t];
            ASSERT_EQ(r.ValidFlag, 1) << "trial " << trial << " tool " << t;
            EXPECT_STREQ(r.ToolName, t == 0 ? "calibrator" : "probe");
            EXPECT_EQ(r.ToolType, t == 0 ? 1 : 0);
            EXPECT_LT(rotationAngleBetween(r.RotationMatrix, poses[t]->R), 1e-4);
            EXPECT_LT(distance(r.Translation, poses[t]->T), 0.01);
            EXPECT_LT(distance(r.OriginCoordinate, poses[t]->T), 0.01);
            EXPECT_LT(distance(r.TipCoordinate, poses[t]->apply(kTip)), 0.01);
            EXPECT_LT(distance(r.TipAxisCoordinate, poses[t]->apply(kTipAxis)), 0.01);
            EXPECT_EQ(cv::Vec3f(r.ToolTipsLocal[3], r.ToolTipsLocal[4], r.ToolTipsLocal[5]),
                      kTipAxis);
            EXPECT_LT(distance(r.RotationVector, poses[t]->rotationVector), 1e-4);
            const double half = cv::norm(poses[t]->rotationVector) / 2;
            const cv::Vec3d axis = poses[t]->rotationVector / (2 * half);
            EXPECT_NEAR(r.Quaternion[0], std::cos(half), 1e-4);
            EXPECT_LT(distance(r.Quaternion + 1, axis * std::sin(half)), 1e-4);
            EXPECT_LT(r.MeanError, 0.01);
            EXPECT_LT(r.ErrorSpread, 0.01);
            ASSERT_EQ(r.MatchedMarkerCount, 4);
            for (int m = 0; m < 4; ++m) EXPECT_EQ(r.MatchedMarkerIndex[m], order[(*placed[t])[m]]);
        }
        // The search ends with an empty record after the last found tool.
        EXPECT_EQ(results[1]->next->ValidFlag, 0);
        EXPECT_EQ(results[1]->next->next, nullptr);
    }
}

TEST(ToolRecognition, InverseDirectionReportsTheTrackerToToolTransform) {
    std::mt19937 rng(22);
    Search search;
    search.tools.push_back(makeTool("probe", kProbe));
    search.settings.direction = RTDirection_TrackerToTool;
    const Pose pose = randomPose(rng);
    Scene scene;
    scene.place(kProbe, pose, rng);
    std::vector<int> order;
    search.run(scene.build(rng, order), {"probe"});
    ASSERT_EQ(search.first.ValidFlag, 1);
    EXPECT_LT(rotationAngleBetween(search.first.RotationMatrix, pose.R.t()), 1e-4);
    EXPECT_LT(distance(search.first.Translation, -(pose.R.t() * pose.T)), 0.01);
}

TEST(ToolRecognition, NoisyMarkersGiveATipErrorOfTheOrderOfTheNoise) {
    std::mt19937 rng(23);
    Search search;
    search.tools.push_back(makeTool("probe", kProbe));
    constexpr int kTrials = 500;
    double squares = 0;
    for (int trial = 0; trial < kTrials; ++trial) {
        const Pose pose = randomPose(rng);
        Scene scene;
        scene.place(kProbe, pose, rng, 0.1);
        scene.addStrays(10, rng);
        std::vector<int> order;
        search.run(scene.build(rng, order), {"probe"});
        ASSERT_EQ(search.first.ValidFlag, 1) << "trial " << trial;
        squares += std::pow(distance(search.first.TipCoordinate, pose.apply(kTip)), 2);
    }
    const double rms = std::sqrt(squares / kTrials);
    std::printf("RMS tip error, 0.1 mm marker noise, tip 150 mm below the markers: %.3f mm\n", rms);
    // The tip sits well outside the marker spread, so the rotation error is
    // amplified; it still stays within a few times the marker noise.
    EXPECT_GT(rms, 0.02);
    EXPECT_LT(rms, 0.6);
}

// A four-marker tool with one marker hidden shows three points. Matching
// starts at the threshold K - 1 with K = min(4, usable points) and demands
// threshold + 1 pairs that each agree with threshold others:
//  * alone (3 points): K = 3, the first sweep runs at threshold 2 and the
//    three visible markers satisfy it, for minMatch 0 and 3 alike (the first
//    sweep is always made, and minMatch 3 does not exceed K);
//  * among other markers: K = 4, the first sweep demands 4 pairs and fails.
//    minMatch 0 makes that single sweep only, and minMatch 3 stops before
//    threshold 2, so neither finds the tool; only a minMatch of 1 or 2 (open to
//    internal callers, refused by the exported calls) goes on to threshold 2.
TEST(ToolRecognition, HiddenMarkerIsFoundAloneButNotAmongOtherMarkers) {
    std::mt19937 rng(24);
    struct Case {
        int strays, minMatch;
        bool found;
    };
    const Case cases[] = {
        {0, 0, true}, {0, 3, true}, {12, 0, false}, {12, 3, false}, {12, 2, true}};
    for (const Case& c : cases) {
        Search search;
        search.tools.push_back(makeTool("probe", kProbe));
        const Pose pose = randomPose(rng);
        Scene scene;
        const std::vector<int> placed = scene.place(kProbe, pose, rng, 0, 2);
        scene.addStrays(c.strays, rng);
        std::vector<int> order;
        search.run(scene.build(rng, order), {"probe"}, c.minMatch);
        const T_VyxToolDataResult& r = search.first;
        ASSERT_EQ(r.ValidFlag, c.found ? 1 : 0) << c.strays << " strays, minMatch " << c.minMatch;
        if (!c.found) continue;
        EXPECT_LT(distance(r.TipCoordinate, pose.apply(kTip)), 0.01);
        ASSERT_EQ(r.MatchedMarkerCount, 4);
        for (int m = 0; m < 4; ++m)
            EXPECT_EQ(r.MatchedMarkerIndex[m], m == 2 ? -1 : order[placed[m]]);
    }
}

TEST(ToolSearch, GivesEachMarkerToTheFirstNamedToolAndSkipsUnknownNames) {
    std::mt19937 rng(25);
    Search search;
    search.tools.push_back(makeTool("probe", kProbe));
    search.tools.push_back(makeTool("calibrator", kCalibrator));
    search.tools.push_back(makeTool("twin", kProbe));  // same shape as the probe
    Pose calibratorPose = randomPose(rng);
    calibratorPose.T[0] += 500;
    Scene scene;
    scene.place(kProbe, randomPose(rng), rng);
    scene.place(kCalibrator, calibratorPose, rng);
    scene.addStrays(6, rng);
    std::vector<int> order;
    const T_MarkerInfo frame = scene.build(rng, order);

    // The twin, named before the probe, takes the probe's markers and leaves
    // none to the probe; the unknown name gets no record.
    search.run(frame, {"calibrator", "nobody", "twin", "probe", "twin"});
    ASSERT_EQ(search.chain.size(), 2u);
    EXPECT_STREQ(search.first.ToolName, "calibrator");
    ASSERT_EQ(search.first.next->ValidFlag, 1);
    EXPECT_STREQ(search.first.next->ToolName, "twin");
    EXPECT_EQ(search.first.next->next->ValidFlag, 0);

    // All library tools in list order: the probe takes the markers from its twin.
    ASSERT_EQ(findAllTools(search.tools, frame, &search.first, 0, search.settings, search.chain),
              0);
    EXPECT_STREQ(search.first.ToolName, "probe");
    EXPECT_STREQ(search.first.next->ToolName, "calibrator");
    EXPECT_EQ(search.first.next->next->ValidFlag, 0);
    EXPECT_EQ(search.first.next->next->next, nullptr);

    // With fewer than three markers left after a found tool the search ends.
    Scene small;
    small.place(kProbe, randomPose(rng), rng);
    small.addStrays(2, rng);
    search.run(small.build(rng, order), {"probe", "calibrator"});
    EXPECT_EQ(search.first.ValidFlag, 1);
    EXPECT_EQ(search.first.next, nullptr);
}

TEST(ToolSearch, FramesOutsideThreeTo200MarkersAndAnEmptyLibraryLeaveTheResultAlone) {
    std::mt19937 rng(26);
    Search search;
    search.tools.push_back(makeTool("probe", kProbe));
    Scene scene;
    scene.place(kProbe, randomPose(rng), rng);
    std::vector<int> order;
    T_MarkerInfo frame = scene.build(rng, order);
    for (uint32_t count : {2u, 201u}) {
        frame.MarkerNumber = count;
        search.first.ValidFlag = 7;
        EXPECT_EQ(search.run(frame, {"probe"}), 0);
        EXPECT_EQ(search.first.ValidFlag, 7) << count;
    }
    frame.MarkerNumber = 4;
    ToolList empty;
    EXPECT_EQ(
        findNamedTools(empty, frame, {"probe"}, &search.first, 0, search.settings, search.chain),
        0);
    EXPECT_EQ(findAllTools(empty, frame, &search.first, 0, search.settings, search.chain), -1);
    EXPECT_EQ(search.first.ValidFlag, 7);
}

TEST(ToolSearch, OutlierRejectionDropsADisplacedMarkerOnlyWhenEnabled) {
    const std::vector<cv::Vec3f> shape{
        {0, 0, 0}, {60, 0, 0}, {0, 90, 0}, {40, 50, 30}, {-30, 40, 70}};
    std::mt19937 rng(27);
    const Pose pose = randomPose(rng);
    Scene scene;
    scene.place(shape, pose, rng);
    scene.points[3] += cv::Vec3d(1.2, 0, 0);  // within the 1.5 mm tolerance
    std::vector<int> order;
    const T_MarkerInfo frame = scene.build(rng, order);

    float meanError[2];
    for (bool optimize : {false, true}) {
        Search search;
        search.tools.push_back(makeTool("five", shape));
        search.settings.pointMatchOptimize = optimize;
        search.run(frame, {"five"});
        const T_VyxToolDataResult& r = search.first;
        ASSERT_EQ(r.ValidFlag, 1);
        meanError[optimize] = r.MeanError;
        EXPECT_EQ(r.MatchedMarkerIndex[3], order[3]);  // matched either way
        const std::vector<T_MatchMarkIdx>& pairs = search.tools.front()->pairs;
        const bool used = std::any_of(pairs.begin(), pairs.end(), [](const T_MatchMarkIdx& p) {
            return p.ToolMarkerIndex == 3;
        });
        EXPECT_EQ(used, !optimize);
        if (!optimize) {
            EXPECT_EQ(pairs.size(), 5u);
        }
        if (optimize) {
            EXPECT_LT(distance(r.TipCoordinate, pose.apply(kTip)), 0.01);
        }
        // The spread is |e1 - mean|, e1 the error of the first two fitted markers.
        const int a = pairs[0].ToolMarkerIndex, b = pairs[1].ToolMarkerIndex;
        const double e1 =
            std::fabs(cv::norm(scene.points[a] - scene.points[b]) - cv::norm(shape[a] - shape[b]));
        EXPECT_NEAR(r.ErrorSpread, std::fabs(e1 - r.MeanError), 1e-3);
    }
    EXPECT_GT(meanError[false], 0.1);
    EXPECT_LT(meanError[true], 0.01);
}

TEST(ToolSearch, AToolFittedWorseThanThreeMillimetresIsNotValidAndLeavesItsMarkers) {
    std::mt19937 rng(30);
    std::vector<cv::Vec3f> enlarged;
    for (const cv::Vec3f& m : kProbe) enlarged.push_back(m * 1.1f);
    Search search;
    search.tools.push_back(makeTool("enlarged", enlarged));
    search.tools.push_back(makeTool("probe", kProbe));
    // A 10 mm tolerance lets the enlarged shape match the probe's markers,
    // but its fit is off by several millimetres.
    search.settings.toolFindOffset = 10;
    Scene scene;
    scene.place(kProbe, randomPose(rng), rng);
    std::vector<int> order;
    search.run(scene.build(rng, order), {"enlarged", "probe"});
    EXPECT_EQ(search.tools.front()->pairs.size(), 4u);
    EXPECT_STREQ(search.first.ToolName, "probe");
    EXPECT_EQ(search.first.ValidFlag, 1);
}

TEST(CalculateMatchError, ResidualIsTheObservedPointInToolCoordinatesMinusTheMarker) {
    const Pose pose = makePose({0.3, -1.1, 0.6}, {20, -40, -900});
    std::vector<cv::Point3f> tool, seen;
    for (const cv::Vec3f& m : kProbe) {
        tool.emplace_back(m);
        seen.emplace_back(cv::Vec3f(pose.apply(m)));
    }
    const cv::Vec3d shift(0.8, -0.4, 0.2);  // tracker frame, on marker 1
    seen[1] += cv::Point3f(cv::Vec3f(shift));
    const cv::Vec3d expected = pose.R.t() * shift;
    const cv::Mat R(cv::Matx33f(pose.R)), T(cv::Vec3f(pose.T));
    const cv::Mat Rinv(cv::Matx33f(pose.R.t())), Tinv(cv::Vec3f(-(pose.R.t() * pose.T)));
    std::vector<T_MarkError> errors;
    for (E_RTDirection direction : {RTDirection_ToolToTracker, RTDirection_TrackerToTool}) {
        const bool forward = direction == RTDirection_ToolToTracker;
        const float mean =
            CalculateMatchError(forward ? tool : seen, forward ? seen : tool, forward ? R : Rinv,
                                forward ? T : Tinv, direction, errors);
        ASSERT_EQ(errors.size(), 4u);
        EXPECT_NEAR(mean, cv::norm(shift) / 4, 1e-4);
        EXPECT_LT(cv::norm(cv::Vec3d(errors[1].dx, errors[1].dy, errors[1].dz) - expected), 1e-4);
        EXPECT_NEAR(errors[1].error, cv::norm(shift), 1e-4);
        EXPECT_LT(errors[0].error + errors[2].error + errors[3].error, 1e-3);
    }
    EXPECT_TRUE(std::isnan(CalculateMatchError(tool, {}, R, T, RTDirection_ToolToTracker, errors)));
    EXPECT_TRUE(std::isnan(
        CalculateMatchError(tool, seen, R.row(0), T, RTDirection_ToolToTracker, errors)));
    EXPECT_TRUE(errors.empty());
}

TEST(ToolMatching, RefusesMalformedInputAndSanitisesTheRemainingRows) {
    std::mt19937 rng(28);
    Scene scene;
    const std::vector<int> placed = scene.place(kProbe, randomPose(rng), rng);
    scene.addStrays(5, rng);
    std::vector<int> order;
    const T_MarkerInfo frame = scene.build(rng, order);
    const cv::Mat observed = observedOf(frame);
    auto tool = makeTool("probe", kProbe);
    std::vector<int> remaining;

    cv::Mat wrongType;
    observed.convertTo(wrongType, CV_64F);
    EXPECT_FALSE(FindToolMatchPtIndexList(*tool, wrongType, remaining, 0, 0, false, 1.5f));
    EXPECT_FALSE(
        FindToolMatchPtIndexList(*tool, observed.colRange(0, 2), remaining, 0, 0, false, 1.5f));
    EXPECT_FALSE(
        FindToolMatchPtIndexList(*tool, observed, remaining, 5, 0, false, 1.5f));  // minMatch > K

    auto badTable = makeTool("probe", kProbe);
    badTable->distanceTable = badTable->distanceTable(cv::Rect(0, 0, 3, 3)).clone();
    EXPECT_FALSE(FindToolMatchPtIndexList(*badTable, observed, remaining, 0, 0, false, 1.5f));

    // Junk and repeated rows are ignored; only the listed rows are used.
    const int probeRow = order[placed[0]];
    remaining = {-4, 300, probeRow, probeRow};
    for (int i = 0; i < observed.rows; ++i) {
        if (i != probeRow) remaining.push_back(i);
    }
    ASSERT_TRUE(FindToolMatchPtIndexList(*tool, observed, remaining, 0, 0, true, 1.5f));
    EXPECT_EQ(remaining.size(), 5u);
    EXPECT_TRUE(
        std::all_of(remaining.begin(), remaining.end(), [&](int i) { return i >= 0 && i < 9; }));
    // Without one of the probe's rows there is no four-marker match.
    remaining = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    remaining.erase(std::remove(remaining.begin(), remaining.end(), order[placed[3]]),
                    remaining.end());
    EXPECT_FALSE(FindToolMatchPtIndexList(*tool, observed, remaining, 0, 0, true, 1.5f));
    EXPECT_EQ(remaining.size(), 8u);

    // A record whose positions are short is matched but never fitted, and
    // gives its rows back.
    tool->markerPositions.resize(6);
    T_VyxToolDataResult result{};
    remaining.resize(observed.rows);
    std::iota(remaining.begin(), remaining.end(), 0);
    EXPECT_FALSE(FindSpecificToolInfo(*tool, observed, frame, result, remaining, 0, 0,
                                      RecognitionSettings{}));
    EXPECT_EQ(remaining.size(), 9u);

    // Non-finite coordinates agree with nothing.
    T_MarkerInfo broken = frame;
    for (int i = 0; i < 4; ++i) broken.MarkerCoordinate[order[placed[i]]][0] = std::nan("");
    Search search;
    search.tools.push_back(makeTool("probe", kProbe));
    search.run(broken, {"probe"});
    EXPECT_EQ(search.first.ValidFlag, 0);
}

TEST(FrameDistances, RowBinsNeverRuleOutADistanceThatIsThere) {
    std::mt19937 rng(29);
    std::uniform_real_distribution<float> coord(-3000, 3000), offset(-1.0f, 1.0f);
    cv::Mat points(40, 3, CV_32F);
    for (int k = 0; k < points.rows * 3; ++k) points.at<float>(k / 3, k % 3) = coord(rng);
    points.row(1) = points.row(0) + cv::Scalar(0.3f, 0, 0);  // a distance in the first bin
    FrameDistances distances;
    ASSERT_TRUE(distances.assign(points));
    for (int i = 0; i < points.rows; ++i) {
        for (int j = 0; j < points.rows; ++j) {
            if (i == j) continue;
            const float d = float(cv::norm(points.row(i) - points.row(j)));
            ASSERT_NEAR(distances.distance(i, j), d, 1e-3f * (1 + d));
            for (float tolerance : {0.3f, 1.5f, 3.0f}) {
                ASSERT_TRUE(distances.mayHold(i, distances.distance(i, j) + offset(rng) * tolerance,
                                              tolerance))
                    << i << "," << j << " at " << d;
            }
        }
    }
    EXPECT_FALSE(distances.mayHold(0, 0.0f, 0.0f));
    EXPECT_FALSE(distances.mayHold(0, std::nanf(""), 1.5f));
    EXPECT_FALSE(distances.assign(cv::Mat(4, 3, CV_64F)));
    EXPECT_EQ(distances.count(), 0);
}
