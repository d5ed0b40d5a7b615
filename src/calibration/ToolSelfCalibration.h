// Tool self-calibration: the marker positions of a tool definition refined
// from the tracker's own observations.
//
// Per frame the tool is recognised, its pose fitted from the tracker into the
// tool frame, and each matched marker's residual (where it was seen, in tool
// coordinates, minus where the definition puts it) is accumulated, provided
// the frame's mean residual is below the tool-find offset. After 100 frames
// (frames over the limit count too, without adding residuals) each marker
// seen moves by its mean residual, and the distance table follows. The user
// then keeps the result (saved to the tool file), discards it (the positions
// as read come back from the record's second copy) or starts again.
//
// The procedure works on one tool record it does not own: a library tool, or
// the record that tool making builds. Plain state; the engine runs it under
// its API mutex and tells it when the record goes away.
#pragma once

#include "VyxPositionTypes.h"
#include "tools/ToolLibrary.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <list>
#include <vector>

// Frames that complete a self-calibration.
constexpr float kSelfCalibrationFrameTarget = 100.0f;
// meanError until a self-calibration completes.
constexpr float kSelfCalibrationInitialError = 100.0f;

class ToolSelfCalibration {
public:
    // Selects a library tool (the first of that name, or by position),
    // reports its marker count and starts over. -1 for an empty library, a
    // null or unknown name, or a position out of range.
    int init(ToolLibrary& library, const char* name, int& markerCount);
    int init(ToolLibrary& library, int toolIndex, int& markerCount);
    // Calibrates `tool` (owned by the caller, which must call forget() before
    // freeing it) and starts over.
    void select(T_ToolPtMatchInfo* tool);
    // Drops the tool when its record goes away.
    void forget() { tool_ = nullptr; }
    T_ToolPtMatchInfo* tool() const { return tool_; }

    // Starts over: error 100, no frames, not finished, no residuals.
    void CalibrateSelfCtrl();

    // One frame. A finished procedure answers 0 and touches nothing; -1 for
    // a frame of fewer than 3 or more than 199 markers, no tool, or a frame
    // in which the tool is not recognised (nothing counted then); else 0.
    int proceed(const T_MarkerInfo& frame, t_ToolFixProInfo& info, float toolFindOffset);

    // The user's decision: discard (positions back from the second copy),
    // retry (the same, then start over) or save (the tool file rewritten with
    // the positions, which then also become the second copy). Other values
    // do nothing. -1 when no tool is selected or the file cannot be written.
    int save(E_ToolFixRlt decision);

    std::uint32_t frameCount() const { return frameCount_; }
    bool finished() const { return finished_; }
    // Kept for callers that may read it: 10 for tools of fewer than 7
    // markers, else 3.
    int perToolCount() const { return perToolCount_; }

private:
    T_ToolPtMatchInfo* tool_ = nullptr;
    std::uint32_t frameCount_ = 0;
    bool finished_ = false;
    float errorValue_ = kSelfCalibrationInitialError;
    int perToolCount_ = 10;
    std::list<float> errors_;
};

// The recognition and accumulation of one frame (points: M x 3 CV_32F): -1
// when the tool is not found or matches fewer than 3 markers; else 0, with
// the frame's mean residual appended to errors and every matched marker's
// residual accumulated when that mean is below toolFindOffset.
int CalibrateToolWithCircleMarksByItSelf(const cv::Mat& points, T_ToolPtMatchInfo& tool,
                                         std::list<float>& errors, float toolFindOffset);

// Zeroes every marker's accumulator and empties its residual list; nothing
// for a null tool.
void CalibrateSelfInitErro(T_ToolPtMatchInfo* tool);

// Sample standard deviation (n - 1) of values into out; out is untouched for
// an empty list (and NaN for a single value).
void GetErroListRMS(float& out, const std::list<float>& values);
