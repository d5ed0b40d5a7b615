#include "camera/StereoCompensation.h"

#include "camera/RotationUtils.h"

#include <cstddef>
#include <vector>

namespace {

// Calibration temperatures closer than this are treated as one calibration.
constexpr double kMinCalibrationSpanCelsius = 0.005;

// Linear blend a + (b - a) * weight of two matrices of one shape, as a new matrix.
cv::Mat blend(const cv::Mat& a, const cv::Mat& b, double weight) {
    cv::Mat result;
    cv::scaleAdd(b - a, weight, a, result);
    return result;
}

// Rotation at the fraction weight of the way from a to b, interpolating the
// two rotation vectors component by component.
cv::Mat blendRotation(const cv::Mat& a, const cv::Mat& b, double weight) {
    cv::Vec3d vectorA, vectorB;
    myRodrigues(a, vectorA);
    myRodrigues(b, vectorB);
    cv::Mat result;
    myRodrigues(cv::Vec3d(vectorA + (vectorB - vectorA) * weight), result);
    return result;
}

SYSPARA blendTableEntries(const SYSPARA& lo, const SYSPARA& hi, double weight) {
    SYSPARA result;
    result.distCoeffs = blend(lo.distCoeffs, hi.distCoeffs, weight);
    result.cameraMatrix = blend(lo.cameraMatrix, hi.cameraMatrix, weight);
    result.R = blendRotation(lo.R, hi.R, weight);
    result.T = blend(lo.T, hi.T, weight);
    return result;
}

// set + difference * scale for all four matrices, rotation included.
SYSPARA extrapolateSet(const SYSPARA& set, const SYSPARA& difference, double scale) {
    SYSPARA result;
    cv::scaleAdd(difference.distCoeffs, scale, set.distCoeffs, result.distCoeffs);
    cv::scaleAdd(difference.cameraMatrix, scale, set.cameraMatrix, result.cameraMatrix);
    cv::scaleAdd(difference.R, scale, set.R, result.R);
    cv::scaleAdd(difference.T, scale, set.T, result.T);
    return result;
}

void applyTwoSets(const CameraParameterBlock& block, double temperature,
                  StereoWorkingModel& model) {
    const double span = block.calibTemperature2 - block.calibTemperature1;
    if (span < kMinCalibrationSpanCelsius) {
        model.left = block.set1Left;
        model.right = block.set1Right;
        model.zFactor = block.zFactor1;
        return;
    }
    const double offset = temperature - block.calibTemperature1;
    const double scale = offset / span;
    model.left = extrapolateSet(block.set1Left, block.differenceLeft, scale);
    model.right = extrapolateSet(block.set1Right, block.differenceRight, scale);
    model.zFactor = block.zFactor1 + offset * block.zFactorDelta / span;
}

void useTableEntry(const T_VyxMultiCfgInfo& table, std::size_t i, StereoWorkingModel& model) {
    model.left = table.left[i];
    model.right = table.right[i];
    model.zFactor = table.depthFactors[i];
}

// Returns false, leaving the model alone, when the table is too short to use.
bool applyTable(const T_VyxMultiCfgInfo& table, double temperature, StereoWorkingModel& model) {
    const std::size_t count = table.size();
    if (count < 3 || table.left.size() < count || table.right.size() < count ||
        table.depthFactors.size() < count)
        return false;

    const std::vector<double>& temps = table.temperatures;
    const std::size_t last = count - 1;
    if (temps[0] >= temperature) {
        useTableEntry(table, 0, model);
        return true;
    }
    if (temperature >= temps[last]) {
        useTableEntry(table, last, model);
        return true;
    }

    std::size_t lo = 0;
    while (lo < last && !(temps[lo] <= temperature && temperature <= temps[lo + 1]))
        ++lo;
    if (lo == last) {
        // Only NaN defeats every comparison above; the last entry is the
        // fallback.
        useTableEntry(table, last, model);
        return true;
    }
    const std::size_t hi = lo + 1;
    // The temperature lies above entry 0, so the first enclosing pair has
    // temps[lo] < temperature <= temps[hi]: the denominator is positive.
    const double weight = (temperature - temps[lo]) / (temps[hi] - temps[lo]);
    model.left = blendTableEntries(table.left[lo], table.left[hi], weight);
    model.right = blendTableEntries(table.right[lo], table.right[hi], weight);
    model.zFactor =
        table.depthFactors[lo] + (table.depthFactors[hi] - table.depthFactors[lo]) * weight;
    return true;
}

cv::Mat syntheticCameraMatrix(const cv::Mat& cameraMatrix) {
    return (cv::Mat_<double>(3, 3) << kSyntheticFocalLength, 0.0, cameraMatrix.at<double>(0, 2),
            0.0, kSyntheticFocalLength, cameraMatrix.at<double>(1, 2), 0.0, 0.0, 1.0);
}

}  // namespace

void CalculateSysPara(const CameraParameterBlock& block, double temperature,
                      StereoWorkingModel& model) {
    applyTwoSets(block, temperature, model);
    applyTable(block.multi, temperature, model);
}

void CalculateMlrRT_SEF(StereoWorkingModel& model) {
    const SYSPARA& left = model.left;
    const SYSPARA& right = model.right;

    model.KnewL = syntheticCameraMatrix(left.cameraMatrix);
    model.KnewR = syntheticCameraMatrix(right.cameraMatrix);
    model.Rlr = right.R.inv() * left.R;
    model.Tlr = left.R.inv() * (right.T - left.T);

    const double tx = model.Tlr.at<double>(0);
    const double ty = model.Tlr.at<double>(1);
    const double tz = model.Tlr.at<double>(2);
    model.S = (cv::Mat_<double>(3, 3) << 0.0, -tz, ty, tz, 0.0, -tx, -ty, tx, 0.0);
    model.E = model.Rlr * model.S;
    model.F = model.KnewR.inv().t() * model.E * model.KnewL.inv();
}
