// What the end-to-end accuracy programs share: a virtual tracker playing a
// scene on a loopback address with the library connected to it over
// Ethernet and the scene's tool files loaded, and the least-squares rigid
// fit they compare constellations with.
#pragma once

#include "VyxPositionAPI.h"
#include "sim/DeviceDescription.h"
#include "sim/Scene.h"
#include "sim/SceneTools.h"
#include "sim/VirtualTracker.h"

#include <opencv2/core.hpp>

#include <filesystem>
#include <string>

namespace vyx::bench {

// The tracker plays `scene` on 127.0.c.d (a free unprivileged port); the
// tool files of `tools` are written into `directory` and loaded.
class SceneBenchSession {
public:
    SceneBenchSession(const sim::Scene& scene, const sim::Scene& tools, unsigned char c,
                      unsigned char d, const std::string& directory)
        : scene_(scene) {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
        std::filesystem::create_directories(directory);
        tracker_.setMarkerFrameSource(sim::sceneFrameSource(sim::defaultDescription(), scene));
        tracker_.start("127.0." + std::to_string(c) + "." + std::to_string(d), 0);
        Vyx_API_Initial(&handle);
        Vyx_SetEthernetConnectIP(handle, 127, 0, c, d);
        Vyx_SetEthernetConnectPort(handle, tracker_.port());
        T_VYXPOS_DATAPARA para{};
        ok_ = sim::writeToolFiles(tools, directory) &&
              Vyx_ConnectDevice(handle, Interface_Ethernet, &para) == RV_SUCCESS &&
              Vyx_SetToolInfoFilePath(handle, directory.c_str(), true) == RV_SUCCESS;
    }
    ~SceneBenchSession() {
        Vyx_API_Close(&handle);
        tracker_.stop();
    }
    SceneBenchSession(const SceneBenchSession&) = delete;
    SceneBenchSession& operator=(const SceneBenchSession&) = delete;

    bool ok() const { return ok_; }
    // Reads the next frame on request into `markers`.
    bool next() {
        T_VyxPosStatusInfo status{};
        return Vyx_GetMarkerAndStatusFromHardware(handle, Interface_Ethernet, &markers, &status) ==
               RV_SUCCESS;
    }
    // The true pose of a scene body in the frame last read.
    sim::ToolPose truePose(std::size_t body) const {
        return sim::bodyPoseAt(scene_, body, markers.ID - 1);
    }
    const sim::Scene& scene() const { return scene_; }

    VyxHandle handle = nullptr;
    T_MarkerInfo markers{};

private:
    sim::Scene scene_;
    sim::VirtualTracker tracker_;
    bool ok_ = false;
};

// The least-squares rigid map of the rows of `from` onto those of `to`
// (n x 3 CV_64F each): to ~ R from + T.
inline void rigidFit(const cv::Mat& from, const cv::Mat& to, cv::Matx33d& R, cv::Vec3d& T) {
    cv::Mat cf, ct;
    cv::reduce(from, cf, 0, cv::REDUCE_AVG);
    cv::reduce(to, ct, 0, cv::REDUCE_AVG);
    const cv::Mat a = from - cv::repeat(cf, from.rows, 1), b = to - cv::repeat(ct, to.rows, 1);
    const cv::SVD svd(a.t() * b);
    cv::Mat r = svd.vt.t() * svd.u.t();
    if (cv::determinant(r) < 0) {
        cv::Mat flip = cv::Mat::eye(3, 3, CV_64F);
        flip.at<double>(2, 2) = -1;
        r = svd.vt.t() * flip * svd.u.t();
    }
    R = cv::Matx33d(r.ptr<double>());
    T = cv::Vec3d(ct.ptr<double>()) - R * cv::Vec3d(cf.ptr<double>());
}

// Largest residual of that fit.
inline double rigidFitResidual(const cv::Mat& from, const cv::Mat& to) {
    cv::Matx33d R;
    cv::Vec3d T;
    rigidFit(from, to, R, T);
    double largest = 0.0;
    for (int i = 0; i < from.rows; ++i) {
        const cv::Vec3d p(from.ptr<double>(i)), q(to.ptr<double>(i));
        largest = std::max(largest, cv::norm(R * p + T - q));
    }
    return largest;
}

}  // namespace vyx::bench
