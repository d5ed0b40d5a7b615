#include "camera/CameraParameters.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace {

// One camera's 26 values in device order: camera matrix (3 x 3), distortion
// (5 x 1), R (3 x 3), T (3 x 1), matrices row-major.
using Camera = std::array<double, 26>;
constexpr int kRows[] = {3, 5, 3, 3}, kCols[] = {3, 1, 3, 1};

// first, first + step, first + 2 step, ...: every value distinct, so that a
// value read from the wrong place shows, and exact in binary.
Camera numbered(double first, double step) {
    Camera c;
    for (std::size_t i = 0; i < c.size(); ++i) c[i] = first + step * static_cast<double>(i);
    return c;
}
const Camera kSet1Left = numbered(1, 1), kSet1Right = numbered(101, 1);
const Camera kSet2Left = numbered(1001, 2), kSet2Right = numbered(2001, 3);
// Set 2 minus set 1: 1000 + i and 1900 + 2 i.
const Camera kDiffLeft = numbered(1000, 1), kDiffRight = numbered(1900, 2);
const Camera kZero = numbered(0, 0);

// A value at a byte offset, little-endian like the device (the test host's
// own byte order), written independently of the parser's readers.
template <typename T>
void put(std::vector<char>& b, std::size_t offset, T value) {
    b.at(offset + sizeof value - 1);  // throws rather than write past the buffer
    std::memcpy(b.data() + offset, &value, sizeof value);
}

// A stereo calibration in the block layout from base: left and right camera
// matrices at 0 and 72, distortion at 144 and 184, R at 224 and 296, T at
// 368 and 392.
void putCalibration(std::vector<char>& b, std::size_t base, const Camera& left,
                    const Camera& right) {
    const std::size_t leftAt[] = {0, 144, 224, 368}, rightAt[] = {72, 184, 296, 392};
    std::size_t value = 0;
    for (std::size_t m = 0; m < 4; ++m)
        for (std::size_t i = 0; i < static_cast<std::size_t>(kRows[m] * kCols[m]); ++i, ++value) {
            put(b, base + leftAt[m] + 8 * i, left[value]);
            put(b, base + rightAt[m] + 8 * i, right[value]);
        }
}
void putBlockTwoFactors(std::vector<char>& b, double t1, double t2, double z1, double z2) {
    const double values[] = {t1, t2, z1, z2};
    for (std::size_t i = 0; i < 4; ++i) put(b, 928 + 8 * i, values[i]);
}
// Table entry i of the long form: temperature, calibration, depth factor.
void putEntry(std::vector<char>& b, std::size_t i, double temperature, const Camera& left,
              const Camera& right, double depthFactor) {
    put(b, 1028 + 432 * i, temperature);
    putCalibration(b, 1028 + 432 * i + 8, left, right);
    put(b, 1028 + 432 * i + 424, depthFactor);
}

// Set 1 in block 1, set 2 in block 2, and block 2's temperatures 18.5 and
// 41.75 with depth factors 31/32 and 33/32.
std::vector<char> twoBlockConfig(std::size_t size = 1024) {
    std::vector<char> b(size, 0);
    putCalibration(b, 0, kSet1Left, kSet1Right);
    putCalibration(b, 512, kSet2Left, kSet2Right);
    putBlockTwoFactors(b, 18.5, 41.75, 0.96875, 1.03125);
    return b;
}

void expectRecord(const SYSPARA& record, const Camera& expected) {
    const cv::Mat* matrices[] = {&record.cameraMatrix, &record.distCoeffs, &record.R, &record.T};
    std::size_t value = 0;
    for (std::size_t m = 0; m < 4; ++m) {
        SCOPED_TRACE(m);
        ASSERT_EQ(matrices[m]->type(), CV_64F);
        ASSERT_EQ(matrices[m]->rows, kRows[m]);
        ASSERT_EQ(matrices[m]->cols, kCols[m]);
        for (int r = 0; r < kRows[m]; ++r)
            for (int c = 0; c < kCols[m]; ++c)
                EXPECT_EQ(matrices[m]->at<double>(r, c), expected[value++]) << r << ", " << c;
    }
}

std::array<double, 5> factorsOf(const CameraParameterBlock& b) {
    return {b.calibTemperature1, b.calibTemperature2, b.zFactor1, b.zFactor2, b.zFactorDelta};
}

TEST(CameraCalibrationSets, ModeDecidesTheBlocksTheDifferenceAndTheBlockTwoFactors) {
    for (const bool twoSets : {false, true}) {
        SCOPED_TRACE(twoSets ? "mode 1024" : "mode 512");
        std::vector<char> config = twoBlockConfig();
        CameraParameterBlock block;  // mode 512 (one set, block 2 ignored) by default
        if (twoSets) block.configDataMode = 1024;
        block.setCamParam(config.data());
        expectRecord(block.set1Left, kSet1Left);
        expectRecord(block.set1Right, kSet1Right);
        expectRecord(block.set2Left, twoSets ? kSet2Left : kSet1Left);
        expectRecord(block.set2Right, twoSets ? kSet2Right : kSet1Right);
        expectRecord(block.differenceLeft, twoSets ? kDiffLeft : kZero);
        expectRecord(block.differenceRight, twoSets ? kDiffRight : kZero);
        // Temperatures 1 and 2, depth factors 1 and 2, their difference.
        const std::array<double, 5> factors =
            twoSets ? std::array<double, 5>{18.5, 41.75, 0.96875, 1.03125, 0.0625}
                    : std::array<double, 5>{20, 40, 1, 1, 0};
        EXPECT_EQ(factorsOf(block), factors);

        // The records own their data: the input overwritten with other values
        // and offered in modes that do not exist changes nothing.
        putCalibration(config, 0, kSet2Right, kSet2Left);
        putCalibration(config, 512, kSet1Right, kSet1Left);
        putBlockTwoFactors(config, 1.0, 2.0, 1.0, 1.0);
        for (std::uint32_t mode : {0u, 768u, 7680u}) {
            block.configDataMode = mode;
            block.setCamParam(config.data());
        }
        expectRecord(block.set1Left, kSet1Left);
        expectRecord(block.set2Right, twoSets ? kSet2Right : kSet1Right);
        EXPECT_EQ(factorsOf(block), factors);
    }
}

TEST(CameraCalibrationSets, OneBlockIsReadFromItsFirst416BytesOnly) {
    // The address sanitizer catches a read past the calibration.
    std::vector<char> config(416, 0);
    putCalibration(config, 0, kSet2Left, kSet2Right);
    SYSPARA left, right;
    CameraParameterBlock::setoneCamparam(config.data(), left, right);
    expectRecord(left, kSet2Left);
    expectRecord(right, kSet2Right);
    // A difference may overwrite its own operand: (1001 + 2 i) - (2001 + 3 i).
    CameraParameterBlock::CalculateSysParaABC(left, left, right);
    expectRecord(left, numbered(-1000, -1));
}

TEST(CameraCalibrationSets, DepthFactorsOnOrOutsideTheBoundsBecomeOneButTemperaturesAreKept) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::array<double, 2> rejected[] = {{0.9, 1.0}, {1.0, 1.1}, {0.85, 1.0}, {1.0, 0.0},
                                              {nan, 1.0}};
    for (const auto& factors : rejected) {
        SCOPED_TRACE(testing::Message() << factors[0] << ", " << factors[1]);
        std::vector<char> config = twoBlockConfig();
        putBlockTwoFactors(config, 22.5, 37.25, factors[0], factors[1]);
        CameraParameterBlock block;
        block.configDataMode = 1024;
        block.setCamParam(config.data());
        EXPECT_EQ(factorsOf(block), (std::array<double, 5>{22.5, 37.25, 1, 1, 0}));
    }
}

TEST(CameraRecordCopy, DefaultIsZeroMatricesOfTheModelShapesAndCopiesAreDeep) {
    expectRecord(SYSPARA{}, kZero);
    CameraParameterBlock block;
    block.setCamParam(twoBlockConfig().data());
    const SYSPARA original = block.set1Right;
    SYSPARA constructed(original);
    SYSPARA assigned;
    assigned = original;
    CameraParameterBlock blockCopy = block;
    for (SYSPARA* copy : {&constructed, &assigned, &blockCopy.set1Right}) {
        copy->cameraMatrix.at<double>(0, 0) = -1;
        copy->distCoeffs.at<double>(4, 0) = -1;
        copy->R.at<double>(2, 2) = -1;
        copy->T.at<double>(1, 0) = -1;
    }
    expectRecord(original, kSet1Right);
    expectRecord(block.set1Right, kSet1Right);
}

TEST(CameraTemperatureTable, EntriesAreReadInDeviceOrderUpToTheCount) {
    std::vector<char> config = twoBlockConfig(7680);
    put<std::int32_t>(config, 1024, 3);
    // Deliberately not ascending: the parser must not sort.
    putEntry(config, 0, 45.25, kSet2Left, kSet2Right, 1.005);
    putEntry(config, 1, 20.5, kSet1Left, kSet1Right, 0.995);
    putEntry(config, 2, 31.0, kSet1Right, kSet2Left, 1.0);
    putEntry(config, 3, 50.0, kZero, kZero, 1.01);  // beyond the count
    CameraParameterBlock block;
    ASSERT_TRUE(block.setMultiCamParam(config.data(), config.size()));
    ASSERT_EQ(block.multi.size(), 3u);
    EXPECT_EQ(block.multi.temperatures, (std::vector<double>{45.25, 20.5, 31.0}));
    EXPECT_EQ(block.multi.depthFactors, (std::vector<double>{1.005, 0.995, 1.0}));
    const Camera* expected[][2] = {{&kSet2Left, &kSet2Right}, {&kSet1Left, &kSet1Right},
                                   {&kSet1Right, &kSet2Left}};
    for (std::size_t i = 0; i < 3; ++i) {
        expectRecord(block.multi.left[i], *expected[i][0]);
        expectRecord(block.multi.right[i], *expected[i][1]);
    }
}

TEST(CameraTemperatureTable, CountAndSizeLimitsAndAnEarlierTableNeverSurvives) {
    // Entries end at 1028 + 432 n: 2324 for three, 7508 for the fifteen that
    // fit the 7680-byte form. A count below one is an empty table.
    const struct {
        std::size_t size;
        std::int32_t count;
        bool accepted;
        std::size_t entries;
    } cases[] = {
        {7680, 0, true, 0},         {7680, -1, true, 0},       {7680, INT_MIN, true, 0},
        {7680, 15, true, 15},       {7680, 16, false, 0},      {7680, 1000000, false, 0},
        {7680, INT_MAX, false, 0},  {2324, 3, true, 3},        {2323, 3, false, 0},
        {1028, 0, true, 0},         {1027, 0, false, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.count << " entries in " << c.size << " bytes");
        std::vector<char> config(c.size, 0);
        if (c.size >= 1028) put<std::int32_t>(config, 1024, c.count);
        if (c.entries > 0) putEntry(config, c.entries - 1, 40.0, kSet2Left, kSet2Right, 1.03125);
        CameraParameterBlock block;
        block.multi = {{SYSPARA{}}, {SYSPARA{}}, {20.0}, {1.0}};  // from an earlier read
        EXPECT_EQ(block.setMultiCamParam(config.data(), config.size()), c.accepted);
        const T_VyxMultiCfgInfo& t = block.multi;
        ASSERT_EQ((std::array<std::size_t, 4>{t.temperatures.size(), t.left.size(),
                                              t.right.size(), t.depthFactors.size()}),
                  (std::array<std::size_t, 4>{c.entries, c.entries, c.entries, c.entries}));
        if (c.entries == 0) continue;
        EXPECT_EQ(t.temperatures.back(), 40.0);
        EXPECT_EQ(t.depthFactors.back(), 1.03125);
        expectRecord(t.right.back(), kSet2Right);
    }
    CameraParameterBlock block;
    EXPECT_FALSE(block.setMultiCamParam(nullptr, 7680));
}

}  // namespace
