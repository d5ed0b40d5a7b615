// Scenes of the virtual tracker: their frames reconstruct, through the
// library's own configuration reader, compensation and triangulation, to the
// scene's points; the scene file format; noise, strays and one-camera markers.
#include "camera/CameraParameters.h"
#include "camera/StereoCompensation.h"
#include "camera/Triangulation.h"
#include "sim/ConfigurationImage.h"
#include "sim/Scene.h"
#include "sim/SceneFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace vyx::sim;

// ---- A host's reading of the configuration and of a frame ------------------

// The camera model a host builds from the configuration it reads.
class HostModel {
public:
    explicit HostModel(const DeviceDescription& d) {
        const auto bytes = d.longConfiguration ? encodeLongConfiguration(d)
                                               : encodeShortConfiguration(d);
        const char* data = reinterpret_cast<const char*>(bytes.data());
        block_.configDataMode = 1024;
        block_.setCamParam(data);
        if (d.longConfiguration) block_.setMultiCamParam(data, bytes.size());
    }

    // One pair of centres as a host reconstructs it, depth factor applied.
    Point3 reconstruct(double temperature, float leftU, float leftV, float rightU,
                       float rightV) const {
        StereoWorkingModel model;
        CalculateSysPara(block_, temperature, model);
        CalculateMlrRT_SEF(model);
        const cv::Mat left = (cv::Mat_<double>(1, 3) << leftU, leftV, 1.0);
        const cv::Mat right = (cv::Mat_<double>(1, 3) << rightU, rightV, 1.0);
        cv::Mat out;
        Compute3DPoints(left, right, out, model.left, model.right);
        return {out.at<double>(0), out.at<double>(1), out.at<double>(2) * model.zFactor};
    }

private:
    CameraParameterBlock block_;
};

float wireFloat(const std::array<std::uint8_t, kMarkerFrameBytes>& b, std::size_t offset) {
    float value = 0.0f;
    std::memcpy(&value, b.data() + offset, sizeof value);
    return value;
}

double distance(const Point3& a, const Point3& b) {
    return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}

// ---- Rigs -------------------------------------------------------------------

// Turned `aboutY` about y, then tilted `aboutX` about x (Rx Ry).
std::array<double, 9> rotation(double aboutY, double aboutX) {
    const double cy = std::cos(aboutY), sy = std::sin(aboutY);
    const double cx = std::cos(aboutX), sx = std::sin(aboutX);
    return {cy, 0, sy, sx * sy, cx, -sx * cy, -cx * sy, sx, cx * cy};
}

struct Rig {
    const char* name;
    DeviceDescription description;
};

std::vector<Rig> rigs() {
    std::vector<Rig> all;
    all.push_back({"default", defaultDescription()});

    DeviceDescription distorted = defaultDescription();
    distorted.calibration1.left.distCoeffs = {-0.2, 0.08, 2e-4, -1e-4, 0.0};
    distorted.calibration1.right.distCoeffs = distorted.calibration1.left.distCoeffs;
    distorted.calibration2 = distorted.calibration1;
    for (TemperatureCalibration& row : distorted.longConfiguration->entries)
        row.cameras = distorted.calibration1;
    all.push_back({"distortion", distorted});

    // Two sets that differ, interpolated and extrapolated (no table).
    DeviceDescription twoSets = defaultDescription();
    twoSets.longConfiguration.reset();
    twoSets.calibration2->right.rotation = rotation(-0.104, 0.003);
    twoSets.calibration2->right.translation = {500.6, 0.4, -0.3};
    twoSets.zFactor1 = 0.999;
    twoSets.zFactor2 = 1.002;
    all.push_back({"two sets", twoSets});

    DeviceDescription table = defaultDescription();
    table.longConfiguration->entries.clear();
    const double temperatures[] = {15.0, 30.0, 45.0};
    const double turns[] = {-0.098, -0.1, -0.103};
    const double baselines[] = {499.7, 500.0, 500.4};
    const double focals[] = {1399.0, 1400.0, 1401.5};
    const double depthFactors[] = {0.998, 1.0, 1.003};
    for (int i = 0; i < 3; ++i) {
        StereoCalibration c = table.calibration1;
        c.right.rotation = rotation(turns[i], 0.001 * i);
        c.right.translation = {baselines[i], 0.2 * i, 0.0};
        c.left.cameraMatrix[0] = c.left.cameraMatrix[4] = focals[i];
        table.longConfiguration->entries.push_back({temperatures[i], c, depthFactors[i]});
    }
    all.push_back({"table", table});
    return all;
}

// ---- Reconstruction ---------------------------------------------------------

TEST(SceneFrames, ReconstructThroughTheHostPipelineToTheScenePoints) {
    std::vector<Point3> points;
    for (double z : {1000.0, 1800.0, 2800.0})
        for (double x : {-0.15, 0.0, 0.15})
            for (double y : {-0.1, 0.0, 0.1}) points.push_back({x * z, y * z, z});
    // Below, at, between and above the calibration temperatures.
    const double temperatures[] = {5.0, 20.0, 26.37, 33.3, 40.0, 52.5};

    for (const Rig& rig : rigs()) {
        const HostModel host(rig.description);
        double worstMm = 0.0;
        for (double temperature : temperatures)
            for (const Point3& truth : points) {
                Scene scene;
                scene.markers = {{truth, Visibility::Both}};
                scene.temperatureCelsius = temperature;
                const auto wire =
                    encodeMarkerFrame(SceneRenderer(rig.description, scene).frame(0, 1));
                ASSERT_EQ(wire[4], 1) << rig.name;
                ASSERT_EQ(wire[8], 1) << rig.name;
                std::int16_t hundredths = 0;
                std::memcpy(&hundredths, wire.data() + 4002, sizeof hundredths);
                const Point3 back =
                    host.reconstruct(static_cast<float>(hundredths) / 100.0f, wireFloat(wire, 10),
                                     wireFloat(wire, 14), wireFloat(wire, 1610),
                                     wireFloat(wire, 1614));
                worstMm = std::max(worstMm, distance(back, truth));
            }
        std::cout << "[          ] " << rig.name << ": worst round trip " << worstMm << " mm\n";
        EXPECT_LT(worstMm, 2e-3) << rig.name;
    }
}

// ---- Frames -------------------------------------------------------------------

TEST(SceneFrameSource, CountsItsOwnRequestsAndReportsTheTemperatureRamp) {
    Scene scene;
    scene.markers = {{{0, 0, 1500}, Visibility::Both}};
    scene.temperatureCelsius = 25.0;
    scene.temperatureStepPerFrame = 0.01;
    auto source = sceneFrameSource(defaultDescription(), scene);
    for (std::uint32_t k = 0; k < 300; ++k) {
        const MarkerFrame frame = source(1000 + 7 * k);  // the tracker's index plays no part
        ASSERT_EQ(frame.extendedId.value_or(0), k + 1);
        ASSERT_EQ(frame.frameId, (k + 1) & 0xFF);
        ASSERT_EQ(frame.status.temperature1Hundredths, 2500 + static_cast<int>(k));
    }
    scene.extendedId = false;
    EXPECT_FALSE(sceneFrameSource(defaultDescription(), scene)(0).extendedId.has_value());
}

TEST(SceneFrames, OneCameraMarkersAppearInOneListOnly) {
    const DeviceDescription d = defaultDescription();
    const auto frameOf = [&](std::vector<SceneMarker> markers) {
        Scene scene;
        scene.markers = std::move(markers);
        return SceneRenderer(d, scene).frame(0, 1);
    };
    const Point3 ahead{0, 0, 1500};
    const Point3 farLeft{-700, 0, 1500};  // outside the right image
    MarkerFrame f = frameOf({{ahead, Visibility::LeftOnly}});
    EXPECT_EQ(f.left.size(), 1u);
    EXPECT_EQ(f.right.size(), 0u);
    f = frameOf({{ahead, Visibility::RightOnly}});
    EXPECT_EQ(f.left.size(), 0u);
    EXPECT_EQ(f.right.size(), 1u);
    f = frameOf({{farLeft, Visibility::Both}});
    EXPECT_EQ(f.left.size(), 1u);
    EXPECT_EQ(f.right.size(), 0u);

    Scene scene;
    scene.markers = {{ahead, Visibility::LeftOnly}, {{100, 0, 1500}, Visibility::Both}};
    ASSERT_EQ(scene.markersAt(0).size(), 1u);
    EXPECT_EQ(scene.markersAt(0)[0].x, 100.0);
}

TEST(SceneFrames, StraysJoinRasterOrderedListsCutAt200) {
    Scene scene;
    scene.markers = {{{0, 0, 1500}, Visibility::Both}, {{50, 80, 1600}, Visibility::Both}};
    scene.strayCentresPerCamera = 3;
    MarkerFrame f = SceneRenderer(defaultDescription(), scene).frame(4, 5);
    EXPECT_EQ(f.left.size(), 5u);
    EXPECT_EQ(f.right.size(), 5u);

    scene.strayCentresPerCamera = 200;
    f = SceneRenderer(defaultDescription(), scene).frame(4, 5);
    for (const auto* list : {&f.left, &f.right}) {
        ASSERT_EQ(list->size(), 200u);
        EXPECT_TRUE(std::is_sorted(list->begin(), list->end(), [](const ImagePoint& a, const ImagePoint& b) {
            return a.y != b.y ? a.y < b.y : a.x < b.x;
        }));
    }
}

TEST(SceneNoise, IsReproducibleFromItsSeedWithTheRequestedSigma) {
    // 60 markers whose rows lie about 9 px apart, so that noise of 0.25 px
    // cannot change their raster order.
    Scene clean;
    for (int i = 0; i < 60; ++i)
        clean.markers.push_back({{-200.0 + 7.0 * (i % 9), -300.0 + 10.0 * i, 1500.0},
                                 Visibility::Both});
    Scene noisy = clean;
    noisy.noiseSigmaPx = 0.25;
    noisy.noiseSeed = 42;
    const DeviceDescription d = defaultDescription();

    const MarkerFrame exact = SceneRenderer(d, clean).frame(3, 4);
    const MarkerFrame a = SceneRenderer(d, noisy).frame(3, 4);
    const MarkerFrame b = SceneRenderer(d, noisy).frame(3, 4);
    ASSERT_EQ(a.left.size(), 60u);
    ASSERT_EQ(a.right.size(), 60u);
    ASSERT_EQ(exact.left.size(), 60u);
    double sum = 0.0, sumSquares = 0.0;
    bool allSame = true;
    for (std::size_t i = 0; i < 60; ++i) {
        EXPECT_EQ(a.left[i].x, b.left[i].x);
        EXPECT_EQ(a.right[i].y, b.right[i].y);
        for (const double e : {a.left[i].x - exact.left[i].x, a.left[i].y - exact.left[i].y,
                               a.right[i].x - exact.right[i].x, a.right[i].y - exact.right[i].y}) {
            sum += e;
            sumSquares += e * e;
        }
    }
    const double n = 240.0;
    const double sigma = std::sqrt(sumSquares / n - (sum / n) * (sum / n));
    EXPECT_NEAR(sigma, 0.25, 0.05);
    EXPECT_LT(std::abs(sum / n), 0.06);

    noisy.noiseSeed = 43;
    const MarkerFrame other = SceneRenderer(d, noisy).frame(3, 4);
    for (std::size_t i = 0; i < 60; ++i) allSame = allSame && other.left[i].x == a.left[i].x;
    EXPECT_FALSE(allSame);
}

// ---- Scene files ----------------------------------------------------------------

const char* const kFullScene = R"(# every statement once
framerate 120
marker 10 -20 1500
marker -700 0 1500.25 left   # seen by the left camera only
body probe
point 0 0 1400
point 60 0 1400 right
motion rotate 0 1 0  0 0 1450  0.75
body cart
point 5 5 2000
motion translate 100 0 -50
noise 0.1 seed 42
stray 2 seed 9
temperature ramp 25 0.01
extendedid off
cameravalues 3 7
)";

TEST(SceneFile, ReadsEveryStatementAndWritesItBackExactly) {
    const Scene scene = parseScene(std::string(kFullScene));
    EXPECT_EQ(scene.frameRateHz, 120.0);
    ASSERT_EQ(scene.markers.size(), 2u);
    EXPECT_EQ(scene.markers[1].visibility, Visibility::LeftOnly);
    EXPECT_EQ(scene.markers[1].position.z, 1500.25);
    ASSERT_EQ(scene.bodies.size(), 2u);
    EXPECT_EQ(scene.bodies[0].points[1].visibility, Visibility::RightOnly);
    EXPECT_EQ(scene.bodies[0].motion.kind, Motion::Kind::Rotate);
    EXPECT_EQ(scene.bodies[1].motion.kind, Motion::Kind::Translate);
    EXPECT_EQ(scene.noiseSigmaPx, 0.1);
    EXPECT_EQ(scene.noiseSeed, 42u);
    EXPECT_EQ(scene.strayCentresPerCamera, 2u);
    EXPECT_EQ(scene.temperatureHundredthsAt(100), 2600);
    EXPECT_FALSE(scene.extendedId);
    EXPECT_EQ(scene.rightCameraValue, 7);

    // Half a turn of the probe about y through (0, 0, 1450), a second of the cart.
    const auto at = scene.markersAt(static_cast<std::uint64_t>(120 * 3.141592653589793 / 0.75 + 0.5));
    EXPECT_NEAR(at[1].z, 1500.0, 0.2);
    const auto second = scene.markersAt(120);
    EXPECT_NEAR(second.back().x, 105.0, 1e-9);
    EXPECT_NEAR(second.back().z, 1950.0, 1e-9);

    const std::string text = formatScene(scene);
    const Scene again = parseScene(text);
    EXPECT_EQ(formatScene(again), text);
    for (std::uint64_t frame : {0u, 77u, 1000u}) {
        const auto p = scene.positionsAt(frame), q = again.positionsAt(frame);
        ASSERT_EQ(p.size(), q.size());
        for (std::size_t i = 0; i < p.size(); ++i) EXPECT_EQ(distance(p[i].position, q[i].position), 0.0);
    }
}

TEST(SceneFile, NamesTheLineOfAFault) {
    const struct {
        const char* text;
        std::size_t line;
    } cases[] = {
        {"framerate 60\n\nmarkr 0 0 1000\n", 3},
        {"# points need a body\npoint 0 0 1000\n", 2},
        {"marker 0 0\n", 1},
        {"marker 0 0 1000 both\n", 1},
        {"marker 0 zero 1000\n", 1},
        {"noise -0.1\n", 1},
        {"noise 0.1 seed\n", 1},
        {"stray 201\n", 1},
        {"body a\npoint 0 0 1000\nmotion rotate 0 0 0 0 0 0 1\n", 3},
        {"body a\npoint 0 0 1000\nmotion still\nmotion translate 1 0 0\n", 4},
        {"marker 0 0 1000\nbody empty\nmarker 1 1 1000\n", 2},
        {"temperature 400\n", 1},
        {"cameravalues 3 256\n", 1},
        {"framerate 0\n", 1},
    };
    for (const auto& c : cases) {
        try {
            parseScene(std::string(c.text), "bad.scene");
            ADD_FAILURE() << "accepted: " << c.text;
        } catch (const SceneFileError& e) {
            EXPECT_EQ(e.line(), c.line) << c.text;
            EXPECT_EQ(std::string(e.what()).rfind("bad.scene:" + std::to_string(c.line) + ": ", 0),
                      0u)
                << e.what();
        }
    }
}

TEST(SceneFile, ShippedExampleReadsAndIsSeenByBothCameras) {
    const std::string here = __FILE__;
    const std::string file =
        here.substr(0, here.rfind('/') + 1) + "../../sim/scenes/tool_demo.scene";
    const Scene scene = loadSceneFile(file);
    const MarkerFrame frame = SceneRenderer(defaultDescription(), scene).frame(0, 1);
    EXPECT_GE(scene.markersAt(0).size(), 4u);
    EXPECT_GE(frame.left.size(), scene.markersAt(0).size());
    EXPECT_THROW(loadSceneFile(file + ".missing"), SceneFileError);
}

}  // namespace
