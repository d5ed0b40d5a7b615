#include "calibration/ToolSelfCalibration.h"

#include "tools/ToolFile.h"
#include "tracking/PointSetRegistration.h"
#include "tracking/ToolRecognition.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

constexpr std::uint32_t kMinFrameMarkers = 3;
constexpr std::uint32_t kMaxFrameMarkers = 199;
constexpr int kMinMatchedMarkers = 3;

}  // namespace

int CalibrateToolWithCircleMarksByItSelf(const cv::Mat& points, T_ToolPtMatchInfo& tool,
                                         std::list<float>& errors, float toolFindOffset) {
    std::vector<int> remaining;
    if (!FindToolMatchPtIndexList(tool, points, remaining, 0, 0.0f, false, toolFindOffset))
        return -1;
    if (tool.pairs.size() < static_cast<std::size_t>(kMinMatchedMarkers)) return -1;
    std::vector<cv::Point3f> seen, model;
    cv::Mat R, T;
    if (!GetMatchPtPoints3fAndMat(false, tool, points, seen, model, RTDirection_TrackerToTool) ||
        !GetRTPoints(seen.data(), model.data(), static_cast<int>(seen.size()), R, T))
        return -1;
    std::vector<T_MarkError> residuals;
    const float e = CalculateMatchError(seen, model, R, T, RTDirection_TrackerToTool, residuals);
    if (!(e < toolFindOffset)) return 0;
    errors.push_back(e);
    for (std::size_t k = 0; k < tool.pairs.size() && k < residuals.size(); ++k) {
        const auto a = static_cast<std::size_t>(tool.pairs[k].ToolMarkerIndex);
        if (a >= tool.markerScratch.size() || a >= tool.markerResiduals.size()) continue;
        const T_MarkError& r = residuals[k];
        std::array<float, 4>& sum = tool.markerScratch[a];
        sum[0] += r.dx;
        sum[1] += r.dy;
        sum[2] += r.dz;
        sum[3] += r.error;
        tool.markerResiduals[a].push_back(r);
    }
    return 0;
}

void CalibrateSelfInitErro(T_ToolPtMatchInfo* tool) {
    if (tool == nullptr) return;
    const auto n = static_cast<std::size_t>(std::max(tool->markerCount, 0));
    tool->markerScratch.assign(n, {0.0f, 0.0f, 0.0f, 0.0f});
    tool->markerResiduals.assign(n, {});
}

void GetErroListRMS(float& out, const std::list<float>& values) {
    if (values.empty()) return;
    const double n = static_cast<double>(values.size());
    const double mean = std::accumulate(values.begin(), values.end(), 0.0) / n;
    double squares = 0.0;
    for (float v : values) squares += (v - mean) * (v - mean);
    out = static_cast<float>(std::sqrt(squares / (n - 1.0)));
}

void ToolSelfCalibration::select(T_ToolPtMatchInfo* tool) {
    tool_ = tool;
    CalibrateSelfCtrl();
}

int ToolSelfCalibration::init(ToolLibrary& library, const char* name, int& markerCount) {
    if (name == nullptr || library.count() == 0) return -1;
    const int index = library.findFirstToolIndex(name);
    if (index < 0) return -1;
    return init(library, index, markerCount);
}

int ToolSelfCalibration::init(ToolLibrary& library, int toolIndex, int& markerCount) {
    if (toolIndex < 0 || library.count() == 0) return -1;
    T_ToolPtMatchInfo* tool = library.toolAt(static_cast<std::uint32_t>(toolIndex));
    if (tool == nullptr) return -1;
    markerCount = tool->markerCount;
    select(tool);
    return 0;
}

void ToolSelfCalibration::CalibrateSelfCtrl() {
    errorValue_ = kSelfCalibrationInitialError;
    frameCount_ = 0;
    finished_ = false;
    errors_.clear();
    CalibrateSelfInitErro(tool_);
    perToolCount_ = tool_ != nullptr && tool_->markerCount >= 7 ? 3 : 10;
}

int ToolSelfCalibration::proceed(const T_MarkerInfo& frame, t_ToolFixProInfo& info,
                                 float toolFindOffset) {
    if (finished_) return 0;
    info.frameUsed = info.frameCounted = false;
    info.finished = finished_;
    info.meanError = errorValue_;
    info.frameCount = static_cast<int32_t>(frameCount_);
    if (frame.MarkerNumber < kMinFrameMarkers || frame.MarkerNumber > kMaxFrameMarkers) return -1;
    if (tool_ == nullptr) return -1;
    if (CalibrateToolWithCircleMarksByItSelf(markerMatrix(frame), *tool_, errors_, toolFindOffset) != 0)
        return -1;

    info.frameUsed = info.frameCounted = true;
    ++frameCount_;
    if (static_cast<float>(frameCount_) >= kSelfCalibrationFrameTarget) {
        T_ToolPtMatchInfo& tool = *tool_;
        float sum = 0.0f;
        for (std::size_t a = 0; a < tool.markerResiduals.size(); ++a) {
            const auto c = static_cast<float>(tool.markerResiduals[a].size());
            if (c == 0.0f || 3 * a + 2 >= tool.markerPositions.size()) continue;
            for (std::size_t k = 0; k < 3; ++k) tool.markerPositions[3 * a + k] += tool.markerScratch[a][k] / c;
            sum += tool.markerScratch[a][3] / c;
        }
        CalculateDisWithPointsArr(tool, false);
        info.finished = true;
        info.meanError = sum / static_cast<float>(tool.markerCount);
        info.frameCount = static_cast<int32_t>(frameCount_);
        errorValue_ = info.meanError;
        finished_ = true;
        CalibrateSelfInitErro(tool_);
    }
    return 0;
}

int ToolSelfCalibration::save(E_ToolFixRlt decision) {
    if (tool_ == nullptr) return -1;
    T_ToolPtMatchInfo& tool = *tool_;
    switch (decision) {
        case ToolFix_Discard:
        case ToolFix_Retry:
            tool.markerPositions = tool.markerPositionsCopy;
            CalculateDisWithPointsArr(tool, false);
            if (decision == ToolFix_Retry) CalibrateSelfCtrl();
            return 0;
        case ToolFix_Save: {
            const T_ToolCoorSysInfo cache = toolCacheOf(tool);
            if (WrtieFormatToolInfoFronCache(&cache) != 1) return -1;
            // What the file now holds is what a later discard goes back to.
            tool.markerPositionsCopy = tool.markerPositions;
            return 0;
        }
    }
    return 0;
}
