#include "camera/CameraParameters.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstdint>
#include <cstring>
#include <limits>
#include <tuple>
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
// Block 2's two temperatures and their depth factors.
void putBlockTwoFactors(std::vector<char>& b, const std::array<double, 4>& values) {
    for (std::size_t i = 0; i < 4; ++i) put(b, 928 + 8 * i, values[i]);
}
// Table entry i of the long form: temperature 45 - i (descending, which the
// parser must not sort), the cameras numbered from 1000 i and 1000 i + 500,
// depth factor 1 + i / 64.
Camera entryCamera(std::size_t i, bool right) {
    return numbered(1000.0 * i + (right ? 500 : 0), 1);
}
void putEntry(std::vector<char>& b, std::size_t i) {
    put(b, 1028 + 432 * i, 45.0 - i);
    putCalibration(b, 1028 + 432 * i + 8, entryCamera(i, false), entryCamera(i, true));
    put(b, 1028 + 432 * i + 424, 1 + i / 64.0);
}

// Set 1 in block 1, set 2 in block 2, and block 2's temperatures 18.5 and
// 41.75 with depth factors 31/32 and 33/32.
std::vector<char> twoBlockConfig() {
    std::vector<char> b(1024, 0);
    putCalibration(b, 0, kSet1Left, kSet1Right);
    putCalibration(b, 512, kSet2Left, kSet2Right);
    putBlockTwoFactors(b, {18.5, 41.75, 0.96875, 1.03125});
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
    // Block 2's temperatures and depth factors as written, and temperatures 1
    // and 2, depth factors 1 and 2 and their difference as read: mode 512
    // reads none of them, and depth factors on or outside (0.9, 1.1) become
    // one while the temperatures are kept.
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const std::tuple<std::uint32_t, std::array<double, 4>, std::array<double, 5>> cases[] = {
        {512, {18.5, 41.75, 0.96875, 1.03125}, {20, 40, 1, 1, 0}},
        {1024, {18.5, 41.75, 0.96875, 1.03125}, {18.5, 41.75, 0.96875, 1.03125, 0.0625}},
        {1024, {22.5, 37.25, 0.9, 1.0}, {22.5, 37.25, 1, 1, 0}},
        {1024, {22.5, 37.25, 1.0, 1.1}, {22.5, 37.25, 1, 1, 0}},
        {1024, {22.5, 37.25, 0.85, 1.0}, {22.5, 37.25, 1, 1, 0}},
        {1024, {22.5, 37.25, 1.0, 0.0}, {22.5, 37.25, 1, 1, 0}},
        {1024, {22.5, 37.25, nan, 1.0}, {22.5, 37.25, 1, 1, 0}}};
    for (const auto& [mode, written, read] : cases) {
        SCOPED_TRACE(testing::Message()
                     << "mode " << mode << ", depth factors " << written[2] << ", " << written[3]);
        const bool twoSets = mode == 1024;
        std::vector<char> config = twoBlockConfig();
        putBlockTwoFactors(config, written);
        CameraParameterBlock block;  // mode 512 (one set, block 2 ignored) by default
        block.configDataMode = mode;
        block.setCamParam(config.data());
        expectRecord(block.set1Left, kSet1Left);
        expectRecord(block.set1Right, kSet1Right);
        expectRecord(block.set2Left, twoSets ? kSet2Left : kSet1Left);
        expectRecord(block.set2Right, twoSets ? kSet2Right : kSet1Right);
        expectRecord(block.differenceLeft, twoSets ? kDiffLeft : kZero);
        expectRecord(block.differenceRight, twoSets ? kDiffRight : kZero);
        EXPECT_EQ(factorsOf(block), read);

        // The records own their data: the input overwritten with other values
        // and offered in modes that do not exist changes nothing.
        putCalibration(config, 0, kSet2Right, kSet2Left);
        putCalibration(config, 512, kSet1Right, kSet1Left);
        putBlockTwoFactors(config, {1.0, 2.0, 1.0, 1.0});
        for (std::uint32_t missing : {0u, 768u, 7680u}) {
            block.configDataMode = missing;
            block.setCamParam(config.data());
        }
        expectRecord(block.set1Left, kSet1Left);
        expectRecord(block.set2Right, twoSets ? kSet2Right : kSet1Right);
        EXPECT_EQ(factorsOf(block), read);
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

TEST(CameraRecordCopy, DefaultIsZeroMatricesOfTheModelShapesAndCopiesAreDeep) {
    expectRecord(SYSPARA{}, kZero);
    CameraParameterBlock block;
    block.setCamParam(twoBlockConfig().data());
    const SYSPARA original = block.set1Right;
    SYSPARA constructed(original);
    SYSPARA assigned;
    assigned = original;
    CameraParameterBlock blockCopy = block;
    for (SYSPARA* copy : {&constructed, &assigned, &blockCopy.set1Right})
        for (cv::Mat* m : {&copy->cameraMatrix, &copy->distCoeffs, &copy->R, &copy->T})
            m->setTo(-1);
    expectRecord(original, kSet1Right);
    expectRecord(block.set1Right, kSet1Right);
}

TEST(CameraTemperatureTable, EntriesAreReadInDeviceOrderUpToACountThatFitsAndNoneSurvive) {
    // Entries end at 1028 + 432 n: 2324 for three, 7508 for the fifteen that
    // fit the 7680-byte form. A count below one is an empty table. Every
    // entry that fits is written, also those beyond the count.
    const std::tuple<std::size_t, std::int32_t, bool, std::size_t> cases[] = {
        {7680, 0, true, 0},        {7680, -1, true, 0},       {7680, INT_MIN, true, 0},
        {7680, 3, true, 3},        {7680, 15, true, 15},      {7680, 16, false, 0},
        {7680, 1000000, false, 0}, {7680, INT_MAX, false, 0}, {2324, 3, true, 3},
        {2323, 3, false, 0},       {1028, 0, true, 0},        {1027, 0, false, 0},
    };
    for (const auto& [size, count, accepted, entries] : cases) {
        SCOPED_TRACE(testing::Message() << count << " entries in " << size << " bytes");
        std::vector<char> config(size, 0);
        if (size >= 1028) put<std::int32_t>(config, 1024, count);
        for (std::size_t i = 0; 1028 + 432 * (i + 1) <= size; ++i) putEntry(config, i);
        CameraParameterBlock block;
        block.multi = {{SYSPARA{}}, {SYSPARA{}}, {20.0}, {1.0}};  // from an earlier read
        EXPECT_EQ(block.setMultiCamParam(config.data(), config.size()), accepted);
        const T_VyxMultiCfgInfo& t = block.multi;
        ASSERT_EQ((std::array<std::size_t, 4>{t.temperatures.size(), t.left.size(), t.right.size(),
                                              t.depthFactors.size()}),
                  (std::array<std::size_t, 4>{entries, entries, entries, entries}));
        for (std::size_t i = 0; i < entries; ++i) {
            EXPECT_EQ(t.temperatures[i], 45.0 - i) << i;
            EXPECT_EQ(t.depthFactors[i], 1 + i / 64.0) << i;
            expectRecord(t.left[i], entryCamera(i, false));
            expectRecord(t.right[i], entryCamera(i, true));
        }
    }
    CameraParameterBlock block;
    EXPECT_FALSE(block.setMultiCamParam(nullptr, 7680));
}

}  // namespace
