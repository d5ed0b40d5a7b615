// Stereo pair matching: decides which left and which right marker centre show
// the same marker, from the distance of each right centre to the epipolar line
// of each left centre.
//
// Distances are measured on the right camera's normalised image plane (after
// distortion removal) and converted to right-image pixels with the mean focal
// length (fx + fy) / 2 of the right intrinsic matrix. A left and a right centre
// are candidates of each other when that distance is strictly below the pixel
// threshold. Candidates form groups (the connected components of the candidate
// relation); each group is resolved on its own into one-to-one pairs.
//
// Group resolution: among the assignments that use only candidate pairs and
// each centre at most once, the one with the most pairs is chosen and, among
// those, the one with the smallest total epipolar distance. Every pair's
// distance carries an extra kOrderTieBreakPx per step between the left
// centre's rank and the right centre's rank in u order within the group. The
// order therefore decides only between assignments whose distances agree to a
// few thousandths of a pixel, which is what a row of markers in the plane of
// the baseline gives (they share one epipolar line, and only the rounding of
// their centres tells the distances apart): such a row pairs in u order.
// Groups of up to kMaxExactGroupSize centres per side are solved exactly as a
// minimum-cost assignment (Hungarian method; a non-candidate cell costs more
// than any set of candidate cells together, so the number of pairs comes
// first). Larger groups, which only many markers on one epipolar line or a
// very large threshold produce, take candidate pairs greedily, cheapest first
// (distance plus order price): bounded cost, but not always the most pairs.
//
// Output order: groups in the order of their lowest right index, and within a
// group the pairs in ascending u of the left centre (equal u keep the order in
// which the group's right centres, taken in ascending index, list them).
#pragma once

#include <opencv2/core.hpp>

#include <cstdint>
#include <vector>

// Pixel threshold for the device model number: 3.0 for models 0, 1, 3, 5, 7, 8,
// 10, 11, 13 and 16; 6.0 for 6, 9, 12 and 15; 4.0 for 17; 0.0 (nothing ever
// matches) for 2, 4, 14 and any number from 18 up, including 100 (no model
// recognised). A colineThreshold other than -1 replaces the table value.
double pairThresholdForModel(std::uint32_t modelIndex, int colineThreshold);

// A left centre of a group: its u coordinate in pixels and its index.
struct PointsIndexStruct {
    double u;
    std::int32_t index;
};

// Sorts by ascending u by exchanging neighbours only when the first u is
// strictly greater, so records of equal u keep their order.
void SortStruct(std::vector<PointsIndexStruct>& points);

// Pairs left and right marker centres. left and right hold one centre per row
// as (u, v, 1), CV_64F with three columns; E is the 3x3 CV_64F essential matrix
// that maps a normalised left point (x, y, 1) to its epipolar line in the
// normalised right image; thresholdPx is in right-image pixels. distCoeffs are
// five CV_64F elements (k1, k2, p1, p2, k3), camera matrices 3x3 CV_64F; other
// types or shapes raise cv::Exception (StsAssert).
//
// Returns 1 when pairs were found: matchedLeft and matchedRight then hold the
// paired rows as given (count rows each, in pair order), pairIndex is a
// 1 x count CV_32S row holding 0 .. count-1, and count is the number of pairs.
// Returns 0, with all three matrices empty and count 0, when E or any camera
// matrix or distortion vector is empty, when either set has no rows, when no
// pair lies below the threshold, or when a set of more than one row on either
// side holds a third coordinate other than exactly 1.0. A single left and a
// single right row are compared directly, whatever their third coordinates.
int PairMatching(const cv::Mat& left, const cv::Mat& right, cv::Mat& matchedLeft,
                 cv::Mat& matchedRight, cv::Mat& pairIndex, int& count, const cv::Mat& E,
                 double thresholdPx, const cv::Mat& leftDistCoeffs,
                 const cv::Mat& leftCameraMatrix, const cv::Mat& rightDistCoeffs,
                 const cv::Mat& rightCameraMatrix);

// One camera's lens model as plain arrays: k1, k2, p1, p2, k3, and the 3x3
// intrinsic matrix row by row.
struct LensModel {
    double distortion[5];
    double cameraMatrix[9];
};

// Reads a lens model from a distortion vector (five CV_64F elements) and a
// 3x3 CV_64F camera matrix; raises cv::Exception (StsAssert) otherwise.
LensModel lensModelFrom(const cv::Mat& distCoeffs, const cv::Mat& cameraMatrix);

// Copies a 3x3 CV_64F matrix row by row; raises cv::Exception (StsAssert) on
// another type or shape.
void readMatrix3x3(const cv::Mat& m, double out[9]);

// Indices of one matched pair into the matcher's input arrays.
struct MatchedPair {
    std::int32_t left;
    std::int32_t right;
};

// The matcher on plain arrays, for the per-frame path. It keeps its working
// buffers between calls, so a long-lived instance (one per thread) allocates
// only while frames grow. Not thread-safe; use one instance per thread.
class StereoPairMatcher {
public:
    // Largest group, in centres per side, solved as an exact assignment. The
    // exact solver takes O(n^3) steps at worst, a quarter of a million at this
    // size; the greedy one O(E log E) for E candidate pairs.
    static constexpr int kMaxExactGroupSize = 64;
    // Per-rank price that resolves ties in u order, in pixels: well above the
    // rounding of 32-bit centres (about 3e-5 px at u = 1000), well below any
    // distance difference that carries information.
    static constexpr double kOrderTieBreakPx = 1e-3;

    // Pairs leftCount (u, v) centres at uvLeft with rightCount at uvRight
    // (pixels, two doubles per centre), with the rules of PairMatching for
    // sets whose third coordinates are all 1.0. E is row-major. Returns the
    // number of pairs (0 when either count is 0 or less). pairs() and the
    // normalised coordinates stay valid until the next call.
    int match(const double* uvLeft, int leftCount, const double* uvRight, int rightCount,
              const double E[9], double thresholdPx, const LensModel& leftLens,
              const LensModel& rightLens);

    // The pairs of the last call, in output order.
    const std::vector<MatchedPair>& pairs() const { return pairs_; }
    // Undistorted normalised (x, y) of every input centre of the last call,
    // two doubles per centre, in input order.
    const double* normalisedLeft() const { return xyLeft_.data(); }
    const double* normalisedRight() const { return xyRight_.data(); }

private:
    struct Candidate {
        std::int32_t left;
        std::int32_t right;
        double distancePx;
    };

    void bucketRightCentres();
    std::int32_t bucketOf(double y) const;
    void findCandidates(const double E[9], double thresholdPx, double pixelsPerUnit);
    void indexCandidates();
    void collectGroup(std::int32_t firstRight);
    void resolveGroup();
    double groupCost(const Candidate& c) const;
    void assignExactly();
    void assignGreedily();

    int leftCount_ = 0;
    int rightCount_ = 0;
    const double* uvLeft_ = nullptr;
    const double* uvRight_ = nullptr;

    std::vector<double> xyLeft_, xyRight_;    // interleaved (x, y)
    std::vector<double> xRight_, yRight_;     // the right centres split for the distance loop
    // Right centres with finite coordinates, bucketed by normalised height y
    // into equal slices of [yLowest_, yHighest_]: bucket b holds
    // bucketed_[bucketStart_[b] .. bucketStart_[b+1]).
    double xLowest_ = 0.0, xHighest_ = 0.0, yLowest_ = 0.0, yHighest_ = 0.0;
    double bucketScale_ = 0.0;  // buckets per unit of y
    std::int32_t bucketCount_ = 1;
    std::vector<std::int32_t> bucketStart_;
    std::vector<std::int32_t> bucketed_;
    // Candidate pairs grouped by left, lefts ascending: those of left l are
    // candidates_[leftStart_[l] .. leftStart_[l+1]). byRight_ lists candidate
    // numbers by right, then left: those of right r are
    // byRight_[rightStart_[r] .. rightStart_[r+1]).
    std::vector<Candidate> candidates_;
    std::vector<std::int32_t> leftStart_;
    std::vector<std::int32_t> rightStart_;
    std::vector<std::int32_t> byRight_;
    std::vector<std::int32_t> leftRank_;      // rank in the current group, -1 outside it
    std::vector<std::int32_t> rightRank_;
    std::vector<std::uint8_t> rightVisited_;

    std::vector<std::int32_t> groupRights_;
    std::vector<std::int32_t> queue_;
    std::vector<PointsIndexStruct> groupLeft_;   // sorted by u
    std::vector<PointsIndexStruct> groupRight_;  // sorted by u
    std::vector<std::int32_t> partnerOfLeft_;    // right index per left rank, -1 unpaired

    // Exact assignment workspace.
    std::vector<double> cost_;
    std::vector<double> potentialRow_, potentialColumn_, minSlack_;
    std::vector<std::int32_t> rowOfColumn_, previousColumn_;
    std::vector<std::uint8_t> columnUsed_, rowSettled_;
    // Greedy workspace.
    struct RankedCandidate {
        double cost;
        std::int32_t leftRank;
        std::int32_t rightRank;
        std::int32_t right;
    };
    std::vector<RankedCandidate> ranked_;
    std::vector<std::uint8_t> rightTaken_;

    std::vector<MatchedPair> pairs_;
};
