#include "calibration/PivotCalibration.h"

#include "calibration/PivotQuality.h"
#include "tools/ToolFile.h"

#include <algorithm>
#include <cmath>
#include <vector>

PivotCalibration::PivotCalibration()
    : A_(3 * static_cast<int>(kToolTipTargetFrames), 6, CV_32F, cv::Scalar(0)),
      B_(3 * static_cast<int>(kToolTipTargetFrames), 1, CV_32F, cv::Scalar(0)),
      identity_(cv::Mat::eye(3, 3, CV_32F)) {}

int PivotCalibration::init(ToolLibrary& library, ToolTipProgress& shared, const char* name,
                           bool resetAxis) {
    if (name == nullptr || library.count() == 0) return -1;
    const int index = library.findLastToolIndex(name);
    if (index < 0) return -1;
    T_ToolPtMatchInfo* tool = library.toolAt(static_cast<std::uint32_t>(index));
    if (tool == nullptr) return -1;
    shared.toolIndex = static_cast<std::uint32_t>(index);
    toolName_ = name;
    float* pair = firstTipPair(*tool);
    std::fill_n(pair, 3, 0.0f);
    if (resetAxis) std::fill_n(pair + 3, 3, 0.0f);
    shared.acceptedFrames = 0;
    shared.finished = false;
    shared.progress = 0.0f;
    qualityValid_ = false;
    return 0;
}

int PivotCalibration::proceed(ToolLibrary& library, ToolTipProgress& shared,
                              const Recogniser& recognise, T_ToolTipPivotInfo& info) {
    if (shared.finished) return -1;
    info.toolFound = false;
    info.finished = false;
    info.pivotError = 0.0f;
    info.progress = shared.progress;

    T_VyxToolDataResult result{};
    const int rc = recognise(toolName_, result);
    if (rc != 0) return rc;
    if (result.ValidFlag != 1) return -1;
    info.toolFound = true;

    const int k = static_cast<int>(shared.acceptedFrames);
    for (int i = 0; i < 3; ++i) {
        float* row = A_.ptr<float>(3 * k + i);
        for (int j = 0; j < 3; ++j) {
            row[j] = result.RotationMatrix[i][j];
            row[3 + j] = -identity_.at<float>(i, j);
        }
        B_.at<float>(3 * k + i) = result.Translation[i];
    }
    shared.acceptedFrames = static_cast<std::uint32_t>(k + 1);
    shared.progress = static_cast<float>(k + 1) / kToolTipTargetFrames;
    info.progress = shared.progress;

    if (shared.acceptedFrames == kToolTipTargetFrames) {
        shared.acceptedFrames = 0;
        shared.finished = true;
        // Normal equations in single precision, inverse by LU; a singular
        // system gives what the inverse gives, stored as it comes.
        cv::Mat inverse;
        cv::invert(A_.t() * A_, inverse, cv::DECOMP_LU);
        const cv::Mat x = inverse * A_.t() * (-B_);
        const cv::Vec3f t(x.at<float>(0), x.at<float>(1), x.at<float>(2));
        const cv::Vec3f P(x.at<float>(3), x.at<float>(4), x.at<float>(5));
        if (T_ToolPtMatchInfo* tool = library.toolAt(shared.toolIndex)) {
            float* pair = firstTipPair(*tool);
            for (int j = 0; j < 3; ++j) pair[j] = t[j];
        }
        float sum = 0.0f;
        for (int pose = 0; pose < static_cast<int>(kToolTipTargetFrames); ++pose) {
            cv::Matx33f R;
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) R(i, j) = A_.at<float>(3 * pose + i, j);
            const cv::Vec3f T(B_.ptr<float>(3 * pose));
            sum += static_cast<float>(cv::norm(R * t + T - P));
        }
        info.pivotError = sum / kToolTipTargetFrames;
        quality_ = assessPivot(A_, B_);
        qualityValid_ = true;
    }
    info.finished = shared.finished;
    return 0;
}

int PivotCalibration::save(ToolLibrary& library, const ToolTipProgress& shared, int mode) {
    if (library.count() == 0) return -1;
    const T_ToolPtMatchInfo* tool = library.toolAt(shared.toolIndex);
    if (tool == nullptr) return -1;
    return rewritePivotTipSection(*tool, mode) ? 0 : -1;
}

bool PivotCalibration::quality(T_ToolTipPivotQuality& out) const {
    if (!qualityValid_) return false;
    out = quality_;
    return true;
}
