// Tool coordinate renewal: a new frame for an instrument, with its origin at
// the tip and its Z axis along the shaft, so that tracking reports the tip as
// the pose's translation and the shaft as the pose's Z axis.
//
// The user rests the tool's tip in a calibrator's hole, as for a tip
// calibration, and the frames are taken by the tip calibration's own step
// (ToolTipCalibration::proceedInto): the same recognition, the same
// acceptance of a frame, 200 counted frames. Only the sums differ: the hole's
// bottom and axis point, in the tool's current coordinates, are averaged here
// rather than into the tool's tip pair, so that the tool keeps tracking as
// before while frames are collected.
//
// At the 200th counted frame the new frame is built from the mean hole
// (tipOriginFrame) and the tool record is re-expressed in it at once
// (markers, their second copy, the distance table, the tip section);
// save() writes the whole tool file through the cache writer.
//
// Plain state over the tool library; the engine runs it under its API mutex.
#pragma once

#include "VyxPositionTypes.h"
#include "calibration/ToolTipCalibration.h"
#include "tools/ToolLibrary.h"

#include <opencv2/core.hpp>

#include <array>
#include <string>
#include <vector>

// A marker nearer than this to the shaft axis gives no X direction; the next
// marker in file order is taken instead.
constexpr double kMinMarkerOffAxisMm = 1.0;
// The hole's bottom and its axis point must lie further apart than this.
constexpr double kMinHoleAxisLengthMm = 1e-3;

// The tip-origin frame in the tool's current coordinates: a current point q
// is R (q - origin) in the new frame. R's rows are the new X, Y, Z axes.
struct TipOriginFrame {
    cv::Matx33d R;
    cv::Vec3d origin;
    // Distance from the hole's bottom to its axis point: the new second
    // tip-section point is (0, 0, axisLengthMm).
    double axisLengthMm = 0.0;
};

// Builds the frame from the tool's marker positions (3 * markerCount floats,
// current tool frame) and the hole's bottom and axis point (holePair: six
// floats, same frame): origin at the bottom; Z along the hole axis, signed
// to point from the tip towards the markers' centroid (when the centroid
// lies square across the axis, from the bottom towards the axis point); X
// towards the projection of the first marker lying kMinMarkerOffAxisMm or
// more off the axis onto the plane through the origin normal to Z; Y = Z x X.
// False, frame untouched, for a null or non-finite input, fewer positions
// than markers, a hole axis shorter than kMinHoleAxisLengthMm, or no marker
// off the axis.
bool tipOriginFrame(const std::vector<float>& markerPositions, int markerCount,
                    const float* holePair, TipOriginFrame& frame);

// Re-expresses a tool record in the frame: each marker position and its
// second copy becomes R (q - origin), the first tip pair becomes (0, 0, 0)
// and (0, 0, axisLengthMm), and the distance table is rebuilt.
void applyTipOriginFrame(T_ToolPtMatchInfo& tool, const TipOriginFrame& frame);

class ToolCoordinateRenewal {
public:
    // Tool and calibrator by names, in either order, as the tip calibration
    // takes them; starts over. -1 (state kept) when either is missing.
    int init(ToolLibrary& library, const char* name1, const char* name2);

    // One frame through the tip calibration's step. Results as that step
    // (-1 for a marker count outside 3..199 or fewer than 3 markers left for
    // the tool), and -1 on the completing frame when no frame can be built
    // from the mean hole (see tipOriginFrame): the tool is then left as it
    // was and save() refuses.
    int proceed(ToolLibrary& library, const T_MarkerInfo& frame, t_ToolTipCalProInfo& info,
                float toolFindOffset);

    // Writes the renewed tool's whole file (cache writer). -1 before a
    // renewal completed, when the tool is no longer at its library position
    // under its name (the library was reloaded), or when the file cannot be
    // written.
    int save(ToolLibrary& library) const;

    bool renewed() const { return renewed_; }
    // The frame applied at completion, in the tool's former coordinates.
    const TipOriginFrame& frame() const { return frame_; }

private:
    ToolTipCalibration step_;
    ToolTipProgress progress_;
    std::array<float, 6> holeSums_{};
    std::string toolName_;
    TipOriginFrame frame_;
    bool renewed_ = false;
};
