// End-to-end sessions: the virtual tracker serving a scene on a loopback
// address, the library connected to it over Ethernet, and the scene's tool
// files in a scratch tool directory; plus the geometry helpers the tests
// compare results with.
#pragma once

#include "VyxPositionAPI.h"
#include "sim/DeviceDescription.h"
#include "sim/RobotScene.h"
#include "sim/Scene.h"
#include "sim/SceneTools.h"
#include "sim/VirtualTracker.h"

#include "support/Loopback.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace vyx::test {

using sim::Point3;

inline double distance(const Point3& a, const Point3& b) {
    return std::hypot(a.x - b.x, a.y - b.y, a.z - b.z);
}
inline Point3 point(const float p[3]) { return {p[0], p[1], p[2]}; }
inline Point3 point(const double p[3]) { return {p[0], p[1], p[2]}; }
inline Point3 minus(const Point3& a, const Point3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline double dot(const Point3& a, const Point3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline Point3 unit(const Point3& v) {
    const double n = std::hypot(v.x, v.y, v.z);
    return {v.x / n, v.y / n, v.z / n};
}
// The component of v across the unit vector u.
inline Point3 across(const Point3& v, const Point3& u) {
    const double d = dot(v, u);
    return {v.x - d * u.x, v.y - d * u.y, v.z - d * u.z};
}
// Column k of a row-major rotation: the tool's axis k in tracker coordinates.
inline Point3 axis(const float r[3][3], int k) { return {r[0][k], r[1][k], r[2][k]}; }
inline double angleBetween(const Point3& a, const Point3& b) {
    const Point3 c{a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
    return std::atan2(std::hypot(c.x, c.y, c.z), dot(a, b));
}

// Largest distance from a frame marker to the nearest of the expected points.
inline double largestMarkerError(const T_MarkerInfo& frame, const std::vector<Point3>& expected) {
    double largest = 0.0;
    for (std::uint32_t i = 0; i < frame.MarkerNumber; ++i) {
        double nearest = 1e9;
        for (const Point3& p : expected)
            nearest = std::min(nearest, distance(point(frame.MarkerCoordinate[i]), p));
        largest = std::max(largest, nearest);
    }
    return largest;
}

// Angle of R_true^T R, from its skew part and trace, which stays accurate
// for small angles where acos of the trace does not.
inline double rotationErrorRad(const sim::ToolPose& truth, const float r[3][3]) {
    double m[3][3] = {};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            for (int k = 0; k < 3; ++k) m[i][j] += truth.R[3 * k + i] * r[k][j];
    const double skew = std::hypot(m[2][1] - m[1][2], m[0][2] - m[2][0], m[1][0] - m[0][1]);
    return std::atan2(skew, m[0][0] + m[1][1] + m[2][2] - 1.0);
}

// from^-1 to: the pose of `to` in the frame of `from`.
inline sim::ToolPose relativePose(const sim::ToolPose& from, const sim::ToolPose& to) {
    return sim::compose(sim::inverse(from), to);
}

// from^-1 p: a measurement point in the frame of `from`.
inline Point3 inFrameOf(const sim::ToolPose& from, const Point3& p) {
    return sim::toMeasurement(sim::inverse(from), p);
}

inline std::size_t bodyIndex(const sim::Scene& scene, const std::string& name) {
    for (std::size_t i = 0; i < scene.bodies.size(); ++i)
        if (scene.bodies[i].name == name) return i;
    ADD_FAILURE() << "no body " << name;
    return 0;
}

class SceneSession {
public:
    SceneSession() {
        char pattern[] = "/tmp/vyx_session_XXXXXX";
        if (mkdtemp(pattern) != nullptr) toolDirectory = pattern;
    }
    ~SceneSession() {
        if (handle != nullptr) Vyx_API_Close(&handle);
        tracker.stop();
        std::error_code ignored;
        if (!toolDirectory.empty()) std::filesystem::remove_all(toolDirectory, ignored);
    }
    SceneSession(const SceneSession&) = delete;
    SceneSession& operator=(const SceneSession&) = delete;

    // Serves `served` on 127.0.0.host, connects, and loads the tool files
    // written for the bodies of `tools` (those of `served` when null).
    void serve(unsigned char host, const sim::Scene& served, const sim::Scene* tools = nullptr) {
        scene = served;
        ASSERT_FALSE(toolDirectory.empty());
        ASSERT_TRUE(sim::writeToolFiles(tools != nullptr ? *tools : scene, toolDirectory));
        tracker.setMarkerFrameSource(sim::sceneFrameSource(sim::defaultDescription(), scene));
        tracker.start("127.0.0." + std::to_string(host), trackerPort(host));
        ASSERT_EQ(Vyx_API_Initial(&handle), RV_SUCCESS);
        ASSERT_EQ(connectToHost(handle, Interface_Ethernet, host), RV_SUCCESS);
        ASSERT_EQ(Vyx_SetToolInfoFilePath(handle, toolDirectory.c_str(), true), RV_SUCCESS);
    }

    // The next frame, fetched on request; its scene frame is markers.ID - 1.
    bool nextFrame() {
        T_VyxPosStatusInfo status{};
        return Vyx_GetMarkerAndStatusFromHardware(handle, Interface_Ethernet, &markers, &status) ==
               RV_SUCCESS;
    }
    std::uint64_t sceneFrame() const { return markers.ID - 1; }
    sim::ToolPose truePose(const std::string& body) const {
        return sim::bodyPoseAt(scene, bodyIndex(scene, body), sceneFrame());
    }
    // The named tool as tracking finds it in the current frame.
    T_VyxSingleToolDataResult findSingle(const char* name) {
        T_VyxSingleToolDataResult r{};
        EXPECT_EQ(Vyx_FindSingleToolInfo(handle, &markers, name, &r, 0), RV_SUCCESS);
        return r;
    }
    std::string toolFile(const std::string& name) const {
        return toolDirectory + "/" + name + ".vyxtool";
    }

    sim::VirtualTracker tracker;
    VyxHandle handle = nullptr;
    std::string toolDirectory;
    sim::Scene scene;
    T_MarkerInfo markers{};
};

}  // namespace vyx::test
