#include "tracking/ToolRecognition.h"

#include "camera/RotationUtils.h"
#include "tracking/PointSetRegistration.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <utility>

namespace {

// A match of threshold + 1 points must still give the three points of a fit.
constexpr int kLowestThreshold = 2;
constexpr int kMinObservedPoints = 3;
// A fitted residual larger than this many times the mean marks an outlier.
constexpr float kOutlierFactor = 2.0f;

bool isPointMatrix(const cv::Mat& points) {
    return points.type() == CV_32FC1 && points.cols == 3 && points.rows >= 0;
}

cv::Point3f rowPoint(const cv::Mat& points, int row) {
    const float* p = points.ptr<float>(row);
    return {p[0], p[1], p[2]};
}

// The usable observed rows from a caller's list: in range, first occurrence only.
std::vector<int> usableRows(const std::vector<int>& rows, int count) {
    std::vector<int> usable;
    usable.reserve(rows.size());
    std::vector<char> seen(static_cast<std::size_t>(count), 0);
    for (int row : rows) {
        if (row < 0 || row >= count || seen[row]) continue;
        seen[row] = 1;
        usable.push_back(row);
    }
    return usable;
}

// The seed-and-grow search of one tool over one frame. The tool's distance
// table is read as D_t, the frame's as D_o; only the usable observed rows take
// part. Two distances agree when they differ by less than the tolerance; a
// tool distance of 0 (diagonal or masked pair) never agrees with anything.
class ToolMatcher {
public:
    ToolMatcher(const cv::Mat& toolTable, const FrameDistances& frame, std::vector<int> usable,
                float tolerance)
        : frame_(frame),
          usable_(std::move(usable)),
          tolerance_(tolerance),
          markerCount_(toolTable.rows),
          toolUsed_(static_cast<std::size_t>(markerCount_), 0),
          observedUsed_(static_cast<std::size_t>(frame.count()), 0) {
        if (toolTable.isContinuous()) {
            toolTable_ = toolTable.ptr<float>(0);
        } else {
            toolTableCopy_ = toolTable.clone();
            toolTable_ = toolTableCopy_.ptr<float>(0);
        }
        // The non-zero tool distances of each marker, in marker order.
        neighbourBegin_.reserve(static_cast<std::size_t>(markerCount_) + 1);
        for (int a = 0; a < markerCount_; ++a) {
            neighbourBegin_.push_back(static_cast<int>(neighbours_.size()));
            for (int b = 0; b < markerCount_; ++b) {
                const float d = toolDistance(a, b);
                if (d != 0.0f) neighbours_.push_back({b, d});
            }
        }
        neighbourBegin_.push_back(static_cast<int>(neighbours_.size()));
    }

    const std::vector<int>& usable() const { return usable_; }

    // One sweep of seeds at a threshold. On success pairs holds the match.
    bool sweep(int threshold, std::vector<T_MatchMarkIdx>& pairs) {
        for (int seedMarker = 0; seedMarker < markerCount_; ++seedMarker) {
            for (int seedRow : usable_) {
                // The seed's partners all agree with it and are distinct tool
                // markers, so a seed without threshold supporters cannot
                // grow to threshold + 1 pairs.
                if (!hasSupport(seedMarker, seedRow, threshold)) continue;
                if (grow(seedMarker, seedRow, threshold, pairs)) return true;
            }
        }
        pairs.clear();
        return false;
    }

private:
    struct Neighbour {
        int marker;
        float distance;
    };
    struct Candidate {
        int marker;
        int row;
        int group;  // index of the candidate's tool marker among those with candidates
    };

    float toolDistance(int a, int b) const {
        return toolTable_[static_cast<std::size_t>(a) * markerCount_ + b];
    }
    bool agrees(float defined, float observed) const {
        return std::fabs(observed - defined) < tolerance_;
    }

    // Whether at least `threshold` of the tool distances from marker a are
    // seen from observed row i, i.e. some other usable row lies at that
    // distance. Stops as soon as the answer is known.
    bool hasSupport(int a, int i, int threshold) const {
        const float* row = frame_.row(i);
        int count = 0;
        int left = neighbourBegin_[a + 1] - neighbourBegin_[a];
        for (int k = neighbourBegin_[a]; k < neighbourBegin_[a + 1]; ++k) {
            const float d = neighbours_[k].distance;
            --left;
            if (frame_.mayHold(i, d, tolerance_)) {
                for (int j : usable_) {
                    if (j != i && agrees(d, row[j])) {
                        if (++count >= threshold) return true;
                        break;
                    }
                }
            }
            if (count + left < threshold) return false;
        }
        return count >= threshold;
    }

    // Grows a seed into a list of pairs and filters it for consistency.
    bool grow(int seedMarker, int seedRow, int threshold, std::vector<T_MatchMarkIdx>& pairs) {
        const std::size_t required = static_cast<std::size_t>(threshold) + 1;

        // Candidates in scan order: tool marker, then observed row.
        candidates_.clear();
        int groups = 0;
        const float* seedDistances = frame_.row(seedRow);
        for (int k = neighbourBegin_[seedMarker]; k < neighbourBegin_[seedMarker + 1]; ++k) {
            const Neighbour& n = neighbours_[k];
            if (!frame_.mayHold(seedRow, n.distance, tolerance_)) continue;
            bool any = false;
            for (int j : usable_) {
                if (j != seedRow && agrees(n.distance, seedDistances[j])) {
                    candidates_.push_back({n.marker, j, groups});
                    any = true;
                }
            }
            if (any) ++groups;
        }

        // Each candidate that reaches the threshold joins, unless its tool
        // marker or its observed row is taken already; growth goes on through
        // all candidates, and stops once the tool markers still ahead could
        // not make up the required size.
        pairs.clear();
        pairs.push_back({seedMarker, seedRow});
        toolUsed_[seedMarker] = 1;
        observedUsed_[seedRow] = 1;
        for (const Candidate& c : candidates_) {
            if (pairs.size() + static_cast<std::size_t>(groups - c.group) < required) break;
            if (toolUsed_[c.marker] || observedUsed_[c.row]) continue;
            if (!hasSupport(c.marker, c.row, threshold)) continue;
            pairs.push_back({c.marker, c.row});
            toolUsed_[c.marker] = 1;
            observedUsed_[c.row] = 1;
        }
        for (const T_MatchMarkIdx& p : pairs) {
            toolUsed_[p.ToolMarkerIndex] = 0;
            observedUsed_[p.ObservedIndex] = 0;
        }

        filterInconsistent(threshold, pairs);
        if (pairs.size() >= required) return true;
        pairs.clear();
        return false;
    }

    // Removes, round by round, the pairs that agree with fewer than
    // `threshold` of the others, until a round removes none.
    void filterInconsistent(int threshold, std::vector<T_MatchMarkIdx>& pairs) {
        std::vector<char>& drop = dropScratch_;
        for (;;) {
            const std::size_t n = pairs.size();
            if (n < static_cast<std::size_t>(threshold) + 1) return;  // fails either way
            drop.assign(n, 0);
            bool any = false;
            for (std::size_t p = 0; p < n; ++p) {
                const float* row = frame_.row(pairs[p].ObservedIndex);
                int count = 0;
                for (std::size_t q = 0; q < n; ++q) {
                    if (q == p) continue;
                    const float d =
                        toolDistance(pairs[p].ToolMarkerIndex, pairs[q].ToolMarkerIndex);
                    if (d != 0.0f && agrees(d, row[pairs[q].ObservedIndex])) ++count;
                }
                if (count < threshold) {
                    drop[p] = 1;
                    any = true;
                }
            }
            if (!any) return;
            std::size_t kept = 0;
            for (std::size_t p = 0; p < n; ++p) {
                if (!drop[p]) pairs[kept++] = pairs[p];
            }
            pairs.resize(kept);
        }
    }

    const FrameDistances& frame_;
    std::vector<int> usable_;
    float tolerance_;
    int markerCount_;
    const float* toolTable_ = nullptr;
    cv::Mat toolTableCopy_;
    std::vector<Neighbour> neighbours_;
    std::vector<int> neighbourBegin_;
    std::vector<Candidate> candidates_;
    std::vector<char> toolUsed_;
    std::vector<char> observedUsed_;
    std::vector<char> dropScratch_;
};

bool usableToolTable(const T_ToolPtMatchInfo& tool) {
    const int n = tool.markerCount;
    return n >= kMinObservedPoints && n <= kMaxToolMarkers &&
           tool.distanceTable.type() == CV_32FC1 && tool.distanceTable.rows == n &&
           tool.distanceTable.cols == n;
}

bool readPose(const cv::Mat& R, const cv::Mat& T, cv::Matx33f& rotation, cv::Vec3f& translation) {
    if (R.rows != 3 || R.cols != 3 || R.channels() != 1 || T.total() != 3 || T.channels() != 1 ||
        (T.rows != 1 && T.cols != 1)) {
        return false;
    }
    // The fit's own output is continuous CV_32F and is read in place.
    cv::Mat r = R, t = T;
    if (r.type() != CV_32FC1 || !r.isContinuous()) R.convertTo(r, CV_32F);
    if (t.type() != CV_32FC1 || !t.isContinuous()) T.convertTo(t, CV_32F);
    std::copy_n(r.ptr<float>(), 9, rotation.val);
    std::copy_n(t.ptr<float>(), 3, translation.val);
    return true;
}

// For each tool marker the frame marker whose coordinates equal its matched
// observed point, -1 when there is none. Row i of observed normally is frame
// marker i, which is tried first.
void recordMatchedIndices(const T_ToolPtMatchInfo& tool, const cv::Mat& observed,
                          const T_MarkerInfo& frame, T_VyxToolDataResult& result) {
    const int frameCount =
        static_cast<int>(std::min<std::uint32_t>(frame.MarkerNumber, VYX_MAX_MARKERS));
    auto sameAs = [&](int marker, const float* p) {
        const double* c = frame.MarkerCoordinate[marker];
        return static_cast<float>(c[0]) == p[0] && static_cast<float>(c[1]) == p[1] &&
               static_cast<float>(c[2]) == p[2];
    };
    result.MatchedMarkerCount = tool.markerCount;
    std::fill_n(result.MatchedMarkerIndex, tool.markerCount, -1);
    for (const T_MatchMarkIdx& pair : tool.pairs) {
        const float* p = observed.ptr<float>(pair.ObservedIndex);
        int index = -1;
        if (pair.ObservedIndex < frameCount && sameAs(pair.ObservedIndex, p)) {
            index = pair.ObservedIndex;
        } else {
            for (int k = 0; k < frameCount && index < 0; ++k) {
                if (sameAs(k, p)) index = k;
            }
        }
        result.MatchedMarkerIndex[pair.ToolMarkerIndex] = index;
    }
}

// Inter-marker distance errors over the fitted pairs: their mean, and the
// spread reported beside it, sqrt(sum over all pairs of (e1 - mean)^2 / pairs)
// with e1 the error of the first pair, i.e. |e1 - mean|.
void fillDistanceErrors(const T_ToolPtMatchInfo& tool, const cv::Mat& observed,
                        T_VyxToolDataResult& result) {
    const std::vector<T_MatchMarkIdx>& pairs = tool.pairs;
    const float* positions = tool.markerPositions.data();
    double sum = 0;
    double firstError = 0;
    int count = 0;
    for (std::size_t p = 0; p < pairs.size(); ++p) {
        const cv::Point3f op = rowPoint(observed, pairs[p].ObservedIndex);
        const float* tp = positions + 3 * pairs[p].ToolMarkerIndex;
        for (std::size_t q = p + 1; q < pairs.size(); ++q) {
            const cv::Point3f oq = rowPoint(observed, pairs[q].ObservedIndex);
            const float* tq = positions + 3 * pairs[q].ToolMarkerIndex;
            const double observedDistance = cv::norm(op - oq);
            const double toolDistance =
                cv::norm(cv::Point3f(tp[0] - tq[0], tp[1] - tq[1], tp[2] - tq[2]));
            const double error = std::fabs(observedDistance - toolDistance);
            if (count == 0) firstError = error;
            sum += error;
            ++count;
        }
    }
    if (count == 0) {
        result.MeanError = result.ErrorSpread = 0;
        return;
    }
    const double mean = sum / count;
    double squares = 0;
    for (int k = 0; k < count; ++k) squares += (firstError - mean) * (firstError - mean);
    result.MeanError = static_cast<float>(mean);
    result.ErrorSpread = static_cast<float>(std::sqrt(squares / count));
}

void fillPose(const T_ToolPtMatchInfo& tool, const cv::Mat& R, const cv::Mat& T,
              T_VyxToolDataResult& result) {
    cv::Matx33f rotation;
    cv::Vec3f translation;
    readPose(R, T, rotation, translation);

    result.ToolType = tool.toolKind == 'C' ? 1 : 0;
    const std::size_t nameLength = std::min(tool.toolName.size(), kMaxToolNameLength);
    std::memcpy(result.ToolName, tool.toolName.data(), nameLength);
    std::memset(result.ToolName + nameLength, 0, sizeof(result.ToolName) - nameLength);

    for (int k = 0; k < 9; ++k) result.RotationMatrix[k / 3][k % 3] = rotation.val[k];
    for (int k = 0; k < 3; ++k) result.Translation[k] = result.OriginCoordinate[k] = translation[k];

    // Tip and second point; a record without a tip section reports zeros.
    cv::Vec3f tip(0, 0, 0), axisPoint(0, 0, 0);
    if (tool.tipPairCount >= 1 && tool.tipPoints.size() >= 6) {
        tip = cv::Vec3f(tool.tipPoints[0], tool.tipPoints[1], tool.tipPoints[2]);
        axisPoint = cv::Vec3f(tool.tipPoints[3], tool.tipPoints[4], tool.tipPoints[5]);
    }
    const cv::Vec3f tipOut = rotation * tip + translation;
    const cv::Vec3f axisOut = rotation * axisPoint + translation;
    for (int k = 0; k < 3; ++k) {
        result.TipCoordinate[k] = tipOut[k];
        result.TipAxisCoordinate[k] = axisOut[k];
        result.ToolTipsLocal[k] = tip[k];
        result.ToolTipsLocal[3 + k] = axisPoint[k];
    }

    const cv::Mat rotationVector = Matrix2RotVet(R, result.Quaternion);
    for (int k = 0; k < 3; ++k) {
        result.RotationVector[k] = static_cast<float>(rotationVector.at<double>(k));
    }
}

}  // namespace

int FrameDistances::binOf(float distanceMm) {
    const float bin = distanceMm / kBinWidthMm;
    return bin < static_cast<float>(kBinCount - 1) ? static_cast<int>(bin) : kBinCount - 1;
}

bool FrameDistances::assign(const cv::Mat& observed) {
    count_ = 0;
    table_.clear();
    bins_.clear();
    if (!isPointMatrix(observed)) return false;
    const int n = observed.rows;
    table_.assign(static_cast<std::size_t>(n) * n, 0.0f);
    bins_.assign(static_cast<std::size_t>(n) * kWordsPerRow, 0);
    count_ = n;
    for (int i = 0; i < n; ++i) {
        const float* p = observed.ptr<float>(i);
        float* rowI = table_.data() + static_cast<std::size_t>(i) * n;
        std::uint64_t* binsI = bins_.data() + static_cast<std::size_t>(i) * kWordsPerRow;
        for (int j = i + 1; j < n; ++j) {
            const float* q = observed.ptr<float>(j);
            const float dx = p[0] - q[0], dy = p[1] - q[1], dz = p[2] - q[2];
            const float d = std::sqrt(dx * dx + dy * dy + dz * dz);
            rowI[j] = d;
            table_[static_cast<std::size_t>(j) * n + i] = d;
            if (!(d >= 0.0f)) continue;  // NaN agrees with nothing
            const int bin = binOf(d);
            const std::uint64_t bit = std::uint64_t{1} << (bin & 63);
            binsI[bin >> 6] |= bit;
            bins_[static_cast<std::size_t>(j) * kWordsPerRow + (bin >> 6)] |= bit;
        }
    }
    return true;
}

bool FrameDistances::mayHold(int i, float distance, float tolerance) const {
    // Agreement means a row value strictly inside (distance - tolerance,
    // distance + tolerance); NaN bounds fail the test below.
    const float low = distance - tolerance, high = distance + tolerance;
    if (!(high > 0.0f && high > low)) return false;
    const std::uint64_t* bins = bins_.data() + static_cast<std::size_t>(i) * kWordsPerRow;
    const int last = binOf(high);
    for (int bin = low > 0.0f ? binOf(low) : 0; bin <= last; ++bin) {
        if ((bins[bin >> 6] >> (bin & 63)) & 1u) return true;
    }
    return false;
}

bool FindToolMatchPtIndexList(T_ToolPtMatchInfo& tool, const FrameDistances& distances,
                              std::vector<int>& remaining, int minMatch, float tolerance,
                              bool useRemaining, float toolFindOffset) {
    const int observedCount = distances.count();
    if (!useRemaining) {
        remaining.resize(static_cast<std::size_t>(observedCount));
        std::iota(remaining.begin(), remaining.end(), 0);
    }
    tool.pairs.clear();
    if (!usableToolTable(tool)) return false;

    std::vector<int> usable = usableRows(remaining, observedCount);
    const int usableCount = static_cast<int>(usable.size());
    if (usableCount < kMinObservedPoints) return false;
    const int strictest = std::min(tool.markerCount, usableCount) - 1;  // K - 1
    if (minMatch > strictest + 1) return false;

    const float agreeTolerance = tolerance == 0.0f ? toolFindOffset : tolerance;
    ToolMatcher matcher(tool.distanceTable, distances, std::move(usable), agreeTolerance);
    const int lowest = minMatch < 1 ? strictest : std::max(minMatch, kLowestThreshold);
    for (int threshold = strictest;; --threshold) {
        if (matcher.sweep(threshold, tool.pairs)) {
            std::vector<char> used(static_cast<std::size_t>(observedCount), 0);
            for (const T_MatchMarkIdx& p : tool.pairs) used[p.ObservedIndex] = 1;
            remaining.clear();
            for (int row : matcher.usable()) {
                if (!used[row]) remaining.push_back(row);
            }
            return true;
        }
        if (threshold - 1 < lowest) return false;
    }
}

bool FindToolMatchPtIndexList(T_ToolPtMatchInfo& tool, const cv::Mat& observed,
                              std::vector<int>& remaining, int minMatch, float tolerance,
                              bool useRemaining, float toolFindOffset) {
    FrameDistances distances;
    if (!distances.assign(observed)) {
        tool.pairs.clear();
        return false;
    }
    return FindToolMatchPtIndexList(tool, distances, remaining, minMatch, tolerance, useRemaining,
                                    toolFindOffset);
}

float CalculateMatchError(const std::vector<cv::Point3f>& firstPts,
                          const std::vector<cv::Point3f>& secondPts, const cv::Mat& R,
                          const cv::Mat& T, E_RTDirection direction,
                          std::vector<T_MarkError>& errors) {
    errors.clear();
    cv::Matx33f rotation;
    cv::Vec3f translation;
    if (firstPts.empty() || firstPts.size() != secondPts.size() ||
        !readPose(R, T, rotation, translation)) {
        return std::numeric_limits<float>::quiet_NaN();
    }
    const cv::Matx33f rotationT = rotation.t();
    double sum = 0;
    errors.reserve(firstPts.size());
    for (std::size_t k = 0; k < firstPts.size(); ++k) {
        const cv::Vec3f first(firstPts[k]), second(secondPts[k]);
        const cv::Vec3f mismatch = second - (rotation * first + translation);
        // Tool to tracker: the mismatch lies in tracker coordinates and is
        // rotated back; tracker to tool: it is already in tool coordinates,
        // with the opposite sign (observed minus defined).
        const cv::Vec3f residual =
            direction == RTDirection_ToolToTracker ? cv::Vec3f(rotationT * mismatch) : -mismatch;
        const float length = static_cast<float>(cv::norm(residual));
        errors.push_back({residual[0], residual[1], residual[2], length});
        sum += length;
    }
    return static_cast<float>(sum / static_cast<double>(firstPts.size()));
}

bool FindSpecificToolInfo(T_ToolPtMatchInfo& tool, const cv::Mat& observed,
                          const FrameDistances& distances, const T_MarkerInfo& frame,
                          T_VyxToolDataResult& result, std::vector<int>& remaining, int minMatch,
                          float tolerance, const RecognitionSettings& settings) {
    result.ValidFlag = 0;
    if (!isPointMatrix(observed)) return false;
    FrameDistances ownDistances;
    const FrameDistances* table = &distances;
    if (distances.count() != observed.rows) {
        ownDistances.assign(observed);
        table = &ownDistances;
    }

    const std::vector<int> entryRemaining = remaining;
    if (!FindToolMatchPtIndexList(tool, *table, remaining, minMatch, tolerance, true,
                                  settings.toolFindOffset)) {
        return false;
    }
    auto reject = [&] {
        remaining = entryRemaining;
        return false;
    };

    std::vector<cv::Point3f> firstPts, secondPts;
    if (!GetMatchPtPoints3fAndMat(false, tool, observed, firstPts, secondPts, settings.direction)) {
        return reject();
    }
    recordMatchedIndices(tool, observed, frame, result);

    cv::Mat R, T;
    std::vector<T_MarkError> errors;
    auto fit = [&] {
        if (!GetRTPoints(firstPts.data(), secondPts.data(), static_cast<int>(firstPts.size()), R,
                         T)) {
            return std::numeric_limits<float>::quiet_NaN();
        }
        return CalculateMatchError(firstPts, secondPts, R, T, settings.direction, errors);
    };
    float meanError = fit();

    // Outlier rejection: drop the worst pair while it stands out from the
    // mean, keeping at least three pairs.
    while (settings.pointMatchOptimize && firstPts.size() >= 4 &&
           errors.size() == firstPts.size()) {
        const auto worst = std::max_element(
            errors.begin(), errors.end(),
            [](const T_MarkError& x, const T_MarkError& y) { return x.error < y.error; });
        if (!(worst->error > kOutlierFactor * meanError)) break;
        const auto k = worst - errors.begin();
        firstPts.erase(firstPts.begin() + k);
        secondPts.erase(secondPts.begin() + k);
        tool.pairs.erase(tool.pairs.begin() + k);
        meanError = fit();
    }

    if (!(meanError <= kMaxAcceptedMatchError)) return reject();

    fillDistanceErrors(tool, observed, result);
    fillPose(tool, R, T, result);
    result.ValidFlag = 1;
    return true;
}

bool FindSpecificToolInfo(T_ToolPtMatchInfo& tool, const cv::Mat& observed,
                          const T_MarkerInfo& frame, T_VyxToolDataResult& result,
                          std::vector<int>& remaining, int minMatch, float tolerance,
                          const RecognitionSettings& settings) {
    FrameDistances distances;
    distances.assign(observed);
    return FindSpecificToolInfo(tool, observed, distances, frame, result, remaining, minMatch,
                                tolerance, settings);
}

cv::Mat markerMatrix(const T_MarkerInfo& frame) {
    const int count = static_cast<int>(std::min<std::uint32_t>(frame.MarkerNumber, VYX_MAX_MARKERS));
    cv::Mat observed(count, 3, CV_32F);
    for (int i = 0; i < count; ++i) {
        float* row = observed.ptr<float>(i);
        for (int k = 0; k < 3; ++k) row[k] = static_cast<float>(frame.MarkerCoordinate[i][k]);
    }
    return observed;
}

void JoinDifferent(int value, std::vector<int>& list) {
    if (std::find(list.begin(), list.end(), value) == list.end()) list.push_back(value);
}

T_VyxToolDataResult& ResultChain::append() {
    records_.push_back(T_VyxToolDataResult{});
    return records_.back();
}

int findNamedTools(std::list<std::unique_ptr<T_ToolPtMatchInfo>>& tools, const T_MarkerInfo& frame,
                   const std::vector<std::string>& names, T_VyxToolDataResult* first, int minMatch,
                   const RecognitionSettings& settings, ResultChain& chain) {
    const std::uint32_t markerCount = frame.MarkerNumber;
    if (first == nullptr || markerCount < kMinObservedPoints || markerCount > VYX_MAX_MARKERS ||
        tools.empty()) {
        return 0;
    }

    std::vector<T_ToolPtMatchInfo*> selected;
    selected.reserve(names.size());
    for (const std::string& name : names) {
        for (const std::unique_ptr<T_ToolPtMatchInfo>& tool : tools) {
            if (tool && tool->toolName == name) {
                selected.push_back(tool.get());
                break;
            }
        }
    }

    const int count = static_cast<int>(markerCount);
    const cv::Mat observed = markerMatrix(frame);
    FrameDistances distances;
    distances.assign(observed);
    std::vector<int> remaining(static_cast<std::size_t>(count));
    std::iota(remaining.begin(), remaining.end(), 0);

    // The previous search's chained records go away here.
    first->ValidFlag = 0;
    first->MeanError = 0;
    first->next = nullptr;
    chain.clear();

    T_VyxToolDataResult* current = first;
    for (T_ToolPtMatchInfo* tool : selected) {
        if (!FindSpecificToolInfo(*tool, observed, distances, frame, *current, remaining, minMatch,
                                  0.0f, settings)) {
            continue;
        }
        if (remaining.size() < static_cast<std::size_t>(kMinObservedPoints)) break;
        T_VyxToolDataResult& next = chain.append();
        current->next = &next;
        current = &next;
    }
    return 0;
}

int findAllTools(std::list<std::unique_ptr<T_ToolPtMatchInfo>>& tools, const T_MarkerInfo& frame,
                 T_VyxToolDataResult* first, int minMatch, const RecognitionSettings& settings,
                 ResultChain& chain) {
    if (tools.empty()) return -1;
    std::vector<std::string> names;
    names.reserve(tools.size());
    for (const std::unique_ptr<T_ToolPtMatchInfo>& tool : tools) {
        if (tool) names.push_back(tool->toolName);
    }
    return findNamedTools(tools, frame, names, first, minMatch, settings, chain);
}
