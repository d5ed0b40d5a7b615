// The stereo calibration stored in the tracker's configuration data, turned
// into per-camera models.
//
// Configuration layout (little-endian IEEE-754 doubles, matrices row-major):
// block 1 at bytes 0-511 holds calibration set 1, block 2 at bytes 512-1023
// holds set 2 and, from its offset 416, the two calibration temperatures and
// their depth factors. The long 7680-byte form continues with a signed 32-bit
// entry count at byte 1024 and 432-byte table entries from byte 1028, one per
// calibration temperature.
#pragma once

#include <opencv2/core.hpp>

#include <cstddef>
#include <cstdint>
#include <vector>

// One camera's model, all matrices CV_64F: distortion k1, k2, p1, p2, k3
// (5x1), intrinsic matrix in pixels (3x3), rotation relative to the tracker's
// measurement frame (3x3) and translation in millimetres (3x1).
// A default record holds zero matrices of these shapes. Copies are deep: a
// copied record never shares matrix data with its source.
struct SYSPARA {
    cv::Mat distCoeffs;
    cv::Mat cameraMatrix;
    cv::Mat R;
    cv::Mat T;

    SYSPARA();
    SYSPARA(const SYSPARA& other);
    SYSPARA& operator=(const SYSPARA& other);
    SYSPARA(SYSPARA&&) = default;
    SYSPARA& operator=(SYSPARA&&) = default;
    ~SYSPARA() = default;
};

// Calibrations at several temperatures: four parallel sequences, entry i of
// each belonging to the same calibration. Stored in the order the device
// sends them (expected ascending in temperature, not sorted here).
struct T_VyxMultiCfgInfo {
    std::vector<SYSPARA> left;
    std::vector<SYSPARA> right;
    std::vector<double> temperatures;  // degrees Celsius
    std::vector<double> depthFactors;

    void clear();
    std::size_t size() const;  // number of entries
};

// The camera calibration read from one device connection. Owned by the engine
// and used from the API thread only; the compensation code reads the members
// directly.
class CameraParameterBlock {
public:
    // Byte counts of the configuration forms.
    static constexpr std::size_t kBlockBytes = 512;
    static constexpr std::size_t kTwoBlockBytes = 1024;
    static constexpr std::size_t kTableCountOffset = 1024;
    static constexpr std::size_t kTableFirstEntryOffset = 1028;
    static constexpr std::size_t kTableEntryBytes = 432;

    // 512 when the device delivered one calibration set, 1024 for two. Set by
    // the configuration reader before setCamParam.
    std::uint32_t configDataMode = 512;

    SYSPARA set1Left, set1Right;  // calibrated at calibTemperature1
    SYSPARA set2Left, set2Right;  // calibrated at calibTemperature2
    // set2 minus set1, element by element for every matrix.
    SYSPARA differenceLeft, differenceRight;

    double calibTemperature1 = 20.0;  // degrees Celsius
    double calibTemperature2 = 40.0;
    double zFactor1 = 1.0;
    double zFactor2 = 1.0;
    double zFactorDelta = 0.0;  // zFactor2 - zFactor1

    T_VyxMultiCfgInfo multi;

    // Reads the left and right models of one 512-byte block (block offsets
    // 0-415). The records get freshly allocated matrices, so nothing aliases
    // the input or any earlier copy of the records.
    static void setoneCamparam(const char* data, SYSPARA& left, SYSPARA& right);

    // Parses both calibration sets from the first 1024 configuration bytes.
    // Mode 1024: set 1 from block 1 and set 2 from block 2, then the block-2
    // temperatures and depth factors. Mode 512: both sets from block 1 (only
    // bytes 0-415 are read). Then the differences are recomputed. Any other
    // mode changes nothing.
    void setCamParam(const char* data);

    // Reads the calibration temperatures and depth factors from block 2 (block
    // offsets 416-447); acts only in mode 1024. Depth factors are accepted
    // only when both lie strictly between 0.9 and 1.1; otherwise both become
    // 1.0 with no change between the temperatures, and the temperatures are
    // still taken.
    void setTempratureAndZfactor(const char* block2);

    // out = a - b for all four matrices. out may be a or b.
    static void CalculateSysParaABC(SYSPARA& out, const SYSPARA& a, const SYSPARA& b);

    // Parses the temperature table of the long form. size is the number of
    // bytes available at data. The table is emptied first and refilled from
    // the entries in device order. Returns true for a count below 1 (table
    // left empty) and for a fully read table; returns false, with the table
    // empty, when data is null, the count itself lies beyond size, or the
    // counted entries would run past size (the 7680-byte form holds at most
    // 15 entries).
    bool setMultiCamParam(const char* data, std::size_t size);
};
