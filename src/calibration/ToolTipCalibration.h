// Tool tip calibration against a calibrator.
//
// The user rests the tool's tip in the hole of a calibrator (a tool of kind
// 'C' whose first tip pair is the hole: its bottom, then a point up its axis)
// and holds both in view. Per frame the calibrator is recognised first, the
// tool among the markers it left over, and the hole is carried into the
// tool's frame. 200 counted frames later the tool's first tip pair is the
// mean hole position of the counted frames that were also candidates (below).
//
// The acceptance of a frame, kept as it is: the error threshold starts at 100
// and is pulled down to the error of every frame below it (such a frame is a
// candidate and adds its hole position to the sum); a frame is counted only
// when its error lies within 0.25 of the mean error of the frames counted so
// far, and each counted frame resets the threshold to that mean. Errors are
// the tool's mean fit residual, mm.
//
// The per-frame step (proceedInto) also serves the tool coordinate renewal,
// which averages the same hole positions into a sum of its own instead of
// into the tool's tip pair.
//
// Plain state over the tool library; the engine runs it under its API mutex.
#pragma once

#include "VyxPositionTypes.h"
#include "tools/ToolLibrary.h"

#include <cstdint>
#include <vector>

// State shared by the tip and the pivot calibration: the tool being
// calibrated, the frames counted towards 200 (the pivot's poses), the finished
// flag and the progress. A new Init of either procedure takes it over.
struct ToolTipProgress {
    std::uint32_t toolIndex = ToolLibrary::kNoToolSelected;
    std::uint32_t acceptedFrames = 0;
    bool finished = false;
    float progress = 0.0f;
};

// Frames (tip calibration) or poses (pivot) that complete a procedure.
constexpr std::uint32_t kToolTipTargetFrames = 200;

class ToolTipCalibration {
public:
    static constexpr float kInitialErrorThreshold = 100.0f;
    static constexpr float kMeanErrorWindow = 0.25f;
    // Error of a frame in which the tool was not found.
    static constexpr float kToolNotFoundError = 1000.0f;

    // By library positions: -1 when the library is empty or either index is
    // negative or not below the tool count.
    int init(ToolLibrary& library, ToolTipProgress& shared, int calibratorIndex, int toolIndex);
    // By names, in either order: the last definition of kind 'T' named by
    // either becomes the tool, the last of kind 'C' the calibrator; -1 when
    // either is missing or a name is null.
    int init(ToolLibrary& library, ToolTipProgress& shared, const char* name1, const char* name2);

    // One frame. -1 when the frame holds fewer than 3 or more than 199
    // markers, or fewer than 3 are left once the calibrator took its own;
    // else 0, with the flags saying what was recognised and counted.
    int proceed(ToolLibrary& library, ToolTipProgress& shared, const T_MarkerInfo& frame,
                t_ToolTipCalProInfo& info, float toolFindOffset);

    // ---- The step shared with the tool coordinate renewal ---------------

    // Chooses calibrator and tool by names as the name form of init does and
    // starts over, but leaves the tool's tip pair as it is. -1 as init.
    int select(ToolLibrary& library, ToolTipProgress& shared, const char* name1,
               const char* name2);

    // One frame, as proceed, except that the hole positions of the frames
    // that count as candidates are added to holeSums (six floats: the hole's
    // bottom, then its axis point, tool coordinates), which the 200th counted
    // frame divides by the number of them. proceed passes the tool's own
    // first tip pair. Results as proceed.
    int proceedInto(ToolLibrary& library, ToolTipProgress& shared, const T_MarkerInfo& frame,
                    t_ToolTipCalProInfo& info, float toolFindOffset, float* holeSums);

    // Rewrites the tip section of the tool's file: 0, or -1 when it cannot.
    static int save(ToolLibrary& library, const ToolTipProgress& shared);

private:
    // Takes calibrator and tool by position and starts over; zeroes the
    // tool's first tip pair when zeroTip is set.
    int start(ToolLibrary& library, ToolTipProgress& shared, std::uint32_t calibrator,
              std::uint32_t tool, bool zeroTip);
    // The positions of the last tool of kind 'T' and the last of kind 'C'
    // named by either text; false when either is missing or a text is null.
    static bool resolveNames(const ToolLibrary& library, const char* name1, const char* name2,
                             std::uint32_t& calibrator, std::uint32_t& tool);

    std::uint32_t calibratorIndex_ = ToolLibrary::kNoToolSelected;
    std::uint32_t summedFrames_ = 0;
    std::vector<float> errorList_;
    std::vector<float> distanceList_;
    float errorThreshold_ = kInitialErrorThreshold;
};

// Makes sure the record holds a first tip pair (six floats) and returns it.
float* firstTipPair(T_ToolPtMatchInfo& tool);
