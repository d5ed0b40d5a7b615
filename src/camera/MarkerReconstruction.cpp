#include "camera/MarkerReconstruction.h"

#include "camera/PairMatching.h"
#include "camera/Triangulation.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

namespace {

// Working buffers of one thread, kept between frames.
struct FrameScratch {
    std::vector<double> uvLeft, uvRight;    // non-empty centres, (u, v) doubles
    std::vector<double> xyLeft, xyRight;    // normalised coordinates in pair order
    std::vector<double> points;             // (X, Y, Z) per pair
    StereoPairMatcher matcher;
};

// Appends the centres that are not empty slots; returns their number.
int collectCentres(const float* centres, int count, std::vector<double>& uv) {
    uv.clear();
    if (centres == nullptr) return 0;
    const int n = std::min(count, static_cast<int>(VYX_MAX_MARKERS));
    for (int i = 0; i < n; ++i) {
        const float u = centres[2 * i];
        const float v = centres[2 * i + 1];
        if (u == 0.0f && v == 0.0f) continue;
        uv.push_back(u);
        uv.push_back(v);
    }
    return static_cast<int>(uv.size() / 2);
}

bool modelReady(const StereoWorkingModel& model) {
    return !model.left.distCoeffs.empty() && !model.left.cameraMatrix.empty() &&
           !model.right.distCoeffs.empty() && !model.right.cameraMatrix.empty() &&
           !model.E.empty();
}

}  // namespace

int reconstructMarkers(const float* left, int leftCount, const float* right, int rightCount,
                       const StereoWorkingModel& model, double thresholdPx, double maxDistanceMm,
                       T_MarkerInfo& out) {
    thread_local FrameScratch scratch;
    const int nLeft = collectCentres(left, leftCount, scratch.uvLeft);
    const int nRight = collectCentres(right, rightCount, scratch.uvRight);

    int pairCount = 0;
    if (nLeft > 0 && nRight > 0 && modelReady(model)) {
        double essential[9];
        readMatrix3x3(model.E, essential);
        pairCount = scratch.matcher.match(
            scratch.uvLeft.data(), nLeft, scratch.uvRight.data(), nRight, essential, thresholdPx,
            lensModelFrom(model.left.distCoeffs, model.left.cameraMatrix),
            lensModelFrom(model.right.distCoeffs, model.right.cameraMatrix));
    }
    if (pairCount == 0) {
        out.MarkerNumber = 0;
        return 0;
    }

    std::memset(out.MarkerCoordinate, 0, sizeof out.MarkerCoordinate);
    std::memset(out.MarkerPairIndex, 0, sizeof out.MarkerPairIndex);
    std::memset(out.Reserved1, 0, sizeof out.Reserved1);
    std::memset(out.Reserved3, 0, sizeof out.Reserved3);

    // The pairing already removed the distortion; triangulate from those
    // normalised coordinates rather than undistorting a second time.
    const auto n = static_cast<std::size_t>(pairCount);
    scratch.xyLeft.resize(2 * n);
    scratch.xyRight.resize(2 * n);
    scratch.points.resize(3 * n);
    const double* xyLeft = scratch.matcher.normalisedLeft();
    const double* xyRight = scratch.matcher.normalisedRight();
    for (std::size_t k = 0; k < n; ++k) {
        const MatchedPair& pair = scratch.matcher.pairs()[k];
        scratch.xyLeft[2 * k] = xyLeft[2 * pair.left];
        scratch.xyLeft[2 * k + 1] = xyLeft[2 * pair.left + 1];
        scratch.xyRight[2 * k] = xyRight[2 * pair.right];
        scratch.xyRight[2 * k + 1] = xyRight[2 * pair.right + 1];
    }
    double leftR[9], rightR[9];
    readMatrix3x3(model.left.R, leftR);
    readMatrix3x3(model.right.R, rightR);
    CV_Assert(model.right.T.type() == CV_64F && model.right.T.total() == 3);
    const double rightT[3] = {model.right.T.at<double>(0), model.right.T.at<double>(1),
                              model.right.T.at<double>(2)};
    triangulatePairs(scratch.xyLeft.data(), scratch.xyRight.data(), pairCount, leftR, rightR,
                     rightT, scratch.points.data());

    std::uint32_t kept = 0;
    for (std::size_t k = 0; k < n && kept < VYX_MAX_MARKERS; ++k) {
        const double* p = &scratch.points[3 * k];
        const double z = p[2] * model.zFactor;
        // A point from (nearly) parallel rays comes out non-finite; it is no marker.
        if (!(z < maxDistanceMm) || !std::isfinite(z) || !std::isfinite(p[0]) ||
            !std::isfinite(p[1]))
            continue;
        out.MarkerCoordinate[kept][0] = p[0];
        out.MarkerCoordinate[kept][1] = p[1];
        out.MarkerCoordinate[kept][2] = z;
        out.MarkerPairIndex[kept] = static_cast<std::uint32_t>(k);
        ++kept;
    }
    out.MarkerNumber = kept;
    return 0;
}
