// Recognition of tools among the 3D markers of one frame: which observed
// points belong to which tool, the tool's pose fitted to them, and the result
// record that reports pose, tip and fit error.
//
// Coordinates are millimetres. Observed points are the rows of an M x 3
// CV_32F matrix in tracker coordinates (or the reference tool's, when the
// frame was re-expressed); tool marker positions are in the tool's own frame.
// Nothing here takes a lock: the engine calls it under its API mutex.
#pragma once

#include "VyxPositionTypes.h"
#include "tools/ToolDefinition.h"

#include <opencv2/core.hpp>

#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <string>
#include <vector>

// Recognition settings as the engine holds them.
struct RecognitionSettings {
    // Distance tolerance of the matching, mm; used wherever a tolerance of 0
    // is passed.
    float toolFindOffset = 1.5f;
    // Enables the outlier rejection after the first fit.
    bool pointMatchOptimize = true;
    // Which way the pose is fitted (tool into tracker by default).
    E_RTDirection direction = RTDirection_ToolToTracker;
};

// Largest mean fit residual, mm, at which a found tool is reported as valid.
constexpr float kMaxAcceptedMatchError = 3.0f;

// The M x M table of distances between the observed points of one frame
// (diagonal 0), computed once per frame and shared by every tool matched
// against that frame.
//
// Beside it, each row keeps a bitmap of the distances it holds in 2 mm bins
// (the last bin collects everything from 4094 mm on), so that most rows can
// be ruled out for a wanted distance without being scanned.
class FrameDistances {
public:
    // Builds the table for the rows of an M x 3 single-channel CV_32F matrix.
    // Any other matrix gives an empty table (count 0) and false.
    bool assign(const cv::Mat& observed);

    int count() const { return count_; }
    // Row i of the table: count() distances. i must lie in [0, count()).
    const float* row(int i) const { return table_.data() + static_cast<std::size_t>(i) * count_; }
    float distance(int i, int j) const { return row(i)[j]; }

    // False when no point other than i lies at a distance within `tolerance`
    // of `distance` from point i; true when one may. Never false wrongly.
    bool mayHold(int i, float distance, float tolerance) const;

private:
    static constexpr float kBinWidthMm = 2.0f;
    static constexpr int kBinCount = 2048;
    static constexpr int kWordsPerRow = kBinCount / 64;

    static int binOf(float distanceMm);

    int count_ = 0;
    std::vector<float> table_;
    std::vector<std::uint64_t> bins_;  // kWordsPerRow words per row
};

// Matches one tool against the observed points (seed-and-grow search over the
// tool's distance table and the observed one).
//
// tool: its distanceTable must be markerCount x markerCount CV_32F; a tool
//   with fewer than 3 markers, more than 200, or another table fails.
// observed: M x 3 CV_32F. (The overload taking FrameDistances reads only the
//   table, which must have been built from the same points.)
// remaining: with useRemaining true, on entry the observed rows that may be
//   used, in the order they are to be tried (indices outside [0, M) and
//   repeats are ignored); with useRemaining false it is first reset to
//   0 .. M-1. On success the rows that the tool used are taken out of it;
//   on failure it keeps its entry value (or 0 .. M-1).
// minMatch: the sweeps run at the thresholds K-1, K-2, ... down to minMatch,
//   K = min(N, number of usable points); the first sweep is always made, and
//   with minMatch below 1 only it. A threshold t demands t + 1 matched
//   markers, each agreeing with t others; t never drops below 2, so that a
//   match always carries the three points a pose needs. minMatch > K fails.
// tolerance: two distances agree when they differ by less than it; 0 means
//   toolFindOffset.
// On success tool.pairs holds the correspondences (tool marker, observed row),
// each tool marker and each observed row at most once, the seed first.
bool FindToolMatchPtIndexList(T_ToolPtMatchInfo& tool, const cv::Mat& observed,
                              std::vector<int>& remaining, int minMatch, float tolerance,
                              bool useRemaining, float toolFindOffset);
bool FindToolMatchPtIndexList(T_ToolPtMatchInfo& tool, const FrameDistances& distances,
                              std::vector<int>& remaining, int minMatch, float tolerance,
                              bool useRemaining, float toolFindOffset);

// Residuals of a fit (R 3x3, T 3x1 or 1x3, CV_32F or CV_64F) over
// corresponding arrays laid out by GetMatchPtPoints3fAndMat in `direction`.
// Each residual is taken in tool coordinates: the observed point carried into
// the tool frame by the fit, minus the tool's marker position. Its length
// equals the tracker-frame residual, since the fit is rigid. errors gets one
// entry per pair, in pair order; the result is the mean length, or NaN (with
// errors empty) when the arrays differ in length, are empty, or R or T has
// the wrong shape.
float CalculateMatchError(const std::vector<cv::Point3f>& firstPts,
                          const std::vector<cv::Point3f>& secondPts, const cv::Mat& R,
                          const cv::Mat& T, E_RTDirection direction,
                          std::vector<T_MarkError>& errors);

// Finds one tool: match, fit in settings.direction, reject outliers when
// settings.pointMatchOptimize is on, accept when the mean residual is at most
// kMaxAcceptedMatchError, and fill result.
//
// observed is the frame's markers as an M x 3 CV_32F matrix and frame the
// record they came from; remaining is used as by FindToolMatchPtIndexList
// with useRemaining true (fill it with 0 .. M-1 for a whole frame) and loses
// the tool's rows only when the result is valid. tolerance 0 means
// settings.toolFindOffset.
//
// result: ValidFlag is always written. Once the tool is matched,
// MatchedMarkerCount = N and MatchedMarkerIndex[a] is, for tool marker a in
// file order, the index of the frame marker whose coordinates equal the
// matched observed point, or -1 for a tool marker that was not matched (or
// whose point is not in the frame). The indices are those of the match: a
// marker dropped later by the outlier rejection keeps its index, but is left
// out of tool.pairs, which ends up holding the pairs of the final fit. The
// remaining fields are written only for a valid result. `next` is never
// touched.
bool FindSpecificToolInfo(T_ToolPtMatchInfo& tool, const cv::Mat& observed,
                          const T_MarkerInfo& frame, T_VyxToolDataResult& result,
                          std::vector<int>& remaining, int minMatch, float tolerance,
                          const RecognitionSettings& settings);
// The same with the frame's distance table already built from observed (it is
// rebuilt when its size does not match).
bool FindSpecificToolInfo(T_ToolPtMatchInfo& tool, const cv::Mat& observed,
                          const FrameDistances& distances, const T_MarkerInfo& frame,
                          T_VyxToolDataResult& result, std::vector<int>& remaining, int minMatch,
                          float tolerance, const RecognitionSettings& settings);

// The frame's first min(MarkerNumber, 200) markers as an M x 3 CV_32F matrix.
cv::Mat markerMatrix(const T_MarkerInfo& frame);

// Appends value to list unless the list already holds it.
void JoinDifferent(int value, std::vector<int>& list);

// Engine-owned storage of the result records that a multi-tool search chains
// after the caller's first record. A search clears it (once it gets past its
// frame checks); the records stay valid until the next such search.
class ResultChain {
public:
    void clear() { records_.clear(); }
    // A new record: zeroed, invalid, no indices, no next. References stay
    // valid while records are appended.
    T_VyxToolDataResult& append();
    std::size_t size() const { return records_.size(); }

private:
    std::deque<T_VyxToolDataResult> records_;
};

// Recognises the named tools of the library in the frame, in the order of
// names, and chains one record per found tool from `first`.
//
// Nothing is touched unless 3 <= frame.MarkerNumber <= 200, the library is not
// empty and first is not null. Otherwise the first record's ValidFlag,
// MeanError and next are cleared, the chain is cleared, and for each name the
// first tool of exactly that name is searched among the frame markers that
// earlier tools left over (unknown names are skipped; a name given twice
// searches its tool twice). A found tool gets the current record and a new
// chained one becomes current, unless fewer than 3 markers remain, which ends
// the search; a tool not found leaves the current record to the next tool.
// Always returns 0.
int findNamedTools(std::list<std::unique_ptr<T_ToolPtMatchInfo>>& tools, const T_MarkerInfo& frame,
                   const std::vector<std::string>& names, T_VyxToolDataResult* first, int minMatch,
                   const RecognitionSettings& settings, ResultChain& chain);

// findNamedTools over the names of every library tool in list order; -1 when
// the library is empty, else 0.
int findAllTools(std::list<std::unique_ptr<T_ToolPtMatchInfo>>& tools, const T_MarkerInfo& frame,
                 T_VyxToolDataResult* first, int minMatch, const RecognitionSettings& settings,
                 ResultChain& chain);
