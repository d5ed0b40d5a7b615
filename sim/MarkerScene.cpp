#include "sim/MarkerScene.h"

#include <utility>

namespace vyx::sim {
namespace {

// Tool markers in the tool's own frame, millimetres. All six distances
// between them differ, as a recognisable tool needs.
constexpr Point3 kToolMarkers[] = {{0, 0, 0}, {60, 0, 0}, {0, 90, 0}, {-40, 50, 0}};
constexpr Point3 kToolCentre = {0.0, 0.0, 1500.0};
constexpr double kFramesPerSecond = 60.0;
constexpr double kTurnPerFrameRad = 0.01;

}  // namespace

void projectMarkers(const DeviceDescription& description, const std::vector<Point3>& markers,
                    MarkerFrame& frame) {
    Scene scene;
    for (const Point3& marker : markers) scene.markers.push_back({marker, Visibility::Both});
    // Whole hundredths survive the trip through degrees exactly.
    scene.temperatureCelsius = frame.status.temperature1Hundredths / 100.0;
    MarkerFrame projected = SceneRenderer(description, std::move(scene)).frame(0, 0);
    frame.left = std::move(projected.left);
    frame.right = std::move(projected.right);
}

Scene builtInScene() {
    RigidBody tool;
    tool.name = "tool";
    for (const Point3& m : kToolMarkers)
        tool.points.push_back(
            {{kToolCentre.x + m.x, kToolCentre.y + m.y, kToolCentre.z + m.z}, Visibility::Both});
    tool.motion = Motion::rotate({0.0, 0.0, 1.0}, kToolCentre, kTurnPerFrameRad * kFramesPerSecond);

    Scene scene;
    scene.bodies.push_back(std::move(tool));
    scene.frameRateHz = kFramesPerSecond;
    return scene;
}

std::vector<Point3> sceneMarkers(std::uint64_t frameIndex) {
    return builtInScene().markersAt(frameIndex);
}

MarkerFrame sceneFrame(const DeviceDescription& description, std::uint64_t requestIndex) {
    return SceneRenderer(description, builtInScene())
        .frame(requestIndex, static_cast<std::uint32_t>(requestIndex + 1));
}

}  // namespace vyx::sim
