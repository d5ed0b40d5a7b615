#include "tracking/PointSetRegistration.h"

#include <Eigen/Core>
#include <Eigen/LU>
#include <Eigen/SVD>

#include <utility>

namespace {

bool validFitInput(const cv::Point3f* first, const cv::Point3f* second, int n) {
    return first != nullptr && second != nullptr && n >= 3;
}

cv::Point3f centroid(const cv::Point3f* points, int n) {
    cv::Point3f sum(0, 0, 0);
    for (int k = 0; k < n; ++k) sum += points[k];
    return sum / static_cast<float>(n);
}

}  // namespace

bool GetRTPoints(const cv::Point3f* first, const cv::Point3f* second, int n, cv::Mat& R,
                 cv::Mat& T) {
    if (!validFitInput(first, second, n)) return false;

    const cv::Point3f c1 = centroid(first, n);
    const cv::Point3f c2 = centroid(second, n);

    // H = A * B^T with A, B the centred points as columns, accumulated as a
    // sum of outer products. Fixed-size matrices keep the fit free of heap
    // allocations: it runs for every tool of every frame.
    cv::Matx33f H = cv::Matx33f::zeros();
    for (int k = 0; k < n; ++k) {
        const cv::Point3f a = first[k] - c1;
        const cv::Point3f b = second[k] - c2;
        const float av[3] = {a.x, a.y, a.z};
        const float bv[3] = {b.x, b.y, b.z};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) H(i, j) += av[i] * bv[j];
    }

    cv::Matx31f W;
    cv::Matx33f U, Vt;
    cv::SVD::compute(H, W, U, Vt);
    const cv::Matx33f V = Vt.t();

    // V*U^T is the best orthogonal map; when it is a reflection (d = -1) the
    // least significant direction is flipped to make it a proper rotation.
    const float d = static_cast<float>(cv::determinant(V * U.t()));
    const cv::Matx33f D(1, 0, 0, 0, 1, 0, 0, 0, d);
    const cv::Matx33f rotation = V * D * U.t();
    const cv::Vec3f translation =
        cv::Vec3f(c2.x, c2.y, c2.z) - rotation * cv::Vec3f(c1.x, c1.y, c1.z);

    cv::Mat(rotation).copyTo(R);
    cv::Mat(translation).copyTo(T);
    return true;
}

bool GetRTPointsInEigen(const cv::Point3f* first, const cv::Point3f* second, int n, cv::Mat& R,
                        cv::Mat& T) {
    if (!validFitInput(first, second, n)) return false;

    Eigen::MatrixXd A(3, n);
    Eigen::MatrixXd B(3, n);
    for (int k = 0; k < n; ++k) {
        A.col(k) << first[k].x, first[k].y, first[k].z;
        B.col(k) << second[k].x, second[k].y, second[k].z;
    }
    const Eigen::VectorXd c1 = A.rowwise().mean();
    const Eigen::VectorXd c2 = B.rowwise().mean();
    A.colwise() -= c1;
    B.colwise() -= c2;

    const Eigen::MatrixXd H = A * B.transpose();
    const Eigen::JacobiSVD<Eigen::MatrixXd> svd(H, Eigen::ComputeFullU | Eigen::ComputeFullV);
    const Eigen::MatrixXd& U = svd.matrixU();
    const Eigen::MatrixXd& V = svd.matrixV();

    const double d = (V * U.transpose()).determinant();
    const Eigen::MatrixXd D = Eigen::Vector3d(1, 1, d).asDiagonal();
    const Eigen::MatrixXd rotation = V * D * U.transpose();
    const Eigen::VectorXd translation = c2 - rotation * c1;

    cv::Mat rotationOut(3, 3, CV_32F);
    cv::Mat translationOut(3, 1, CV_32F);
    for (int i = 0; i < 3; ++i) {
        for (int j = 0; j < 3; ++j) {
            rotationOut.at<float>(i, j) = static_cast<float>(rotation(i, j));
        }
        translationOut.at<float>(i) = static_cast<float>(translation(i));
    }
    rotationOut.copyTo(R);
    translationOut.copyTo(T);
    return true;
}

bool GetMatchPtPoints3fAndMat(bool useWorkingCopy, const ToolMatchView& tool,
                              const cv::Mat& observed, std::vector<cv::Point3f>& firstPts,
                              std::vector<cv::Point3f>& secondPts, E_RTDirection direction) {
    const float* positions = useWorkingCopy ? tool.workingPositions : tool.filePositions;
    if (positions == nullptr || tool.pairs == nullptr) return false;
    if (observed.type() != CV_32F || observed.cols != 3) return false;

    std::vector<cv::Point3f> toolPts;
    std::vector<cv::Point3f> observedPts;
    toolPts.reserve(tool.pairs->size());
    observedPts.reserve(tool.pairs->size());
    for (const T_MatchMarkIdx& pair : *tool.pairs) {
        const int a = pair.ToolMarkerIndex;
        const int i = pair.ObservedIndex;
        if (a < 0 || a >= tool.markerCount || i < 0 || i >= observed.rows) return false;
        toolPts.emplace_back(positions[3 * a], positions[3 * a + 1], positions[3 * a + 2]);
        observedPts.emplace_back(observed.at<float>(i, 0), observed.at<float>(i, 1),
                                 observed.at<float>(i, 2));
    }

    if (direction == RTDirection_ToolToTracker) {
        firstPts = std::move(toolPts);
        secondPts = std::move(observedPts);
    } else {
        firstPts = std::move(observedPts);
        secondPts = std::move(toolPts);
    }
    return true;
}

ToolMatchView MatchViewOf(const T_ToolPtMatchInfo& tool) {
    ToolMatchView view;
    view.markerCount = tool.markerCount;
    view.pairs = &tool.pairs;
    if (tool.markerCount < 0) return view;
    const std::size_t needed = 3 * static_cast<std::size_t>(tool.markerCount);
    if (tool.markerPositions.size() >= needed) view.filePositions = tool.markerPositions.data();
    if (tool.markerPositionsCopy.size() >= needed) {
        view.workingPositions = tool.markerPositionsCopy.data();
    }
    return view;
}

bool GetMatchPtPoints3fAndMat(bool useWorkingCopy, const T_ToolPtMatchInfo& tool,
                              const cv::Mat& observed, std::vector<cv::Point3f>& firstPts,
                              std::vector<cv::Point3f>& secondPts, E_RTDirection direction) {
    return GetMatchPtPoints3fAndMat(useWorkingCopy, MatchViewOf(tool), observed, firstPts,
                                    secondPts, direction);
}
