#include "camera/StereoProjection.h"

namespace {

cv::Matx33d matx33(const cv::Mat& m) {
    CV_Assert(m.type() == CV_64F && m.rows == 3 && m.cols == 3);
    cv::Matx33d result;
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 3; ++c) result(r, c) = m.at<double>(r, c);
    return result;
}

cv::Vec3d vec3(const cv::Mat& m) {
    CV_Assert(m.type() == CV_64F && m.total() == 3);
    return {m.at<double>(0), m.at<double>(1), m.at<double>(2)};
}

// Pixel coordinates of a point at offset fromCentre from the camera's centre,
// in the measurement frame. False when it is not in front of the camera.
bool projectOne(const cv::Vec3d& fromCentre, const SYSPARA& camera, double uv[2]) {
    bool invertible = false;
    const cv::Matx33d rotationInverse = matx33(camera.R).inv(cv::DECOMP_LU, &invertible);
    if (!invertible) return false;
    const cv::Vec3d inCamera = rotationInverse * fromCentre;
    if (!(inCamera[2] > 0.0)) return false;
    const double x = inCamera[0] / inCamera[2];
    const double y = inCamera[1] / inCamera[2];

    CV_Assert(camera.distCoeffs.type() == CV_64F && camera.distCoeffs.total() == 5);
    const double k1 = camera.distCoeffs.at<double>(0);
    const double k2 = camera.distCoeffs.at<double>(1);
    const double p1 = camera.distCoeffs.at<double>(2);
    const double p2 = camera.distCoeffs.at<double>(3);
    const double k3 = camera.distCoeffs.at<double>(4);
    const double r2 = x * x + y * y;
    const double radial = 1.0 + k1 * r2 + k2 * r2 * r2 + k3 * r2 * r2 * r2;
    const double xd = x * radial + 2.0 * p1 * x * y + p2 * (r2 + 2.0 * x * x);
    const double yd = y * radial + p1 * (r2 + 2.0 * y * y) + 2.0 * p2 * x * y;

    const cv::Matx33d K = matx33(camera.cameraMatrix);
    uv[0] = K(0, 0) * xd + K(0, 1) * yd + K(0, 2);
    uv[1] = K(1, 0) * xd + K(1, 1) * yd + K(1, 2);
    return true;
}

}  // namespace

bool projectToImages(const double point[3], const StereoWorkingModel& model, double leftUv[2],
                     double rightUv[2]) {
    if (model.zFactor == 0.0) return false;
    const cv::Vec3d unscaled(point[0], point[1], point[2] / model.zFactor);
    const cv::Vec3d halfBaseline = vec3(model.right.T) * 0.5;

    double left[2], right[2];
    if (!projectOne(unscaled + halfBaseline, model.left, left) ||
        !projectOne(unscaled - halfBaseline, model.right, right))
        return false;
    leftUv[0] = left[0];
    leftUv[1] = left[1];
    rightUv[0] = right[0];
    rightUv[1] = right[1];
    return true;
}
