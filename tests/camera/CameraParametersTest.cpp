#include "camera/CameraParameters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <limits>
#include <vector>

namespace {

// One camera's values as the device stores them, matrices row-major.
struct CameraData {
    std::array<double, 9> cameraMatrix;
    std::array<double, 5> distCoeffs;
    std::array<double, 9> R;
    std::array<double, 3> T;
};

// Two calibrations of one stereo rig. All values and their differences are
// exact binary fractions, so that comparisons can be exact.
const CameraData kSet1Left{{1600, 0, 640.5, 0, 1601, 360.25, 0, 0, 1},
                           {-0.125, 0.0625, 0.001, -0.002, 0.03125},
                           {1, 0, 0, 0, 1, 0, 0, 0, 1},
                           {0, 0, 0}};
const CameraData kSet1Right{{1610, 0, 630.5, 0, 1611, 350.75, 0, 0, 1},
                            {-0.25, 0.125, 0.0005, 0.0015, -0.0625},
                            {0.8, 0, -0.6, 0, 1, 0, 0.6, 0, 0.8},
                            {-250, 1.5, 3.25}};
const CameraData kSet2Left{{1602, 0, 641, 0, 1603, 360.75, 0, 0, 1},
                           {-0.1875, 0.0625, 0.001, -0.002, 0.03125},
                           {1, 0, 0, 0, 1, 0, 0, 0, 1},
                           {0.5, -0.25, 0}};
const CameraData kSet2Right{{1612.5, 0, 630, 0, 1611, 351.75, 0, 0, 1},
                            {-0.25, 0.125, 0.0005, 0.0015, -0.0625},
                            {0.8, 0, -0.6, 0, 1, 0, 0.6, 0, 0.8},
                            {-251, 1.5, 3.75}};
// Set 2 minus set 1, worked out by hand.
const CameraData kDifferenceLeft{{2, 0, 0.5, 0, 2, 0.5, 0, 0, 0},
                                 {-0.0625, 0, 0, 0, 0},
                                 {0, 0, 0, 0, 0, 0, 0, 0, 0},
                                 {0.5, -0.25, 0}};
const CameraData kDifferenceRight{{2.5, 0, -0.5, 0, 0, 1, 0, 0, 0},
                                  {0, 0, 0, 0, 0},
                                  {0, 0, 0, 0, 0, 0, 0, 0, 0},
                                  {-1, 0, 0.5}};
const CameraData kZero{{}, {}, {}, {}};

// Little-endian writers, independent of the parser's readers.
void putDouble(std::vector<char>& buffer, std::size_t offset, double value) {
    std::uint64_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    for (std::size_t i = 0; i < 8; ++i)
        buffer.at(offset + i) = static_cast<char>((bits >> (8 * i)) & 0xFFu);
}

template <std::size_t N>
void putDoubles(std::vector<char>& buffer, std::size_t offset, const std::array<double, N>& values) {
    for (std::size_t i = 0; i < N; ++i) putDouble(buffer, offset + 8 * i, values[i]);
}

void putInt32(std::vector<char>& buffer, std::size_t offset, std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    for (std::size_t i = 0; i < 4; ++i)
        buffer.at(offset + i) = static_cast<char>((bits >> (8 * i)) & 0xFFu);
}

// A stereo calibration in the 512-byte block layout, from base.
void putCalibration(std::vector<char>& buffer, std::size_t base, const CameraData& left,
                    const CameraData& right) {
    putDoubles(buffer, base + 0, left.cameraMatrix);
    putDoubles(buffer, base + 72, right.cameraMatrix);
    putDoubles(buffer, base + 144, left.distCoeffs);
    putDoubles(buffer, base + 184, right.distCoeffs);
    putDoubles(buffer, base + 224, left.R);
    putDoubles(buffer, base + 296, right.R);
    putDoubles(buffer, base + 368, left.T);
    putDoubles(buffer, base + 392, right.T);
}

void putBlockTwoFactors(std::vector<char>& buffer, double temperature1, double temperature2,
                        double zFactor1, double zFactor2) {
    putDouble(buffer, 928, temperature1);
    putDouble(buffer, 936, temperature2);
    putDouble(buffer, 944, zFactor1);
    putDouble(buffer, 952, zFactor2);
}

// Both calibration blocks: set 1 in block 1, set 2 in block 2, and block 2's
// temperatures 18.5 / 41.75 with depth factors 31/32 and 33/32.
std::vector<char> twoBlockConfig(std::size_t size = 1024) {
    std::vector<char> buffer(size, 0);
    putCalibration(buffer, 0, kSet1Left, kSet1Right);
    putCalibration(buffer, 512, kSet2Left, kSet2Right);
    putBlockTwoFactors(buffer, 18.5, 41.75, 0.96875, 1.03125);
    return buffer;
}

// Table entry i of the long form.
void putEntry(std::vector<char>& buffer, std::size_t i, double temperature, const CameraData& left,
              const CameraData& right, double depthFactor) {
    const std::size_t base = 1028 + 432 * i;
    putDouble(buffer, base, temperature);
    putCalibration(buffer, base + 8, left, right);
    putDouble(buffer, base + 424, depthFactor);
}

template <std::size_t N>
void expectMatrix(const cv::Mat& m, int rows, int cols, const std::array<double, N>& expected,
                  const char* what) {
    SCOPED_TRACE(what);
    ASSERT_EQ(m.type(), CV_64F);
    ASSERT_EQ(m.rows, rows);
    ASSERT_EQ(m.cols, cols);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c)
            EXPECT_EQ(m.at<double>(r, c), expected[static_cast<std::size_t>(r * cols + c)])
                << "at (" << r << ", " << c << ")";
}

void expectRecord(const SYSPARA& record, const CameraData& expected) {
    expectMatrix(record.cameraMatrix, 3, 3, expected.cameraMatrix, "cameraMatrix");
    expectMatrix(record.distCoeffs, 5, 1, expected.distCoeffs, "distCoeffs");
    expectMatrix(record.R, 3, 3, expected.R, "R");
    expectMatrix(record.T, 3, 1, expected.T, "T");
}

template <std::size_t N>
cv::Mat matrixOf(int rows, int cols, const std::array<double, N>& values) {
    cv::Mat m(rows, cols, CV_64F);
    std::copy(values.begin(), values.end(), m.ptr<double>());
    return m;
}

SYSPARA recordOf(const CameraData& data) {
    SYSPARA record;
    record.cameraMatrix = matrixOf(3, 3, data.cameraMatrix);
    record.distCoeffs = matrixOf(5, 1, data.distCoeffs);
    record.R = matrixOf(3, 3, data.R);
    record.T = matrixOf(3, 1, data.T);
    return record;
}

// ---------------------------------------------------------------------------

TEST(CalibrationSets, SingleSetModeUsesBlockOneForBothSetsWithZeroDifference) {
    const std::vector<char> config = twoBlockConfig();
    CameraParameterBlock block;  // mode 512 from construction
    block.setCamParam(config.data());

    expectRecord(block.set1Left, kSet1Left);
    expectRecord(block.set1Right, kSet1Right);
    expectRecord(block.set2Left, kSet1Left);
    expectRecord(block.set2Right, kSet1Right);
    expectRecord(block.differenceLeft, kZero);
    expectRecord(block.differenceRight, kZero);
    // Block 2's temperatures and factors are ignored in this mode.
    EXPECT_EQ(block.calibTemperature1, 20.0);
    EXPECT_EQ(block.calibTemperature2, 40.0);
    EXPECT_EQ(block.zFactor1, 1.0);
    EXPECT_EQ(block.zFactor2, 1.0);
    EXPECT_EQ(block.zFactorDelta, 0.0);
}

TEST(CalibrationSets, OneBlockIsReadFromItsFirst416BytesOnly) {
    // A buffer that ends right after the calibration must not be read past
    // (caught by the address sanitizer).
    std::vector<char> config(416, 0);
    putCalibration(config, 0, kSet1Left, kSet1Right);
    CameraParameterBlock block;
    block.setoneCamparam(config.data(), block.set1Left, block.set1Right);
    expectRecord(block.set1Left, kSet1Left);
    expectRecord(block.set1Right, kSet1Right);
}

TEST(CalibrationSets, TwoSetModeReadsBothBlocksTheirDifferenceAndBlockTwoFactors) {
    const std::vector<char> config = twoBlockConfig();
    CameraParameterBlock block;
    block.configDataMode = 1024;
    block.setCamParam(config.data());

    expectRecord(block.set1Left, kSet1Left);
    expectRecord(block.set1Right, kSet1Right);
    expectRecord(block.set2Left, kSet2Left);
    expectRecord(block.set2Right, kSet2Right);
    expectRecord(block.differenceLeft, kDifferenceLeft);
    expectRecord(block.differenceRight, kDifferenceRight);
    EXPECT_EQ(block.calibTemperature1, 18.5);
    EXPECT_EQ(block.calibTemperature2, 41.75);
    EXPECT_EQ(block.zFactor1, 0.96875);
    EXPECT_EQ(block.zFactor2, 1.03125);
    EXPECT_EQ(block.zFactorDelta, 0.0625);
}

TEST(CalibrationSets, DepthFactorsOnOrOutsideTheBoundsBecomeOneButTemperaturesAreKept) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::array<std::array<double, 2>, 5> rejected{
        {{0.9, 1.0}, {1.0, 1.1}, {0.85, 1.0}, {1.0, 0.0}, {nan, 1.0}}};
    for (const auto& factors : rejected) {
        SCOPED_TRACE(testing::Message() << "factors " << factors[0] << ", " << factors[1]);
        std::vector<char> config = twoBlockConfig();
        putBlockTwoFactors(config, 22.5, 37.25, factors[0], factors[1]);
        CameraParameterBlock block;
        block.configDataMode = 1024;
        block.setCamParam(config.data());
        EXPECT_EQ(block.zFactor1, 1.0);
        EXPECT_EQ(block.zFactor2, 1.0);
        EXPECT_EQ(block.zFactorDelta, 0.0);
        EXPECT_EQ(block.calibTemperature1, 22.5);
        EXPECT_EQ(block.calibTemperature2, 37.25);
    }
}

TEST(CalibrationSets, UnknownModeLeavesEverythingAsItWas) {
    const std::vector<char> config = twoBlockConfig();
    CameraParameterBlock block;
    block.configDataMode = 1024;
    block.setCamParam(config.data());

    std::vector<char> other(1024, 0);
    putCalibration(other, 0, kSet2Right, kSet2Left);
    putCalibration(other, 512, kSet1Right, kSet1Left);
    putBlockTwoFactors(other, 1.0, 2.0, 1.0, 1.0);
    for (std::uint32_t mode : {0u, 768u, 7680u}) {
        block.configDataMode = mode;
        block.setCamParam(other.data());
    }
    expectRecord(block.set1Left, kSet1Left);
    expectRecord(block.set2Right, kSet2Right);
    expectRecord(block.differenceLeft, kDifferenceLeft);
    EXPECT_EQ(block.calibTemperature1, 18.5);
    EXPECT_EQ(block.zFactorDelta, 0.0625);
}

TEST(CalibrationSets, RecordsOwnTheirDataRatherThanAliasingTheInput) {
    std::vector<char> config = twoBlockConfig();
    CameraParameterBlock block;
    block.configDataMode = 1024;
    block.setCamParam(config.data());
    std::fill(config.begin(), config.end(), '\x7f');
    expectRecord(block.set1Left, kSet1Left);
    expectRecord(block.set2Right, kSet2Right);
}

TEST(CalibrationSets, DifferenceMayOverwriteItsOwnOperand) {
    SYSPARA a = recordOf(kSet2Right);
    const SYSPARA b = recordOf(kSet1Right);
    CameraParameterBlock::CalculateSysParaABC(a, a, b);
    expectRecord(a, kDifferenceRight);
}

// ---------------------------------------------------------------------------

TEST(CameraRecordCopy, DefaultRecordIsZeroMatricesOfTheModelShapes) {
    expectRecord(SYSPARA{}, kZero);
}

TEST(CameraRecordCopy, CopiesDoNotShareMatrixData) {
    const SYSPARA original = recordOf(kSet1Right);

    SYSPARA constructed(original);
    SYSPARA assigned;
    assigned = original;
    for (SYSPARA* copy : {&constructed, &assigned}) {
        copy->cameraMatrix.at<double>(0, 0) = -1;
        copy->distCoeffs.at<double>(4, 0) = -1;
        copy->R.at<double>(2, 2) = -1;
        copy->T.at<double>(1, 0) = -1;
    }
    expectRecord(original, kSet1Right);

    // The parameter block copies its records deeply as well.
    CameraParameterBlock block;
    block.set1Left = original;
    CameraParameterBlock copy = block;
    copy.set1Left.T.at<double>(0, 0) = 99;
    expectRecord(block.set1Left, kSet1Right);
}

// ---------------------------------------------------------------------------

constexpr std::size_t kLongFormBytes = 7680;

TEST(TemperatureTable, CountBelowOneGivesAnEmptyTable) {
    for (std::int32_t count : {0, -1, INT_MIN}) {
        SCOPED_TRACE(count);
        std::vector<char> config = twoBlockConfig(kLongFormBytes);
        putInt32(config, 1024, count);
        putEntry(config, 0, 25.0, kSet1Left, kSet1Right, 1.0);
        CameraParameterBlock block;
        EXPECT_TRUE(block.setMultiCamParam(config.data(), config.size()));
        EXPECT_EQ(block.multi.size(), 0u);
        EXPECT_TRUE(block.multi.left.empty());
        EXPECT_TRUE(block.multi.right.empty());
        EXPECT_TRUE(block.multi.depthFactors.empty());
    }
}

TEST(TemperatureTable, EntriesAreReadInDeviceOrder) {
    std::vector<char> config = twoBlockConfig(kLongFormBytes);
    putInt32(config, 1024, 3);
    // Deliberately not ascending: the parser must not sort.
    putEntry(config, 0, 45.25, kSet2Left, kSet2Right, 1.005);
    putEntry(config, 1, 20.5, kSet1Left, kSet1Right, 0.995);
    putEntry(config, 2, 31.0, kSet1Right, kSet2Left, 1.0);
    // A fourth entry beyond the count is not taken.
    putEntry(config, 3, 50.0, kZero, kZero, 1.01);

    CameraParameterBlock block;
    ASSERT_TRUE(block.setMultiCamParam(config.data(), config.size()));
    ASSERT_EQ(block.multi.size(), 3u);
    ASSERT_EQ(block.multi.left.size(), 3u);
    ASSERT_EQ(block.multi.right.size(), 3u);
    ASSERT_EQ(block.multi.depthFactors.size(), 3u);
    EXPECT_EQ(block.multi.temperatures, (std::vector<double>{45.25, 20.5, 31.0}));
    EXPECT_EQ(block.multi.depthFactors, (std::vector<double>{1.005, 0.995, 1.0}));
    expectRecord(block.multi.left[0], kSet2Left);
    expectRecord(block.multi.right[0], kSet2Right);
    expectRecord(block.multi.left[1], kSet1Left);
    expectRecord(block.multi.right[1], kSet1Right);
    expectRecord(block.multi.left[2], kSet1Right);
    expectRecord(block.multi.right[2], kSet2Left);
}

TEST(TemperatureTable, SingleEntryIsRead) {
    std::vector<char> config = twoBlockConfig(kLongFormBytes);
    putInt32(config, 1024, 1);
    putEntry(config, 0, 33.5, kSet2Right, kSet1Left, 1.0078125);
    CameraParameterBlock block;
    ASSERT_TRUE(block.setMultiCamParam(config.data(), config.size()));
    ASSERT_EQ(block.multi.size(), 1u);
    EXPECT_EQ(block.multi.temperatures[0], 33.5);
    EXPECT_EQ(block.multi.depthFactors[0], 1.0078125);
    expectRecord(block.multi.left[0], kSet2Right);
    expectRecord(block.multi.right[0], kSet1Left);
}

TEST(TemperatureTable, FifteenEntriesFillTheLongForm) {
    std::vector<char> config(kLongFormBytes, 0);
    putInt32(config, 1024, 15);
    for (std::size_t i = 0; i < 15; ++i)
        putEntry(config, i, 10.0 + 2.0 * static_cast<double>(i), kSet1Left, kSet1Right, 1.0);
    putEntry(config, 14, 99.5, kSet2Left, kSet2Right, 1.0625);
    CameraParameterBlock block;
    ASSERT_TRUE(block.setMultiCamParam(config.data(), config.size()));
    ASSERT_EQ(block.multi.size(), 15u);
    EXPECT_EQ(block.multi.temperatures[13], 36.0);
    EXPECT_EQ(block.multi.temperatures[14], 99.5);
    EXPECT_EQ(block.multi.depthFactors[14], 1.0625);
    expectRecord(block.multi.right[14], kSet2Right);
}

TEST(TemperatureTable, CountBeyondTheBufferIsRefusedAndLeavesTheTableEmpty) {
    for (std::int32_t count : {16, 1000000, INT_MAX}) {
        SCOPED_TRACE(count);
        std::vector<char> config(kLongFormBytes, 0);
        putInt32(config, 1024, count);
        CameraParameterBlock block;
        // A table from an earlier connection must not survive a refusal.
        block.multi.temperatures.push_back(20.0);
        block.multi.depthFactors.push_back(1.0);
        block.multi.left.emplace_back();
        block.multi.right.emplace_back();
        EXPECT_FALSE(block.setMultiCamParam(config.data(), config.size()));
        EXPECT_EQ(block.multi.size(), 0u);
        EXPECT_TRUE(block.multi.left.empty());
        EXPECT_TRUE(block.multi.right.empty());
        EXPECT_TRUE(block.multi.depthFactors.empty());
    }
}

TEST(TemperatureTable, LastEntryMustFitCompletely) {
    // Three entries end at byte 1028 + 3 x 432 = 2324.
    std::vector<char> config(2324, 0);
    putInt32(config, 1024, 3);
    putEntry(config, 2, 40.0, kSet1Left, kSet1Right, 1.03125);
    CameraParameterBlock block;
    ASSERT_TRUE(block.setMultiCamParam(config.data(), config.size()));
    EXPECT_EQ(block.multi.depthFactors.at(2), 1.03125);

    config.pop_back();
    EXPECT_FALSE(block.setMultiCamParam(config.data(), config.size()));
    EXPECT_EQ(block.multi.size(), 0u);
}

TEST(TemperatureTable, BufferWithoutRoomForTheCountIsRefused) {
    std::vector<char> config(1027, 0);
    CameraParameterBlock block;
    EXPECT_FALSE(block.setMultiCamParam(config.data(), config.size()));
    EXPECT_FALSE(block.setMultiCamParam(nullptr, kLongFormBytes));
    EXPECT_EQ(block.multi.size(), 0u);
}

TEST(TemperatureTable, ReparsingReplacesTheTable) {
    std::vector<char> config(kLongFormBytes, 0);
    putInt32(config, 1024, 3);
    putEntry(config, 0, 20.0, kSet1Left, kSet1Right, 1.0);
    putEntry(config, 1, 30.0, kSet1Left, kSet1Right, 1.0);
    putEntry(config, 2, 40.0, kSet1Left, kSet1Right, 1.0);
    CameraParameterBlock block;
    ASSERT_TRUE(block.setMultiCamParam(config.data(), config.size()));
    ASSERT_TRUE(block.setMultiCamParam(config.data(), config.size()));
    EXPECT_EQ(block.multi.size(), 3u);
    EXPECT_EQ(block.multi.left.size(), 3u);

    putInt32(config, 1024, 1);
    putEntry(config, 0, 27.5, kSet2Left, kSet2Right, 1.0);
    ASSERT_TRUE(block.setMultiCamParam(config.data(), config.size()));
    ASSERT_EQ(block.multi.size(), 1u);
    EXPECT_EQ(block.multi.temperatures[0], 27.5);
    expectRecord(block.multi.left[0], kSet2Left);

    putInt32(config, 1024, 0);
    ASSERT_TRUE(block.setMultiCamParam(config.data(), config.size()));
    EXPECT_EQ(block.multi.size(), 0u);
    EXPECT_TRUE(block.multi.right.empty());
}

}  // namespace
