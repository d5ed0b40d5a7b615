// A tool's own coordinate frame, built from its markers as the tracker sees
// them: origin at the markers' centroid, Z along the normal of their best-fit
// plane, X towards the first marker's projection onto that plane (or, for two
// marker sets, from the second set's centroid towards the first's).
//
// Everything works in double precision on CV_64F matrices: vectors are 1 x 3
// rows, rotations 3 x 3, translations 3 x 1 columns, point lists n x 3.
// Marker points come as rows of three floats, millimetres, tracker frame.
//
// The frame is assembled from three elementary rotations (about Y, X, then Z)
// whose angles come from acos and so are never negative; each rotation's sense
// is fixed afterwards by AdjustRotatoDerection. The sign of the plane normal is
// whatever OpenCV's singular value decomposition gives, and with it the sense
// of Z: made tools are tuned to that, so it must not be changed.
//
// Degenerate markers (collinear, coincident, a marker at the centroid, a
// normal along Y) are not detected: they give NaN entries, passed on as such.
#pragma once

#include <opencv2/core.hpp>

// acos(a.b / (|a| |b|)) in single precision, with no clamping of the cosine:
// a rounding excess over 1 and a zero vector give NaN.
float ComputeAngleOf2Vects(cv::Mat a, cv::Mat b);

// Projects pts[0 .. n-1] orthogonally onto the plane through planePoint with
// normal `normal` (1 x 3, any non-zero length) into out, which must be an
// n x 3 CV_64F matrix already. False for a null pts or planePoint, an empty
// normal, or an out too small to hold n rows; n <= 0 writes nothing.
bool GetProjectOnPlane(const float (*pts)[3], int n, const double* planePoint, cv::Mat normal,
                       cv::Mat& out);

// With u = a x b / |a x b|: replaces R by its transpose when |u - ref| > 1,
// that is when the axis a x b lies more than 60 degrees from ref. A zero cross
// product gives NaN, and R is kept.
void AdjustRotatoDerection(cv::Mat& R, cv::Mat a, cv::Mat b, cv::Mat ref);

// One marker set, pts[start .. start+n-1]: R (3 x 3) and T (3 x 1, the
// centroid) such that a tracker point p is R (p - T) in the tool frame, and
// local (n x 3) = the markers in the tool frame. The X direction is taken from
// pts[0], not pts[start]: with start other than 0, the first row of the array
// is what is projected. False, outputs untouched, for a null pts.
bool GetToolSelfCoordsAndRTtoOriginalSysCooor(cv::Mat& R, cv::Mat& T, cv::Mat& local,
                                              const float (*pts)[3], int n, int start);

// Two marker sets of n points each (pts1[start..], pts2[start..]), such as the
// two ends of a bar: the plane is fitted to the first set, X points from the
// second set's centroid c2 to the first's c1, T is c1, and local (2n x 3)
// stacks both sets expressed about the midpoint of c1 and c2. False, outputs
// untouched, for a null array.
bool GetToolSelfCoordsAndRTtoOriginalSysCooor(cv::Mat& R, cv::Mat& T, cv::Mat& local,
                                              const float (*pts1)[3], const float (*pts2)[3],
                                              int n, int start);
