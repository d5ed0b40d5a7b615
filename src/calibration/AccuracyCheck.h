// Accuracy check: a length-bar test of the tracker in the field.
//
// The artefact is a rigid bar with a group of four markers at each end,
// end A = markers 0..3 and end B = markers 4..7, whose marker coordinates
// come with a certificate (in any frame). The figure of merit is the error of
// the measured length, the distance between the two ends' centroids, against
// the certified one, while the bar is moved through the measuring volume; the
// shape error of each end (its markers against the certificate) comes with it.
//
// The artefact is defined from its certified coordinates, either as given by
// the host or as an eight-marker tool of the library. Its frame comes from
// the two-set frame construction (origin at end A's centroid, X from end B's
// centroid towards end A's), each end's frame from the one-set construction
// (start 0 and start 4), and each end becomes a four-marker tool in that
// frame: the check recognises its own copies of the two end tools in every
// frame, and registers further copies in the library under names the host
// chooses, so that the ends can be tracked like any tool.
//
// Shape errors are the residuals of a least-squares rigid fit of the
// measured end onto the certified one, in double precision: unlike a
// comparison in frames built from the points themselves, they do not depend
// on how far the first marker happens to be off, and they add up to the
// end's real departure from the certificate.
//
// Lengths and errors in millimetres. Plain state; the engine runs it under
// its API mutex.
#pragma once

#include "VyxPositionTypes.h"
#include "tools/ToolLibrary.h"

#include <opencv2/core.hpp>

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

constexpr int kArtefactMarkers = 8;
constexpr int kArtefactEndMarkers = 4;
// Length errors kept by the collecting form of the per-frame measurement.
constexpr std::size_t kMaxCollectedLengthErrors = 200;
// Certified ends closer than this (centroid to centroid) are refused.
constexpr double kMinCertifiedLengthMm = 1.0;

// The certified geometry of the artefact.
struct AccuracyArtefact {
    // The certified coordinates as given (certificate frame).
    std::array<cv::Vec3d, kArtefactMarkers> certified;
    // The artefact's own frame (two-set construction): a certificate point p
    // is frameR (p - frameT) in it; frameT is end A's centroid.
    cv::Matx33d frameR;
    cv::Vec3d frameT;
    // Every marker in that frame, about the midpoint of the two centroids.
    std::array<cv::Vec3d, kArtefactMarkers> local;
    // Each end's markers in the end's own frame (one-set construction, from
    // marker 0 and from marker 4): the end tools' marker positions.
    std::array<std::array<cv::Vec3d, kArtefactEndMarkers>, 2> endLocal;
    // |centroid of end A - centroid of end B|, from the certified coordinates.
    double certifiedLengthMm = 0.0;
};

// Defines the artefact from count certified points. False, out untouched,
// for a count other than 8, a null array, a non-finite coordinate, ends
// closer than kMinCertifiedLengthMm, or an end whose frame cannot be built
// (its markers collinear or coincident).
bool makeAccuracyArtefact(const cv::Vec3d* points, int count, AccuracyArtefact& out);

// Compares measured points (tracker frame, in certificate order) with the
// certified geometry: count 4 (end A) or 8 (the whole artefact). Fills
// ValidFlag 1, PointCount, each point's shape error (PointError, in input
// order), their mean, RMS and largest value, end A's pose (its one-set frame
// built from the measured points, mapping that frame into tracker
// coordinates: p = R q + T, T the measured centroid) and, for 8 points,
// Length and LengthError (0 for 4 points). CollectedCount is not touched.
// False, result untouched, for another count, a null array or non-finite
// results (degenerate points).
bool compareWithArtefact(const AccuracyArtefact& artefact, const cv::Vec3d* measured, int count,
                         T_AccuracyToolResult& result);

class AccuracyCheck {
public:
    // Vyx_AccuracyToolMade: the artefact from `count` rows of three doubles.
    // Replaces the artefact in force and clears the collected errors; the
    // names registered by init stay in the library as they were. -1, nothing
    // changed, for a null array or row, a count other than 8, or a geometry
    // makeAccuracyArtefact refuses.
    int defineArtefact(const double* const* points, int count);

    // Vyx_InitAccuracyCheckTool. artefactName names an eight-marker library
    // tool (the last of that name), whose marker positions become the
    // certificate; an empty text keeps the artefact in force. endAName and
    // endBName are registered in the library as four-marker tools of kind
    // 'T' with the end frames, tip section (0, 0, 0) twice, and no file (a
    // reload of the tool directory drops them; their names are then free
    // again). A library tool of either name that has a file makes the call
    // fail; one without a file (an end registered before) is replaced in
    // place. Clears the collected errors. -1, nothing changed, for a null
    // text, an unknown artefact name, a tool of another marker count, an
    // empty text without an artefact in force, end names that are empty,
    // equal, longer than 199 characters or hold white space, or taken.
    int init(ToolLibrary& library, const char* artefactName, const char* endAName,
             const char* endBName);

    // Vyx_AccuracyCheckTool: compareWithArtefact on `count` rows of three
    // doubles, CollectedCount set to the errors collected so far. -1, result
    // untouched, without an artefact, for a null array or row, a count other
    // than 4 or 8, or degenerate points.
    int checkPoints(const double* const* points, int count, T_AccuracyToolResult& result) const;

    // Vyx_CalculateTool: recognises both ends among the frame's markers (end
    // A first, end B among the rest; every one of their four markers must be
    // matched, within the tool-find offset) and compares them as
    // checkPoints does with 8 points. With collect, the frame's length error
    // is kept while fewer than 200 are. 0 when both ends were found; -1 with
    // only ValidFlag written (0) when there is no artefact, the frame holds
    // fewer than 8 or more than 200 markers, or an end is not found.
    int measureFrame(const T_MarkerInfo& frame, T_AccuracyToolResult& result, bool collect,
                     float toolFindOffset);

    // Vyx_AccuracyCheckToolCalculateError: the mean and the largest absolute
    // length error over the collected frames; errors (when not null, room for
    // 200) gets each frame's signed error in collection order, then NaN up to
    // entry 199. -1, nothing written, when no error has been collected.
    int collectedErrors(float& meanError, float& maxError, float* errors) const;

    bool hasArtefact() const { return artefact_.has_value(); }
    const AccuracyArtefact* artefact() const { return artefact_ ? &*artefact_ : nullptr; }
    std::size_t collectedCount() const { return lengthErrors_.size(); }

private:
    void adopt(const AccuracyArtefact& artefact);

    std::optional<AccuracyArtefact> artefact_;
    // The check's own end tools, recognised in every frame: end A, end B.
    std::array<std::unique_ptr<T_ToolPtMatchInfo>, 2> ends_;
    std::vector<double> lengthErrors_;
};
