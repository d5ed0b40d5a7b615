#include "sim/DeviceDescription.h"

#include <cmath>
#include <cstring>

namespace vyx::sim {

const char* const kDefaultModelText = "ZR-D87001-VT-00042";

namespace {

// How a host sizes the grey images of a model family.
enum class SensorKind {
    FromGeometryWords,  // the geometry words say it
    Large,              // 2472 x 2064
    Medium,             // 1236 x 1032
    HostDefaults,       // the host keeps its 1280 x 720 defaults
};

struct ModelFamily {
    const char* code;
    SensorKind sensor;
};

// Model codes in the order a host tries them; the first code the model text
// starts with decides.
constexpr ModelFamily kModelFamilies[] = {
    {"QX-BAS", SensorKind::FromGeometryWords}, {"QX-PRO", SensorKind::FromGeometryWords},
    {"QX-MIN", SensorKind::FromGeometryWords}, {"ZR-C547", SensorKind::Large},
    {"ZR-C544", SensorKind::Medium},           {"ZR-C857", SensorKind::Large},
    {"ZR-C854", SensorKind::Medium},           {"ZR-D847", SensorKind::Large},
    {"ZR-D844", SensorKind::Medium},           {"ZR-D947", SensorKind::Large},
    {"ZR-D944", SensorKind::Medium},           {"ZR-C57", SensorKind::FromGeometryWords},
    {"ZR-C84", SensorKind::FromGeometryWords}, {"ZR-D87", SensorKind::FromGeometryWords},
    {"ZR-D97", SensorKind::HostDefaults},      {"ZR-D640", SensorKind::Large},
};

SensorKind sensorKindOf(const std::string& modelText) {
    for (const ModelFamily& family : kModelFamilies)
        if (modelText.compare(0, std::strlen(family.code), family.code) == 0) return family.sensor;
    return SensorKind::HostDefaults;
}

std::array<double, 9> identity3() { return {1, 0, 0, 0, 1, 0, 0, 0, 1}; }

std::array<double, 9> rotationAboutY(double angleRad) {
    const double c = std::cos(angleRad);
    const double s = std::sin(angleRad);
    return {c, 0, s, 0, 1, 0, -s, 0, c};
}

}  // namespace

StereoCalibration defaultStereoCalibration(std::uint32_t imageWidth, std::uint32_t imageHeight) {
    const double focalPx = 1400.0 * imageWidth / 1280.0;
    const double cx = imageWidth / 2.0;
    const double cy = imageHeight / 2.0;

    CameraCalibration left;
    left.cameraMatrix = {focalPx, 0, cx, 0, focalPx, cy, 0, 0, 1};
    left.rotation = identity3();

    CameraCalibration right = left;
    right.rotation = rotationAboutY(-0.1);
    right.translation = {500.0, 0.0, 0.0};
    return {left, right};
}

DeviceDescription defaultDescription() {
    DeviceDescription d;
    d.modelText = kDefaultModelText;
    d.calibration1 = defaultStereoCalibration(d.geometry.greyWidth, d.geometry.greyHeight);
    d.calibration2 = d.calibration1;

    LongConfiguration table;
    for (double temperature : {20.0, 30.0, 40.0})
        table.entries.push_back({temperature, d.calibration1, 1.0});
    d.longConfiguration = table;
    return d;
}

DeviceDescription descriptionForModel(const std::string& modelText) {
    DeviceDescription d = defaultDescription();
    d.modelText = modelText;
    std::uint16_t width = 1280;
    std::uint16_t height = 720;
    switch (sensorKindOf(modelText)) {
        case SensorKind::Large:
            width = 2472;
            height = 2064;
            break;
        case SensorKind::Medium:
            width = 1236;
            height = 1032;
            break;
        case SensorKind::FromGeometryWords:
        case SensorKind::HostDefaults:
            break;
    }
    d.geometry.greyWidth = width;
    d.geometry.greyHeight = height;
    d.greyImageBytes = static_cast<std::uint32_t>(width) * height;
    // The large and medium families travel in the default Ethernet grey block
    // of 32 units, which gives their documented short last block.
    if (width != 1280) d.geometry.ethernetGreyCount = 32;

    d.calibration1 = defaultStereoCalibration(width, height);
    d.calibration2 = d.calibration1;
    for (TemperatureCalibration& row : d.longConfiguration->entries) row.cameras = d.calibration1;
    return d;
}

std::uint32_t transferUnitBytes(const GeometryWords& geometry) {
    return geometry.transferUnit == 0 ? 1024u : geometry.transferUnit;
}

std::uint32_t ethernetGreyBlockBytes(const GeometryWords& geometry) {
    const std::uint32_t count = geometry.ethernetGreyCount == 0 ? 32u : geometry.ethernetGreyCount;
    return count * transferUnitBytes(geometry);
}

std::uint32_t ethernetColourHalfBlockBytes(const GeometryWords& geometry) {
    const std::uint32_t count =
        geometry.ethernetColourCount == 0 ? 60u : geometry.ethernetColourCount;
    return count * transferUnitBytes(geometry);
}

std::uint32_t usbGreyBlockBytes(const GeometryWords& geometry) {
    const std::uint32_t count = geometry.usbGreyCount == 0 ? 160u : geometry.usbGreyCount;
    return count * transferUnitBytes(geometry);
}

std::uint32_t usbColourBlockBytes(const GeometryWords& geometry) {
    const std::uint32_t count = geometry.usbColourCount == 0 ? 225u : geometry.usbColourCount;
    return count * transferUnitBytes(geometry);
}

}  // namespace vyx::sim
