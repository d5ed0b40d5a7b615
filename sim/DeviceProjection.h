// Where the virtual tracker's cameras see a point: the exact inverse of the
// reconstruction a host performs on the centres, so that a host gets back the
// very points a scene holds (up to the float rounding of the centres).
//
// The camera model is the one a host derives: the configuration bytes the
// virtual tracker serves are parsed by the library's own configuration reader
// and compensated for the camera temperature by the library's own code, then
// points are projected through that working model.
//
// Measurement frame: the frame a host reports markers in. Its axes are the
// calibration frame's; its origin lies half the right camera's translation
// from the left camera's centre (the middle of the baseline when the left
// camera sits at the calibration origin). Depth (Z) is as reported, that is
// after the host's multiplication by the depth factor.
#pragma once

#include "sim/DeviceDescription.h"

#include <cstdint>
#include <memory>

namespace vyx::sim {

// A point in millimetres.
struct Point3 {
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
};

// One point's centres in the left and right image, pixels, before any
// rounding to the frame's 32-bit floats.
struct StereoPixels {
    double leftU = 0.0;
    double leftV = 0.0;
    double rightU = 0.0;
    double rightV = 0.0;
};

class DeviceProjection {
public:
    // Reads the configuration the virtual tracker serves for the description
    // the way a host does: the long form when the description has one, else
    // the two blocks, in two-set mode (the virtual tracker always answers
    // with both blocks unless a fault is set).
    explicit DeviceProjection(const DeviceDescription& description);
    ~DeviceProjection();
    DeviceProjection(DeviceProjection&&) noexcept;
    DeviceProjection& operator=(DeviceProjection&&) noexcept;
    DeviceProjection(const DeviceProjection&) = delete;
    DeviceProjection& operator=(const DeviceProjection&) = delete;

    // The temperature a host compensates a frame for, from the status word
    // that carries it (hundredths of a degree, read back as a 32-bit float).
    static double hostTemperature(std::int16_t temperatureHundredths);

    // Projects a point of the measurement frame into both images with the
    // model for the camera temperature (degrees Celsius). False when the
    // point is not in front of both cameras or the model cannot project
    // (singular rotation, zero depth factor). Thread-safe; the working model
    // of the latest temperature is kept, so runs of one temperature are cheap.
    bool project(const Point3& point, double temperatureCelsius, StereoPixels& pixels) const;

    // The depth factor a host multiplies depths by at that temperature.
    double depthFactor(double temperatureCelsius) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vyx::sim
