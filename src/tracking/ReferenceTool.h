// The reference tool: a library tool chosen by the host as a moving frame of
// reference (for instance one fixed to the patient), and the re-expression of
// markers and tool results in its frame.
//
// The reference keeps its own copy of the chosen tool record, marker arrays
// included, so that releasing or rescanning the tool library never leaves it
// pointing into freed records. Nothing here takes a lock: the engine calls it
// under its API mutex.
#pragma once

#include "VyxPositionTypes.h"
#include "tools/ToolLibrary.h"
#include "tracking/ToolRecognition.h"

#include <opencv2/core.hpp>

#include <list>
#include <memory>
#include <string>
#include <vector>

class ReferenceTool {
public:
    // Copies the first library tool named exactly `name` and makes it the
    // reference. -1, keeping any previous reference, when name is null, the
    // library is empty or holds no such tool; else 0.
    int set(const ToolLibrary& library, const char* name);
    // Ends the reference and frees the copy.
    void cancel();
    bool isSet() const { return !copy_.empty(); }
    const T_ToolPtMatchInfo* tool() const { return isSet() ? copy_.front().get() : nullptr; }

    // The reference's pose in the frame as a 4 x 4 transform (upper left R,
    // last column T, mapping reference coordinates into the frame's): 0 when
    // the reference is set and recognised, else -1 with `pose` the identity.
    int transform(const T_MarkerInfo& frame, cv::Matx44d& pose, int minMatch,
                  const RecognitionSettings& settings);

private:
    // One record, so that the ordinary named-tool search can run on it.
    std::list<std::unique_ptr<T_ToolPtMatchInfo>> copy_;
    // Its name, as the search takes it, kept so that frames allocate nothing.
    std::vector<std::string> names_;
    ResultChain chain_;
};

// Replaces every one of the frame's 200 marker rows p (not only the first
// MarkerNumber) by pose^-1 (p, 1): the markers in the frame that `pose` maps
// from. The inverse is taken by LU decomposition.
void reexpressMarkers(T_MarkerInfo& frame, const cv::Matx44d& pose);

// Re-expresses a valid result's pose-dependent fields through `inverse`
// (tracker into reference coordinates): R becomes inverse3x3 R; translation,
// origin, tip and tip-axis point p become inverse (p, 1); rotation vector and
// quaternion are recomputed from the new R. Errors, names, indices and
// tool-frame points stay; a result that is not valid is left untouched.
void reexpressResult(T_VyxToolDataResult& result, const cv::Matx44d& inverse);
