// Per-frame cost of tool recognition: a named-tool search for several
// four-marker tools among a frame's markers, with stray markers filling the
// frame up to the given count.
#include "tracking/ToolRecognition.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

// Without noise the reported tip must lie this close to the placed one.
constexpr double kTipToleranceMm = 0.01;

struct Scene {
    std::list<std::unique_ptr<T_ToolPtMatchInfo>> tools;
    std::vector<std::string> names;
    std::vector<cv::Vec3d> tips;  // true tip of each tool, tracker frame
    T_MarkerInfo frame{};
};

// Four markers within 120 mm, at least 35 mm apart, tip 150 mm off.
std::unique_ptr<T_ToolPtMatchInfo> randomTool(std::mt19937& rng, int index) {
    std::uniform_real_distribution<float> coord(-60, 60);
    std::vector<cv::Vec3f> markers;
    while (markers.size() < 4) {
        const cv::Vec3f p(coord(rng), coord(rng), coord(rng));
        bool apart = true;
        for (const cv::Vec3f& q : markers) apart = apart && cv::norm(p - q) > 35;
        if (apart) markers.push_back(p);
    }
    auto tool = std::make_unique<T_ToolPtMatchInfo>();
    tool->toolName = "tool" + std::to_string(index);
    tool->markerCount = 4;
    tool->distanceTable = cv::Mat::zeros(4, 4, CV_32F);
    for (int i = 0; i < 4; ++i) {
        tool->markerPositions.insert(tool->markerPositions.end(), markers[i].val,
                                     markers[i].val + 3);
        for (int j = 0; j < 4; ++j) {
            tool->distanceTable.at<float>(i, j) =
                static_cast<float>(cv::norm(markers[i] - markers[j]));
        }
    }
    tool->markerPositionsCopy = tool->markerPositions;
    tool->markerMasks.assign(4, 15);
    tool->tipPairCount = 1;
    tool->tipPoints = {0, 0, -150, 0, 0, -100};
    return tool;
}

cv::Matx33d randomRotation(std::mt19937& rng) {
    std::normal_distribution<double> gauss;
    cv::Vec4d q(gauss(rng), gauss(rng), gauss(rng), gauss(rng));
    q /= cv::norm(q);
    const double w = q[0], x = q[1], y = q[2], z = q[3];
    return {1 - 2 * (y * y + z * z), 2 * (x * y - w * z),     2 * (x * z + w * y),
            2 * (x * y + w * z),     1 - 2 * (x * x + z * z), 2 * (y * z - w * x),
            2 * (x * z - w * y),     2 * (y * z + w * x),     1 - 2 * (x * x + y * y)};
}

// `toolCount` tools at random poses at least 250 mm apart (placed only when
// `placeTools`), and stray markers at least 20 mm from every other marker up to
// `markerCount`, all in a 1.4 x 1.0 x 0.8 m volume in front of the tracker.
Scene makeScene(int toolCount, int markerCount, bool placeTools) {
    std::mt19937 rng(static_cast<unsigned>(7919 * toolCount + markerCount));
    std::uniform_real_distribution<double> x(-700, 700), y(-500, 500), z(-1800, -1000);
    Scene scene;
    std::vector<cv::Vec3d> points, origins;
    for (int t = 0; t < toolCount; ++t) {
        scene.tools.push_back(randomTool(rng, t));
        scene.names.push_back(scene.tools.back()->toolName);
        if (!placeTools) continue;
        cv::Vec3d origin;
        do {
            origin = {x(rng), y(rng), z(rng)};
        } while (std::any_of(origins.begin(), origins.end(),
                             [&](const cv::Vec3d& o) { return cv::norm(o - origin) < 250; }));
        origins.push_back(origin);
        const cv::Matx33d R = randomRotation(rng);
        const T_ToolPtMatchInfo& tool = *scene.tools.back();
        for (int m = 0; m < 4; ++m) {
            const float* p = &tool.markerPositions[3 * m];
            points.push_back(R * cv::Vec3d(p[0], p[1], p[2]) + origin);
        }
        scene.tips.push_back(R * cv::Vec3d(0, 0, -150) + origin);
    }
    while (static_cast<int>(points.size()) < markerCount) {
        const cv::Vec3d p(x(rng), y(rng), z(rng));
        if (std::all_of(points.begin(), points.end(),
                        [&](const cv::Vec3d& q) { return cv::norm(p - q) > 20; })) {
            points.push_back(p);
        }
    }
    std::shuffle(points.begin(), points.end(), rng);
    scene.frame.MarkerNumber = static_cast<uint32_t>(points.size());
    for (size_t i = 0; i < points.size(); ++i) {
        for (int c = 0; c < 3; ++c) scene.frame.MarkerCoordinate[i][c] = points[i][c];
    }
    return scene;
}

// Number of tools reported valid with the right tip, -1 on any wrong tip.
int checkResults(const Scene& scene, const T_VyxToolDataResult& first) {
    int found = 0;
    for (const T_VyxToolDataResult* r = &first; r != nullptr; r = r->next) {
        if (!r->ValidFlag) continue;
        const std::string name(r->ToolName);
        const auto at = std::find(scene.names.begin(), scene.names.end(), name);
        if (at == scene.names.end() || scene.tips.empty()) return -1;
        const cv::Vec3d& tip = scene.tips[at - scene.names.begin()];
        const cv::Vec3d reported(r->TipCoordinate[0], r->TipCoordinate[1], r->TipCoordinate[2]);
        if (cv::norm(reported - tip) > kTipToleranceMm) return -1;
        ++found;
    }
    return found;
}

void runSearch(benchmark::State& state, bool placeTools) {
    const int toolCount = static_cast<int>(state.range(0));
    const int markerCount = static_cast<int>(state.range(1));
    Scene scene = makeScene(toolCount, markerCount, placeTools);
    const RecognitionSettings settings;
    ResultChain chain;
    T_VyxToolDataResult first{};
    for (auto _ : state) {
        findNamedTools(scene.tools, scene.frame, scene.names, &first, 0, settings, chain);
        benchmark::DoNotOptimize(first);
        benchmark::ClobberMemory();
    }
    const int expected = placeTools ? toolCount : 0;
    const int found = checkResults(scene, first);
    if (found != expected) {
        state.SkipWithError(
            ("found " + std::to_string(found) + " of " + std::to_string(expected) + " tools")
                .c_str());
    }
    state.counters["tools_found"] = found;
}

// Every requested tool is in the frame.
void BM_RecognitionPerFrame(benchmark::State& state) { runSearch(state, true); }

// None of the requested tools is in the frame: every seed of every sweep is
// tried, the slowest case for a given marker count.
void BM_RecognitionToolsAbsent(benchmark::State& state) { runSearch(state, false); }

}  // namespace

BENCHMARK(BM_RecognitionPerFrame)
    ->ArgNames({"tools", "markers"})
    ->Args({1, 4})
    ->Args({1, 60})
    ->Args({5, 60})
    ->Args({10, 60})
    ->Args({20, 100})
    ->Args({10, 200})
    ->Args({20, 200})
    ->Unit(benchmark::kMicrosecond);

BENCHMARK(BM_RecognitionToolsAbsent)
    ->ArgNames({"tools", "markers"})
    ->Args({10, 60})
    ->Args({20, 200})
    ->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
