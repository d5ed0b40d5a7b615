#include "cli/Scenes.h"

#include "cli/Session.h"
#include "sim/SceneFile.h"
#include "sim/SceneTools.h"

#include <cstdlib>
#include <filesystem>

namespace vyx::cli {
namespace {

namespace fs = std::filesystem;
using vyx::sim::Point3;
using vyx::sim::Scene;

// The three tools of the tracking demonstration, with the pointer's tip
// resting in a dimple while its shaft sweeps a 20-degree cone every 5 s, as a
// user pivoting it does, and the pixel noise of a real tracker's centres.
Scene workbenchScene() {
    Scene scene = vyx::sim::trackingDemoScene();
    scene.noiseSigmaPx = 0.05;
    scene.noiseSeed = 1;
    for (vyx::sim::RigidBody& body : scene.bodies) {
        if (body.name != "pointer") continue;
        Point3 centroid;
        for (const auto& point : body.points) {
            centroid.x += point.position.x / static_cast<double>(body.points.size());
            centroid.y += point.position.y / static_cast<double>(body.points.size());
            centroid.z += point.position.z / static_cast<double>(body.points.size());
        }
        const Point3 dimple{centroid.x + body.tip.x, centroid.y + body.tip.y,
                            centroid.z + body.tip.z};
        const double precession = 2.0 * 3.14159265358979 / 5.0;
        body.motion = vyx::sim::Motion::pivot(dimple, {-body.tip.x, -body.tip.y, -body.tip.z},
                                              0.35, precession, 0.1 * precession);
    }
    return scene;
}

}  // namespace

const char* const kSceneNames = "workbench, tipcal, selfcal, maketool, maketool5, reference";

Scene loadScene(const std::string& nameOrPath) {
    if (nameOrPath.empty() || nameOrPath == "workbench") return workbenchScene();
    if (nameOrPath == "tipcal") return vyx::sim::tipCalibrationScene();
    if (nameOrPath == "selfcal") return vyx::sim::selfCalibrationScene();
    if (nameOrPath == "maketool") return vyx::sim::toolMakingScene(4);
    if (nameOrPath == "maketool5") return vyx::sim::toolMakingScene(5);
    if (nameOrPath == "reference") return vyx::sim::referenceScene();
    std::error_code error;
    if (!fs::is_regular_file(nameOrPath, error))
        throw CommandError("no scene '" + nameOrPath + "': name a scene file or one of " +
                           kSceneNames);
    try {
        return vyx::sim::loadSceneFile(nameOrPath);
    } catch (const std::exception& e) {
        throw CommandError(e.what());
    }
}

std::string writeMissingToolFiles(const Scene& scene, const std::string& directory) {
    std::error_code error;
    fs::create_directories(directory, error);
    if (error)
        throw CommandError("cannot create the tool directory " + directory + ": " +
                           error.message());
    char pattern[] = "/tmp/vyx_tools_XXXXXX";
    const char* scratch = mkdtemp(pattern);
    if (scratch == nullptr || !vyx::sim::writeToolFiles(scene, scratch))
        throw CommandError("cannot write the scene's tool files");
    std::string written;
    for (const auto& entry : fs::directory_iterator(scratch)) {
        const fs::path target = fs::path(directory) / entry.path().filename();
        if (!fs::exists(target, error)) {
            fs::copy_file(entry.path(), target, error);
            if (error)
                throw CommandError("cannot write " + target.string() + ": " + error.message());
            written += (written.empty() ? "" : ", ") + entry.path().stem().string();
        }
    }
    fs::remove_all(scratch, error);
    return written;
}

}  // namespace vyx::cli
