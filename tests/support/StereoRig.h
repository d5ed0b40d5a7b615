// A realistic stereo rig for tests and benchmarks of the reconstruction:
// 1280 x 720 images, a 500 mm baseline, the right camera turned 0.1 rad
// inwards about Y, mild distortion on both lenses.
#pragma once

#include "camera/StereoCompensation.h"

#include <cmath>

namespace vyx::test {

inline StereoWorkingModel makeStereoRig() {
    StereoWorkingModel rig;
    rig.left.cameraMatrix = (cv::Mat_<double>(3, 3) << 1400, 0, 640, 0, 1402, 360, 0, 0, 1);
    rig.left.distCoeffs = (cv::Mat_<double>(5, 1) << -0.05, 0.02, 4e-4, -3e-4, 0.001);
    rig.left.R = cv::Mat::eye(3, 3, CV_64F);
    rig.left.T = cv::Mat::zeros(3, 1, CV_64F);
    rig.right.cameraMatrix = (cv::Mat_<double>(3, 3) << 1398, 0, 632, 0, 1399, 365, 0, 0, 1);
    rig.right.distCoeffs = (cv::Mat_<double>(5, 1) << -0.04, 0.015, -2e-4, 5e-4, 0.0);
    const double c = std::cos(-0.1), s = std::sin(-0.1);
    rig.right.R = (cv::Mat_<double>(3, 3) << c, 0, s, 0, 1, 0, -s, 0, c);
    rig.right.T = (cv::Mat_<double>(3, 1) << 500, 0, 0);
    CalculateMlrRT_SEF(rig);
    return rig;
}

}  // namespace vyx::test
