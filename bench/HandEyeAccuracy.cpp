// Accuracy of the robot hand-eye calibration, end to end: the virtual tracker
// sees a tool on a robot's flange stepping through its poses
// (sim/RobotScene.h), with Gaussian noise on every marker centre; the
// program plays the robot controller and pairs each true flange pose with
// the tool pose the library recognises. On the same pairs it compares
//   - the library's calibration (Vyx_CalculateRobotCalibration: closed form,
//     then least-squares refinement),
//   - the library's closed form alone,
//   - OpenCV's robot-world/hand-eye solver, Shah's and Li's methods,
// by the error of each recovered transform against the truth (tracker into
// base Z, tool into flange X; rotation in degrees, translation in mm), the
// RMS hand-eye residuals, and the error of the tool tip placed by each
// calibration on three planned targets through the true robot. Without noise
// one run; with noise, the RMS over the seeds.
//
//   vyx_accuracy_hand_eye [--seeds N] [--noise PX] [--poses N]
//
// Each run serves on its own loopback address, 127.0.3.1 to 127.0.3.9, on a
// free unprivileged port.
#include "VyxPositionAPI.h"
#include "calibration/HandEyeCalibration.h"
#include "calibration/RobotTargetPose.h"
#include "sim/DeviceDescription.h"
#include "sim/RobotScene.h"
#include "sim/VirtualTracker.h"

#include <opencv2/calib3d.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

using namespace vyx::sim;

namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;
constexpr int kMethods = 4;
const char* const kMethodNames[kMethods] = {"library (refined)", "library closed form",
                                            "OpenCV Shah", "OpenCV Li"};

RigidPose rigidOf(const ToolPose& p) {
    RigidPose out;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) out.R(i, j) = p.R[3 * i + j];
        out.t(i) = p.T[i];
    }
    return out;
}

// Errors of one method in one run, in the order printed.
struct Figures {
    double zDeg, zMm, xDeg, xMm, rmsMm, rmsDeg, tipMm;
};

// Collects one pose pair per flange pose through the library. Empty when
// something failed.
std::vector<HandEyePair> gatherPairs(const RobotRig& rig, double noisePx, std::uint64_t seed,
                                     int host) {
    const std::string directory =
        (std::filesystem::temp_directory_path() / "vyx_accuracy_hand_eye").string();
    std::filesystem::remove_all(directory);
    std::filesystem::create_directories(directory);
    Scene scene = robotScene(rig);
    scene.noiseSigmaPx = noisePx;
    scene.noiseSeed = seed;
    VirtualTracker tracker;
    tracker.setMarkerFrameSource(sceneFrameSource(defaultDescription(), scene));
    const auto d = static_cast<unsigned char>(1 + host % 9);
    tracker.start("127.0.3." + std::to_string(d), 0);
    VyxHandle handle = nullptr;
    Vyx_API_Initial(&handle);
    Vyx_SetEthernetConnectIP(handle, 127, 0, 3, d);
    Vyx_SetEthernetConnectPort(handle, tracker.port());
    T_VYXPOS_DATAPARA para{};
    std::vector<HandEyePair> pairs;
    if (writeToolFiles(scene, directory) &&
        Vyx_ConnectDevice(handle, Interface_Ethernet, &para) == RV_SUCCESS &&
        Vyx_SetToolInfoFilePath(handle, directory.c_str(), true) == RV_SUCCESS) {
        std::vector<bool> seen(rig.flangeInBase.size(), false);
        T_MarkerInfo markers{};
        for (std::size_t frame = 0; frame < 4 * seen.size() && pairs.size() < seen.size();
             ++frame) {
            T_VyxPosStatusInfo status{};
            if (Vyx_GetMarkerAndStatusFromHardware(handle, Interface_Ethernet, &markers,
                                                   &status) != RV_SUCCESS)
                break;
            const std::size_t k = rig.poseAt(markers.ID - 1);
            T_VyxSingleToolDataResult r{};
            if (seen[k] ||
                Vyx_FindSingleToolInfo(handle, &markers, rig.tool.name.c_str(), &r, 0) != 0 ||
                r.ValidFlag != 1)
                continue;
            seen[k] = true;
            HandEyePair pair;
            pair.flangeInBase = rigidOf(rig.flangeInBase[k]);
            for (int i = 0; i < 3; ++i) {
                for (int j = 0; j < 3; ++j) pair.toolInTracker.R(i, j) = r.RotationMatrix[i][j];
                pair.toolInTracker.t(i) = r.Translation[i];
            }
            pair.toolInTracker.R = nearestRotation(pair.toolInTracker.R);
            pairs.push_back(pair);
        }
        if (pairs.size() != seen.size()) pairs.clear();
    }
    Vyx_API_Close(&handle);
    tracker.stop();
    std::filesystem::remove_all(directory);
    return pairs;
}

// OpenCV's solution: its world is the tracker, its camera the tool, its
// gripper the flange, and it takes and gives the inverse transforms.
HandEyeSolution openCv(const std::vector<HandEyePair>& pairs,
                       cv::RobotWorldHandEyeCalibrationMethod method) {
    std::vector<cv::Mat> Rw2c, tw2c, Rb2g, tb2g;
    const auto add = [](const RigidPose& p, std::vector<cv::Mat>& R, std::vector<cv::Mat>& t) {
        cv::Mat r(3, 3, CV_64F), v(3, 1, CV_64F);
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) r.at<double>(i, j) = p.R(i, j);
            v.at<double>(i) = p.t(i);
        }
        R.push_back(r);
        t.push_back(v);
    };
    for (const HandEyePair& p : pairs) {
        add(p.toolInTracker.inverse(), Rw2c, tw2c);
        add(p.flangeInBase.inverse(), Rb2g, tb2g);
    }
    cv::Mat Rb2w, tb2w, Rg2c, tg2c;
    cv::calibrateRobotWorldHandEye(Rw2c, tw2c, Rb2g, tb2g, Rb2w, tb2w, Rg2c, tg2c, method);
    const auto poseOf = [](const cv::Mat& R, const cv::Mat& t) {
        RigidPose p;
        for (int i = 0; i < 3; ++i) {
            for (int j = 0; j < 3; ++j) p.R(i, j) = R.at<double>(i, j);
            p.t(i) = t.at<double>(i);
        }
        return p;
    };
    HandEyeSolution s;
    s.trackerToBase = poseOf(Rb2w, tb2w).inverse();
    s.toolToFlange = poseOf(Rg2c, tg2c).inverse();
    s.residuals = handEyeResiduals(pairs, s.trackerToBase, s.toolToFlange);
    return s;
}

// Largest distance from the planned target to the tip that the true robot
// puts there when it is driven by this calibration's target poses.
double tipError(const HandEyeSolution& s, const RobotRig& rig) {
    RobotCalibration c;
    rigidPoseToRows(s.trackerToBase, c.trackerToBase);
    rigidPoseToRows(s.toolToFlange, c.toolToFlange);
    const Point3 tip = rig.tool.tip, axis = rig.tool.tipAxis;
    const double tipLocal[3] = {tip.x, tip.y, tip.z}, axisLocal[3] = {axis.x, axis.y, axis.z};
    std::memcpy(c.tip, tipLocal, sizeof tipLocal);
    std::memcpy(c.tipAxisPoint, axisLocal, sizeof axisLocal);
    const double plans[3][3][3] = {{{0, 20, 1500}, {40, -60, 1420}, {150, 20, 1500}},
                                   {{-60, 80, 1650}, {-90, -10, 1580}, {-60, 80, 1850}},
                                   {{80, -40, 1450}, {20, -120, 1400}, {80, 100, 1450}}};
    double largest = 0.0;
    for (const auto& plan : plans) {
        float target[6];
        if (!robotTargetPose(c, plan, target)) return -1.0;
        RigidPose flange;
        flange.R = rotationFromVector({target[3], target[4], target[5]});
        flange.t = {target[0], target[1], target[2]};
        const RigidPose placed =
            rigidOf(rig.baseInMeasurement) * flange * rigidOf(rig.toolInFlange);
        const Eigen::Vector3d reached = placed * Eigen::Vector3d(tip.x, tip.y, tip.z);
        largest = std::max(largest,
                           (reached - Eigen::Vector3d(plan[0][0], plan[0][1], plan[0][2])).norm());
    }
    return largest;
}

Figures figuresOf(const HandEyeSolution& s, const RobotRig& rig) {
    const RigidPose Z = rigidOf(inverse(rig.baseInMeasurement));
    const RigidPose X = rigidOf(rig.toolInFlange);
    return {rotationAngleBetween(s.trackerToBase.R, Z.R) * kDegreesPerRadian,
            (s.trackerToBase.t - Z.t).norm(),
            rotationAngleBetween(s.toolToFlange.R, X.R) * kDegreesPerRadian,
            (s.toolToFlange.t - X.t).norm(),
            s.residuals.rmsMm,
            s.residuals.rmsDeg,
            tipError(s, rig)};
}

// All four methods on one run's pairs; false when a method fails.
bool runMethods(const std::vector<HandEyePair>& pairs, const RobotRig& rig,
                Figures out[kMethods]) {
    std::vector<T_RobotPosePair> records(pairs.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        rigidPoseToRows(pairs[i].flangeInBase, records[i].FlangeInBase);
        rigidPoseToRows(pairs[i].toolInTracker, records[i].ToolInTracker);
    }
    VyxHandle handle = nullptr;
    Vyx_API_Initial(&handle);
    T_RobotCalibrationResult result{};
    const int code = Vyx_CalculateRobotCalibration(handle, records.data(),
                                                   static_cast<int>(records.size()), &result);
    Vyx_API_Close(&handle);
    HandEyeSolution library, closed;
    if (code != RV_SUCCESS || !rigidPoseFromRows(result.TrackerToBase, library.trackerToBase) ||
        !rigidPoseFromRows(result.ToolToFlange, library.toolToFlange) ||
        !solveHandEyeClosedForm(pairs, closed))
        return false;
    library.residuals = handEyeResiduals(pairs, library.trackerToBase, library.toolToFlange);
    const HandEyeSolution solutions[kMethods] = {
        library, closed, openCv(pairs, cv::CALIB_ROBOT_WORLD_HAND_EYE_SHAH),
        openCv(pairs, cv::CALIB_ROBOT_WORLD_HAND_EYE_LI)};
    for (int m = 0; m < kMethods; ++m) out[m] = figuresOf(solutions[m], rig);
    return true;
}

void printTable(const char* title, const std::vector<std::vector<Figures>>& runs) {
    std::printf("\n%s\n", title);
    std::printf("%-22s %9s %9s %9s %9s %9s %9s %9s\n", "method", "Z deg", "Z mm", "X deg",
                "X mm", "res mm", "res deg", "tip mm");
    for (int m = 0; m < kMethods; ++m) {
        double sums[7] = {};
        for (const auto& run : runs) {
            const Figures& f = run[static_cast<std::size_t>(m)];
            const double values[7] = {f.zDeg, f.zMm, f.xDeg, f.xMm, f.rmsMm, f.rmsDeg, f.tipMm};
            for (int k = 0; k < 7; ++k) sums[k] += values[k] * values[k];
        }
        std::printf("%-22s", kMethodNames[m]);
        for (double sum : sums)
            std::printf(" %9.5f", std::sqrt(sum / static_cast<double>(runs.size())));
        std::printf("\n");
    }
}

}  // namespace

int main(int argc, char** argv) {
    int seeds = 20;
    double noise = 0.05;
    std::size_t poses = 15;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--seeds") == 0) seeds = std::max(1, std::atoi(argv[i + 1]));
        if (std::strcmp(argv[i], "--noise") == 0) noise = std::atof(argv[i + 1]);
        if (std::strcmp(argv[i], "--poses") == 0)
            poses = static_cast<std::size_t>(std::max(3, std::atoi(argv[i + 1])));
    }
    const RobotRig rig = robotRig(poses);
    std::printf("Robot hand-eye calibration from %zu poses of a four-marker tool 1.3 to 1.7 m "
                "ahead;\nerrors against the truth, RMS over the runs (res: RMS hand-eye "
                "residuals; tip: largest\nmiss of three planned targets by the true robot "
                "driven with the calibration).\n",
                poses);
    int host = 0;
    for (const double sigma : {0.0, noise}) {
        std::vector<std::vector<Figures>> runs;
        const int count = sigma == 0.0 ? 1 : seeds;
        for (int seed = 1; seed <= count; ++seed) {
            const std::vector<HandEyePair> pairs =
                gatherPairs(rig, sigma, static_cast<std::uint64_t>(seed), host++);
            std::vector<Figures> figures(kMethods);
            if (pairs.empty() || !runMethods(pairs, rig, figures.data())) {
                std::fprintf(stderr, "run %d with %.3f px noise failed\n", seed, sigma);
                return 1;
            }
            runs.push_back(figures);
        }
        const std::string title = sigma == 0.0
                                      ? std::string("no pixel noise")
                                      : std::to_string(sigma).substr(0, 5) +
                                            " px marker-centre noise, " +
                                            std::to_string(seeds) + " seeds";
        printTable(title.c_str(), runs);
    }
    return 0;
}
