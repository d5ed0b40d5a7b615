// One tool definition in memory: the rigid constellation of markers that a
// ".vyxtool" file describes, with the working storage that recognition and
// the calibration procedures keep per tool.
#pragma once

#include "VyxPositionTypes.h"

#include <opencv2/core.hpp>

#include <array>
#include <cstdint>
#include <list>
#include <string>
#include <vector>

// Largest marker count of a tool, and longest tool name (without the
// terminator) that the public records can carry.
constexpr int kMaxToolMarkers = VYX_MAX_MARKERS;
constexpr std::size_t kMaxToolNameLength = VYX_TOOL_NAME_SIZE - 1;

struct T_ToolPtMatchInfo {
    // Directory of the tool library followed by the file name: where the
    // writers put the tool back.
    std::string filePath;
    std::string toolName;
    char toolKind = 'T';  // 'T' tool, 'C' calibrator
    std::int32_t markerCount = 0;
    // Marker positions in the tool frame, x, y, z per marker in file order.
    // Recognition and registration use them; self-calibration adds its
    // corrections here.
    std::vector<float> markerPositions;
    // A second copy, equal to markerPositions after a read and kept as read,
    // so that a discarded calibration can be undone from it.
    std::vector<float> markerPositionsCopy;
    // Per marker: bit j set means the distance to marker j belongs to the
    // distance table.
    std::vector<std::int32_t> markerMasks;
    // markerCount x markerCount CV_32F table of inter-marker distances.
    cv::Mat distanceTable;
    // Tip sections: pairs of points (tip, then a second point on the tip
    // axis), x, y, z each, tool frame.
    std::int32_t tipPairCount = 0;
    std::vector<float> tipPoints;  // 6 * tipPairCount
    // Working storage of the calibration procedures.
    std::list<std::vector<float>> procedureData;
    std::vector<std::array<float, 4>> markerScratch;       // one per marker
    std::vector<std::list<T_MarkError>> markerResiduals;   // one list per marker
    // Correspondences found by the latest recognition of this tool.
    std::vector<T_MatchMarkIdx> pairs;
};
