#include "calibration/AccuracyCheck.h"

#include "calibration/ToolFrame.h"
#include "tools/ToolFile.h"
#include "tracking/ToolRecognition.h"

#include <Eigen/Core>
#include <Eigen/Geometry>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <limits>
#include <string>

namespace {

constexpr int kMinMatch = 3;  // a threshold of 3 demands all four end markers

bool isFinite(const cv::Vec3d& v) {
    return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

bool isFinite(const cv::Mat& m) { return cv::checkRange(m); }

cv::Vec3d centroidOf(const cv::Vec3d* points, int n) {
    cv::Vec3d sum(0, 0, 0);
    for (int i = 0; i < n; ++i) sum += points[i];
    return sum / static_cast<double>(n);
}

// Points as the rows of three floats that the frame construction takes.
std::vector<std::array<float, 3>> floatRows(const cv::Vec3d* points, int n) {
    std::vector<std::array<float, 3>> rows(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < 3; ++k)
            rows[static_cast<std::size_t>(i)][static_cast<std::size_t>(k)] =
                static_cast<float>(points[i][k]);
    return rows;
}

const float (*rowPointer(const std::vector<std::array<float, 3>>& rows))[3] {
    return reinterpret_cast<const float(*)[3]>(rows.data());
}

// Rows of an n x 3 CV_64F matrix as points; false when any is not finite.
bool pointsOf(const cv::Mat& rows, cv::Vec3d* out) {
    for (int i = 0; i < rows.rows; ++i) {
        out[i] = cv::Vec3d(rows.at<double>(i, 0), rows.at<double>(i, 1), rows.at<double>(i, 2));
        if (!isFinite(out[i])) return false;
    }
    return true;
}

// Residual of each point of `from` after the least-squares rigid fit of
// `from` onto `to` (n >= 3 corresponding points).
void rigidFitResiduals(const cv::Vec3d* from, const cv::Vec3d* to, int n, double* residuals) {
    Eigen::Matrix3Xd a(3, n), b(3, n);
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < 3; ++k) {
            a(k, i) = from[i][k];
            b(k, i) = to[i][k];
        }
    const Eigen::Matrix4d fit = Eigen::umeyama(a, b, false);
    for (int i = 0; i < n; ++i)
        residuals[i] =
            (fit.topLeftCorner<3, 3>() * a.col(i) + fit.topRightCorner<3, 1>() - b.col(i)).norm();
}

bool isUsableEndName(const char* name) {
    const std::string text(name);
    if (text.empty() || text.size() > kMaxToolNameLength) return false;
    return std::none_of(text.begin(), text.end(),
                        [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; });
}

// Whether a library tool of that name has a file (so is not an end that the
// check registered earlier).
bool nameHasFileTool(const ToolLibrary& library, const std::string& name) {
    return std::any_of(library.begin(), library.end(), [&](const auto& tool) {
        return tool && tool->toolName == name && !tool->filePath.empty();
    });
}

using EndPoints = std::array<cv::Vec3d, kArtefactEndMarkers>;

std::unique_ptr<T_ToolPtMatchInfo> endTool(const std::string& name, const EndPoints& local) {
    ToolFileContent content;
    content.toolName = name;
    content.toolKind = 'T';
    content.markerCount = kArtefactEndMarkers;
    content.markerMask = fullMarkerMask(kArtefactEndMarkers);
    for (const cv::Vec3d& p : local)
        for (int k = 0; k < 3; ++k) content.markerPositions.push_back(static_cast<float>(p[k]));
    return makeToolRecord(content, std::string());
}

// Adds the end tool to the library, or replaces an earlier one of its name.
void registerEnd(ToolLibrary& library, std::unique_ptr<T_ToolPtMatchInfo> tool) {
    for (auto& record : library)
        if (record && record->toolName == tool->toolName) {
            *record = std::move(*tool);
            return;
        }
    library.append(std::move(tool));
}

// Recognises one end; its four matched points, in the end tool's marker
// order, go to measured[0..3].
bool findEnd(T_ToolPtMatchInfo& end, const cv::Mat& observed, std::vector<int>& remaining,
             bool useRemaining, float toolFindOffset, cv::Vec3d* measured) {
    if (!FindToolMatchPtIndexList(end, observed, remaining, kMinMatch, 0.0f, useRemaining,
                                  toolFindOffset) ||
        end.pairs.size() != static_cast<std::size_t>(kArtefactEndMarkers))
        return false;
    bool seen[kArtefactEndMarkers] = {};
    for (const T_MatchMarkIdx& pair : end.pairs) {
        const int marker = pair.ToolMarkerIndex;
        if (marker < 0 || marker >= kArtefactEndMarkers || seen[marker]) return false;
        seen[marker] = true;
        const float* row = observed.ptr<float>(pair.ObservedIndex);
        measured[marker] = cv::Vec3d(row[0], row[1], row[2]);
    }
    return true;
}

}  // namespace

bool makeAccuracyArtefact(const cv::Vec3d* points, int count, AccuracyArtefact& out) {
    if (points == nullptr || count != kArtefactMarkers) return false;
    AccuracyArtefact artefact;
    for (int i = 0; i < kArtefactMarkers; ++i) {
        if (!isFinite(points[i])) return false;
        artefact.certified[static_cast<std::size_t>(i)] = points[i];
    }
    artefact.certifiedLengthMm =
        cv::norm(centroidOf(points, kArtefactEndMarkers) -
                 centroidOf(points + kArtefactEndMarkers, kArtefactEndMarkers));
    if (!(artefact.certifiedLengthMm >= kMinCertifiedLengthMm)) return false;

    const auto rows = floatRows(points, kArtefactMarkers);
    const float(*pts)[3] = rowPointer(rows);
    cv::Mat R, T, local;
    GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, pts, pts + kArtefactEndMarkers,
                                             kArtefactEndMarkers, 0);
    if (!isFinite(R) || !isFinite(T) || !pointsOf(local, artefact.local.data())) return false;
    artefact.frameR = cv::Matx33d(R.ptr<double>());
    artefact.frameT = cv::Vec3d(T.ptr<double>());

    for (int end = 0; end < 2; ++end) {
        GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, pts, kArtefactEndMarkers,
                                                 end * kArtefactEndMarkers);
        if (!pointsOf(local, artefact.endLocal[static_cast<std::size_t>(end)].data())) return false;
    }
    out = artefact;
    return true;
}

bool compareWithArtefact(const AccuracyArtefact& artefact, const cv::Vec3d* measured, int count,
                         T_AccuracyToolResult& result) {
    if (measured == nullptr || (count != kArtefactEndMarkers && count != kArtefactMarkers))
        return false;
    for (int i = 0; i < count; ++i)
        if (!isFinite(measured[i])) return false;

    // End A's pose: its one-set frame built from the measured points.
    const auto rows = floatRows(measured, kArtefactEndMarkers);
    cv::Mat R, T, local;
    GetToolSelfCoordsAndRTtoOriginalSysCooor(R, T, local, rowPointer(rows), kArtefactEndMarkers, 0);
    if (!isFinite(R) || !isFinite(T)) return false;

    double errors[kArtefactMarkers] = {};
    for (int end = 0; end * kArtefactEndMarkers < count; ++end)
        rigidFitResiduals(measured + end * kArtefactEndMarkers,
                          artefact.endLocal[static_cast<std::size_t>(end)].data(),
                          kArtefactEndMarkers, errors + end * kArtefactEndMarkers);
    double sum = 0.0, squares = 0.0, largest = 0.0;
    for (int i = 0; i < count; ++i) {
        if (!std::isfinite(errors[i])) return false;
        sum += errors[i];
        squares += errors[i] * errors[i];
        largest = std::max(largest, errors[i]);
    }
    double length = 0.0, lengthError = 0.0;
    if (count == kArtefactMarkers) {
        length = cv::norm(centroidOf(measured, kArtefactEndMarkers) -
                          centroidOf(measured + kArtefactEndMarkers, kArtefactEndMarkers));
        lengthError = length - artefact.certifiedLengthMm;
    }

    result.ValidFlag = 1;
    result.PointCount = count;
    std::fill(std::begin(result.PointError), std::end(result.PointError), 0.0f);
    for (int i = 0; i < count; ++i) result.PointError[i] = static_cast<float>(errors[i]);
    result.MeanError = static_cast<float>(sum / count);
    result.RMSError = static_cast<float>(std::sqrt(squares / count));
    result.MaxError = static_cast<float>(largest);
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j)
            result.RotationMatrix[i][j] = static_cast<float>(R.at<double>(j, i));
        result.Translation[i] = static_cast<float>(T.at<double>(i));
    }
    result.Length = static_cast<float>(length);
    result.LengthError = static_cast<float>(lengthError);
    return true;
}

void AccuracyCheck::adopt(const AccuracyArtefact& artefact) {
    ends_[0] = endTool("accuracy_end_a", artefact.endLocal[0]);
    ends_[1] = endTool("accuracy_end_b", artefact.endLocal[1]);
    artefact_ = artefact;
    lengthErrors_.clear();
}

int AccuracyCheck::defineArtefact(const double* const* points, int count) {
    if (points == nullptr || count != kArtefactMarkers) return -1;
    cv::Vec3d certified[kArtefactMarkers];
    for (int i = 0; i < kArtefactMarkers; ++i) {
        if (points[i] == nullptr) return -1;
        certified[i] = cv::Vec3d(points[i][0], points[i][1], points[i][2]);
    }
    AccuracyArtefact artefact;
    if (!makeAccuracyArtefact(certified, kArtefactMarkers, artefact)) return -1;
    adopt(artefact);
    return 0;
}

int AccuracyCheck::init(ToolLibrary& library, const char* artefactName, const char* endAName,
                        const char* endBName) {
    if (artefactName == nullptr || endAName == nullptr || endBName == nullptr) return -1;
    if (!isUsableEndName(endAName) || !isUsableEndName(endBName) ||
        std::string(endAName) == endBName || nameHasFileTool(library, endAName) ||
        nameHasFileTool(library, endBName))
        return -1;

    AccuracyArtefact artefact;
    if (artefactName[0] == '\0') {
        if (!artefact_) return -1;
        artefact = *artefact_;
    } else {
        const int index = library.findLastToolIndex(artefactName);
        const T_ToolPtMatchInfo* tool =
            index < 0 ? nullptr : library.toolAt(static_cast<std::uint32_t>(index));
        if (tool == nullptr || tool->markerCount != kArtefactMarkers ||
            tool->markerPositions.size() < 3u * kArtefactMarkers)
            return -1;
        cv::Vec3d certified[kArtefactMarkers];
        for (std::size_t i = 0; i < kArtefactMarkers; ++i)
            certified[i] = cv::Vec3d(tool->markerPositions[3 * i], tool->markerPositions[3 * i + 1],
                                     tool->markerPositions[3 * i + 2]);
        if (!makeAccuracyArtefact(certified, kArtefactMarkers, artefact)) return -1;
    }

    adopt(artefact);
    registerEnd(library, endTool(endAName, artefact.endLocal[0]));
    registerEnd(library, endTool(endBName, artefact.endLocal[1]));
    return 0;
}

int AccuracyCheck::checkPoints(const double* const* points, int count,
                               T_AccuracyToolResult& result) const {
    if (!artefact_ || points == nullptr ||
        (count != kArtefactEndMarkers && count != kArtefactMarkers))
        return -1;
    cv::Vec3d measured[kArtefactMarkers];
    for (int i = 0; i < count; ++i) {
        if (points[i] == nullptr) return -1;
        measured[i] = cv::Vec3d(points[i][0], points[i][1], points[i][2]);
    }
    T_AccuracyToolResult filled = result;
    if (!compareWithArtefact(*artefact_, measured, count, filled)) return -1;
    filled.CollectedCount = static_cast<std::int32_t>(lengthErrors_.size());
    result = filled;
    return 0;
}

int AccuracyCheck::measureFrame(const T_MarkerInfo& frame, T_AccuracyToolResult& result,
                                bool collect, float toolFindOffset) {
    result.ValidFlag = 0;
    if (!artefact_ || frame.MarkerNumber < static_cast<std::uint32_t>(kArtefactMarkers) ||
        frame.MarkerNumber > VYX_MAX_MARKERS)
        return -1;
    const cv::Mat observed = markerMatrix(frame);
    std::vector<int> remaining;
    cv::Vec3d measured[kArtefactMarkers];
    if (!findEnd(*ends_[0], observed, remaining, false, toolFindOffset, measured) ||
        !findEnd(*ends_[1], observed, remaining, true, toolFindOffset,
                 measured + kArtefactEndMarkers))
        return -1;
    T_AccuracyToolResult filled = result;
    if (!compareWithArtefact(*artefact_, measured, kArtefactMarkers, filled)) return -1;
    if (collect && lengthErrors_.size() < kMaxCollectedLengthErrors)
        lengthErrors_.push_back(static_cast<double>(filled.LengthError));
    filled.CollectedCount = static_cast<std::int32_t>(lengthErrors_.size());
    result = filled;
    return 0;
}

int AccuracyCheck::collectedErrors(float& meanError, float& maxError, float* errors) const {
    if (lengthErrors_.empty()) return -1;
    double sum = 0.0, largest = 0.0;
    for (double e : lengthErrors_) {
        sum += std::fabs(e);
        largest = std::max(largest, std::fabs(e));
    }
    meanError = static_cast<float>(sum / static_cast<double>(lengthErrors_.size()));
    maxError = static_cast<float>(largest);
    if (errors != nullptr) {
        std::fill_n(errors, kMaxCollectedLengthErrors, std::numeric_limits<float>::quiet_NaN());
        for (std::size_t i = 0; i < lengthErrors_.size(); ++i)
            errors[i] = static_cast<float>(lengthErrors_[i]);
    }
    return 0;
}
