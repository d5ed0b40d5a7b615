// The configuration a device sends at connect, in its short (1024-byte) or
// long (7680-byte, with the temperature table) form, read as the engine
// reads it, then used to reconstruct a marker.
#include "FuzzSupport.h"

#include "camera/CameraParameters.h"
#include "camera/MarkerReconstruction.h"
#include "camera/StereoCompensation.h"
#include "device/DeviceModel.h"
#include "device/WireProtocol.h"

#include <algorithm>
#include <cstring>
#include <vector>

using namespace vyx::device;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < kConfigBlockBytes || size > kConfigLongFormBytes) return 0;
    // The engine reads into a buffer of the long form's size.
    std::vector<std::uint8_t> config(kConfigLongFormBytes, 0);
    std::memcpy(config.data(), data, size);

    ManufactureRecord record{};
    std::uint32_t modelIndex = 0;
    double depthLimit = 0.0;
    DeviceGeometry geometry = defaultGeometry();
    BorderWarningBands bands{};
    std::array<std::uint8_t, 4> deviceIP{};
    // An odd length stands for a device that also answered the model text
    // request, with the input's last 20 bytes.
    const char* separate =
        size % 2 == 1 ? reinterpret_cast<const char*>(config.data() + size - kModelTextBytes) : nullptr;
    decodeManufactureSection(config.data(), separate, record, modelIndex, depthLimit, geometry,
                             bands, deviceIP);
    FUZZ_CHECK(record.modelLength <= kModelTextBytes);

    CameraParameterBlock block;
    block.configDataMode = size >= kConfigShortFormBytes && configBlockChecksumOk(config.data() + 512)
                               ? 1024u : 512u;
    const char* bytes = reinterpret_cast<const char*>(config.data());
    block.setCamParam(bytes);
    if (size == kConfigLongFormBytes) {
        const bool read = block.setMultiCamParam(bytes, size);
        const T_VyxMultiCfgInfo& table = block.multi;
        FUZZ_CHECK(read || table.size() == 0);
        FUZZ_CHECK(table.size() <= 15);
        FUZZ_CHECK(table.left.size() == table.size() && table.right.size() == table.size() &&
                   table.depthFactors.size() == table.size());
    }

    StereoWorkingModel model;
    CalculateSysPara(block, static_cast<std::int8_t>(data[0]), model);
    CalculateMlrRT_SEF(model);
    const float left[] = {640.0f, 360.0f}, right[] = {600.0f, 360.0f};
    T_MarkerInfo markers{};
    reconstructMarkers(left, 1, right, 1, model, 3.0, depthLimit, markers);
    FUZZ_CHECK(markers.MarkerNumber <= 1);
    return 0;
}
