// Scenes of the virtual tracker: the scene file format; noise, strays and
// one-camera markers; motions and calibration scenes. Reconstruction of the
// rendered frames is checked end to end in tests/device.
#include "sim/RobotScene.h"
#include "sim/Scene.h"
#include "sim/SceneFile.h"
#include "sim/SceneTools.h"
#include "support/SceneSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

using namespace vyx::sim;
using vyx::test::angleBetween;
using vyx::test::distance;
using vyx::test::minus;

const std::string kScenes =
    (std::filesystem::path(__FILE__).parent_path() / "../../sim/scenes/").string();

TEST(SceneFrameSource, CountsFromItsFirstIndexAndReportsTheTemperatureRamp) {
    Scene scene;
    scene.markers = {{{0, 0, 1500}, Visibility::Both}};
    scene.temperatureCelsius = 25.0;
    scene.temperatureStepPerFrame = 0.01;
    auto source = sceneFrameSource(defaultDescription(), scene);
    // Frame k of the scene for index 1000 + k, an index asked again getting
    // its frame again (the Wi-Fi status peek) and an index skipped its frame.
    for (const std::uint32_t k : {0u, 0u, 1u, 2u, 2u, 5u, 299u, 300u}) {
        const MarkerFrame frame = source(1000 + k);
        ASSERT_EQ(frame.extendedId.value_or(0), k + 1);
        ASSERT_EQ(frame.frameId, (k + 1) & 0xFF);
        ASSERT_EQ(frame.status.temperature1Hundredths, 2500 + static_cast<int>(k));
    }
    EXPECT_EQ(source(999).extendedId, 1u);  // before the first index: frame 0
    scene.extendedId = false;
    EXPECT_FALSE(sceneFrameSource(defaultDescription(), scene)(0).extendedId.has_value());
}

TEST(SceneFrames, OneCameraMarkersStraysAndTheRasterOrderedListsCutAt200) {
    // A marker outside the right image is the left camera's alone, one for
    // the right camera the right camera's; both cameras' ones are checked end
    // to end in tests/device.
    Scene scene;
    scene.markers = {{{-700, 0, 1500}, Visibility::Both}, {{0, 0, 1500}, Visibility::RightOnly}};
    MarkerFrame f = SceneRenderer(defaultDescription(), scene).frame(0, 1);
    EXPECT_EQ(std::make_tuple(f.left.size(), f.right.size(), scene.markersAt(0).size()),
              std::make_tuple(1u, 1u, 1u));

    scene.markers = {{{0, 0, 1500}, Visibility::Both}, {{50, 80, 1600}, Visibility::Both}};
    for (const std::size_t strays : {3u, 200u}) {  // two markers and the strays, at most 200
        scene.strayCentresPerCamera = strays;
        f = SceneRenderer(defaultDescription(), scene).frame(4, 5);
        for (const auto* list : {&f.left, &f.right}) {
            ASSERT_EQ(list->size(), std::min<std::size_t>(strays + 2, 200));
            EXPECT_TRUE(std::is_sorted(list->begin(), list->end(), [](ImagePoint a, ImagePoint b) {
                return a.y != b.y ? a.y < b.y : a.x < b.x;
            }));
        }
    }
}

TEST(SceneNoise, IsReproducibleFromItsSeedWithTheRequestedSigma) {
    // 60 markers whose rows lie about 9 px apart, so that noise of 0.25 px
    // cannot change their raster order.
    Scene clean;
    for (int i = 0; i < 60; ++i)
        clean.markers.push_back(
            {{-200.0 + 7.0 * (i % 9), -300.0 + 10.0 * i, 1500.0}, Visibility::Both});
    Scene noisy = clean;
    noisy.noiseSigmaPx = 0.25;
    noisy.noiseSeed = 42;
    const DeviceDescription d = defaultDescription();
    const MarkerFrame exact = SceneRenderer(d, clean).frame(3, 4);
    const MarkerFrame a = SceneRenderer(d, noisy).frame(3, 4);
    EXPECT_EQ(encodeMarkerFrame(SceneRenderer(d, noisy).frame(3, 4)), encodeMarkerFrame(a));
    noisy.noiseSeed = 43;
    EXPECT_NE(encodeMarkerFrame(SceneRenderer(d, noisy).frame(3, 4)), encodeMarkerFrame(a));
    ASSERT_EQ(exact.left.size() + exact.right.size(), 120u);
    ASSERT_EQ(a.left.size() + a.right.size(), 120u);
    double sum = 0.0, sumSquares = 0.0;
    for (std::size_t i = 0; i < 60; ++i)
        for (const double e : {a.left[i].x - exact.left[i].x, a.left[i].y - exact.left[i].y,
                               a.right[i].x - exact.right[i].x, a.right[i].y - exact.right[i].y}) {
            sum += e;
            sumSquares += e * e;
        }
    const double n = 240.0;
    EXPECT_NEAR(std::sqrt(sumSquares / n - (sum / n) * (sum / n)), 0.25, 0.05);
    EXPECT_LT(std::abs(sum / n), 0.06);
}

TEST(SceneFile, ReadsEveryStatementAndWritesItBackExactly) {
    const Scene scene = parseScene(std::string(R"(# every statement once
framerate 120
marker 10 -20 1500
marker -700 0 1500.25 left   # seen by the left camera only
body probe
point 0 0 1400
point 60 0 1400 right
motion rotate 0 1 0  0 0 1450  0.75
body dimple
point 0 -150 1500
point 40 -150 1500
motion pivot 0 0 1500  0 -1 0  0.25 1.5 -0.5
kind C
attach probe
unlisted
perturb 0.25 seed 77
body arm
point 0 0 1500
point 50 0 1500
motion steps 0.5
step 0 0 0  0 0 -100
step 0 0 1.5707963267948966  10 0 0
body cart
point 5 5 2000
motion translate 100 0 -50
perturb 1.5
noise 0.1 seed 42
stray 2 seed 9
temperature ramp 25 0.01
extendedid off
cameravalues 3 7
)"));
    ASSERT_EQ(scene.markers.size(), 2u);
    ASSERT_EQ(scene.bodies.size(), 4u);
    EXPECT_EQ(std::make_tuple(scene.markers[1].visibility, scene.markers[1].position.z,
                              scene.bodies[0].points[1].visibility, scene.bodies[1].motion.kind,
                              scene.bodies[1].kind, scene.bodies[1].attachedTo),
              std::make_tuple(Visibility::LeftOnly, 1500.25, Visibility::RightOnly,
                              Motion::Kind::Pivot, 'C', std::string("probe")));
    EXPECT_EQ(std::make_tuple(scene.frameRateHz, scene.noiseSigmaPx, scene.noiseSeed,
                              scene.strayCentresPerCamera, scene.straySeed,
                              scene.temperatureHundredthsAt(100), scene.extendedId,
                              scene.leftCameraValue, scene.rightCameraValue),
              std::make_tuple(120.0, 0.1, 42u, 2u, 9u, 2600, false, 3, 7));
    // Half a turn of the probe about y through (0, 0, 1450) takes pi / 0.75 s,
    // 502.7 frames; a second of the cart moves it by (100, 0, -50).
    EXPECT_NEAR(scene.markersAt(503)[1].z, 1500.0, 0.2);
    EXPECT_LT(distance(scene.markersAt(120).back(), {105, 5, 1950}), 1e-9);
    // The arm holds each placement for half a second, frames 0 to 59, then
    // 60 on; the second turns a quarter about z, then moves 10 mm. Where its
    // second point (the sixth marker both cameras see) is:
    const std::pair<std::uint64_t, Point3> steps[] = {
        {0, {50, 0, 1400}}, {59, {50, 0, 1400}}, {60, {10, 50, 1500}}, {100000, {10, 50, 1500}}};
    for (const auto& [frame, expected] : steps)
        EXPECT_LT(distance(scene.markersAt(frame)[5], expected), 1e-9) << frame;

    const std::string text = formatScene(scene);
    const Scene again = parseScene(text);
    EXPECT_EQ(formatScene(again), text);
    EXPECT_EQ(again.straySeed, 9u);
    const std::vector<RigidBody>& b = again.bodies;  // read, written and read again
    EXPECT_TRUE(b[0].listed && !b[1].listed && b[2].listed && b[3].listed);
    const std::tuple<double, std::uint64_t> perturbations[] = {
        {0.0, 0}, {0.25, 77}, {0.0, 0}, {1.5, 0}};
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(std::tie(b[i].filePerturbationMm, b[i].filePerturbationSeed), perturbations[i]);
    for (std::uint64_t frame : {0u, 77u, 1000u}) {
        const auto p = scene.positionsAt(frame), q = again.positionsAt(frame);
        ASSERT_EQ(p.size(), q.size());
        for (std::size_t i = 0; i < p.size(); ++i)
            EXPECT_EQ(distance(p[i].position, q[i].position), 0.0);
    }
}

TEST(SceneFile, NamesTheLineOfAFault) {
    const std::pair<const char*, std::size_t> cases[] = {
        {"framerate 60\n\nmarkr 0 0 1000\n", 3}, {"# points need a body\npoint 0 0 1000\n", 2},
        {"marker 0 0\n", 1}, {"marker 0 0 1000 both\n", 1}, {"marker 0 zero 1000\n", 1},
        {"noise -0.1\n", 1}, {"noise 0.1 seed\n", 1}, {"stray 201\n", 1},
        {"temperature 400\n", 1}, {"cameravalues 3 256\n", 1}, {"framerate 0\n", 1},
        {"perturb 0.5\n", 1}, {"marker 0 0 1000\nbody empty\nmarker 1 1 1000\n", 2},
        {"body a\npoint 0 0 1000\nmotion rotate 0 0 0 0 0 0 1\n", 3},
        {"body a\npoint 0 0 1000\nmotion still\nmotion translate 1 0 0\n", 4},
        {"body a\npoint 0 0 1000\nkind X\n", 3}, {"body a\npoint 0 0 1000\nattach a\n", 3},
        {"body a\npoint 0 0 1000\nattach b\nbody b\npoint 0 0 900\n", 3},
        {"body a\npoint 0 0 1000\nmotion pivot 0 0 0  0 0 0  0.1 1 1\n", 3},
        {"body a\npoint 0 0 1000\nmotion pivot 0 0 0  0 1 0  1.6 1 1\n", 3},
        {"body a\npoint 0 0 1000\nmotion pivot 0 0 0  0 1 0  0.1 1\n", 3},
        {"body a\npoint 0 0 1000\nperturb -0.1\n", 3},
        {"body a\npoint 0 0 1000\nperturb 0.5 seed\n", 3},
        {"body a\npoint 0 0 1000\nperturb inf\n", 3}, {"body a\npoint 0 0 1000\nunlisted yes\n", 3},
        {"body a\npoint 0 0 1000\nmotion steps 0\n", 3},
        {"body a\npoint 0 0 1000\nstep 0 0 0 0 0 0\n", 3},
        {"body a\npoint 0 0 1000\nmotion steps 1\nstep 0 0 0 0 0\n", 4},
        {"body a\npoint 0 0 1000\nmotion steps 1\nbody b\npoint 0 0 900\n", 3},
    };
    for (const auto& [text, line] : cases) {
        try {
            parseScene(std::string(text), "bad.scene");
            ADD_FAILURE() << "accepted: " << text;
        } catch (const SceneFileError& e) {
            EXPECT_EQ(e.line(), line) << text;
            const std::string prefix = "bad.scene:" + std::to_string(line) + ": ";
            EXPECT_EQ(std::string(e.what()).rfind(prefix, 0), 0u) << e.what();
        }
    }
}

TEST(SceneFile, ShippedExampleReadsAndIsSeenByBothCameras) {
    const std::string file = kScenes + "tool_demo.scene";
    const Scene scene = loadSceneFile(file);
    const MarkerFrame frame = SceneRenderer(defaultDescription(), scene).frame(0, 1);
    EXPECT_GE(scene.markersAt(0).size(), 4u);
    EXPECT_GE(frame.left.size(), scene.markersAt(0).size());
    EXPECT_THROW(loadSceneFile(file + ".missing"), SceneFileError);
}

Point3 restCentroid(const RigidBody& b) { return minus(b.points[0].position, toolMarkers(b)[0]); }
// R v for a pose's rotation R.
Point3 turned(const ToolPose& pose, const Point3& v) {
    return minus(toMeasurement(pose, v), toMeasurement(pose, {}));
}

TEST(ScenePivot, TipStaysOnThePivotWhileTheShaftSweepsItsConeAndSpins) {
    Scene alongX = pivotScene(0.5, 120);  // a shaft along x takes the other tilt axis
    Motion& m = alongX.bodies[0].motion;
    alongX.bodies[0].tip = {-150, 0, 0};
    m = Motion::pivot(minus(restCentroid(alongX.bodies[0]), {150, 0, 0}), {3, 0, 0}, 0.5,
                      m.precessionRadPerSecond, m.spinRadPerSecond);
    const struct {
        Scene scene;
        double halfAngle;
        std::uint64_t framesPerRevolution;
    } cases[] = {{pivotScene(0.0), 0.0, 200},
                 {pivotScene(0.3), 0.3, 200},
                 {pivotScene(0.6, 90), 0.6, 90},
                 {alongX, 0.5, 120}};
    for (const auto& [scene, halfAngle, frames] : cases) {
        const RigidBody& body = scene.bodies[0];
        const Point3 pivot = body.motion.centre, shaft = minus({}, body.tip), across{1, 0, 0};
        EXPECT_EQ(distance(body.tip, minus(pivot, restCentroid(body))), 0.0);
        for (std::uint64_t k = 0; k <= frames; ++k) {
            const ToolPose pose = bodyPoseAt(scene, 0, k);
            ASSERT_LT(distance(toMeasurement(pose, body.tip), pivot), 1e-9) << k;
            ASSERT_NEAR(angleBetween(turned(pose, shaft), body.motion.axis), halfAngle, 1e-9);
            if (halfAngle == 0.0) {  // upright, it only spins about its shaft
                ASSERT_NEAR(angleBetween(turned(pose, across), across),
                            0.2 * std::acos(-1.0) * k / frames, 1e-9);  // 0.1 turn a cone
            }
        }
        // Half a revolution on, the shaft leans the other way.
        const ToolPose start = bodyPoseAt(scene, 0, 0), half = bodyPoseAt(scene, 0, frames / 2);
        EXPECT_NEAR(angleBetween(turned(start, shaft), turned(half, shaft)), 2 * halfAngle, 1e-9);
    }
}

TEST(SceneAttachment, CarriedPoseIsTheCarriersPoseAfterItsOwnMotion) {
    // A chain: the pivoting probe (tilted at frame 0 already) carries an arm,
    // which carries a hand.
    const Scene scene = parseScene(formatScene(pivotScene(0.4)) + R"(
body arm
point 80 0 1500
motion rotate 0 1 1  100 0 1500  0.7
attach probe
body hand
point 150 40 1480
motion translate 5 -3 2
attach arm
)");
    for (std::uint64_t k : {0u, 37u, 500u})
        for (std::size_t body : {1u, 2u}) {  // each carried by the body before it
            Scene alone = scene;
            alone.bodies[body].attachedTo.clear();
            const ToolPose own = bodyPoseAt(alone, body, k), carried = bodyPoseAt(scene, body, k);
            const ToolPose carrier = bodyPoseAt(scene, body - 1, k);
            const Point3 carrierRest = restCentroid(scene.bodies[body - 1]);
            // One point each, after the probe's four; where its tool origin is.
            const Point3 expected =
                toMeasurement(carrier, minus(toMeasurement(own, {}), carrierRest));
            EXPECT_LT(distance(toMeasurement(carried, {}), expected), 1e-9);
            EXPECT_LT(distance(scene.positionsAt(k)[3 + body].position, expected), 1e-9);
            for (const Point3 v : {Point3{1, 0, 0}, Point3{0, 1, 0}, Point3{0, 0, 1}})
                EXPECT_LT(distance(turned(carried, v), turned(carrier, turned(own, v))), 1e-12);
        }
}

TEST(SceneChecks, RejectBadAttachmentsPivotsAndKinds) {
    const auto pivoting = [](Point3 axis, double halfAngle, double rate) {
        return [=](Scene& s) { s.bodies[1].motion = Motion::pivot({}, axis, halfAngle, rate, 1); };
    };
    const double nan = std::nan("");
    const std::pair<const char*, std::function<void(Scene&)>> cases[] = {
        {"unknown carrier", [](Scene& s) { s.bodies[1].attachedTo = "nobody"; }},
        {"itself", [](Scene& s) { s.bodies[1].attachedTo = "pointer"; }},
        {"later body", [](Scene& s) { s.bodies[0].attachedTo = "pointer"; }},
        {"kind", [](Scene& s) { s.bodies[0].kind = 'X'; }},
        {"half-angle", pivoting({0, 1, 0}, 1.5708, 1)},
        {"zero axis", pivoting({}, 0.1, 1)},
        {"rate", pivoting({0, 1, 0}, 0.1, nan)},
        {"perturbation", [](Scene& s) { s.bodies[0].filePerturbationMm = -0.1; }},
        {"perturbation nan", [=](Scene& s) { s.bodies[1].filePerturbationMm = nan; }},
        {"no steps", [](Scene& s) { s.bodies[1].motion = Motion::steps({}, 1.0); }},
        {"step time", [](Scene& s) { s.bodies[1].motion = Motion::steps({{}}, 0.0); }},
        {"step nan", [=](Scene& s) { s.bodies[1].motion = Motion::steps({{{nan, 0, 0}, {}}}, 1); }},
    };
    EXPECT_NO_THROW(SceneRenderer(defaultDescription(), tipCalibrationScene()));
    for (const auto& [what, spoil] : cases) {
        Scene scene = tipCalibrationScene();
        spoil(scene);
        EXPECT_THROW(SceneRenderer(defaultDescription(), scene), std::invalid_argument) << what;
    }
}

TEST(RobotScene, ToolIsWhereBaseFlangeAndMountPutIt) {
    const RobotRig rig = robotRig(7, 3);
    const Scene scene = robotScene(rig);
    const RigidBody& tool = scene.bodies[0];
    for (std::uint64_t frame : {0u, 2u, 3u, 20u, 21u, 500u}) {
        const std::size_t k = rig.poseAt(frame);
        EXPECT_EQ(k, std::min<std::size_t>(frame / 3, 6)) << frame;
        const ToolPose truth =
            compose(rig.baseInMeasurement, compose(rig.flangeInBase[k], rig.toolInFlange));
        const ToolPose seen = bodyPoseAt(scene, 0, frame);
        for (const Point3& p : toolMarkers(tool))
            EXPECT_LT(distance(toMeasurement(seen, p), toMeasurement(truth, p)), 1e-9) << frame;
        const Point3 tipByPose = toMeasurement(rig.toolPoseAt(frame), tool.tip);
        EXPECT_LT(distance(toMeasurement(seen, tool.tip), tipByPose), 1e-9) << frame;
    }
    const ToolPose round = compose(rig.toolInFlange, inverse(rig.toolInFlange));
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(round.R[i], i % 4 == 0 ? 1.0 : 0.0, 1e-15);
    for (double t : round.T) EXPECT_NEAR(t, 0.0, 1e-12);
}

TEST(CalibrationScenes, StayInViewAndMatchTheirFiles) {
    const struct {
        const char* file;  // the scene file that holds the same scene, if any
        Scene scene;
        std::uint64_t frames;  // a full cycle of the motion, or more
        std::size_t markers;   // all of the scene's markers
    } cases[] = {{"pivot_demo.scene", pivotScene(0.5), 200, 4},
                 {nullptr, pivotScene(0.6), 200, 4},
                 {"tip_calibration_demo.scene", tipCalibrationScene(), 760, 8},
                 {nullptr, referenceScene(), 1885, 13},
                 {nullptr, toolMakingScene(4), 1257, 4},
                 {nullptr, toolMakingScene(5), 1257, 5},
                 {nullptr, selfCalibrationScene(), 1257, 4},
                 {nullptr, robotScene(robotRig(40)), 40, 4}};
    for (const auto& [file, scene, frames, markers] : cases) {
        if (file) {
            EXPECT_EQ(formatScene(loadSceneFile(kScenes + file)), formatScene(scene)) << file;
        }
        ASSERT_EQ(scene.positionsAt(0).size(), markers);
        const SceneRenderer renderer(defaultDescription(), scene);
        for (std::uint64_t k = 0; k < frames; ++k) {
            const MarkerFrame frame = renderer.frame(k, 1);
            ASSERT_EQ(frame.left.size(), markers) << k;
            ASSERT_EQ(frame.right.size(), markers) << k;
        }
        for (const RigidBody& body : scene.bodies) {  // no two distances within 5 mm
            const std::vector<Point3> p = toolMarkers(body);
            std::vector<double> d;
            for (std::size_t i = 0; i < p.size(); ++i)
                for (std::size_t j = i + 1; j < p.size(); ++j) d.push_back(distance(p[i], p[j]));
            std::sort(d.begin(), d.end());
            for (std::size_t i = 1; i < d.size(); ++i) EXPECT_GT(d[i] - d[i - 1], 5.0) << body.name;
        }
    }
    // The pointer's tip and tip axis stay where the calibrator's are.
    const Scene tips = tipCalibrationScene();
    for (std::uint64_t k : {0u, 1u, 299u, 600u})
        for (const auto field : {&RigidBody::tip, &RigidBody::tipAxis})
            EXPECT_LT(distance(toMeasurement(bodyPoseAt(tips, 1, k), tips.bodies[1].*field),
                               toMeasurement(bodyPoseAt(tips, 0, k), tips.bodies[0].*field)),
                      1e-9);
}

TEST(SceneTools, PerturbedFilesHoldFileMarkersAndUnlistedBodiesNone) {
    const auto directory =
        std::filesystem::temp_directory_path() / ("vyx_scene_file_" + std::to_string(::getpid()));
    std::filesystem::create_directories(directory);
    const auto wandFile = [&](double mm, std::uint64_t seed) {
        Scene scene = selfCalibrationScene(mm, seed);
        scene.bodies.push_back(toolMakingScene(5).bodies[0]);
        EXPECT_TRUE(writeToolFiles(scene, directory.string()));
        EXPECT_FALSE(std::filesystem::exists(directory / "newtool.vyxtool"));
        std::ifstream file(directory / "wand.vyxtool");
        return std::string{std::istreambuf_iterator<char>(file), {}};
    };
    const std::string text = wandFile(0.4, 1);
    const RigidBody wand = selfCalibrationScene(0.4, 1).bodies[0];
    const std::vector<Point3> truth = toolMarkers(wand), written = fileMarkers(wand);
    std::istringstream in(text);
    std::string line;
    for (int i = 0; i < 3; ++i) std::getline(in, line);  // name, kind, count
    ASSERT_EQ(written.size(), 4u);
    for (std::size_t i = 0; i < 4; ++i) {
        Point3 p;
        ASSERT_TRUE(std::getline(in, line));
        std::istringstream(line) >> p.x >> p.y >> p.z;
        EXPECT_LT(distance(p, written[i]), 1e-5) << i;
        EXPECT_NEAR(distance(written[i], truth[i]), 0.4, 1e-9) << i;
        // Each marker its own way, not the whole tool shifted.
        const Point3 shift = minus(written[i], truth[i]), first = minus(written[0], truth[0]);
        EXPECT_TRUE(i == 0 || distance(shift, first) > 0.1) << i;
    }
    EXPECT_EQ(wandFile(0.4, 1), text);
    EXPECT_NE(wandFile(0.4, 2), text);
    EXPECT_EQ(wandFile(0.0, 1), wandFile(0.0, 2));  // unperturbed: the true points
    std::filesystem::remove_all(directory);
}

}  // namespace
