#include "device/DeviceModel.h"

#include <algorithm>
#include <cstring>

namespace vyx::device {

namespace {

struct ModelCode {
    const char* code;
    std::uint32_t index;
};

// Known model codes in lookup order; the first code that begins the model
// text wins.
constexpr ModelCode kModelCodes[] = {
    {"QX-BAS", 1},   {"QX-PRO", 2},   {"QX-MIN", 3},   {"ZR-C547", 6},
    {"ZR-C544", 7},  {"ZR-C857", 9},  {"ZR-C854", 10}, {"ZR-D847", 12},
    {"ZR-D844", 13}, {"ZR-D947", 15}, {"ZR-D944", 16}, {"ZR-C57", 5},
    {"ZR-C84", 8},   {"ZR-D87", 11},  {"ZR-D97", 14},  {"ZR-D640", 17},
};

// Model indices that carry no code: the placeholder 0 and "no known model".
constexpr std::uint32_t kPlaceholderModel = 0;
constexpr std::uint32_t kNoKnownModel = 100;

// Manufacture section offsets into the configuration data. 16-bit values are
// little-endian.
constexpr std::size_t kYearOffset = 416;
constexpr std::size_t kMonthOffset = 418;
constexpr std::size_t kDayOffset = 419;
constexpr std::size_t kModelLengthOffset = 420;
constexpr std::size_t kModelTextOffset = 421;
constexpr std::size_t kGreyWidthOffset = 441;
constexpr std::size_t kGreyHeightOffset = 443;
constexpr std::size_t kColorWidthOffset = 445;
constexpr std::size_t kColorHeightOffset = 447;
constexpr std::size_t kUsbGreyCountOffset = 450;
constexpr std::size_t kUsbColorCountOffset = 452;
constexpr std::size_t kEthernetGreyCountOffset = 454;
constexpr std::size_t kEthernetColorCountOffset = 456;
constexpr std::size_t kTransferUnitOffset = 458;
constexpr std::size_t kDeviceIPOffset = 481;

// Values that stand in for a zero in the manufacture section.
constexpr std::uint32_t kDefaultTransferUnitBytes = 1024;
constexpr std::uint32_t kDefaultUsbGreyCount = 160;
constexpr std::uint32_t kDefaultUsbColorCount = 225;
constexpr std::uint32_t kDefaultEthernetGreyCount = 32;
constexpr std::uint32_t kDefaultEthernetColorCount = 60;

constexpr std::uint32_t kGreyPixelBytes = 1;
constexpr std::uint32_t kColorPixelBytes = 2;

// Grey sensor sizes fixed by model.
constexpr std::uint32_t kLargeSensorWidth = 2472;
constexpr std::uint32_t kLargeSensorHeight = 2064;
constexpr std::uint32_t kHalfSensorWidth = 1236;
constexpr std::uint32_t kHalfSensorHeight = 1032;

// How a model's image geometry is obtained.
enum class GeometrySource {
    Defaults,           // no known model: the start-up geometry
    RecordSizes,        // image sizes and three block counts from the record
    RecordSizesCommon,  // image sizes from the record, then the transfer block
    LargeSensor,        // fixed 2472 x 2064 grey image, then the transfer block
    HalfSensor,         // fixed 1236 x 1032 grey image, then the transfer block
    Unchanged,
};

GeometrySource geometrySourceFor(std::uint32_t index) {
    switch (index) {
        case 0: case 100: return GeometrySource::Defaults;
        case 1: case 8: return GeometrySource::RecordSizes;
        case 2: case 3: case 5: case 11: return GeometrySource::RecordSizesCommon;
        case 6: case 9: case 12: case 15: case 17: return GeometrySource::LargeSensor;
        case 7: case 10: case 13: case 16: return GeometrySource::HalfSensor;
        default: return GeometrySource::Unchanged;
    }
}

std::uint32_t readU16(const std::uint8_t* config, std::size_t offset) {
    return static_cast<std::uint32_t>(config[offset]) |
           (static_cast<std::uint32_t>(config[offset + 1]) << 8u);
}

std::uint32_t readU16Or(const std::uint8_t* config, std::size_t offset, std::uint32_t whenZero) {
    const std::uint32_t value = readU16(config, offset);
    return value != 0 ? value : whenZero;
}

void setGreySize(DeviceGeometry& g, std::uint32_t width, std::uint32_t height) {
    g.greyWidth = width;
    g.greyHeight = height;
    g.greyImageBytes = width * height * kGreyPixelBytes;
}

// Grey and colour image sizes from the record; the colour image byte count
// is left to the caller.
void readImageSizes(const std::uint8_t* config, DeviceGeometry& g) {
    setGreySize(g, readU16(config, kGreyWidthOffset), readU16(config, kGreyHeightOffset));
    g.colorWidth = readU16(config, kColorWidthOffset);
    g.colorHeight = readU16(config, kColorHeightOffset);
}

void updateColorImageBytes(DeviceGeometry& g) {
    // Unsigned arithmetic: a nonsensical record wraps rather than overflows.
    g.colorImageBytes = g.colorWidth * g.colorHeight * kColorPixelBytes;
}

// The three block counts that every record-driven model reads.
void readCommonCounts(const std::uint8_t* config, DeviceGeometry& g) {
    g.blockCounts[kUsbGreyBlock] = readU16Or(config, kUsbGreyCountOffset, kDefaultUsbGreyCount);
    g.blockCounts[kUsbColorBlock] = readU16Or(config, kUsbColorCountOffset, kDefaultUsbColorCount);
    g.blockCounts[kEthernetGreyBlock] =
        readU16Or(config, kEthernetGreyCountOffset, kDefaultEthernetGreyCount);
}

// Transfer unit and all four block counts.
void readTransferBlock(const std::uint8_t* config, DeviceGeometry& g) {
    g.transferUnitBytes = readU16Or(config, kTransferUnitOffset, kDefaultTransferUnitBytes);
    readCommonCounts(config, g);
    g.blockCounts[kEthernetColorHalfBlock] =
        readU16Or(config, kEthernetColorCountOffset, kDefaultEthernetColorCount);
}

void updateBlockBytes(DeviceGeometry& g) {
    for (std::size_t k = 0; k < g.blockCounts.size(); ++k)
        g.blockBytes[k] = g.blockCounts[k] * g.transferUnitBytes;
}

// Digit value of a MAC serial character: letters a-j and A-J stand for 0-9,
// characters from '*' to '9' count from '0' (so '*' to '/' are negative),
// anything else is 0.
int serialDigit(char c) {
    if (c >= 'a' && c <= 'j') return c - 'a';
    if (c >= 'A' && c <= 'J') return c - 'A';
    if (c >= '*' && c <= '9') return c - '0';
    return 0;
}

void writeHexByte(char* out, std::uint8_t value) {
    constexpr char kHexDigits[] = "0123456789ABCDEF";
    out[0] = kHexDigits[value >> 4u];
    out[1] = kHexDigits[value & 0x0Fu];
}

}  // namespace

std::uint32_t modelIndexFromText(const char* text, std::size_t length, std::uint32_t current) {
    if (text == nullptr) return current;
    for (const ModelCode& entry : kModelCodes) {
        const std::size_t codeLength = std::strlen(entry.code);
        if (length >= codeLength && std::memcmp(text, entry.code, codeLength) == 0)
            return entry.index;
    }
    return current;
}

void applyDepthLimitForModel(std::uint32_t index, double& depthLimit) {
    switch (index) {
        case 0: case 1: case 8: case 9: case 10: case 11: case 12: case 100:
            depthLimit = 30000.0;
            break;
        case 2: case 15: case 16:
            depthLimit = 300000.0;
            break;
        case 3: case 5: case 6: case 7:
            depthLimit = 2400.0;
            break;
        case 17:
            depthLimit = 6000.0;
            break;
        default:
            break;
    }
}

StatusLayout statusLayoutForModel(std::uint32_t index) {
    switch (index) {
        case 0: case 1: case 2: case 3: case 4: case 5: case 6:
        case 8: case 9: case 11: case 12: case 15: case 17:
            return StatusLayout::First;
        case 7: case 10: case 13: case 16:
            return StatusLayout::Second;
        default:
            return StatusLayout::None;
    }
}

void decodeManufactureSection(const std::uint8_t* config, const char* separateModelText,
                              ManufactureRecord& record, std::uint32_t& modelIndex,
                              double& depthLimit, DeviceGeometry& geometry,
                              BorderWarningBands& bands, std::array<std::uint8_t, 4>& deviceIP) {
    ManufactureRecord decoded;
    decoded.year = static_cast<std::uint16_t>(readU16(config, kYearOffset));
    decoded.month = config[kMonthOffset];
    decoded.day = config[kDayOffset];
    decoded.modelLength = static_cast<std::uint8_t>(
        std::min<std::size_t>(config[kModelLengthOffset], kManufactureModelBytes));
    const char* modelSource = separateModelText != nullptr
                                  ? separateModelText
                                  : reinterpret_cast<const char*>(config + kModelTextOffset);
    std::memcpy(decoded.model, modelSource, decoded.modelLength);
    record = decoded;

    modelIndex = modelIndexFromText(record.model, record.modelLength, modelIndex);
    applyDepthLimitForModel(modelIndex, depthLimit);

    const GeometrySource source = geometrySourceFor(modelIndex);
    DeviceGeometry g = geometry;
    switch (source) {
        case GeometrySource::Defaults:
            // Without a known model the record's geometry fields mean nothing,
            // and neither does its address.
            geometry = defaultGeometry();
            bands = warningBandsFor(geometry);
            return;
        case GeometrySource::RecordSizes:
            // These models keep the transfer unit, the colour image size and
            // the Ethernet colour count they had.
            readImageSizes(config, g);
            if (g.transferUnitBytes == 0) g.transferUnitBytes = kDefaultTransferUnitBytes;
            readCommonCounts(config, g);
            break;
        case GeometrySource::RecordSizesCommon:
            readImageSizes(config, g);
            updateColorImageBytes(g);
            readTransferBlock(config, g);
            break;
        case GeometrySource::LargeSensor:
            setGreySize(g, kLargeSensorWidth, kLargeSensorHeight);
            updateColorImageBytes(g);
            readTransferBlock(config, g);
            break;
        case GeometrySource::HalfSensor:
            setGreySize(g, kHalfSensorWidth, kHalfSensorHeight);
            updateColorImageBytes(g);
            readTransferBlock(config, g);
            break;
        case GeometrySource::Unchanged:
            break;
    }
    if (source != GeometrySource::Unchanged) {
        g.greyPixelBytes = kGreyPixelBytes;
        g.colorPixelBytes = kColorPixelBytes;
        updateBlockBytes(g);
    }
    geometry = g;
    bands = warningBandsFor(geometry);
    std::copy_n(config + kDeviceIPOffset, deviceIP.size(), deviceIP.begin());
}

std::uint16_t dualExposureForModel(std::uint32_t index, int exposure) {
    switch (index) {
        case 0: case 5: case 100:
            return static_cast<std::uint16_t>(std::clamp(exposure, 48, 8192));
        case 1: case 2: case 3: case 8: case 11:
            return static_cast<std::uint16_t>(std::clamp(exposure, 16, 16384));
        default:
            // Sent as is; only the low 16 bits fit the command.
            return static_cast<std::uint16_t>(exposure);
    }
}

int exposureFromDistance(std::uint32_t index, int distanceMm) {
    struct Range {
        int nearMm, nearExposure, farMm, farExposure;
    };
    constexpr Range kNearRange{300, 500, 1500, 1200};
    constexpr Range kFarRange{1000, 800, 3000, 1500};
    const Range& r = (index == 3 || index == 5) ? kNearRange : kFarRange;
    if (distanceMm < r.nearMm) return r.nearExposure;
    if (distanceMm > r.farMm) return r.farExposure;
    return r.nearExposure +
           (distanceMm - r.nearMm) * (r.farExposure - r.nearExposure) / (r.farMm - r.nearMm);
}

void macAddressText(const char* modelText, std::size_t modelLength, std::uint32_t modelIndex,
                    char out[18]) {
    if (out == nullptr) return;
    constexpr char kDefaultMac[] = "00:0A:35:00:01:02";
    std::memcpy(out, kDefaultMac, sizeof kDefaultMac);
    constexpr std::size_t kSerialModelLength = 18;
    if (modelText == nullptr || modelLength != kSerialModelLength) return;

    const int serial = serialDigit(modelText[7]) * 10000 + serialDigit(modelText[8]) * 1000 +
                       serialDigit(modelText[15]) * 100 + serialDigit(modelText[16]) * 10 +
                       serialDigit(modelText[17]);
    // Kept to 16 bits; a negative sum wraps like any other.
    const auto serial16 = static_cast<std::uint16_t>(serial);

    std::uint8_t modelByte = 0;
    switch (modelIndex) {
        case 1: case 2: case 3: case 11:
            // These models name their variant in the fourth character.
            modelByte = static_cast<std::uint8_t>(modelText[3]);
            break;
        case kPlaceholderModel: case kNoKnownModel:
            // No model to encode: the group reads 00.
            modelByte = 0;
            break;
        default:
            modelByte = static_cast<std::uint8_t>(modelIndex);
            break;
    }
    writeHexByte(out + 9, modelByte);
    writeHexByte(out + 12, static_cast<std::uint8_t>(serial16 >> 8u));
    writeHexByte(out + 15, static_cast<std::uint8_t>(serial16 & 0xFFu));
}

}  // namespace vyx::device
