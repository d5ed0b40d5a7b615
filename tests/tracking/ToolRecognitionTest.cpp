#include "tracking/ToolRecognition.h"

#include "tools/ToolFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

namespace {

// Four-marker shapes without a distance-preserving relabelling, mm, tool frame.
const std::vector<cv::Vec3f> kProbe{{0, 0, 0}, {50, 0, 0}, {0, 80, 0}, {30, 40, 60}};
const std::vector<cv::Vec3f> kCalibrator{{0, 0, 0}, {-70, 10, 0}, {-20, -65, 5}, {10, 30, 45}};
const cv::Vec3f kTip{0, 0, -150}, kTipAxis{0, 0, -100};

// The library record of a tool file holding these markers and the tip above.
std::unique_ptr<T_ToolPtMatchInfo> makeTool(const std::string& name,
                                            const std::vector<cv::Vec3f>& markers) {
    const int n = static_cast<int>(markers.size());
    ToolFileContent content{name, 'T', n, fullMarkerMask(n), {}, {0, 0, -150, 0, 0, -100}};
    for (const cv::Vec3f& m : markers)
        content.markerPositions.insert(content.markerPositions.end(), m.val, m.val + 3);
    return makeToolRecord(content, name + ".vyxtool");
}

struct Pose {
    cv::Vec3d rotationVector;
    cv::Matx33d R;
    cv::Vec3d T;
    cv::Vec3d apply(const cv::Vec3f& p) const { return R * cv::Vec3d(p) + T; }
};

// A rotation of 0.1 to 3 rad about a random axis, about 1.2 m in front, shifted
// by xOffset.
Pose randomPose(std::mt19937& rng, double xOffset = 0) {
    std::normal_distribution<double> gauss;
    std::uniform_real_distribution<double> angleOf(0.1, 3.0), offset(-150, 150);
    cv::Vec3d u(gauss(rng), gauss(rng), gauss(rng));
    u /= cv::norm(u);
    const double angle = angleOf(rng);
    const cv::Matx33d K(0, -u[2], u[1], u[2], 0, -u[0], -u[1], u[0], 0);
    const cv::Matx33d R = cv::Matx33d::eye() + std::sin(angle) * K + (1 - std::cos(angle)) * K * K;
    return {u * angle, R, {xOffset + offset(rng), offset(rng), -1200 + offset(rng)}};
}

// Markers of one frame, shuffled into a T_MarkerInfo by build().
struct Scene {
    std::vector<cv::Vec3d> points;
    std::vector<int> order;  // frame index of each scene point, after build()

    // Places a tool's markers except `hidden`.
    Scene& place(const std::vector<cv::Vec3f>& markers, const Pose& pose, int hidden = -1) {
        for (int k = 0; k < int(markers.size()); ++k)
            if (k != hidden) points.push_back(pose.apply(markers[k]));
        return *this;
    }
    // Strays at x >= 900, at least 150 mm from tools placed with xOffset <= 500:
    // no distance from a tool marker to a stray matches a tool distance.
    Scene& addStrays(int count, std::mt19937& rng) {
        std::uniform_real_distribution<double> x(900, 1200), yz(-300, 300);
        for (int k = 0; k < count; ++k) points.push_back({x(rng), yz(rng), -1200 + yz(rng)});
        return *this;
    }
    T_MarkerInfo build(std::mt19937& rng) {
        T_MarkerInfo frame{};
        order.resize(points.size());
        std::iota(order.begin(), order.end(), 0);
        std::shuffle(order.begin(), order.end(), rng);
        frame.MarkerNumber = uint32_t(points.size());
        for (size_t i = 0; i < points.size(); ++i)
            for (int c = 0; c < 3; ++c) frame.MarkerCoordinate[order[i]][c] = points[i][c];
        return frame;
    }
};

double distance(const float* a, const cv::Vec3d& b) {
    return cv::norm(cv::Vec3d(cv::Vec3f(a)) - b);
}

// Frobenius norm of the reported rotation minus the true one: about sqrt(2)
// times the angle between them.
double rotationError(const T_VyxToolDataResult& r, const cv::Matx33d& truth) {
    return cv::norm(cv::Matx33d(cv::Matx33f(r.RotationMatrix[0])) - truth);
}

void expectPose(const T_VyxToolDataResult& r, const Pose& pose) {
    ASSERT_EQ(r.ValidFlag, 1);
    EXPECT_LT(rotationError(r, pose.R), 1e-4);
    EXPECT_LT(distance(r.Translation, pose.T), 0.01);
    EXPECT_LT(distance(r.OriginCoordinate, pose.T), 0.01);
    EXPECT_LT(distance(r.TipCoordinate, pose.apply(kTip)), 0.01);
    EXPECT_LT(distance(r.TipAxisCoordinate, pose.apply(kTipAxis)), 0.01);
}

// A tool library with its settings and chain storage, and the caller's first record.
struct Search {
    std::list<std::unique_ptr<T_ToolPtMatchInfo>> tools;
    ResultChain chain;
    RecognitionSettings settings;
    T_VyxToolDataResult first{};
    Search(std::initializer_list<std::pair<std::string, std::vector<cv::Vec3f>>> library = {}) {
        for (const auto& [name, markers] : library) tools.push_back(makeTool(name, markers));
    }
    int run(const T_MarkerInfo& frame, const std::vector<std::string>& names, int minMatch = 0) {
        return findNamedTools(tools, frame, names, &first, minMatch, settings, chain);
    }
    int runAll(const T_MarkerInfo& frame) {
        return findAllTools(tools, frame, &first, 0, settings, chain);
    }
};

}  // namespace

TEST(ToolRecognition, RecoversPoseTipsAndMarkerIndicesOfToolsAmongStrayMarkers) {
    std::mt19937 rng(21);
    Search search{{"probe", kProbe}, {"calibrator", kCalibrator}};
    search.tools.back()->toolKind = 'C';
    for (int trial = 0; trial < 30; ++trial) {
        const Pose poses[] = {randomPose(rng, 500), randomPose(rng)};
        Scene scene;
        scene.place(kCalibrator, poses[0]).place(kProbe, poses[1]).addStrays(20, rng);
        const T_MarkerInfo frame = scene.build(rng);

        ASSERT_EQ(search.run(frame, {"calibrator", "probe"}), 0);
        const T_VyxToolDataResult* r = &search.first;
        for (int t = 0; t < 2; r = r->next, ++t) {
            SCOPED_TRACE(testing::Message() << "trial " << trial << " tool " << t);
            ASSERT_NE(r, nullptr);
            expectPose(*r, poses[t]);
            EXPECT_STREQ(r->ToolName, t == 0 ? "calibrator" : "probe");
            EXPECT_EQ(r->ToolType, t == 0 ? 1 : 0);
            EXPECT_LT(distance(r->RotationVector, poses[t].rotationVector), 1e-4);
            EXPECT_LT(r->MeanError + r->ErrorSpread, 0.01);
            for (int m = 0; m < 4; ++m)  // scene point k is frame marker order[k]
                EXPECT_EQ(r->MatchedMarkerIndex[m], scene.order[4 * t + m]) << "marker " << m;
        }
        // An empty record follows the last found tool.
        EXPECT_EQ(r->ValidFlag, 0);
        EXPECT_EQ(r->next, nullptr);

        if (trial > 0) continue;
        // The other direction reports the inverse transform.
        search.settings.direction = RTDirection_TrackerToTool;
        search.run(frame, {"probe"});
        search.settings.direction = RTDirection_ToolToTracker;
        EXPECT_LT(rotationError(search.first, poses[1].R.t()), 1e-4);
        EXPECT_LT(distance(search.first.Translation, -(poses[1].R.t() * poses[1].T)), 0.01);
    }
}

// A four-marker tool with one marker hidden shows three points. Among other
// markers the first sweep (threshold 3) demands four pairs and fails; only
// minMatch 2 (refused by the exported calls, whose thresholds the end-to-end
// hidden-marker cases check) goes on down to threshold 2 and finds it.
TEST(ToolRecognition, HiddenMarkerAmongOtherMarkersIsFoundWithMinMatchTwo) {
    std::mt19937 rng(24);
    Search search{{"probe", kProbe}};
    const Pose pose = randomPose(rng);
    Scene scene;
    scene.place(kProbe, pose, 2).addStrays(12, rng);
    search.run(scene.build(rng), {"probe"}, 2);
    expectPose(search.first, pose);
    const int expected[] = {scene.order[0], scene.order[1], -1, scene.order[2]};
    ASSERT_EQ(search.first.MatchedMarkerCount, 4);
    for (int m = 0; m < 4; ++m) EXPECT_EQ(search.first.MatchedMarkerIndex[m], expected[m]);
}

TEST(ToolSearch, GivesEachMarkerToTheFirstNamedToolAndChecksFrameAndLibraryFirst) {
    std::mt19937 rng(25);
    // The twin has the probe's shape.
    Search search{{"probe", kProbe}, {"calibrator", kCalibrator}, {"twin", kProbe}}, emptyLibrary;
    Scene scene;
    scene.place(kProbe, randomPose(rng)).place(kCalibrator, randomPose(rng, 500));
    T_MarkerInfo frame = scene.addStrays(6, rng).build(rng);

    // The twin, named before the probe, takes the probe's markers and leaves
    // none to the probe; the unknown name gets no record.
    search.run(frame, {"calibrator", "nobody", "twin", "probe", "twin"});
    ASSERT_EQ(search.chain.size(), 2u);
    EXPECT_STREQ(search.first.ToolName, "calibrator");
    ASSERT_EQ(search.first.next->ValidFlag, 1);
    EXPECT_STREQ(search.first.next->ToolName, "twin");
    EXPECT_EQ(search.first.next->next->ValidFlag, 0);

    // All library tools in list order: the probe takes the markers from its twin.
    EXPECT_EQ(search.runAll(frame), 0);
    EXPECT_STREQ(search.first.ToolName, "probe");
    EXPECT_STREQ(search.first.next->ToolName, "calibrator");
    EXPECT_EQ(search.first.next->next->ValidFlag, 0);
    EXPECT_EQ(search.first.next->next->next, nullptr);

    // Frames outside 3 to 200 markers and an empty library leave the result alone.
    search.first.ValidFlag = emptyLibrary.first.ValidFlag = 7;
    for (uint32_t count : {2u, 201u}) {
        frame.MarkerNumber = count;
        EXPECT_EQ(search.run(frame, {"probe"}), 0);
        EXPECT_EQ(search.first.ValidFlag, 7) << count;
    }
    frame.MarkerNumber = 4;
    EXPECT_EQ(emptyLibrary.run(frame, {"probe"}), 0);
    EXPECT_EQ(emptyLibrary.runAll(frame), -1);
    EXPECT_EQ(emptyLibrary.first.ValidFlag, 7);

    // With fewer than three markers left after a found tool the search ends.
    search.run(Scene().place(kProbe, randomPose(rng)).addStrays(2, rng).build(rng),
               {"probe", "calibrator"});
    EXPECT_EQ(search.first.ValidFlag, 1);
    EXPECT_EQ(search.first.next, nullptr);
}

TEST(ToolSearch, OutlierRejectionDropsADisplacedMarkerOnlyWhenEnabled) {
    const std::vector<cv::Vec3f> shape{
        {0, 0, 0}, {60, 0, 0}, {0, 90, 0}, {40, 50, 30}, {-30, 40, 70}};
    std::mt19937 rng(27);
    const Pose pose = randomPose(rng);
    Scene scene;
    scene.place(shape, pose);
    scene.points[3] += cv::Vec3d(1.2, 0, 0);  // within the 1.5 mm tolerance
    const T_MarkerInfo frame = scene.build(rng);

    float meanError[2];
    for (bool optimize : {false, true}) {
        Search search{{"five", shape}};
        search.settings.pointMatchOptimize = optimize;
        search.run(frame, {"five"});
        const T_VyxToolDataResult& r = search.first;
        ASSERT_EQ(r.ValidFlag, 1);
        meanError[optimize] = r.MeanError;
        EXPECT_EQ(r.MatchedMarkerIndex[3], scene.order[3]);  // matched either way
        const std::vector<T_MatchMarkIdx>& pairs = search.tools.front()->pairs;
        EXPECT_EQ(std::any_of(pairs.begin(), pairs.end(),
                              [](const T_MatchMarkIdx& p) { return p.ToolMarkerIndex == 3; }),
                  !optimize);
        if (optimize) expectPose(r, pose);
        // The spread is |e1 - mean|, e1 the error of the first two fitted markers.
        const int a = pairs[0].ToolMarkerIndex, b = pairs[1].ToolMarkerIndex;
        const double e1 =
            std::fabs(cv::norm(scene.points[a] - scene.points[b]) - cv::norm(shape[a] - shape[b]));
        EXPECT_NEAR(r.ErrorSpread, std::fabs(e1 - r.MeanError), 1e-3);
    }
    EXPECT_GT(meanError[false], 0.1);
    EXPECT_LT(meanError[true], 0.01);

    // A tool fitted worse than 3 mm is not valid and leaves its markers: with
    // a 10 mm tolerance the probe enlarged by a tenth matches the probe's
    // markers, but its fit is off by several millimetres.
    std::vector<cv::Vec3f> enlarged;
    for (const cv::Vec3f& m : kProbe) enlarged.push_back(m * 1.1f);
    Search search{{"enlarged", enlarged}, {"probe", kProbe}};
    search.settings.toolFindOffset = 10;
    search.run(Scene().place(kProbe, randomPose(rng)).build(rng), {"enlarged", "probe"});
    EXPECT_EQ(search.tools.front()->pairs.size(), 4u);
    EXPECT_STREQ(search.first.ToolName, "probe");
    EXPECT_EQ(search.first.ValidFlag, 1);
}

TEST(CalculateMatchError, ResidualIsTheObservedPointInToolCoordinatesMinusTheMarker) {
    std::mt19937 rng(31);
    const Pose pose = randomPose(rng);
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
    for (bool forward : {true, false}) {
        const float mean = CalculateMatchError(
            forward ? tool : seen, forward ? seen : tool, forward ? R : Rinv, forward ? T : Tinv,
            forward ? RTDirection_ToolToTracker : RTDirection_TrackerToTool, errors);
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

TEST(ToolMatching, RefusesMalformedInputAndUsesOnlyTheListedRows) {
    std::mt19937 rng(28);
    Scene scene;
    const T_MarkerInfo frame = scene.place(kProbe, randomPose(rng)).addStrays(5, rng).build(rng);
    const cv::Mat observed = markerMatrix(frame);
    cv::Mat wrongType;
    observed.convertTo(wrongType, CV_64F);
    auto tool = makeTool("probe", kProbe), badTable = makeTool("probe", kProbe);
    badTable->distanceTable = badTable->distanceTable(cv::Rect(0, 0, 3, 3)).clone();
    std::vector<int> remaining;
    EXPECT_FALSE(FindToolMatchPtIndexList(*tool, wrongType, remaining, 0, 0, false, 1.5f));
    EXPECT_FALSE(FindToolMatchPtIndexList(*badTable, observed, remaining, 0, 0, false, 1.5f));
    EXPECT_FALSE(FindToolMatchPtIndexList(*tool, observed, remaining, 5, 0, false, 1.5f));

    // Junk and repeated rows are ignored; without one of the probe's rows
    // there is no four-marker match, and the list stays as it was.
    remaining = {-4, 300, 0, 0, 1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_TRUE(FindToolMatchPtIndexList(*tool, observed, remaining, 0, 0, true, 1.5f));
    EXPECT_EQ(remaining.size(), 5u);
    remaining = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    remaining.erase(std::find(remaining.begin(), remaining.end(), scene.order[3]));
    EXPECT_FALSE(FindToolMatchPtIndexList(*tool, observed, remaining, 0, 0, true, 1.5f));
    EXPECT_EQ(remaining.size(), 8u);

    // A record whose positions are short is matched but never fitted, and
    // gives its rows back.
    tool->markerPositions.resize(6);
    T_VyxToolDataResult result{};
    remaining = {0, 1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_FALSE(FindSpecificToolInfo(*tool, observed, frame, result, remaining, 0, 0,
                                      RecognitionSettings{}));
    EXPECT_EQ(remaining.size(), 9u);

    // Non-finite coordinates agree with nothing.
    T_MarkerInfo broken = frame;
    for (int i = 0; i < 4; ++i) broken.MarkerCoordinate[scene.order[i]][0] = std::nan("");
    Search search{{"probe", kProbe}};
    search.run(broken, {"probe"});
    EXPECT_EQ(search.first.ValidFlag, 0);
}

TEST(FrameDistances, RowBinsNeverRuleOutADistanceThatIsThere) {
    std::mt19937 rng(29);
    std::uniform_real_distribution<float> offset(-1.0f, 1.0f);
    cv::Mat points(40, 3, CV_32F);
    cv::RNG(29).fill(points, cv::RNG::UNIFORM, -3000, 3000);
    points.row(1) = points.row(0) + cv::Scalar(0.3f, 0, 0);  // a distance in the first bin
    FrameDistances table;
    ASSERT_TRUE(table.assign(points));
    for (int i = 0; i < points.rows; ++i) {
        for (int j = 0; j < points.rows; ++j) {
            if (i == j) continue;
            const float d = float(cv::norm(points.row(i) - points.row(j)));
            ASSERT_NEAR(table.distance(i, j), d, 1e-3f * (1 + d));
            for (float tolerance : {0.3f, 1.5f, 3.0f})
                ASSERT_TRUE(
                    table.mayHold(i, table.distance(i, j) + offset(rng) * tolerance, tolerance));
        }
    }
    EXPECT_FALSE(table.mayHold(0, std::nanf(""), 1.5f));
    EXPECT_FALSE(table.assign(cv::Mat(4, 3, CV_64F)));
    EXPECT_EQ(table.count(), 0);
}
