#include "calibration/ToolMaking.h"

#include "calibration/ToolFrame.h"
#include "tools/ToolFile.h"

#include <vector>

namespace {
constexpr int kMinToolMarkers = 3;
}  // namespace

void ToolMaking::DestroyToolMadeInfo(ToolSelfCalibration& selfCalibration) {
    if (tool_ && selfCalibration.tool() == tool_.get()) selfCalibration.forget();
    tool_.reset();
}

int ToolMaking::init(int markerCount, const char* name, ToolSelfCalibration& selfCalibration) {
    if (name == nullptr || markerCount < kMinToolMarkers || markerCount > kMaxToolMarkers)
        return -1;
    DestroyToolMadeInfo(selfCalibration);
    name_ = name;
    markerCount_ = markerCount;
    started_ = false;
    finished_ = false;
    progress_ = 0.0f;
    localPoints_.release();
    return 0;
}

int ToolMaking::proceed(const T_MarkerInfo& frame, t_ToolMadeProInfo& info,
                        ToolSelfCalibration& selfCalibration, const std::string& toolDirectory,
                        float toolFindOffset) {
    if (finished_) return -1;
    info.finished = false;
    info.progress = progress_;
    if (markerCount_ < kMinToolMarkers || frame.MarkerNumber != static_cast<std::uint32_t>(markerCount_))
        return -1;

    if (!started_) {
        const int n = markerCount_;
        std::vector<float> points(static_cast<std::size_t>(n) * 3);
        for (int i = 0; i < n; ++i)
            for (int k = 0; k < 3; ++k)
                points[static_cast<std::size_t>(3 * i + k)] =
                    static_cast<float>(frame.MarkerCoordinate[i][k]);
        const auto* rows = reinterpret_cast<const float(*)[3]>(points.data());
        cv::Mat R, T, local;
        GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, rows, n, 0);
        localPoints_ = local.clone();

        auto tool = std::make_unique<T_ToolPtMatchInfo>();
        tool->toolName = name_;
        tool->filePath = toolDirectory + name_ + ".vyxtool";
        tool->toolKind = 'T';
        tool->markerCount = n;
        for (int i = 0; i < n; ++i)
            for (int k = 0; k < 3; ++k)
                tool->markerPositions.push_back(static_cast<float>(local.at<double>(i, k)));
        tool->markerPositionsCopy = tool->markerPositions;
        tool->markerMasks.assign(static_cast<std::size_t>(n), fullMarkerMask(n));
        tool->tipPairCount = 1;
        tool->tipPoints.assign(6, 0.0f);
        CalculateDisWithPointsArr(*tool, false);
        tool_ = std::move(tool);
        selfCalibration.select(tool_.get());

        started_ = true;
        finished_ = false;
        info.madeFlag = true;
        info.finished = false;
        info.meanError = 0.0f;
        info.progress = progress_ = kFirstFrameProgress;
        return 0;
    }

    t_ToolFixProInfo step{};
    selfCalibration.proceed(frame, step, toolFindOffset);
    info.finished = finished_ = step.finished;
    info.meanError = step.meanError;
    info.progress = progress_ = static_cast<float>(step.frameCount) / kSelfCalibrationFrameTarget;
    info.madeFlag = !step.frameCounted;
    return 0;
}

int ToolMaking::save(bool keep, ToolLibrary& library, ToolSelfCalibration& selfCalibration) {
    if (!finished_) return -1;
    if (!keep) {
        DestroyToolMadeInfo(selfCalibration);
        return 0;
    }
    if (!tool_) return -1;
    T_ToolPtMatchInfo& tool = *tool_;
    tool.filePath = library.toolInfoFilePath() + tool.toolName + ".vyxtool";
    // One line per marker, so that a tool of any marker count reads back.
    const T_ToolCoorSysInfo cache = toolCacheOf(tool);
    if (WrtieFormatToolInfoFronCache(&cache) != 1) return -1;
    tool.markerPositionsCopy = tool.markerPositions;
    library.append(std::move(tool_));
    return 0;
}
