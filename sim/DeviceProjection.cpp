#include "sim/DeviceProjection.h"

#include "camera/CameraParameters.h"
#include "camera/StereoCompensation.h"
#include "camera/StereoProjection.h"
#include "sim/ConfigurationImage.h"

#include <mutex>
#include <optional>
#include <vector>

namespace vyx::sim {

struct DeviceProjection::Impl {
    CameraParameterBlock parameters;

    // Working model of the latest temperature asked for.
    mutable std::mutex mutex;
    mutable std::optional<double> modelTemperature;
    mutable StereoWorkingModel model;

    // Call with the mutex held.
    const StereoWorkingModel& modelFor(double temperature) const {
        // NaN never equals itself, so a NaN temperature is recomputed every
        // time, as a host would.
        if (!modelTemperature || *modelTemperature != temperature) {
            CalculateSysPara(parameters, temperature, model);
            CalculateMlrRT_SEF(model);
            modelTemperature = temperature;
        }
        return model;
    }
};

DeviceProjection::DeviceProjection(const DeviceDescription& description)
    : impl_(std::make_unique<Impl>()) {
    const bool longForm = description.longConfiguration.has_value();
    const std::vector<std::uint8_t> bytes = longForm ? encodeLongConfiguration(description)
                                                     : encodeShortConfiguration(description);
    const char* data = reinterpret_cast<const char*>(bytes.data());
    CameraParameterBlock& parameters = impl_->parameters;
    parameters.configDataMode = 1024;
    parameters.setCamParam(data);
    if (longForm) parameters.setMultiCamParam(data, bytes.size());
}

DeviceProjection::~DeviceProjection() = default;
DeviceProjection::DeviceProjection(DeviceProjection&&) noexcept = default;
DeviceProjection& DeviceProjection::operator=(DeviceProjection&&) noexcept = default;

double DeviceProjection::hostTemperature(std::int16_t temperatureHundredths) {
    return static_cast<double>(static_cast<float>(temperatureHundredths) / 100.0f);
}

bool DeviceProjection::project(const Point3& point, double temperatureCelsius,
                               StereoPixels& pixels) const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    const double xyz[3] = {point.x, point.y, point.z};
    double left[2], right[2];
    if (!projectToImages(xyz, impl_->modelFor(temperatureCelsius), left, right)) return false;
    pixels = {left[0], left[1], right[0], right[1]};
    return true;
}

double DeviceProjection::depthFactor(double temperatureCelsius) const {
    std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->modelFor(temperatureCelsius).zFactor;
}

}  // namespace vyx::sim
