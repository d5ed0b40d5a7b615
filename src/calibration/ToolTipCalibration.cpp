#include "calibration/ToolTipCalibration.h"

#include "tracking/PointSetRegistration.h"
#include "tracking/ToolRecognition.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

constexpr int kMinFrameMarkers = 3;
constexpr int kMaxFrameMarkers = 199;
constexpr int kMinMatch = 3;

cv::Vec3f apply(const cv::Mat& R, const cv::Mat& T, const float* p) {
    const cv::Matx33f r(R.ptr<float>());
    const cv::Vec3f t(T.ptr<float>());
    return r * cv::Vec3f(p[0], p[1], p[2]) + t;
}

}  // namespace

float* firstTipPair(T_ToolPtMatchInfo& tool) {
    if (tool.tipPairCount < 1) tool.tipPairCount = 1;
    if (tool.tipPoints.size() < 6) tool.tipPoints.resize(6, 0.0f);
    return tool.tipPoints.data();
}

int ToolTipCalibration::start(ToolLibrary& library, ToolTipProgress& shared,
                              std::uint32_t calibrator, std::uint32_t tool, bool zeroTip) {
    T_ToolPtMatchInfo* record = library.toolAt(tool);
    if (record == nullptr || library.toolAt(calibrator) == nullptr) return -1;
    if (zeroTip) std::fill_n(firstTipPair(*record), 6, 0.0f);
    calibratorIndex_ = calibrator;
    shared.toolIndex = tool;
    errorList_.clear();
    distanceList_.clear();
    errorThreshold_ = kInitialErrorThreshold;
    shared.acceptedFrames = 0;
    summedFrames_ = 0;
    shared.finished = false;
    shared.progress = 0.0f;
    return 0;
}

int ToolTipCalibration::init(ToolLibrary& library, ToolTipProgress& shared, int calibratorIndex,
                             int toolIndex) {
    const auto count = static_cast<int>(library.count());
    if (count == 0 || calibratorIndex < 0 || toolIndex < 0 || calibratorIndex >= count ||
        toolIndex >= count)
        return -1;
    return start(library, shared, static_cast<std::uint32_t>(calibratorIndex),
                 static_cast<std::uint32_t>(toolIndex), true);
}

bool ToolTipCalibration::resolveNames(const ToolLibrary& library, const char* name1,
                                      const char* name2, std::uint32_t& calibrator,
                                      std::uint32_t& tool) {
    if (name1 == nullptr || name2 == nullptr || library.count() == 0) return false;
    int toolPosition = -1, calibratorPosition = -1, index = 0;
    for (const auto& record : library) {
        if (record && (record->toolName == name1 || record->toolName == name2)) {
            if (record->toolKind == 'T') toolPosition = index;
            if (record->toolKind == 'C') calibratorPosition = index;
        }
        ++index;
    }
    if (toolPosition < 0 || calibratorPosition < 0) return false;
    calibrator = static_cast<std::uint32_t>(calibratorPosition);
    tool = static_cast<std::uint32_t>(toolPosition);
    return true;
}

int ToolTipCalibration::init(ToolLibrary& library, ToolTipProgress& shared, const char* name1,
                             const char* name2) {
    std::uint32_t calibrator = 0, tool = 0;
    if (!resolveNames(library, name1, name2, calibrator, tool)) return -1;
    return start(library, shared, calibrator, tool, true);
}

int ToolTipCalibration::select(ToolLibrary& library, ToolTipProgress& shared, const char* name1,
                               const char* name2) {
    std::uint32_t calibrator = 0, tool = 0;
    if (!resolveNames(library, name1, name2, calibrator, tool)) return -1;
    return start(library, shared, calibrator, tool, false);
}

int ToolTipCalibration::proceed(ToolLibrary& library, ToolTipProgress& shared,
                                const T_MarkerInfo& frame, t_ToolTipCalProInfo& info,
                                float toolFindOffset) {
    T_ToolPtMatchInfo* tool = library.toolAt(shared.toolIndex);
    float* tipPair = tool != nullptr ? firstTipPair(*tool) : nullptr;
    return proceedInto(library, shared, frame, info, toolFindOffset, tipPair);
}

int ToolTipCalibration::proceedInto(ToolLibrary& library, ToolTipProgress& shared,
                                    const T_MarkerInfo& frame, t_ToolTipCalProInfo& info,
                                    float toolFindOffset, float* holeSums) {
    info.finished = shared.finished;
    info.progress = shared.progress;
    if (frame.MarkerNumber < kMinFrameMarkers || frame.MarkerNumber > kMaxFrameMarkers) return -1;
    cv::Mat observed = markerMatrix(frame);

    shared.progress = static_cast<float>(shared.acceptedFrames) / kToolTipTargetFrames;
    info.progress = shared.progress;
    T_ToolPtMatchInfo* calibrator = library.toolAt(calibratorIndex_);
    T_ToolPtMatchInfo* tool = library.toolAt(shared.toolIndex);
    if (calibrator == nullptr || tool == nullptr || holeSums == nullptr) return 0;

    // The calibrator first; its hole points in tracker coordinates are kept
    // on its record for this frame only.
    std::vector<int> remaining;
    const bool calibratorFound = FindToolMatchPtIndexList(*calibrator, observed, remaining,
                                                          kMinMatch, 0.0f, false, toolFindOffset);
    info.calibratorFound = calibratorFound;
    std::list<std::vector<float>>& holes = calibrator->procedureData;
    holes.clear();
    if (calibratorFound) {
        std::vector<cv::Point3f> model, seen;
        cv::Mat R, T;
        if (GetMatchPtPoints3fAndMat(false, *calibrator, observed, model, seen,
                                     RTDirection_ToolToTracker) &&
            GetRTPoints(model.data(), seen.data(), static_cast<int>(model.size()), R, T)) {
            for (int pair = 0; pair < calibrator->tipPairCount; ++pair) {
                const std::size_t first = static_cast<std::size_t>(pair) * 6;
                if (first + 6 > calibrator->tipPoints.size()) break;
                const cv::Vec3f a = apply(R, T, &calibrator->tipPoints[first]);
                const cv::Vec3f b = apply(R, T, &calibrator->tipPoints[first + 3]);
                holes.push_back({a[0], a[1], a[2], b[0], b[1], b[2]});
            }
        }
        if (remaining.size() < static_cast<std::size_t>(kMinFrameMarkers)) {
            holes.clear();
            return -1;
        }
        cv::Mat reduced(static_cast<int>(remaining.size()), 3, CV_32F);
        for (std::size_t r = 0; r < remaining.size(); ++r)
            observed.row(remaining[r]).copyTo(reduced.row(static_cast<int>(r)));
        observed = reduced;
    }

    // Then the tool, with its pose taken from tracker into tool coordinates.
    float error = kToolNotFoundError;
    bool candidate = false;
    cv::Vec3f hole, holeAxis;
    std::vector<int> unused;
    const bool toolFound = FindToolMatchPtIndexList(*tool, observed, unused, kMinMatch, 0.0f, false,
                                                    toolFindOffset);
    info.toolFound = toolFound;
    if (toolFound) {
        std::vector<cv::Point3f> seen, model;
        std::vector<T_MarkError> residuals;
        cv::Mat R, T;
        if (GetMatchPtPoints3fAndMat(false, *tool, observed, seen, model,
                                     RTDirection_TrackerToTool) &&
            GetRTPoints(seen.data(), model.data(), static_cast<int>(seen.size()), R, T)) {
            error = CalculateMatchError(seen, model, R, T, RTDirection_TrackerToTool, residuals);
            if (calibratorFound && !holes.empty() && error < errorThreshold_) {
                const std::vector<float>& h = holes.front();
                hole = apply(R, T, &h[0]);
                holeAxis = apply(R, T, &h[3]);
                errorThreshold_ = error;
                distanceList_.push_back(static_cast<float>(cv::norm(hole - cv::Vec3f(model[0]))));
                candidate = true;
            }
        }
    }

    holes.clear();
    if (shared.finished || !calibratorFound || !toolFound) return 0;

    // Count the frame only when its error agrees with the frames counted so far.
    float mean = error;
    if (!errorList_.empty()) {
        mean = std::accumulate(errorList_.begin(), errorList_.end(), 0.0f) /
               static_cast<float>(errorList_.size());
        errorThreshold_ = mean;
    }
    if (!(std::fabs(error - mean) < kMeanErrorWindow)) return 0;

    errorList_.push_back(error);
    ++shared.acceptedFrames;
    info.frameAccepted = true;
    shared.progress = static_cast<float>(shared.acceptedFrames) / kToolTipTargetFrames;
    info.progress = shared.progress;

    if (candidate) {
        for (int k = 0; k < 3; ++k) {
            holeSums[k] += hole[k];
            holeSums[3 + k] += holeAxis[k];
        }
        ++summedFrames_;
    }

    if (shared.acceptedFrames == kToolTipTargetFrames) {
        for (int k = 0; k < 6; ++k) holeSums[k] /= static_cast<float>(summedFrames_);
        summedFrames_ = 0;
        shared.acceptedFrames = 0;
        shared.finished = true;
        info.meanError = errorThreshold_;
        const float n = static_cast<float>(distanceList_.size());
        const float meanDistance =
            std::accumulate(distanceList_.begin(), distanceList_.end(), 0.0f) / n;
        float squares = 0.0f;
        for (float d : distanceList_) squares += (d - meanDistance) * (d - meanDistance);
        info.tipDistanceStdDev = std::sqrt(squares / n);
        distanceList_.clear();
    }
    info.finished = shared.finished;
    return 0;
}

int ToolTipCalibration::save(ToolLibrary& library, const ToolTipProgress& shared) {
    library.setSelectedToolIndex(shared.toolIndex);
    return library.WriteFormatToolInfoFromFile(static_cast<int>(shared.toolIndex)) == 1 ? 0 : -1;
}
