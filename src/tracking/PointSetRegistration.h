// Least-squares rigid fit between two corresponding point sets, and the step
// that lays out a tool match as the two point arrays of that fit.
//
// The fit finds R (3x3) and T (3x1) such that second[k] ~ R*first[k] + T for
// every k, minimising the sum of squared distances. R is always a proper
// rotation (det +1), also when the best orthogonal map would be a reflection.
// Points are in millimetres; the frames are whatever the caller's arrays use.
#pragma once

#include "VyxPositionTypes.h"
#include "tools/ToolDefinition.h"

#include <opencv2/core.hpp>

#include <vector>

// Fits R and T from n corresponding points in single precision (centroids
// accumulated in float, SVD by OpenCV). On success R becomes a 3x3 CV_32F
// matrix and T a 3x1 CV_32F vector, and the function returns true. With a null
// array or n < 3 it returns false and leaves R and T untouched. Collinear or
// coincident points are not screened: they give some rotation that fits them
// exactly but is not unique.
bool GetRTPoints(const cv::Point3f* first, const cv::Point3f* second, int n, cv::Mat& R,
                 cv::Mat& T);

// Same contract as GetRTPoints, computed in double precision with Eigen's
// Jacobi SVD. The results are still returned as CV_32F and agree with
// GetRTPoints to within single-precision rounding.
bool GetRTPointsInEigen(const cv::Point3f* first, const cv::Point3f* second, int n, cv::Mat& R,
                        cv::Mat& T);

// The parts of a tool record that GetMatchPtPoints3fAndMat reads. It only
// borrows: every pointer refers into the tool record, which must outlive the call.
struct ToolMatchView {
    int markerCount = 0;                      // N, the tool's marker count
    const float* filePositions = nullptr;     // 3*N floats, x y z per marker, tool frame
    const float* workingPositions = nullptr;  // the 3*N working copy that calibration edits
    const std::vector<T_MatchMarkIdx>* pairs = nullptr;  // correspondences found by recognition
};

// View of a tool record: filePositions are its markerPositions, workingPositions
// its markerPositionsCopy (the same pairing as the distance table's
// useWorkingCopy flag). A position array holding fewer than 3*N floats is left
// out (null), so that a damaged record is refused instead of overrun.
ToolMatchView MatchViewOf(const T_ToolPtMatchInfo& tool);

// Lays out the tool's matched pairs, in the order of tool.pairs, as the two
// point arrays of a fit that maps firstPts onto secondPts:
//   direction 0:        firstPts = tool marker positions, secondPts = observed
//                       points, so the fit maps tool into tracker coordinates;
//   any other value:    the same two arrays the other way round, so the fit
//                       gives the inverse mapping.
// Tool positions come from tool.workingPositions when useWorkingCopy is true,
// else from tool.filePositions; observed points are rows of observed, an M x 3
// CV_32F matrix. Returns false, with both outputs untouched, when the selected
// positions or the pair list are missing, observed is not M x 3 CV_32F, or a
// pair's index lies outside [0, N) or [0, M).
bool GetMatchPtPoints3fAndMat(bool useWorkingCopy, const ToolMatchView& tool,
                              const cv::Mat& observed, std::vector<cv::Point3f>& firstPts,
                              std::vector<cv::Point3f>& secondPts, E_RTDirection direction);

// The same for a whole tool record, through MatchViewOf.
bool GetMatchPtPoints3fAndMat(bool useWorkingCopy, const T_ToolPtMatchInfo& tool,
                              const cv::Mat& observed, std::vector<cv::Point3f>& firstPts,
                              std::vector<cv::Point3f>& secondPts, E_RTDirection direction);
