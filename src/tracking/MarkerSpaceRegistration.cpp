#include "tracking/MarkerSpaceRegistration.h"

#include "tools/ToolFile.h"

#include <numeric>
#include <vector>

namespace {
constexpr std::uint32_t kMinFrameMarkers = 3;
constexpr std::uint32_t kMaxFrameMarkers = 199;
}  // namespace

int MarkerSpaceRegistration::init(const float (*points)[3], int count, float tolerance) {
    auto set = std::make_unique<T_ToolPtMatchInfo>();
    set->toolKind = '\0';
    set->markerCount = count;
    for (int i = 0; i < count; ++i)
        set->markerPositions.insert(set->markerPositions.end(), points[i], points[i] + 3);
    set->markerPositionsCopy = set->markerPositions;
    set->markerScratch.assign(static_cast<std::size_t>(count > 0 ? count : 0), {});
    set->markerResiduals.resize(static_cast<std::size_t>(count > 0 ? count : 0));
    // No masks: the table keeps the distance of every pair.
    CalculateDisWithPointsArr(*set, false);
    pointSet_ = std::move(set);
    tolerance_ = tolerance;
    return 0;
}

int MarkerSpaceRegistration::map(const T_MarkerInfo& frame, T_VyxToolDataResult& result,
                                 int minMatch, const RecognitionSettings& settings) {
    if (frame.MarkerNumber < kMinFrameMarkers || frame.MarkerNumber > kMaxFrameMarkers) return -1;
    if (!pointSet_) return -1;
    const int count = static_cast<int>(frame.MarkerNumber);
    const cv::Mat observed = markerMatrix(frame);
    // Every marker of the frame may serve the point set.
    std::vector<int> remaining(static_cast<std::size_t>(count));
    std::iota(remaining.begin(), remaining.end(), 0);
    const bool found = FindSpecificToolInfo(*pointSet_, observed, frame, result, remaining,
                                            minMatch, tolerance_, settings);
    return found ? 0 : -1;
}
