// Host-side 3D reconstruction of one frame: pairs the left and right marker
// centres the device sent and triangulates the pairs into markers.
#pragma once

#include "VyxPositionTypes.h"
#include "camera/StereoCompensation.h"

// Reconstructs the markers of one frame into out.
//
// left and right hold leftCount and rightCount centres as (u, v) pixel pairs
// of 32-bit floats; counts above VYX_MAX_MARKERS are cut to it, and a null
// array or a count below 1 means no centres. A centre at exactly (0, 0) is an
// empty slot and is skipped. model supplies the working camera records, the
// essential matrix E and zFactor; thresholdPx is the pairing threshold in
// right-image pixels (pairThresholdForModel); maxDistanceMm the depth limit.
//
// When no pair is found, only out.MarkerNumber changes (to 0). Otherwise
// MarkerCoordinate, MarkerPairIndex, Reserved1 and Reserved3 are cleared, and
// every triangulated pair whose scaled depth Z' = Z * zFactor is finite and
// strictly below maxDistanceMm (with finite X and Y) is stored, in pair order,
// as (X, Y, Z') in millimetres together with its pair number, up to
// VYX_MAX_MARKERS markers; MarkerNumber is the number stored. ID,
// OverLimitFlag, Reserved0 and Reserved2 are never touched. Always returns 0.
int reconstructMarkers(const float* left, int leftCount, const float* right, int rightCount,
                       const StereoWorkingModel& model, double thresholdPx, double maxDistanceMm,
                       T_MarkerInfo& out);
