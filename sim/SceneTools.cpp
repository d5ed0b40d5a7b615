#include "sim/SceneTools.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <random>
#include <set>
#include <stdexcept>
#include <utility>

namespace vyx::sim {
namespace {

constexpr std::size_t kMaxToolNameLength = 199;
constexpr std::size_t kMaxToolFilePoints = 30;
constexpr double kTwoPi = 6.283185307179586;

Point3 minus(const Point3& a, const Point3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }

Point3 centroidOf(const RigidBody& body) {
    if (body.points.empty())
        throw std::invalid_argument("body '" + body.name + "' has no points");
    Point3 sum;
    for (const SceneMarker& m : body.points) {
        sum.x += m.position.x;
        sum.y += m.position.y;
        sum.z += m.position.z;
    }
    const double n = static_cast<double>(body.points.size());
    return {sum.x / n, sum.y / n, sum.z / n};
}

bool isUsableToolName(const std::string& name, std::set<std::string>& seen) {
    if (name.empty() || name.size() > kMaxToolNameLength || name == "." || name == "..")
        return false;
    for (char c : name)
        if (c == '/' || c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' ||
            c == '\f' || c == '\0')
            return false;
    return seen.insert(name).second;
}

std::string pointLine(const Point3& p) {
    char line[128];
    std::snprintf(line, sizeof line, "%f %f %f", p.x, p.y, p.z);
    return line;
}

bool isUsablePerturbation(double mm) { return mm >= 0.0 && std::isfinite(mm); }

// A direction uniform on the unit sphere from the seed and the marker index
// alone: z uniform in [-1, 1] and the azimuth uniform in [0, 2 pi), since
// bands of equal height cut equal areas from a sphere. Uniform numbers are
// made from the generator's raw 64-bit output, whose sequence the language
// fixes, rather than through a standard distribution, whose algorithm each
// standard library chooses, so that a tool file comes out the same wherever
// it is written.
Point3 perturbationDirection(std::uint64_t seed, std::uint64_t index) {
    std::seed_seq sequence{static_cast<std::uint32_t>(seed), static_cast<std::uint32_t>(seed >> 32),
                           static_cast<std::uint32_t>(index),
                           static_cast<std::uint32_t>(index >> 32)};
    std::mt19937_64 random(sequence);
    const auto uniform = [&random]() {  // [0, 1) in steps of 2^-53
        return static_cast<double>(random() >> 11) * 0x1p-53;
    };
    const double z = 2.0 * uniform() - 1.0;
    const double azimuth = kTwoPi * uniform();
    const double across = std::sqrt(1.0 - z * z);
    return {across * std::cos(azimuth), across * std::sin(azimuth), z};
}

std::string toolFileText(const RigidBody& body) {
    const std::size_t n = body.points.size();
    const unsigned long mask = (1ul << n) - 1ul;
    std::string text = body.name + "\n" + body.kind + "\n" + std::to_string(n) + "\n";
    for (const Point3& p : fileMarkers(body))
        text += pointLine(p) + " " + std::to_string(mask) + "\n";
    text += "2\n" + pointLine(body.tip) + "\n" + pointLine(body.tipAxis) + "\n";
    return text;
}

RigidBody demoBody(const char* name, const Point3& anchor, std::initializer_list<Point3> design) {
    RigidBody body;
    body.name = name;
    for (const Point3& d : design)
        body.points.push_back({{anchor.x + d.x, anchor.y + d.y, anchor.z + d.z}, Visibility::Both});
    return body;
}

}  // namespace

Point3 toMeasurement(const ToolPose& pose, const Point3& p) {
    const double* r = pose.R;
    return {r[0] * p.x + r[1] * p.y + r[2] * p.z + pose.T[0],
            r[3] * p.x + r[4] * p.y + r[5] * p.z + pose.T[1],
            r[6] * p.x + r[7] * p.y + r[8] * p.z + pose.T[2]};
}

std::vector<Point3> toolMarkers(const RigidBody& body) {
    const Point3 c = centroidOf(body);
    std::vector<Point3> local;
    local.reserve(body.points.size());
    for (const SceneMarker& m : body.points)
        local.push_back({m.position.x - c.x, m.position.y - c.y, m.position.z - c.z});
    return local;
}

std::vector<Point3> fileMarkers(const RigidBody& body) {
    const double mm = body.filePerturbationMm;
    if (!isUsablePerturbation(mm))
        throw std::invalid_argument("body '" + body.name + "' has a tool file perturbation of " +
                                    std::to_string(mm) + " mm, not zero or more");
    std::vector<Point3> points = toolMarkers(body);
    // Without a perturbation the file holds the true points bit for bit.
    if (mm == 0.0) return points;
    for (std::size_t i = 0; i < points.size(); ++i) {
        const Point3 d = perturbationDirection(body.filePerturbationSeed, i);
        points[i] = {points[i].x + mm * d.x, points[i].y + mm * d.y, points[i].z + mm * d.z};
    }
    return points;
}

ToolPose bodyPoseAt(const Scene& scene, std::size_t bodyIndex, std::uint64_t frameIndex) {
    if (bodyIndex >= scene.bodies.size())
        throw std::out_of_range("body index " + std::to_string(bodyIndex) + " beyond the " +
                                std::to_string(scene.bodies.size()) + " bodies of the scene");
    const Point3 c = centroidOf(scene.bodies[bodyIndex]);
    const double seconds = scene.timeAt(frameIndex);
    // Every motion is rigid, and so is a chain of them, so the pose follows
    // from where the body's motions take the origin and the three unit
    // points of the tool frame.
    const auto at = [&](const Point3& p) { return scene.bodyPointAt(bodyIndex, p, seconds); };
    const Point3 origin = at(c);
    const Point3 ex = at({c.x + 1.0, c.y, c.z});
    const Point3 ey = at({c.x, c.y + 1.0, c.z});
    const Point3 ez = at({c.x, c.y, c.z + 1.0});
    ToolPose pose{};
    const Point3 columns[3] = {ex, ey, ez};
    for (int k = 0; k < 3; ++k) {
        pose.R[0 + k] = columns[k].x - origin.x;
        pose.R[3 + k] = columns[k].y - origin.y;
        pose.R[6 + k] = columns[k].z - origin.z;
    }
    pose.T[0] = origin.x;
    pose.T[1] = origin.y;
    pose.T[2] = origin.z;
    return pose;
}

bool writeToolFiles(const Scene& scene, const std::string& directory) {
    std::set<std::string> names;
    for (const RigidBody& body : scene.bodies)
        if (!isUsableToolName(body.name, names) || body.points.empty() ||
            body.points.size() > kMaxToolFilePoints || (body.kind != 'T' && body.kind != 'C') ||
            !isUsablePerturbation(body.filePerturbationMm))
            return false;
    const std::string prefix =
        directory.empty() || directory.back() == '/' ? directory : directory + "/";
    for (const RigidBody& body : scene.bodies) {
        if (!body.listed) continue;
        std::ofstream file(prefix + body.name + ".vyxtool", std::ios::binary | std::ios::trunc);
        file << toolFileText(body);
        file.close();
        if (!file) return false;
    }
    return true;
}

Scene trackingDemoScene() {
    Scene scene;
    scene.frameRateHz = 60.0;

    RigidBody reference = demoBody("reference", {-150.0, 40.0, 1600.0},
                                   {{110, -50, 0}, {68, 59, 0}, {-103, 15, 0}, {-27, 52, 0}});
    scene.bodies.push_back(std::move(reference));

    RigidBody pointer = demoBody("pointer", {150.0, -80.0, 1350.0},
                                 {{20, -12, 0}, {-53, -22, 0}, {39, 36, 0}, {-19, -33, 0}});
    pointer.motion = Motion::oscillate({60.0, 0.0, 100.0}, 4.0);
    pointer.tip = {0.0, 150.0, 0.0};
    pointer.tipAxis = {0.0, 50.0, 0.0};
    scene.bodies.push_back(std::move(pointer));

    // Centroid: the anchor plus (14.6, -3.4, 0).
    RigidBody handpiece =
        demoBody("handpiece", {10.0, 100.0, 1800.0},
                 {{-32, -52, 0}, {73, 59, 0}, {25, -61, 0}, {81, -6, 0}, {-74, 43, 0}});
    handpiece.motion = Motion::rotate({1.0, 2.0, 2.0}, {24.6, 96.6, 1800.0}, 0.5);
    scene.bodies.push_back(std::move(handpiece));

    scene.strayCentresPerCamera = 2;
    scene.straySeed = 7;
    return scene;
}

Scene pivotScene(double halfAngleRad, double framesPerRevolution) {
    if (!(framesPerRevolution > 0.0) || !std::isfinite(framesPerRevolution))
        throw std::invalid_argument("frames per revolution must be positive, not " +
                                    std::to_string(framesPerRevolution));
    Scene scene;
    scene.frameRateHz = 60.0;
    // The layout's centroid is its anchor; the shaft runs 150 mm down from
    // there to the tip in the pivot.
    RigidBody probe = demoBody("probe", {0.0, -60.0, 1500.0},
                               {{-25, 45, 0}, {25, 20, 0}, {50, -40, 0}, {-50, -25, 0}});
    const Point3 pivot{0.0, 90.0, 1500.0};
    const Point3 centroid = centroidOf(probe);
    const Point3 toPivot = minus(pivot, centroid);
    probe.tip = toPivot;
    probe.tipAxis = {0.5 * toPivot.x, 0.5 * toPivot.y, 0.5 * toPivot.z};
    const double precession = kTwoPi * scene.frameRateHz / framesPerRevolution;
    probe.motion = Motion::pivot(pivot, minus(centroid, pivot), halfAngleRad, precession,
                                 0.1 * precession);
    scene.bodies.push_back(std::move(probe));
    return scene;
}

Scene tipCalibrationScene(double radPerSecond) {
    Scene scene;
    scene.frameRateHz = 60.0;
    // The hole's bottom, and the point 30 mm up its axis, which leans from
    // straight up (-Y) towards the cameras: (0, -0.8, -0.6).
    const Point3 hole{0.0, 20.0, 1400.0};
    const Point3 upTheHole{0.0, -4.0, 1382.0};

    RigidBody calibrator = demoBody("calibrator", hole,
                                    {{73, 46, 0}, {-87, 150, 0}, {-6, 117, 0}, {-79, 17, 0}});
    calibrator.kind = 'C';
    calibrator.tip = minus(hole, centroidOf(calibrator));
    calibrator.tipAxis = minus(upTheHole, centroidOf(calibrator));

    // In a plane through the hole axis: s mm up the axis and r mm across
    // (along x) from the tip, (r, s) = (20, 120), (35, 155), (-58, 130),
    // (-30, 135), chosen so that the markers stay apart in the images when
    // the plane turns edge-on.
    RigidBody pointer =
        demoBody("pointer", hole,
                 {{20, -96, -72}, {35, -124, -93}, {-58, -104, -78}, {-30, -108, -81}});
    pointer.tip = minus(hole, centroidOf(pointer));
    pointer.tipAxis = minus(upTheHole, centroidOf(pointer));
    pointer.motion = Motion::rotate(minus(upTheHole, hole), hole, radPerSecond);
    pointer.attachedTo = calibrator.name;

    scene.bodies.push_back(std::move(calibrator));
    scene.bodies.push_back(std::move(pointer));
    return scene;
}

Scene referenceScene() {
    Scene scene;
    scene.frameRateHz = 60.0;
    RigidBody reference = demoBody("patient_ref", {-40.0, 30.0, 1600.0},
                                   {{83, 43, 0}, {31, -64, 0}, {-101, -50, 0}, {-91, 94, 0}});
    reference.motion = Motion::rotate({1.0, -2.0, 6.0}, {60.0, 50.0, 1600.0}, 0.2);

    RigidBody pointer = demoBody("pointer", {120.0, -110.0, 1480.0},
                                 {{54, -26, 0}, {-40, 36, 0}, {-26, -11, 0}, {45, 15, 0}});
    pointer.tip = {0.0, 150.0, 0.0};
    pointer.tipAxis = {0.0, 50.0, 0.0};
    pointer.attachedTo = reference.name;

    RigidBody drill =
        demoBody("drill", {190.0, 190.0, 1700.0},
                 {{-69, 1, 0}, {-54, -55, 0}, {86, 32, 0}, {-61, 70, 0}, {24, 17, 0}});
    drill.motion = Motion::rotate({1.0, 1.0, 4.0}, {175.0, 200.0, 1700.0}, 0.3);
    drill.tip = {0.0, 40.0, 160.0};
    drill.tipAxis = {0.0, 15.0, 60.0};
    drill.attachedTo = reference.name;

    scene.bodies.push_back(std::move(reference));
    scene.bodies.push_back(std::move(pointer));
    scene.bodies.push_back(std::move(drill));
    return scene;
}

Scene toolMakingScene(std::size_t markerCount) {
    if (markerCount != 4 && markerCount != 5)
        throw std::invalid_argument("a tool to make has 4 or 5 markers, not " +
                                    std::to_string(markerCount));
    // Two markers off the plane by a few millimetres, so that the
    // constellation is not flat; four markers take the first four.
    const Point3 layout[] = {{54, 43, 0}, {-30, 45, 0}, {41, -32, 4}, {-62, 13, 0}, {-11, -21, -3}};
    const Point3 anchor{0.0, -10.0, 1500.0};
    RigidBody tool;
    tool.name = "newtool";
    tool.listed = false;
    for (std::size_t i = 0; i < markerCount; ++i)
        tool.points.push_back(
            {{anchor.x + layout[i].x, anchor.y + layout[i].y, anchor.z + layout[i].z},
             Visibility::Both});
    tool.motion = Motion::rotate({1.0, -1.0, 3.0}, centroidOf(tool), 0.3);

    Scene scene;
    scene.frameRateHz = 60.0;
    scene.bodies.push_back(std::move(tool));
    return scene;
}

Scene selfCalibrationScene(double perturbationMm, std::uint64_t seed) {
    if (!isUsablePerturbation(perturbationMm))
        throw std::invalid_argument("a tool file perturbation must be zero or more, not " +
                                    std::to_string(perturbationMm));
    RigidBody wand = demoBody("wand", {20.0, 0.0, 1500.0},
                              {{61, 11, 0}, {9, 48, 0}, {28, -70, 0}, {-46, -6, 0}});
    wand.motion = Motion::rotate({-1.0, 2.0, 5.0}, centroidOf(wand), 0.3);
    wand.filePerturbationMm = perturbationMm;
    wand.filePerturbationSeed = seed;

    Scene scene;
    scene.frameRateHz = 60.0;
    scene.bodies.push_back(std::move(wand));
    return scene;
}

LengthBar lengthBarScene(double certificateScale, double radPerSecond) {
    if (!(certificateScale > 0.0) || !std::isfinite(certificateScale))
        throw std::invalid_argument("a certificate scale must be positive and finite, not " +
                                    std::to_string(certificateScale));
    // End A's centre and design, then end B's.
    const Point3 centres[2] = {{-110.0, 20.0, 1480.0}, {170.0, 20.0, 1520.0}};
    const Point3 designs[2][4] = {{{40, 40, 0}, {-30, 50, 0}, {-15, -45, 0}, {-20, 10, 0}},
                                  {{25, 0, 0}, {-50, 0, 0}, {-50, 45, 0}, {15, -50, 0}}};
    RigidBody bar;
    bar.name = "lengthbar";
    bar.listed = false;
    for (int end = 0; end < 2; ++end) {
        const Point3& c = centres[end];
        for (const Point3& d : designs[end])
            bar.points.push_back({{c.x + d.x, c.y + d.y, c.z + d.z}, Visibility::Both});
    }
    bar.motion = Motion::rotate({0.25, -0.2, 1.0}, {0.0, 0.0, 1500.0}, radPerSecond);

    LengthBar out;
    const std::vector<Point3> local = toolMarkers(bar);
    for (const Point3& p : local)
        out.certificate.push_back(
            {certificateScale * p.x, certificateScale * p.y, certificateScale * p.z});
    Point3 centroid[2];
    for (std::size_t i = 0; i < local.size(); ++i) {
        Point3& c = centroid[i / 4];
        c = {c.x + local[i].x / 4.0, c.y + local[i].y / 4.0, c.z + local[i].z / 4.0};
    }
    const Point3 d = minus(centroid[0], centroid[1]);
    out.trueLengthMm = std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z);
    out.certifiedLengthMm = certificateScale * out.trueLengthMm;
    out.scene.frameRateHz = 60.0;
    out.scene.bodies.push_back(std::move(bar));
    return out;
}

}  // namespace vyx::sim
