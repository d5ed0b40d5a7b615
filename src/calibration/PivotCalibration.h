// Pivot calibration: the tool's tip found without a calibrator.
//
// The user rests the tip in a fixed dimple and swings the tool. Each pose
// (R, T), tool into tracker coordinates, satisfies R t + T = P for the tip t
// (tool frame) and the pivot point P (tracker frame). Pose k fills rows 3k to
// 3k + 2 of the 600 x 6 system [R | -I] x = T; after 200 poses the normal
// equations x = (A^T A)^-1 A^T (-B) are solved in single precision, t becomes
// the first point of the tool's first tip pair, and the mean |R t + T - P|
// over the poses is reported. A second, independent assessment of the same
// poses (PivotQuality.h) is kept for the host.
//
// Plain state over the tool library; the engine runs it under its API mutex.
#pragma once

#include "VyxPositionTypes.h"
#include "calibration/ToolTipCalibration.h"
#include "tools/ToolLibrary.h"

#include <opencv2/core.hpp>

#include <functional>
#include <string>

class PivotCalibration {
public:
    // Allocates the 600 x 6 system once; the per-frame step only copies into it.
    PivotCalibration();

    // Selects the last tool named `name`, zeroes its tip (and its second tip
    // point when resetAxis) and starts over. -1 for an empty library or an
    // unknown name.
    int init(ToolLibrary& library, ToolTipProgress& shared, const char* name, bool resetAxis);

    // Recognises the tool in one frame: fills result for the tool named
    // `name` and returns the recognition's own code.
    using Recogniser = std::function<int(const std::string& name, T_VyxToolDataResult& result)>;

    // One frame: -1 once finished (nothing touched) or when the tool is not
    // found; the recogniser's code when it is not 0; else 0. The 200th pose
    // solves the system and reports finished and pivotError.
    int proceed(ToolLibrary& library, ToolTipProgress& shared, const Recogniser& recognise,
                T_ToolTipPivotInfo& info);

    // Rewrites the tip section of the tool's file in `mode` (1: the result
    // is the tip, 2: it is the second point). 0, or -1 when the tool is gone
    // or its file cannot be read or written.
    static int save(ToolLibrary& library, const ToolTipProgress& shared, int mode);

    // The assessment of the last finished calibration: false when none has
    // finished since the last init.
    bool quality(T_ToolTipPivotQuality& out) const;

private:
    std::string toolName_;
    cv::Mat A_;         // 600 x 6 CV_32F
    cv::Mat B_;         // 600 x 1 CV_32F
    cv::Mat identity_;  // 3 x 3 CV_32F
    bool qualityValid_ = false;
    T_ToolTipPivotQuality quality_{};
};
