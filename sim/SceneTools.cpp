#include "sim/SceneTools.h"

#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <set>
#include <stdexcept>
#include <utility>

namespace vyx::sim {
namespace {

constexpr std::size_t kMaxToolNameLength = 199;
constexpr std::size_t kMaxToolFilePoints = 30;

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

std::string toolFileText(const RigidBody& body) {
    const std::size_t n = body.points.size();
    const unsigned long mask = (1ul << n) - 1ul;
    std::string text = body.name + "\nT\n" + std::to_string(n) + "\n";
    for (const Point3& p : toolMarkers(body))
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

ToolPose bodyPoseAt(const Scene& scene, std::size_t bodyIndex, std::uint64_t frameIndex) {
    if (bodyIndex >= scene.bodies.size())
        throw std::out_of_range("body index " + std::to_string(bodyIndex) + " beyond the " +
                                std::to_string(scene.bodies.size()) + " bodies of the scene");
    const RigidBody& body = scene.bodies[bodyIndex];
    const Point3 c = centroidOf(body);
    const double seconds = scene.timeAt(frameIndex);
    // Every motion is rigid, so the pose follows from where it takes the
    // origin and the three unit points of the tool frame.
    const Point3 origin = body.motion.at(c, seconds);
    const Point3 ex = body.motion.at({c.x + 1.0, c.y, c.z}, seconds);
    const Point3 ey = body.motion.at({c.x, c.y + 1.0, c.z}, seconds);
    const Point3 ez = body.motion.at({c.x, c.y, c.z + 1.0}, seconds);
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
            body.points.size() > kMaxToolFilePoints)
            return false;
    const std::string prefix =
        directory.empty() || directory.back() == '/' ? directory : directory + "/";
    for (const RigidBody& body : scene.bodies) {
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

}  // namespace vyx::sim
