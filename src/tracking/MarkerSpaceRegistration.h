// Marker-space registration: a point set from another space (for instance
// fiducials planned in an image volume) found among a frame's markers as an
// ad-hoc tool, and the rigid transform between the two spaces reported in the
// same record as a tool's pose.
//
// The point set is a tool record with an empty name and no tip section, whose
// distance table holds every pair, matched with its own tolerance instead of
// the tool-find offset. Nothing here takes a lock.
#pragma once

#include "VyxPositionTypes.h"
#include "tools/ToolDefinition.h"
#include "tracking/ToolRecognition.h"

#include <memory>

class MarkerSpaceRegistration {
public:
    // Replaces any earlier point set by count points (x, y, z each) and the
    // tolerance, mm, with which their distances are matched. Always 0.
    int init(const float (*points)[3], int count, float tolerance);

    // Recognises the point set in the frame (its first MarkerNumber markers)
    // and fills result as tool recognition does, in settings.direction and
    // with settings.pointMatchOptimize. 0 when found; -1 when it is not (result
    // says not valid), no point set exists, or the frame holds fewer than 3 or
    // more than 199 markers (result untouched).
    int map(const T_MarkerInfo& frame, T_VyxToolDataResult& result, int minMatch,
            const RecognitionSettings& settings);

    bool hasPointSet() const { return pointSet_ != nullptr; }

private:
    std::unique_ptr<T_ToolPtMatchInfo> pointSet_;
    float tolerance_ = 0.0f;
};
