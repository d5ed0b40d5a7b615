#include "calibration/ToolCoordinateRenewal.h"

#include "tools/ToolFile.h"

#include <algorithm>
#include <cmath>

namespace {

cv::Vec3d pointAt(const float* p) { return {p[0], p[1], p[2]}; }

bool isFinite(const cv::Vec3d& v) {
    return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

}  // namespace

bool tipOriginFrame(const std::vector<float>& markerPositions, int markerCount,
                    const float* holePair, TipOriginFrame& frame) {
    if (holePair == nullptr || markerCount < 1 ||
        markerPositions.size() < static_cast<std::size_t>(markerCount) * 3)
        return false;
    const cv::Vec3d tip = pointAt(holePair), axisPoint = pointAt(holePair + 3);
    std::vector<cv::Vec3d> markers;
    cv::Vec3d centroid(0, 0, 0);
    for (int i = 0; i < markerCount; ++i) {
        markers.push_back(pointAt(&markerPositions[static_cast<std::size_t>(i) * 3]));
        if (!isFinite(markers.back())) return false;
        centroid += markers.back();
    }
    centroid /= static_cast<double>(markerCount);
    if (!isFinite(tip) || !isFinite(axisPoint)) return false;

    const double axisLength = cv::norm(axisPoint - tip);
    if (!(axisLength > kMinHoleAxisLengthMm)) return false;
    cv::Vec3d z = (axisPoint - tip) / axisLength;
    if ((centroid - tip).dot(z) < 0.0) z = -z;

    for (const cv::Vec3d& m : markers) {
        const cv::Vec3d v = m - tip;
        const cv::Vec3d across = v - v.dot(z) * z;
        const double offAxis = cv::norm(across);
        if (offAxis < kMinMarkerOffAxisMm) continue;
        const cv::Vec3d x = across / offAxis;
        const cv::Vec3d y = z.cross(x);
        frame.R = cv::Matx33d(x[0], x[1], x[2], y[0], y[1], y[2], z[0], z[1], z[2]);
        frame.origin = tip;
        frame.axisLengthMm = axisLength;
        return true;
    }
    return false;
}

void applyTipOriginFrame(T_ToolPtMatchInfo& tool, const TipOriginFrame& frame) {
    const auto renew = [&frame](std::vector<float>& positions) {
        for (std::size_t i = 0; i + 3 <= positions.size(); i += 3) {
            const cv::Vec3d q = frame.R * (pointAt(&positions[i]) - frame.origin);
            positions[i] = static_cast<float>(q[0]);
            positions[i + 1] = static_cast<float>(q[1]);
            positions[i + 2] = static_cast<float>(q[2]);
        }
    };
    renew(tool.markerPositions);
    renew(tool.markerPositionsCopy);
    float* tipPair = firstTipPair(tool);
    std::fill_n(tipPair, 6, 0.0f);
    tipPair[5] = static_cast<float>(frame.axisLengthMm);
    CalculateDisWithPointsArr(tool, false);
}

int ToolCoordinateRenewal::init(ToolLibrary& library, const char* name1, const char* name2) {
    ToolTipProgress progress;
    if (step_.select(library, progress, name1, name2) != 0) return -1;
    progress_ = progress;
    holeSums_.fill(0.0f);
    toolName_ = library.toolAt(progress_.toolIndex)->toolName;
    renewed_ = false;
    return 0;
}

int ToolCoordinateRenewal::proceed(ToolLibrary& library, const T_MarkerInfo& frame,
                                   t_ToolTipCalProInfo& info, float toolFindOffset) {
    const bool wasFinished = progress_.finished;
    const int result =
        step_.proceedInto(library, progress_, frame, info, toolFindOffset, holeSums_.data());
    if (wasFinished || !progress_.finished) return result;

    // The completing frame: the mean hole is in holeSums_.
    T_ToolPtMatchInfo* tool = library.toolAt(progress_.toolIndex);
    TipOriginFrame built;
    if (tool == nullptr || tool->toolName != toolName_ ||
        !tipOriginFrame(tool->markerPositions, tool->markerCount, holeSums_.data(), built))
        return -1;
    frame_ = built;
    applyTipOriginFrame(*tool, frame_);
    renewed_ = true;
    return result;
}

int ToolCoordinateRenewal::save(ToolLibrary& library) const {
    if (!renewed_) return -1;
    const T_ToolPtMatchInfo* tool = library.toolAt(progress_.toolIndex);
    if (tool == nullptr || tool->toolName != toolName_) return -1;
    const T_ToolCoorSysInfo cache = toolCacheOf(*tool);
    return WrtieFormatToolInfoFronCache(&cache) == 1 ? 0 : -1;
}
