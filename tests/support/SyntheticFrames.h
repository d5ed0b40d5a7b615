// Hand-made marker frames for the calibration unit tests: a frame of given
// points, and the pointer of fourMarkerToolText standing in a calibrator's
// hole, with a tool library holding both.
#pragma once

#include "VyxPositionTypes.h"
#include "tools/ToolLibrary.h"
#include "tools/ToolTestFiles.h"

#include <opencv2/core.hpp>

#include <cmath>
#include <string>
#include <vector>

namespace vyx::test {

inline T_MarkerInfo markerFrame(const std::vector<cv::Vec3d>& points) {
    T_MarkerInfo frame{};
    for (const cv::Vec3d& p : points) {
        for (int k = 0; k < 3; ++k) frame.MarkerCoordinate[frame.MarkerNumber][k] = p[k];
        ++frame.MarkerNumber;
    }
    return frame;
}

// A calibrator whose hole's bottom is (30, 30, -40) of its frame, the axis
// point 30 mm up it; as a tool file and placed at (-100, 0, 1500).
inline const char* const kCalibratorToolText =
    "calibrator\nC\n4\n0 0 0 15\n60 0 0 15\n0 100 0 15\n25 45 70 15\n2\n30 30 -40\n30 30 -10\n";

// The calibrator, then the pointer of fourMarkerToolText (tip (0, 0, -150))
// with its tip in the hole, turned by `angle` about the hole's axis; `shift`
// moves the pointer's last marker along the axis, mm.
inline T_MarkerInfo holeFrame(double angle, double shift = 0.0, bool withCalibrator = true) {
    const cv::Vec3d origin(-100, 0, 1500), hole = origin + cv::Vec3d(30, 30, -40);
    const std::vector<cv::Vec3d> calibrator{{0, 0, 0}, {60, 0, 0}, {0, 100, 0}, {25, 45, 70}};
    const std::vector<cv::Vec3d> pointer{{0, 0, 0}, {50, 0, 0}, {0, 80, 0}, {0, 0, 120}};
    std::vector<cv::Vec3d> points;
    if (withCalibrator)
        for (const cv::Vec3d& m : calibrator) points.push_back(origin + m);
    const cv::Matx33d R(std::cos(angle), -std::sin(angle), 0, std::sin(angle), std::cos(angle), 0,
                        0, 0, 1);
    for (const cv::Vec3d& m : pointer) points.push_back(R * m + hole + cv::Vec3d(0, 0, 150));
    points.back()[2] += shift;
    return markerFrame(points);
}

// A library holding the pointer (index 0) and the calibrator (index 1), read
// from their files in a scratch directory.
struct PointerAndCalibrator {
    PointerAndCalibrator() {
        writeFile(dir.file("pointer.vyxtool"), fourMarkerToolText("pointer"));
        writeFile(dir.file("calibrator.vyxtool"), kCalibratorToolText);
        library.AddFormatToolInfoFromFile(dir.file("pointer.vyxtool").c_str());
        library.AddFormatToolInfoFromFile(dir.file("calibrator.vyxtool").c_str());
    }
    ScratchDirectory dir;
    ToolLibrary library;
};

}  // namespace vyx::test
