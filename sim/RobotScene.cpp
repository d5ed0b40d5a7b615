#include "sim/RobotScene.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <utility>

namespace vyx::sim {
namespace {

constexpr double kQuarterTurn = 1.5707963267948966;
constexpr double kGoldenAngle = 2.399963229728653;  // pi (3 - sqrt 5)
constexpr double kFrameRateHz = 60.0;

// Rotation matrix (row-major) of a rotation vector, by Rodrigues' formula.
void rotationOf(const Point3& v, double R[9]) {
    const double angle = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
    const double k[3] = {angle > 0.0 ? v.x / angle : 0.0, angle > 0.0 ? v.y / angle : 0.0,
                         angle > 0.0 ? v.z / angle : 0.0};
    const double c = std::cos(angle), s = std::sin(angle);
    const double skew[9] = {0.0, -k[2], k[1], k[2], 0.0, -k[0], -k[1], k[0], 0.0};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            R[3 * i + j] = (i == j ? c : 0.0) + s * skew[3 * i + j] + (1.0 - c) * k[i] * k[j];
}

// Rotation vector of a rotation matrix (row-major), through its unit
// quaternion taken from the largest of its four squared components, so that
// it is accurate at every angle, a half-turn included.
Point3 rotationVectorOf(const double R[9]) {
    const double trace = R[0] + R[4] + R[8];
    double w, x, y, z;
    if (trace > R[0] && trace > R[4] && trace > R[8]) {
        const double s = 2.0 * std::sqrt(1.0 + trace);
        w = s / 4.0, x = (R[7] - R[5]) / s, y = (R[2] - R[6]) / s, z = (R[3] - R[1]) / s;
    } else if (R[0] >= R[4] && R[0] >= R[8]) {
        const double s = 2.0 * std::sqrt(1.0 + R[0] - R[4] - R[8]);
        w = (R[7] - R[5]) / s, x = s / 4.0, y = (R[1] + R[3]) / s, z = (R[2] + R[6]) / s;
    } else if (R[4] >= R[8]) {
        const double s = 2.0 * std::sqrt(1.0 + R[4] - R[0] - R[8]);
        w = (R[2] - R[6]) / s, x = (R[1] + R[3]) / s, y = s / 4.0, z = (R[5] + R[7]) / s;
    } else {
        const double s = 2.0 * std::sqrt(1.0 + R[8] - R[0] - R[4]);
        w = (R[3] - R[1]) / s, x = (R[2] + R[6]) / s, y = (R[5] + R[7]) / s, z = s / 4.0;
    }
    if (w < 0.0) w = -w, x = -x, y = -y, z = -z;
    const double sine = std::sqrt(x * x + y * y + z * z);
    if (sine == 0.0) return {};
    const double angle = 2.0 * std::atan2(sine, w);
    return {x / sine * angle, y / sine * angle, z / sine * angle};
}

ToolPose poseOf(const Point3& rotationVector, const Point3& translation) {
    ToolPose pose{};
    rotationOf(rotationVector, pose.R);
    pose.T[0] = translation.x;
    pose.T[1] = translation.y;
    pose.T[2] = translation.z;
    return pose;
}

}  // namespace

ToolPose compose(const ToolPose& a, const ToolPose& b) {
    ToolPose out{};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) out.R[3 * i + j] += a.R[3 * i + k] * b.R[3 * k + j];
        out.T[i] = a.T[i];
        for (int k = 0; k < 3; ++k) out.T[i] += a.R[3 * i + k] * b.T[k];
    }
    return out;
}

ToolPose inverse(const ToolPose& pose) {
    ToolPose out{};
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) out.R[3 * i + j] = pose.R[3 * j + i];
        for (int k = 0; k < 3; ++k) out.T[i] -= pose.R[3 * k + i] * pose.T[k];
    }
    return out;
}

std::size_t RobotRig::poseAt(std::uint64_t frameIndex) const {
    const std::uint64_t pose = frameIndex / std::max<std::uint64_t>(framesPerPose, 1);
    const std::size_t last = flangeInBase.empty() ? 0 : flangeInBase.size() - 1;
    return static_cast<std::size_t>(std::min<std::uint64_t>(pose, last));
}

ToolPose RobotRig::toolPoseAt(std::uint64_t frameIndex) const {
    return compose(baseInMeasurement, compose(flangeInBase.at(poseAt(frameIndex)), toolInFlange));
}

Scene robotScene(const RobotRig& rig) {
    if (rig.flangeInBase.empty() || rig.framesPerPose == 0 || rig.tool.points.empty())
        throw std::invalid_argument("a robot rig needs flange poses, at least one frame per "
                                    "pose and a tool with points");
    // Placement k takes the tool from its rest pose (identity rotation, at
    // the centroid c) to its pose P_k: p -> R_k p + (T_k - R_k c).
    const Point3 c = [&] {
        const Point3 first = rig.tool.points[0].position, local = toolMarkers(rig.tool)[0];
        return Point3{first.x - local.x, first.y - local.y, first.z - local.z};
    }();
    std::vector<Placement> placements;
    for (const ToolPose& flange : rig.flangeInBase) {
        const ToolPose P = compose(rig.baseInMeasurement, compose(flange, rig.toolInFlange));
        const double* r = P.R;
        placements.push_back({rotationVectorOf(P.R),
                              {P.T[0] - (r[0] * c.x + r[1] * c.y + r[2] * c.z),
                               P.T[1] - (r[3] * c.x + r[4] * c.y + r[5] * c.z),
                               P.T[2] - (r[6] * c.x + r[7] * c.y + r[8] * c.z)}});
    }
    Scene scene;
    scene.frameRateHz = kFrameRateHz;
    RigidBody tool = rig.tool;
    tool.motion = Motion::steps(std::move(placements),
                                static_cast<double>(rig.framesPerPose) / kFrameRateHz);
    scene.bodies.push_back(std::move(tool));
    return scene;
}

RobotRig robotRig(std::size_t poseCount, std::uint64_t framesPerPose) {
    if (poseCount == 0 || framesPerPose == 0)
        throw std::invalid_argument("a robot rig needs at least one pose of at least one frame");
    RobotRig rig;
    rig.framesPerPose = framesPerPose;
    rig.tool.name = "robot_tool";
    const Point3 anchor{0.0, 0.0, 1500.0};
    for (const Point3& d : {Point3{62, -8, 0}, Point3{-47, 45, 0}, Point3{-67, -57, 0},
                            Point3{41, 57, 0}})
        rig.tool.points.push_back({{anchor.x + d.x, anchor.y + d.y, anchor.z}, Visibility::Both});
    rig.tool.tip = {0.0, 130.0, 40.0};
    rig.tool.tipAxis = {0.0, 70.0, 20.0};

    // The base: a quarter turn about X takes its Z axis to -Y (up), then a
    // turn of 0.5 rad about its own Z.
    rig.baseInMeasurement = compose(poseOf({kQuarterTurn, 0.0, 0.0}, {450.0, 900.0, 1500.0}),
                                    poseOf({0.0, 0.0, 0.5}, {}));
    rig.toolInFlange = poseOf({0.35, -0.25, 2.1}, {10.0, -25.0, 190.0});

    // Tool poses: turned by 0.25 to 0.4 rad from facing the cameras about
    // axes on a spiral over the sphere, and moved about (0, 0, 1500); the
    // flange pose that puts the tool there is base^-1 P toolInFlange^-1.
    const ToolPose baseInverse = inverse(rig.baseInMeasurement);
    const ToolPose flangeInTool = inverse(rig.toolInFlange);
    const double n = static_cast<double>(poseCount);
    for (std::size_t i = 0; i < poseCount; ++i) {
        const double k = static_cast<double>(i);
        const double z = 1.0 - (2.0 * k + 1.0) / n, across = std::sqrt(1.0 - z * z);
        const double spread = k * 0.6180339887498949;
        const double angle = 0.25 + 0.15 * (spread - std::floor(spread));
        const Point3 turn{angle * across * std::cos(kGoldenAngle * k),
                          angle * across * std::sin(kGoldenAngle * k), angle * z};
        const Point3 place{110.0 * std::sin(1.7 * k + 0.3), 70.0 * std::sin(2.3 * k + 1.1),
                           1500.0 + 140.0 * std::sin(1.1 * k + 2.0)};
        rig.flangeInBase.push_back(
            compose(baseInverse, compose(poseOf(turn, place), flangeInTool)));
    }
    return rig;
}

}  // namespace vyx::sim
