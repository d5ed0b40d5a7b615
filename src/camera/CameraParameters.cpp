#include "camera/CameraParameters.h"

#include <cstring>
#include <utility>

namespace {

// Block offsets of the matrices in a 512-byte calibration block. A table
// entry holds the same sequence shifted by its leading temperature.
constexpr std::size_t kLeftCameraMatrixOffset = 0;
constexpr std::size_t kRightCameraMatrixOffset = 72;
constexpr std::size_t kLeftDistCoeffsOffset = 144;
constexpr std::size_t kRightDistCoeffsOffset = 184;
constexpr std::size_t kLeftROffset = 224;
constexpr std::size_t kRightROffset = 296;
constexpr std::size_t kLeftTOffset = 368;
constexpr std::size_t kRightTOffset = 392;

// Block-2 offsets of the calibration temperatures and depth factors.
constexpr std::size_t kTemperature1Offset = 416;
constexpr std::size_t kTemperature2Offset = 424;
constexpr std::size_t kZFactor1Offset = 432;
constexpr std::size_t kZFactor2Offset = 440;

// Table entry: temperature first, the matrices of a block, depth factor last.
constexpr std::size_t kEntryTemperatureOffset = 0;
constexpr std::size_t kEntryMatricesOffset = 8;
constexpr std::size_t kEntryDepthFactorOffset = 424;

// Depth factors outside this open interval are treated as unset.
constexpr double kMinZFactor = 0.9;
constexpr double kMaxZFactor = 1.1;

// A little-endian IEEE-754 double at any alignment, independent of the host's
// byte order.
double readDouble(const char* p) {
    std::uint64_t bits = 0;
    for (int i = 7; i >= 0; --i)
        bits = (bits << 8) | static_cast<unsigned char>(p[i]);
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

std::int32_t readInt32(const char* p) {
    std::uint32_t bits = 0;
    for (int i = 3; i >= 0; --i)
        bits = (bits << 8) | static_cast<unsigned char>(p[i]);
    std::int32_t value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// A new rows x cols CV_64F matrix from row-major doubles at p.
cv::Mat readMatrix(const char* p, int rows, int cols) {
    cv::Mat m(rows, cols, CV_64F);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            m.at<double>(r, c) = readDouble(p + 8 * static_cast<std::size_t>(r * cols + c));
    return m;
}

bool zFactorAcceptable(double factor) { return factor > kMinZFactor && factor < kMaxZFactor; }

}  // namespace

SYSPARA::SYSPARA()
    : distCoeffs(cv::Mat::zeros(5, 1, CV_64F)),
      cameraMatrix(cv::Mat::zeros(3, 3, CV_64F)),
      R(cv::Mat::zeros(3, 3, CV_64F)),
      T(cv::Mat::zeros(3, 1, CV_64F)) {}

SYSPARA::SYSPARA(const SYSPARA& other)
    : distCoeffs(other.distCoeffs.clone()),
      cameraMatrix(other.cameraMatrix.clone()),
      R(other.R.clone()),
      T(other.T.clone()) {}

SYSPARA& SYSPARA::operator=(const SYSPARA& other) {
    if (this != &other) {
        // Clone first so that a failed allocation leaves this record whole.
        SYSPARA copy(other);
        *this = std::move(copy);
    }
    return *this;
}

void T_VyxMultiCfgInfo::clear() {
    left.clear();
    right.clear();
    temperatures.clear();
    depthFactors.clear();
}

std::size_t T_VyxMultiCfgInfo::size() const { return temperatures.size(); }

void CameraParameterBlock::setoneCamparam(const char* data, SYSPARA& left, SYSPARA& right) {
    left.cameraMatrix = readMatrix(data + kLeftCameraMatrixOffset, 3, 3);
    right.cameraMatrix = readMatrix(data + kRightCameraMatrixOffset, 3, 3);
    left.distCoeffs = readMatrix(data + kLeftDistCoeffsOffset, 5, 1);
    right.distCoeffs = readMatrix(data + kRightDistCoeffsOffset, 5, 1);
    left.R = readMatrix(data + kLeftROffset, 3, 3);
    right.R = readMatrix(data + kRightROffset, 3, 3);
    left.T = readMatrix(data + kLeftTOffset, 3, 1);
    right.T = readMatrix(data + kRightTOffset, 3, 1);
}

void CameraParameterBlock::setCamParam(const char* data) {
    if (configDataMode == kTwoBlockBytes) {
        setoneCamparam(data, set1Left, set1Right);
        setoneCamparam(data + kBlockBytes, set2Left, set2Right);
    } else if (configDataMode == kBlockBytes) {
        setoneCamparam(data, set1Left, set1Right);
        setoneCamparam(data, set2Left, set2Right);
    } else {
        return;
    }
    setTempratureAndZfactor(data + kBlockBytes);
    CalculateSysParaABC(differenceLeft, set2Left, set1Left);
    CalculateSysParaABC(differenceRight, set2Right, set1Right);
}

void CameraParameterBlock::setTempratureAndZfactor(const char* block2) {
    if (configDataMode != kTwoBlockBytes) return;
    calibTemperature1 = readDouble(block2 + kTemperature1Offset);
    calibTemperature2 = readDouble(block2 + kTemperature2Offset);
    const double factor1 = readDouble(block2 + kZFactor1Offset);
    const double factor2 = readDouble(block2 + kZFactor2Offset);
    if (zFactorAcceptable(factor1) && zFactorAcceptable(factor2)) {
        zFactor1 = factor1;
        zFactor2 = factor2;
        zFactorDelta = factor2 - factor1;
    } else {
        zFactor1 = 1.0;
        zFactor2 = 1.0;
        zFactorDelta = 0.0;
    }
}

void CameraParameterBlock::CalculateSysParaABC(SYSPARA& out, const SYSPARA& a, const SYSPARA& b) {
    cv::subtract(a.distCoeffs, b.distCoeffs, out.distCoeffs);
    cv::subtract(a.cameraMatrix, b.cameraMatrix, out.cameraMatrix);
    cv::subtract(a.R, b.R, out.R);
    cv::subtract(a.T, b.T, out.T);
}

bool CameraParameterBlock::setMultiCamParam(const char* data, std::size_t size) {
    multi.clear();
    if (data == nullptr || size < kTableFirstEntryOffset) return false;

    const std::int32_t count = readInt32(data + kTableCountOffset);
    if (count < 1) return true;
    // In 64 bits the product cannot overflow for any 32-bit count.
    const std::uint64_t needed =
        kTableFirstEntryOffset + static_cast<std::uint64_t>(count) * kTableEntryBytes;
    if (needed > size) return false;

    const auto entries = static_cast<std::size_t>(count);
    T_VyxMultiCfgInfo table;
    table.left.resize(entries);
    table.right.resize(entries);
    table.temperatures.reserve(entries);
    table.depthFactors.reserve(entries);
    for (std::size_t i = 0; i < entries; ++i) {
        const char* entry = data + kTableFirstEntryOffset + i * kTableEntryBytes;
        table.temperatures.push_back(readDouble(entry + kEntryTemperatureOffset));
        setoneCamparam(entry + kEntryMatricesOffset, table.left[i], table.right[i]);
        table.depthFactors.push_back(readDouble(entry + kEntryDepthFactorOffset));
    }
    multi = std::move(table);
    return true;
}
