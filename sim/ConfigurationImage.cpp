#include "sim/ConfigurationImage.h"

#include "device/Crc16.h"

#include <algorithm>
#include <cstring>

namespace vyx::sim {
namespace {

// Offsets within a 512-byte block.
constexpr std::size_t kLeftCameraMatrix = 0;
constexpr std::size_t kRightCameraMatrix = 72;
constexpr std::size_t kLeftDistCoeffs = 144;
constexpr std::size_t kRightDistCoeffs = 184;
constexpr std::size_t kLeftRotation = 224;
constexpr std::size_t kRightRotation = 296;
constexpr std::size_t kLeftTranslation = 368;
constexpr std::size_t kRightTranslation = 392;

// Manufacture section of block 1.
constexpr std::size_t kYear = 416;
constexpr std::size_t kMonth = 418;
constexpr std::size_t kDay = 419;
constexpr std::size_t kModelLength = 420;
constexpr std::size_t kModelText = 421;
constexpr std::size_t kGreyWidth = 441;
constexpr std::size_t kGreyHeight = 443;
constexpr std::size_t kColourWidth = 445;
constexpr std::size_t kColourHeight = 447;
constexpr std::size_t kUsbGreyCount = 450;
constexpr std::size_t kUsbColourCount = 452;
constexpr std::size_t kEthernetGreyCount = 454;
constexpr std::size_t kEthernetColourCount = 456;
constexpr std::size_t kTransferUnit = 458;
constexpr std::size_t kDeviceIP = 481;

// Temperatures and depth factors of block 2.
constexpr std::size_t kCalibrationTemperature1 = 416;
constexpr std::size_t kCalibrationTemperature2 = 424;
constexpr std::size_t kZFactor1 = 432;
constexpr std::size_t kZFactor2 = 440;

constexpr std::size_t kChecksumCoverage = 470;
constexpr std::size_t kChecksumOffset = 509;

// Multi-temperature table of the long form.
constexpr std::size_t kEntryCount = 1024;
constexpr std::size_t kFirstEntry = 1028;
constexpr std::size_t kEntryBytes = 432;
constexpr std::size_t kEntryCameras = 8;  // the matrices follow the temperature
constexpr std::size_t kEntryDepthFactor = 424;

void putU16(std::uint8_t* p, std::uint16_t value) {
    p[0] = static_cast<std::uint8_t>(value & 0xFF);
    p[1] = static_cast<std::uint8_t>(value >> 8);
}

void putI32(std::uint8_t* p, std::int32_t value) {
    const auto bits = static_cast<std::uint32_t>(value);
    for (int i = 0; i < 4; ++i) p[i] = static_cast<std::uint8_t>((bits >> (8 * i)) & 0xFF);
}

// Little-endian IEEE-754 double; the host is x86-64, so its own byte order.
void putDouble(std::uint8_t* p, double value) {
    static_assert(sizeof(double) == 8, "configuration doubles are 64-bit");
    std::memcpy(p, &value, sizeof value);
}

template <std::size_t N>
void putDoubles(std::uint8_t* p, const std::array<double, N>& values) {
    for (std::size_t i = 0; i < N; ++i) putDouble(p + 8 * i, values[i]);
}

// The eight matrices of one calibration, in block order, from `base`.
void putCalibration(std::uint8_t* base, const StereoCalibration& c) {
    putDoubles(base + kLeftCameraMatrix, c.left.cameraMatrix);
    putDoubles(base + kRightCameraMatrix, c.right.cameraMatrix);
    putDoubles(base + kLeftDistCoeffs, c.left.distCoeffs);
    putDoubles(base + kRightDistCoeffs, c.right.distCoeffs);
    putDoubles(base + kLeftRotation, c.left.rotation);
    putDoubles(base + kRightRotation, c.right.rotation);
    putDoubles(base + kLeftTranslation, c.left.translation);
    putDoubles(base + kRightTranslation, c.right.translation);
}

void putManufactureSection(std::uint8_t* block, const DeviceDescription& d) {
    putU16(block + kYear, d.manufactured.year);
    block[kMonth] = d.manufactured.month;
    block[kDay] = d.manufactured.day;
    const std::size_t textBytes = std::min(d.modelText.size(), kModelTextBytes);
    block[kModelLength] = d.modelLengthOverride.value_or(static_cast<std::uint8_t>(textBytes));
    std::memcpy(block + kModelText, d.modelText.data(), textBytes);

    const GeometryWords& g = d.geometry;
    putU16(block + kGreyWidth, g.greyWidth);
    putU16(block + kGreyHeight, g.greyHeight);
    putU16(block + kColourWidth, g.colourWidth);
    putU16(block + kColourHeight, g.colourHeight);
    putU16(block + kUsbGreyCount, g.usbGreyCount);
    putU16(block + kUsbColourCount, g.usbColourCount);
    putU16(block + kEthernetGreyCount, g.ethernetGreyCount);
    putU16(block + kEthernetColourCount, g.ethernetColourCount);
    putU16(block + kTransferUnit, g.transferUnit);
    std::copy(d.deviceIP.begin(), d.deviceIP.end(), block + kDeviceIP);
}

// Stores the block's checksum; a spoilt one has its low byte inverted, so it
// can never match.
void sealBlock(std::uint8_t* block, bool spoil) {
    std::uint16_t crc = device::crc16Modbus(block, kChecksumCoverage);
    if (spoil) crc = static_cast<std::uint16_t>(crc ^ 0x00FF);
    putU16(block + kChecksumOffset, crc);
}

void putShortForm(std::uint8_t* data, const DeviceDescription& d,
                  const ConfigurationDefects& defects) {
    std::uint8_t* block1 = data;
    std::uint8_t* block2 = data + kConfigBlockBytes;

    putCalibration(block1, d.calibration1);
    putManufactureSection(block1, d);
    sealBlock(block1, defects.badChecksumBlock1);

    putCalibration(block2, d.calibration2.value_or(d.calibration1));
    putDouble(block2 + kCalibrationTemperature1, d.calibrationTemperature1);
    putDouble(block2 + kCalibrationTemperature2, d.calibrationTemperature2);
    putDouble(block2 + kZFactor1, d.zFactor1);
    putDouble(block2 + kZFactor2, d.zFactor2);
    sealBlock(block2, defects.badChecksumBlock2);
}

}  // namespace

std::vector<std::uint8_t> encodeShortConfiguration(const DeviceDescription& description,
                                                   const ConfigurationDefects& defects) {
    std::vector<std::uint8_t> data(kShortConfigBytes, 0);
    putShortForm(data.data(), description, defects);
    return data;
}

std::vector<std::uint8_t> encodeLongConfiguration(const DeviceDescription& description,
                                                  const ConfigurationDefects& defects) {
    std::vector<std::uint8_t> data(kLongConfigBytes, 0);
    putShortForm(data.data(), description, defects);
    if (!description.longConfiguration) return data;

    const LongConfiguration& table = *description.longConfiguration;
    const std::size_t rows = std::min(table.entries.size(), kMaxTemperatureEntries);
    static_assert(kFirstEntry + kMaxTemperatureEntries * kEntryBytes <= kLongConfigBytes,
                  "the table fits the long form");
    putI32(data.data() + kEntryCount,
           table.entryCountOverride.value_or(static_cast<std::int32_t>(rows)));
    for (std::size_t i = 0; i < rows; ++i) {
        std::uint8_t* entry = data.data() + kFirstEntry + i * kEntryBytes;
        const TemperatureCalibration& row = table.entries[i];
        putDouble(entry, row.temperature);
        putCalibration(entry + kEntryCameras, row.cameras);
        putDouble(entry + kEntryDepthFactor, row.depthFactor);
    }
    return data;
}

std::vector<std::uint8_t> encodeWifiConfigurationFrame(const DeviceDescription& description,
                                                       const ConfigurationDefects& defects) {
    std::vector<std::uint8_t> frame(kWifiConfigFrameBytes, 0);
    frame[0] = 0xA5;
    frame[1] = 0x5A;
    putU16(frame.data() + 2, static_cast<std::uint16_t>(kWifiConfigFrameBytes));
    putShortForm(frame.data() + 4, description, defects);
    frame[kWifiConfigFrameBytes - 2] = 0xFF;
    frame[kWifiConfigFrameBytes - 1] = 0xFE;
    return frame;
}

std::vector<std::uint8_t> encodeModelTextReply(const DeviceDescription& description) {
    std::vector<std::uint8_t> reply(kModelTextBytes, 0);
    const std::string& text = description.modelTextReply.value_or(description.modelText);
    std::copy_n(text.begin(), std::min(text.size(), kModelTextBytes), reply.begin());
    return reply;
}

}  // namespace vyx::sim
