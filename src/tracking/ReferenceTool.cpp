#include "tracking/ReferenceTool.h"

#include "camera/RotationUtils.h"

#include <string>
#include <vector>

int ReferenceTool::set(const ToolLibrary& library, const char* name) {
    if (name == nullptr) return -1;
    const int index = library.findFirstToolIndex(name);
    if (index < 0) return -1;
    const T_ToolPtMatchInfo* chosen = library.toolAt(static_cast<std::uint32_t>(index));
    if (chosen == nullptr) return -1;
    // A deep copy: strings, tables and marker arrays all belong to it.
    auto copy = std::make_unique<T_ToolPtMatchInfo>(*chosen);
    copy->distanceTable = chosen->distanceTable.clone();
    copy->pairs.clear();
    names_ = {copy->toolName};
    copy_.clear();
    copy_.push_back(std::move(copy));
    return 0;
}

void ReferenceTool::cancel() {
    copy_.clear();
    chain_.clear();
}

int ReferenceTool::transform(const T_MarkerInfo& frame, cv::Matx44d& pose, int minMatch,
                             const RecognitionSettings& settings) {
    pose = cv::Matx44d::eye();
    if (!isSet()) return -1;
    T_VyxToolDataResult found{};
    findNamedTools(copy_, frame, names_, &found, minMatch, settings, chain_);
    if (found.ValidFlag != 1) return -1;
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) pose(i, j) = found.RotationMatrix[i][j];
        pose(i, 3) = found.Translation[i];
    }
    return 0;
}

namespace {

cv::Vec3d applyAffine(const cv::Matx44d& m, double x, double y, double z) {
    const cv::Vec4d p = m * cv::Vec4d(x, y, z, 1.0);
    return {p[0], p[1], p[2]};
}

void reexpressPoint(float p[3], const cv::Matx44d& m) {
    const cv::Vec3d q = applyAffine(m, p[0], p[1], p[2]);
    for (int k = 0; k < 3; ++k) p[k] = static_cast<float>(q[k]);
}

}  // namespace

void reexpressMarkers(T_MarkerInfo& frame, const cv::Matx44d& pose) {
    const cv::Matx44d inverse = pose.inv(cv::DECOMP_LU);
    for (auto& row : frame.MarkerCoordinate) {
        const cv::Vec3d q = applyAffine(inverse, row[0], row[1], row[2]);
        for (int k = 0; k < 3; ++k) row[k] = q[k];
    }
}

void reexpressResult(T_VyxToolDataResult& result, const cv::Matx44d& inverse) {
    if (result.ValidFlag != 1) return;
    cv::Matx33d rotation;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) rotation(i, j) = result.RotationMatrix[i][j];
    const cv::Matx33d q = inverse.get_minor<3, 3>(0, 0);
    const cv::Matx33d reexpressed = q * rotation;
    cv::Mat rotationF(3, 3, CV_32F);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            result.RotationMatrix[i][j] = static_cast<float>(reexpressed(i, j));
            rotationF.at<float>(i, j) = result.RotationMatrix[i][j];
        }
    reexpressPoint(result.Translation, inverse);
    reexpressPoint(result.OriginCoordinate, inverse);
    reexpressPoint(result.TipCoordinate, inverse);
    reexpressPoint(result.TipAxisCoordinate, inverse);
    const cv::Mat rotationVector = Matrix2RotVet(rotationF, result.Quaternion);
    for (int k = 0; k < 3; ++k)
        result.RotationVector[k] = static_cast<float>(rotationVector.at<double>(k));
}
