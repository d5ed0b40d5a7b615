// The configuration data the virtual tracker sends: two 512-byte blocks (the
// short form) and the 7680-byte long form with its multi-temperature table.
//
// Block layout, at block offset: left and right camera matrices (0, 72),
// distortion (144, 184), rotations (224, 296), translations (368, 392), all
// little-endian doubles, row-major. Block 1 carries the manufacture section
// from 416: year (416-417), month, day, model text length (420), model text
// (421-440), geometry words (441-459), device IP (481-484). Block 2 carries
// the calibration temperatures and depth factors at 416, 424, 432 and 440.
// Each block's CRC-16/MODBUS over bytes 0-469 sits at 509 (low) and 510 (high).
//
// The Wi-Fi link sends the two blocks in one 1032-byte frame: 0xA5 0x5A, the
// frame length (16-bit), block 1 from 4, block 2 from 516, two zero bytes and
// 0xFF 0xFE.
#pragma once

#include "sim/DeviceDescription.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vyx::sim {

constexpr std::size_t kConfigBlockBytes = 512;
constexpr std::size_t kShortConfigBytes = 2 * kConfigBlockBytes;
constexpr std::size_t kLongConfigBytes = 7680;
constexpr std::size_t kModelTextBytes = 20;
constexpr std::size_t kWifiConfigFrameBytes = 4 + kShortConfigBytes + 4;

// Ways to spoil the configuration on purpose.
struct ConfigurationDefects {
    bool badChecksumBlock1 = false;  // the stored CRC of block 1 is wrong
    bool badChecksumBlock2 = false;  // the stored CRC of block 2 is wrong
};

// The two blocks (1024 bytes).
std::vector<std::uint8_t> encodeShortConfiguration(const DeviceDescription& description,
                                                   const ConfigurationDefects& defects = {});

// The long form (7680 bytes): the two blocks, then the table's entry count
// (signed 32-bit) at 1024 and 432-byte rows from 1028: temperature, the eight
// matrices in block order, depth factor. An absent table gives a count of 0.
std::vector<std::uint8_t> encodeLongConfiguration(const DeviceDescription& description,
                                                  const ConfigurationDefects& defects = {});

// The Wi-Fi configuration frame (1032 bytes) around the two blocks.
std::vector<std::uint8_t> encodeWifiConfigurationFrame(const DeviceDescription& description,
                                                       const ConfigurationDefects& defects = {});

// The 20-byte answer to the model text request.
std::vector<std::uint8_t> encodeModelTextReply(const DeviceDescription& description);

}  // namespace vyx::sim
