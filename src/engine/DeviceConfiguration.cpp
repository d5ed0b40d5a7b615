// What the configuration read from the tracker tells the engine: model,
// geometry, depth limit, device address, camera calibration; and the calls
// that report it back to the host.
#include "engine/VyxPosFunc.h"

#include <algorithm>
#include <cstring>

using namespace vyx::device;

void VyxPosFunc::applyConfiguration(const std::uint8_t* config, std::size_t size,
                                    bool separateModelText) {
    decodeManufactureSection(config, separateModelText ? separateModelText_.data() : nullptr,
                             manufacture_, deviceModelIndex_, depthLimit_, geometry_,
                             warningBands_, deviceIP_);
    const char* bytes = reinterpret_cast<const char*>(config);
    cameraParameters_.setCamParam(bytes);
    if (size >= kConfigLongFormBytes) {
        cameraParameters_.setMultiCamParam(bytes, size);
    } else {
        // A device without the long form has no table; one from an earlier
        // connection must not linger.
        cameraParameters_.multi.clear();
    }
    // A usable model from the start, so that host-side reconstruction works
    // before the first frame has reported a temperature.
    CalculateSysPara(compensationTemperature_);
    CalculateMlrRT_SEF();
    previousFrameIdSlot_ = -1;
}

StatusLayout VyxPosFunc::statusLayout() const { return statusLayoutForModel(deviceModelIndex_); }

int VyxPosFunc::Zelmor_SetPosDevPara(T_VYXPOS_DATAPARA& para) {
    para.DeviceType = deviceModelIndex_;
    para.MarkerImageWidth = geometry_.greyWidth;
    para.MarkerImageHeight = geometry_.greyHeight;
    para.MarkerImagePixelBytes = 1;
    para.ColorImageWidth = geometry_.colorWidth;
    para.ColorImageHeight = geometry_.colorHeight;
    para.ColorImagePixelBytes = 2;
    const std::size_t length = std::min<std::size_t>(manufacture_.modelLength, sizeof para.DeviceModel);
    std::memcpy(para.DeviceModel, manufacture_.model, length);
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetManufactureInfo(E_Interface iface, T_ManufactureInfo& info) {
    LinkState* link = linkFor(iface);
    if (link == nullptr) return RV_FAILED;
    if (!link->open.load(std::memory_order_acquire)) return RV_NOT_CONNECTED;
    if (!link->configValid.load(std::memory_order_relaxed)) return RV_FAILED;
    info.ManufactureYear = manufacture_.year;
    info.ManufactureMonth = manufacture_.month;
    info.ManufactureDay = manufacture_.day;
    std::memcpy(info.DeviceModel, manufacture_.model, sizeof info.DeviceModel);
    info.DeviceModelLength = manufacture_.modelLength;
    return RV_SUCCESS;
}

int VyxPosFunc::Zelmor_GetVyxPositonMacAddress(char* text) {
    macAddressText(manufacture_.model, manufacture_.modelLength, deviceModelIndex_, text);
    return RV_SUCCESS;
}

LinkState* VyxPosFunc::linkFor(E_Interface iface) {
    switch (iface) {
        case Interface_USB: return &usb_;
        case Interface_Ethernet: return &eth_;
        case Interface_WiFi: return &wifi_;
        default: return nullptr;
    }
}
