// What the tracker's model decides: the model index read from the model text,
// the depth limit of reconstructed markers, the status record layout, the
// image geometry taken from the manufacture section of the configuration
// data, the exposure limits and the derived MAC address text. Pure functions
// over plain data; nothing here talks to the device.
#pragma once

#include "device/DeviceGeometry.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace vyx::device {

// Manufacture section offsets in the configuration data. The section starts
// in the first calibration block and ends with the device IP at 481-484.
constexpr std::size_t kManufactureSectionEnd = 485;  // bytes needed
constexpr std::size_t kManufactureModelBytes = 20;

// The manufacture record as the configuration data gives it.
struct ManufactureRecord {
    std::uint16_t year = 0;
    std::uint8_t month = 0;
    std::uint8_t day = 0;
    char model[kManufactureModelBytes] = {};  // zero-filled, not terminated when 20 long
    std::uint8_t modelLength = 0;         // at most 20
};

// Model index of the first known code, in table order, with which the first
// length bytes of text begin; current when none does (including a text that
// is only the start of a code).
std::uint32_t modelIndexFromText(const char* text, std::size_t length, std::uint32_t current);

// Sets depthLimit (millimetres) for the model index; leaves it unchanged for
// indices 4, 13, 14 and 18-99.
void applyDepthLimitForModel(std::uint32_t index, double& depthLimit);

// Layout of the model-dependent sensor values in the status record: First
// reads them as signed bytes, Second as 16-bit words, None leaves them unset.
enum class StatusLayout { First, Second, None };
StatusLayout statusLayoutForModel(std::uint32_t index);

// Decodes the manufacture section of the configuration data (config holds at
// least kManufactureSectionEnd bytes). separateModelText is the 20-byte model
// text read by its own command, or nullptr when that read failed; when present
// it replaces the configuration's model text in the record and in the model
// lookup.
//
// record:     year, month, day, model text and length (clamped to 20); the
//             model text is the length's first bytes, the rest zero.
// modelIndex: looked up from the record's model text; unchanged on no match.
// depthLimit: set for the resulting model index.
// geometry:   updated in place by model group; indices 0 and 100 reset it to
//             defaultGeometry(), indices of no group leave it unchanged.
// bands:      recomputed from the resulting geometry.
// deviceIP:   bytes 481-484, except for indices 0 and 100, which leave it.
void decodeManufactureSection(const std::uint8_t* config, const char* separateModelText,
                              ManufactureRecord& record, std::uint32_t& modelIndex,
                              double& depthLimit, DeviceGeometry& geometry,
                              BorderWarningBands& bands, std::array<std::uint8_t, 4>& deviceIP);

// Exposure sent for both grey cameras: clamped to 48-8192 for indices 0, 5
// and 100, to 16-16384 for 1, 2, 3, 8 and 11; the low 16 bits otherwise.
std::uint16_t dualExposureForModel(std::uint32_t index, int exposure);

// Grey-camera exposure for a working distance in millimetres. Models 3 and 5
// use the near range (300-1500 mm, exposure 500-1200), all others the far
// range (1000-3000 mm, exposure 800-1500). Linear between the bounds with
// truncating integer division; the bound's exposure outside them.
int exposureFromDistance(std::uint32_t index, int distanceMm);

// Writes the device's MAC address as 17 characters plus a terminating zero.
// The default "00:0A:35:00:01:02" stands unless the model text is exactly 18
// characters; then the last three groups are a model byte and a 16-bit serial
// number read from characters 7, 8, 15, 16 and 17 of the model text.
void macAddressText(const char* modelText, std::size_t modelLength, std::uint32_t modelIndex,
                    char out[18]);

}  // namespace vyx::device
