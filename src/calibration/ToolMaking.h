// Tool making: a new tool definition made from a rigid body whose markers,
// and only they, are in view.
//
// The first frame fixes the tool's frame (ToolFrame.h: origin at the markers'
// centroid, Z along their plane's normal, X towards the first marker of the
// frame) and the initial marker positions, in the frame's marker order. The
// following frames refine the positions by self-calibration (100 frames).
// Save writes "<tool directory><name>.vyxtool" with one line per marker and
// hands the record to the tool library.
//
// Progress, as reported: 0.1 after the first frame, then the self-calibration
// frame count / 100 (so it drops to 0.0, then 0.01, ...).
//
// Plain state; the engine runs it under its API mutex.
#pragma once

#include "VyxPositionTypes.h"
#include "calibration/ToolSelfCalibration.h"
#include "tools/ToolLibrary.h"

#include <opencv2/core.hpp>

#include <memory>
#include <string>

class ToolMaking {
public:
    static constexpr float kFirstFrameProgress = 0.1f;

    // Starts a tool of markerCount markers named name, freeing any record not
    // yet saved (the self-calibration forgets it). -1 for a null name or a
    // count outside 3..200.
    int init(int markerCount, const char* name, ToolSelfCalibration& selfCalibration);

    // One frame: -1 once finished or when the frame does not hold exactly the
    // tool's marker count; else 0 (a refinement frame in which the tool is not
    // recognised is not counted, and still answers 0).
    int proceed(const T_MarkerInfo& frame, t_ToolMadeProInfo& info,
                ToolSelfCalibration& selfCalibration, const std::string& toolDirectory,
                float toolFindOffset);

    // save true: writes the file and adds the tool to the library; false:
    // frees the record. -1 before completion, without a record, or when the
    // file cannot be written (the record then stays).
    int save(bool keep, ToolLibrary& library, ToolSelfCalibration& selfCalibration);

    // Frees the pending record (the self-calibration forgets it).
    void DestroyToolMadeInfo(ToolSelfCalibration& selfCalibration);

    // The markers in the new tool frame as the first frame gave them (n x 3
    // CV_64F), and the record being made (null before the first frame and
    // after Save).
    const cv::Mat& localPoints() const { return localPoints_; }
    const T_ToolPtMatchInfo* tool() const { return tool_.get(); }

private:
    std::string name_;
    int markerCount_ = 0;
    bool started_ = false;
    bool finished_ = false;
    float progress_ = 0.0f;
    cv::Mat localPoints_;
    std::unique_ptr<T_ToolPtMatchInfo> tool_;
};
