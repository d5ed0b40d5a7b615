#include "camera/PairMatching.h"

#include "camera/Triangulation.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace {

// Slack of the fast distance pass. Its value differs from the exact formula
// only by rounding (about 1e-12 px for image-sized coordinates); every cell
// that passes is measured again with the exact formula and the strict test.
constexpr double kPrefilterSlackPx = 1e-6;
// Relative widening of a band's height range against rounding in its bounds.
constexpr double kBandRoundingSlack = 1e-9;

// Threshold groups by device model number.
constexpr std::uint32_t kModelsAt3Px = 0x12DABu;
constexpr std::uint32_t kModelsAt6Px = 0x9240u;
constexpr std::uint32_t kModelsAt4Px = 0x20000u;
constexpr std::uint32_t kModelTableSize = 18;

// Epipolar line (a, b, c) of a normalised left point in the normalised right
// image, with the length of its normal.
struct EpipolarLine {
    double a, b, c, normalLength;
};

EpipolarLine epipolarLine(const double E[9], double xLeft, double yLeft) {
    EpipolarLine line;
    line.a = E[0] * xLeft + E[1] * yLeft + E[2];
    line.b = E[3] * xLeft + E[4] * yLeft + E[5];
    line.c = E[6] * xLeft + E[7] * yLeft + E[8];
    line.normalLength = std::sqrt(line.a * line.a + line.b * line.b);
    return line;
}

// Distance of a normalised right point from the line, in right-image pixels. A
// degenerate line (zero normal) gives infinity or NaN, which no threshold
// accepts.
double distancePx(const EpipolarLine& line, double xRight, double yRight, double pixelsPerUnit) {
    return std::fabs(line.a * xRight + line.b * yRight + line.c) / line.normalLength *
           pixelsPerUnit;
}

double element(const cv::Mat& vector, int i) {
    return vector.rows == 1 ? vector.at<double>(0, i) : vector.at<double>(i, 0);
}

StereoPairMatcher& threadMatcher() {
    thread_local StereoPairMatcher matcher;
    return matcher;
}

}  // namespace

double pairThresholdForModel(std::uint32_t modelIndex, int colineThreshold) {
    if (colineThreshold != -1) return static_cast<double>(colineThreshold);
    if (modelIndex >= kModelTableSize) return 0.0;
    const std::uint32_t bit = 1u << modelIndex;
    if ((bit & kModelsAt3Px) != 0) return 3.0;
    if ((bit & kModelsAt6Px) != 0) return 6.0;
    if ((bit & kModelsAt4Px) != 0) return 4.0;
    return 0.0;
}

void SortStruct(std::vector<PointsIndexStruct>& points) {
    for (std::size_t end = points.size(); end > 1; --end) {
        bool swapped = false;
        for (std::size_t i = 0; i + 1 < end; ++i) {
            if (points[i].u > points[i + 1].u) {
                std::swap(points[i], points[i + 1]);
                swapped = true;
            }
        }
        if (!swapped) break;
    }
}

LensModel lensModelFrom(const cv::Mat& distCoeffs, const cv::Mat& cameraMatrix) {
    CV_Assert(distCoeffs.type() == CV_64F && distCoeffs.total() == 5 &&
              (distCoeffs.rows == 1 || distCoeffs.cols == 1));
    LensModel lens;
    for (int i = 0; i < 5; ++i) lens.distortion[i] = element(distCoeffs, i);
    readMatrix3x3(cameraMatrix, lens.cameraMatrix);
    return lens;
}

void readMatrix3x3(const cv::Mat& m, double out[9]) {
    CV_Assert(m.type() == CV_64F && m.rows == 3 && m.cols == 3);
    for (int r = 0; r < 3; ++r) {
        const double* row = m.ptr<double>(r);
        for (int c = 0; c < 3; ++c) out[3 * r + c] = row[c];
    }
}

int StereoPairMatcher::match(const double* uvLeft, int leftCount, const double* uvRight,
                             int rightCount, const double E[9], double thresholdPx,
                             const LensModel& leftLens, const LensModel& rightLens) {
    pairs_.clear();
    if (uvLeft == nullptr || uvRight == nullptr || leftCount <= 0 || rightCount <= 0) {
        leftCount_ = rightCount_ = 0;
        return 0;
    }
    leftCount_ = leftCount;
    rightCount_ = rightCount;
    uvLeft_ = uvLeft;
    uvRight_ = uvRight;

    xyLeft_.resize(2 * static_cast<std::size_t>(leftCount));
    xyRight_.resize(2 * static_cast<std::size_t>(rightCount));
    undistortNormalise(uvLeft, leftCount, xyLeft_.data(), leftLens.distortion,
                       leftLens.cameraMatrix);
    undistortNormalise(uvRight, rightCount, xyRight_.data(), rightLens.distortion,
                       rightLens.cameraMatrix);

    const double pixelsPerUnit = 0.5 * (rightLens.cameraMatrix[0] + rightLens.cameraMatrix[4]);
    findCandidates(E, thresholdPx, pixelsPerUnit);
    // Centres without a candidate take no further part; with none left on
    // either side there is nothing to pair.
    if (candidates_.empty()) return 0;
    indexCandidates();

    leftRank_.assign(static_cast<std::size_t>(leftCount), -1);
    rightRank_.assign(static_cast<std::size_t>(rightCount), -1);
    rightVisited_.assign(static_cast<std::size_t>(rightCount), 0);
    for (std::int32_t r = 0; r < rightCount; ++r) {
        if (rightStart_[r] == rightStart_[r + 1] || rightVisited_[r] != 0) continue;
        collectGroup(r);
        resolveGroup();
    }
    return static_cast<int>(pairs_.size());
}

void StereoPairMatcher::bucketRightCentres() {
    const int nRight = rightCount_;
    xRight_.resize(static_cast<std::size_t>(nRight));
    yRight_.resize(static_cast<std::size_t>(nRight));
    double xLow = std::numeric_limits<double>::infinity(), xHigh = -xLow;
    double yLow = xLow, yHigh = -xLow;
    for (int r = 0; r < nRight; ++r) {
        const double x = xyRight_[2 * r], y = xyRight_[2 * r + 1];
        xRight_[r] = x;
        yRight_[r] = y;
        // A non-finite coordinate never lies within a finite distance of a line.
        if (!std::isfinite(x) || !std::isfinite(y)) continue;
        xLow = std::min(xLow, x);
        xHigh = std::max(xHigh, x);
        yLow = std::min(yLow, y);
        yHigh = std::max(yHigh, y);
    }
    xLowest_ = xLow;
    xHighest_ = xHigh;
    yLowest_ = yLow;
    yHighest_ = yHigh;

    bucketCount_ = std::max(nRight, 1);
    bucketScale_ = static_cast<double>(bucketCount_) / (yHigh - yLow);
    if (!std::isfinite(bucketScale_)) bucketScale_ = 0.0;  // one height, or no finite centre
    bucketStart_.assign(static_cast<std::size_t>(bucketCount_) + 1, 0);
    bucketed_.clear();
    for (int r = 0; r < nRight; ++r)
        if (std::isfinite(xRight_[r]) && std::isfinite(yRight_[r]))
            ++bucketStart_[bucketOf(yRight_[r]) + 1];
    for (int b = 0; b < bucketCount_; ++b) bucketStart_[b + 1] += bucketStart_[b];
    bucketed_.resize(static_cast<std::size_t>(bucketStart_[bucketCount_]));
    for (int r = 0; r < nRight; ++r)
        if (std::isfinite(xRight_[r]) && std::isfinite(yRight_[r]))
            bucketed_[bucketStart_[bucketOf(yRight_[r])]++] = r;
    for (int b = bucketCount_; b > 0; --b) bucketStart_[b] = bucketStart_[b - 1];
    bucketStart_[0] = 0;
}

std::int32_t StereoPairMatcher::bucketOf(double y) const {
    const double position = (y - yLowest_) * bucketScale_;
    return position < static_cast<double>(bucketCount_ - 1) ? static_cast<std::int32_t>(position)
                                                           : bucketCount_ - 1;
}

void StereoPairMatcher::findCandidates(const double E[9], double thresholdPx,
                                       double pixelsPerUnit) {
    bucketRightCentres();
    const double* xs = xRight_.data();
    const double* ys = yRight_.data();
    const double limit = thresholdPx + kPrefilterSlackPx;

    candidates_.clear();
    leftStart_.resize(static_cast<std::size_t>(leftCount_) + 1);
    for (std::int32_t l = 0; l < leftCount_; ++l) {
        leftStart_[l] = static_cast<std::int32_t>(candidates_.size());
        const EpipolarLine line = epipolarLine(E, xyLeft_[2 * l], xyLeft_[2 * l + 1]);
        // The line scaled so that its value at a point is the signed distance in pixels.
        const double scale = pixelsPerUnit / line.normalLength;
        const double a = line.a * scale;
        const double b = line.b * scale;
        const double c = line.c * scale;

        // Heights y of the band |a x + b y + c| < limit over the x range of the
        // right centres, widened for rounding. Only centres in the buckets
        // covering them are measured; a steep or degenerate line scans all.
        std::int32_t firstBucket = 0, lastBucket = bucketCount_ - 1;
        const double inverseB = 1.0 / b;
        const double halfHeight = limit * std::fabs(inverseB);
        const double atLowX = -(c + a * xLowest_) * inverseB;
        const double atHighX = -(c + a * xHighest_) * inverseB;
        double low = std::min(atLowX, atHighX) - halfHeight;
        double high = std::max(atLowX, atHighX) + halfHeight;
        const double rounding = kBandRoundingSlack * (1.0 + std::fabs(low) + std::fabs(high));
        low -= rounding;
        high += rounding;
        if (std::isfinite(low) && std::isfinite(high)) {
            if (high < yLowest_ || low > yHighest_) continue;
            firstBucket = bucketOf(std::max(low, yLowest_));
            lastBucket = bucketOf(std::min(high, yHighest_));
        }

        for (std::int32_t k = bucketStart_[firstBucket]; k < bucketStart_[lastBucket + 1]; ++k) {
            const std::int32_t r = bucketed_[k];
            if (std::fabs(a * xs[r] + b * ys[r] + c) < limit) {
                const double d = distancePx(line, xs[r], ys[r], pixelsPerUnit);
                if (d < thresholdPx) {
                    // Fields written in place: a braced temporary is assembled on
                    // the stack and reloaded whole, which stalls store forwarding.
                    Candidate& candidate = candidates_.emplace_back();
                    candidate.left = l;
                    candidate.right = r;
                    candidate.distancePx = d;
                }
            }
        }
    }
    leftStart_[leftCount_] = static_cast<std::int32_t>(candidates_.size());
}

void StereoPairMatcher::indexCandidates() {
    // Counting sort by right index; stable, so each right's lefts stay ascending.
    const std::size_t nRight = static_cast<std::size_t>(rightCount_);
    rightStart_.assign(nRight + 1, 0);
    for (const Candidate& c : candidates_) ++rightStart_[c.right + 1];
    for (std::size_t r = 0; r < nRight; ++r) rightStart_[r + 1] += rightStart_[r];
    byRight_.resize(candidates_.size());
    for (std::size_t k = 0; k < candidates_.size(); ++k)
        byRight_[rightStart_[candidates_[k].right]++] = static_cast<std::int32_t>(k);
    // Each start has moved to the next one's; shift back.
    for (std::size_t r = nRight; r > 0; --r) rightStart_[r] = rightStart_[r - 1];
    rightStart_[0] = 0;
}

void StereoPairMatcher::collectGroup(std::int32_t firstRight) {
    // Breadth-first over the candidate relation. Lefts reached are marked -2
    // in leftRank_; ranks are assigned once the group is complete.
    constexpr std::int32_t kReached = -2;
    constexpr std::int32_t kListed = -3;
    groupRights_.clear();
    queue_.clear();
    queue_.push_back(firstRight);
    rightVisited_[firstRight] = 1;
    for (std::size_t head = 0; head < queue_.size(); ++head) {
        const std::int32_t r = queue_[head];
        groupRights_.push_back(r);
        for (std::int32_t k = rightStart_[r]; k < rightStart_[r + 1]; ++k) {
            const std::int32_t l = candidates_[byRight_[k]].left;
            if (leftRank_[l] != -1) continue;
            leftRank_[l] = kReached;
            for (std::int32_t j = leftStart_[l]; j < leftStart_[l + 1]; ++j) {
                const std::int32_t other = candidates_[j].right;
                if (rightVisited_[other] == 0) {
                    rightVisited_[other] = 1;
                    queue_.push_back(other);
                }
            }
        }
    }
    std::sort(groupRights_.begin(), groupRights_.end());

    // Left candidates in the order the group's rights, ascending, list them.
    groupLeft_.clear();
    for (std::int32_t r : groupRights_) {
        for (std::int32_t k = rightStart_[r]; k < rightStart_[r + 1]; ++k) {
            const std::int32_t l = candidates_[byRight_[k]].left;
            if (leftRank_[l] != kReached) continue;
            leftRank_[l] = kListed;
            groupLeft_.push_back({uvLeft_[2 * l], l});
        }
    }
    groupRight_.clear();
    for (std::int32_t r : groupRights_) groupRight_.push_back({uvRight_[2 * r], r});
    if (groupLeft_.size() == 1 && groupRight_.size() == 1) return;

    SortStruct(groupLeft_);
    SortStruct(groupRight_);
    for (std::size_t i = 0; i < groupLeft_.size(); ++i)
        leftRank_[groupLeft_[i].index] = static_cast<std::int32_t>(i);
    for (std::size_t i = 0; i < groupRight_.size(); ++i)
        rightRank_[groupRight_[i].index] = static_cast<std::int32_t>(i);
}

void StereoPairMatcher::resolveGroup() {
    if (groupLeft_.size() == 1 && groupRight_.size() == 1) {
        pairs_.push_back({groupLeft_[0].index, groupRight_[0].index});
        return;
    }
    partnerOfLeft_.assign(groupLeft_.size(), -1);
    const std::size_t largerSide = std::max(groupLeft_.size(), groupRight_.size());
    if (largerSide <= static_cast<std::size_t>(kMaxExactGroupSize))
        assignExactly();
    else
        assignGreedily();
    for (std::size_t i = 0; i < groupLeft_.size(); ++i) {
        if (partnerOfLeft_[i] >= 0) pairs_.push_back({groupLeft_[i].index, partnerOfLeft_[i]});
    }
}

double StereoPairMatcher::groupCost(const Candidate& c) const {
    return c.distancePx + kOrderTieBreakPx * std::abs(leftRank_[c.left] - rightRank_[c.right]);
}

void StereoPairMatcher::assignExactly() {
    // Rows are the smaller side, as the row-by-row Hungarian method requires.
    const bool rowsAreRights = groupRight_.size() <= groupLeft_.size();
    const std::size_t n = std::min(groupLeft_.size(), groupRight_.size());
    const std::size_t m = std::max(groupLeft_.size(), groupRight_.size());

    // A non-candidate cell costs more than any n candidate cells together, so
    // an assignment with more candidate pairs is always cheaper.
    double largestCost = 0.0;
    for (std::int32_t r : groupRights_)
        for (std::int32_t k = rightStart_[r]; k < rightStart_[r + 1]; ++k)
            largestCost = std::max(largestCost, groupCost(candidates_[byRight_[k]]));
    const double blocked = static_cast<double>(n + 1) * (largestCost + 1.0);

    cost_.assign(n * m, blocked);
    for (std::int32_t r : groupRights_) {
        for (std::int32_t k = rightStart_[r]; k < rightStart_[r + 1]; ++k) {
            const Candidate& c = candidates_[byRight_[k]];
            const auto lRank = static_cast<std::size_t>(leftRank_[c.left]);
            const auto rRank = static_cast<std::size_t>(rightRank_[c.right]);
            cost_[rowsAreRights ? rRank * m + lRank : lRank * m + rRank] = groupCost(c);
        }
    }

    // Shortest augmenting paths with row and column potentials (rows and
    // columns counted from 1; column 0 is the virtual root of each search).
    // Warm start: a row's potential is its cheapest cell, and the row takes
    // that cell's column when it is still free. Those cells are tight and the
    // potentials feasible, so the searches below stay exact; most rows of a
    // real frame are settled here.
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    potentialRow_.assign(n + 1, 0.0);
    potentialColumn_.assign(m + 1, 0.0);
    rowOfColumn_.assign(m + 1, 0);
    previousColumn_.assign(m + 1, 0);
    rowSettled_.assign(n + 1, 0);
    for (std::size_t i = 1; i <= n; ++i) {
        const double* rowCost = &cost_[(i - 1) * m];
        const std::size_t cheapest =
            static_cast<std::size_t>(std::min_element(rowCost, rowCost + m) - rowCost) + 1;
        potentialRow_[i] = rowCost[cheapest - 1];
        if (rowOfColumn_[cheapest] == 0) {
            rowOfColumn_[cheapest] = static_cast<std::int32_t>(i);
            rowSettled_[i] = 1;
        }
    }
    for (std::size_t i = 1; i <= n; ++i) {
        if (rowSettled_[i] != 0) continue;
        rowOfColumn_[0] = static_cast<std::int32_t>(i);
        std::size_t column = 0;
        minSlack_.assign(m + 1, kInfinity);
        columnUsed_.assign(m + 1, 0);
        do {
            columnUsed_[column] = 1;
            const auto row = static_cast<std::size_t>(rowOfColumn_[column]);
            const double* rowCost = &cost_[(row - 1) * m];
            double delta = kInfinity;
            std::size_t next = 0;
            for (std::size_t j = 1; j <= m; ++j) {
                if (columnUsed_[j] != 0) continue;
                const double slack = rowCost[j - 1] - potentialRow_[row] - potentialColumn_[j];
                if (slack < minSlack_[j]) {
                    minSlack_[j] = slack;
                    previousColumn_[j] = static_cast<std::int32_t>(column);
                }
                if (minSlack_[j] < delta) {
                    delta = minSlack_[j];
                    next = j;
                }
            }
            for (std::size_t j = 0; j <= m; ++j) {
                if (columnUsed_[j] != 0) {
                    potentialRow_[static_cast<std::size_t>(rowOfColumn_[j])] += delta;
                    potentialColumn_[j] -= delta;
                } else {
                    minSlack_[j] -= delta;
                }
            }
            column = next;
        } while (rowOfColumn_[column] != 0);
        do {
            const auto previous = static_cast<std::size_t>(previousColumn_[column]);
            rowOfColumn_[column] = rowOfColumn_[previous];
            column = previous;
        } while (column != 0);
    }

    for (std::size_t j = 1; j <= m; ++j) {
        const auto row = static_cast<std::size_t>(rowOfColumn_[j]);
        if (row == 0 || !(cost_[(row - 1) * m + (j - 1)] < blocked)) continue;
        const std::size_t rightRank = rowsAreRights ? row - 1 : j - 1;
        const std::size_t leftRank = rowsAreRights ? j - 1 : row - 1;
        partnerOfLeft_[leftRank] = groupRight_[rightRank].index;
    }
}

void StereoPairMatcher::assignGreedily() {
    ranked_.clear();
    for (std::int32_t r : groupRights_) {
        for (std::int32_t k = rightStart_[r]; k < rightStart_[r + 1]; ++k) {
            const Candidate& c = candidates_[byRight_[k]];
            ranked_.push_back({groupCost(c), leftRank_[c.left], rightRank_[c.right], c.right});
        }
    }
    // Cost first, then left rank and right rank: a total order, so equal costs
    // resolve alike on every run.
    const auto cheaper = [](const RankedCandidate& x, const RankedCandidate& y) {
        if (x.cost != y.cost) return x.cost < y.cost;
        if (x.leftRank != y.leftRank) return x.leftRank < y.leftRank;
        return x.rightRank < y.rightRank;
    };
    rightTaken_.assign(static_cast<std::size_t>(rightCount_), 0);
    // The cheapest candidates are sorted in growing slices rather than all at
    // once: a large group is usually settled by its first few per centre.
    std::size_t pairsOpen = std::min(groupLeft_.size(), groupRight_.size());
    std::size_t slice = 4 * std::max(groupLeft_.size(), groupRight_.size());
    for (std::size_t begin = 0; begin < ranked_.size() && pairsOpen > 0; slice *= 2) {
        const std::size_t end = std::min(ranked_.size(), begin + slice);
        const auto first = ranked_.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto last = ranked_.begin() + static_cast<std::ptrdiff_t>(end);
        if (end < ranked_.size()) std::nth_element(first, last, ranked_.end(), cheaper);
        std::sort(first, last, cheaper);
        for (; begin < end && pairsOpen > 0; ++begin) {
            const RankedCandidate& c = ranked_[begin];
            const auto leftRank = static_cast<std::size_t>(c.leftRank);
            if (partnerOfLeft_[leftRank] >= 0 || rightTaken_[c.right] != 0) continue;
            partnerOfLeft_[leftRank] = c.right;
            rightTaken_[c.right] = 1;
            --pairsOpen;
        }
    }
}

int PairMatching(const cv::Mat& left, const cv::Mat& right, cv::Mat& matchedLeft,
                 cv::Mat& matchedRight, cv::Mat& pairIndex, int& count, const cv::Mat& E,
                 double thresholdPx, const cv::Mat& leftDistCoeffs,
                 const cv::Mat& leftCameraMatrix, const cv::Mat& rightDistCoeffs,
                 const cv::Mat& rightCameraMatrix) {
    // Headers of the inputs survive clearing outputs that may be the same objects.
    const cv::Mat leftPoints = left;
    const cv::Mat rightPoints = right;
    matchedLeft.release();
    matchedRight.release();
    pairIndex.release();
    count = 0;

    if (leftDistCoeffs.empty() || leftCameraMatrix.empty() || rightDistCoeffs.empty() ||
        rightCameraMatrix.empty() || E.empty())
        return 0;
    const LensModel leftLens = lensModelFrom(leftDistCoeffs, leftCameraMatrix);
    const LensModel rightLens = lensModelFrom(rightDistCoeffs, rightCameraMatrix);
    double essential[9];
    readMatrix3x3(E, essential);

    if (leftPoints.empty() || rightPoints.empty()) return 0;
    CV_Assert(leftPoints.type() == CV_64F && leftPoints.cols == 3);
    CV_Assert(rightPoints.type() == CV_64F && rightPoints.cols == 3);

    if (leftPoints.rows == 1 && rightPoints.rows == 1) {
        cv::Mat xyLeft, xyRight;
        UndistorNorm(leftPoints, xyLeft, leftDistCoeffs, leftCameraMatrix);
        UndistorNorm(rightPoints, xyRight, rightDistCoeffs, rightCameraMatrix);
        const EpipolarLine line =
            epipolarLine(essential, xyLeft.at<double>(0, 0), xyLeft.at<double>(0, 1));
        const double d =
            distancePx(line, xyRight.at<double>(0, 0), xyRight.at<double>(0, 1),
                       0.5 * (rightLens.cameraMatrix[0] + rightLens.cameraMatrix[4]));
        if (!(d < thresholdPx)) return 0;
        matchedLeft = leftPoints.clone();
        matchedRight = rightPoints.clone();
        pairIndex = cv::Mat(1, 1, CV_32S, cv::Scalar(0));
        count = 1;
        return 1;
    }

    thread_local std::vector<double> uvLeft, uvRight;
    const auto gather = [](const cv::Mat& points, std::vector<double>& uv) {
        uv.resize(2 * static_cast<std::size_t>(points.rows));
        for (int i = 0; i < points.rows; ++i) {
            const double* row = points.ptr<double>(i);
            if (row[2] != 1.0) return false;
            uv[2 * i] = row[0];
            uv[2 * i + 1] = row[1];
        }
        return true;
    };
    if (!gather(leftPoints, uvLeft) || !gather(rightPoints, uvRight)) return 0;

    StereoPairMatcher& matcher = threadMatcher();
    const int pairs = matcher.match(uvLeft.data(), leftPoints.rows, uvRight.data(),
                                    rightPoints.rows, essential, thresholdPx, leftLens, rightLens);
    if (pairs == 0) return 0;

    matchedLeft.create(pairs, 3, CV_64F);
    matchedRight.create(pairs, 3, CV_64F);
    pairIndex.create(1, pairs, CV_32S);
    for (int k = 0; k < pairs; ++k) {
        const MatchedPair& pair = matcher.pairs()[static_cast<std::size_t>(k)];
        leftPoints.row(pair.left).copyTo(matchedLeft.row(k));
        rightPoints.row(pair.right).copyTo(matchedRight.row(k));
        pairIndex.at<std::int32_t>(0, k) = k;
    }
    count = pairs;
    return 1;
}
