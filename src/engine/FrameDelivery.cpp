// Marker frame delivery: the newest frame from a receiver thread, or one
// fetched on request in trigger mode, decoded and reconstructed into 3D
// markers with the camera model compensated for the frame's temperature.
#include "engine/VyxPosFunc.h"

#include "camera/MarkerReconstruction.h"
#include "camera/PairMatching.h"
#include "device/ImageStretch.h"

#include <algorithm>
#include <cstring>

using namespace vyx::device;

namespace {

constexpr int kTriggeredAttempts = 100;
constexpr auto kTriggeredRetryPause = std::chrono::milliseconds(5);

}  // namespace

std::uint32_t VyxPosFunc::getID(const std::uint8_t* markerOrigin) const {
    return frameIdAt(markerOrigin);
}

void VyxPosFunc::getStatusStruct(const std::uint8_t* frame, T_VyxPosStatusInfo& status) const {
    decodeStatus(frame, statusLayout(), status);
}

int VyxPosFunc::CalculateSysPara(double temperature) {
    ::CalculateSysPara(cameraParameters_, temperature, stereo_);
    return 1;
}

void VyxPosFunc::CalculateMlrRT_SEF() { ::CalculateMlrRT_SEF(stereo_); }

void VyxPosFunc::getMarkerStruct(const std::uint8_t* markerOrigin, T_MarkerInfo& markers) {
    // The caller holds a private copy of the frame, so nothing here races
    // with the receiver thread.
    MarkerPoints points = decodeMarkerPoints(markerOrigin);

    markers.MarkerNumber = 0;
    markers.OverLimitFlag = isOverLimit(markerOrigin) ? 1u : 0u;
    markers.ID = getID(markerOrigin);

    const std::uint8_t idByte = markerOrigin[marker_offset::kFrameId];
    if (idByte != previousFrameIdSlot_) {
        previousFrameIdSlot_ = idByte;
        CalculateSysPara(compensationTemperature_);
        CalculateMlrRT_SEF();
        Zelmor_Calculate3DPoints(points.left.data(), static_cast<int>(points.leftCount),
                                 points.right.data(), static_cast<int>(points.rightCount), markers);
        // With a reference tool set and seen, the frame is delivered in its frame.
        cv::Matx44d reference;
        if (reference_.isSet() && Zelmor_GetRefToolTrans(markers, reference, 0) == RV_SUCCESS)
            reexpressMarkers(markers, reference);
    }
}

int VyxPosFunc::Zelmor_Calculate3DPoints(float* leftPoints, int leftCount, float* rightPoints,
                                         int rightCount, T_MarkerInfo& markers) {
    const double threshold = pairThresholdForModel(deviceModelIndex_, colineThreshold_);
    return reconstructMarkers(leftPoints, leftCount, rightPoints, rightCount, stereo_, threshold,
                              depthLimit_, markers);
}

int VyxPosFunc::Zelmor_SetColineThreshold(E_Interface iface, int threshold) {
    if (linkFor(iface) == nullptr) return RV_FAILED;
    colineThreshold_ = threshold;
    return RV_SUCCESS;
}

// Decodes the status and the markers of a frame copy for link `link`;
// returns 0 when the frame carried an id not reconstructed before.
int VyxPosFunc::deliverFrame(LinkState& link, const std::uint8_t* frame, T_MarkerInfo& markers,
                             T_VyxPosStatusInfo* status, bool withStatus) {
    if (withStatus) {
        T_VyxPosStatusInfo decoded{};
        getStatusStruct(frame, decoded);
        compensationTemperature_ = decoded.Temperature1;
        if (status != nullptr) *status = decoded;
    }
    getMarkerStruct(frame + kMarkerOriginOffset, markers);
    if (markers.ID != link.lastReconstructedId) {
        link.lastReconstructedId = markers.ID;
        return RV_SUCCESS;
    }
    return RV_NO_NEW_FRAME;
}

int VyxPosFunc::Zelmor_GetMarkerInfo(E_Interface iface, T_MarkerInfo& markers) {
    if (iface != Interface_Ethernet && iface != Interface_USB && iface != Interface_WiFi)
        return RV_FAILED;
    LinkState& link = *linkFor(iface);
    const int error = link.lastError.load(std::memory_order_relaxed);
    if (error != RV_SUCCESS) return error;
    markers.MarkerNumber = 0;
    const std::uint32_t counter = link.frameCounter.load(std::memory_order_acquire);
    auto& delivered = lastDeliveredCounter(static_cast<std::size_t>(iface), kMarkerDelivery);
    if (counter == 0 || counter == delivered.load(std::memory_order_relaxed)) return RV_NO_NEW_FRAME;
    delivered.store(counter, std::memory_order_relaxed);
    std::array<std::uint8_t, kMarkerFrameBytes> frame;
    {
        std::lock_guard<std::mutex> lock(link.frameLock);
        frame = link.frame;
    }
    return deliverFrame(link, frame.data(), markers, nullptr, iface != Interface_WiFi);
}

int VyxPosFunc::wiredTriggerIfNeeded(E_Interface iface) {
    if (acquireMode_[static_cast<std::size_t>(iface)] != AcquireMode_Trigger1) return RV_SUCCESS;
    const CommandPacket trigger = singleByteCommand(command::kTrigger);
    const int rc = wiredWrite(iface, trigger.bytes.data(), static_cast<int>(trigger.length));
    if (rc != RV_SUCCESS || iface != Interface_Ethernet) return rc;
    // The Ethernet port acknowledges a trigger with one byte.
    std::uint8_t answer = 0;
    int length = 1;
    wiredRead(iface, &answer, length, 0);
    return RV_SUCCESS;
}

int VyxPosFunc::reinitialiseWired(E_Interface iface) {
    return iface == Interface_USB ? Zelmor_USB_Initialize() : Zelmor_ETHERNET_Initialize();
}

int VyxPosFunc::Zelmor_GetMarkerAndStatusByTrig(E_Interface iface, T_MarkerInfo& markers,
                                                T_VyxPosStatusInfo& status) {
    if (iface == Interface_WiFi) return wifiMarkerAndStatusByTrig(markers, status);
    if (iface != Interface_Ethernet && iface != Interface_USB) return RV_FAILED;
    LinkState& link = *linkFor(iface);
    if (!link.open.load(std::memory_order_acquire)) return RV_NOT_CONNECTED;

    std::unique_lock<std::mutex> data(link.dataLock);
    int rc = wiredTriggerIfNeeded(iface);
    if (rc != RV_SUCCESS) return rc;
    for (int attempt = 0; attempt < kTriggeredAttempts; ++attempt) {
        rc = readWiredMarkerFrame(iface);
        if (rc != RV_SUCCESS) {
            // A failed read re-opens the link, then tries once more.
            data.unlock();
            rc = reinitialiseWired(iface);
            if (rc != RV_SUCCESS) return rc;
            data.lock();
            rc = readWiredMarkerFrame(iface);
            if (rc != RV_SUCCESS) return rc;
        }
        markers.MarkerNumber = 0;
        std::array<std::uint8_t, kMarkerFrameBytes> frame;
        {
            std::lock_guard<std::mutex> lock(link.frameLock);
            frame = link.frame;
        }
        if (getID(frame.data() + kMarkerOriginOffset) != link.lastReconstructedId &&
            deliverFrame(link, frame.data(), markers, &status, true) == RV_SUCCESS)
            return RV_SUCCESS;
        if (!sleepWhileRunning(kTriggeredRetryPause)) break;
    }
    return RV_NO_NEW_FRAME;
}

int VyxPosFunc::Zelmor_GetMarkerStatusAndImageByTrig(E_Interface iface, T_MarkerInfo& markers,
                                                     T_VyxPosStatusInfo& status, char* leftImage,
                                                     char* rightImage) {
    const int rc = Zelmor_GetMarkerAndStatusByTrig(iface, markers, status);
    if (rc != RV_SUCCESS) return rc;
    if (iface != Interface_Ethernet && iface != Interface_USB) return RV_FAILED;
    std::lock_guard<std::mutex> data(linkFor(iface)->dataLock);
    return wiredGreyImageInto(iface, leftImage, rightImage);
}

int VyxPosFunc::Zelmor_GetGreyImageFromHardware(E_Interface iface, char* leftImage, char* rightImage) {
    if (iface != Interface_Ethernet && iface != Interface_USB) return RV_FAILED;
    LinkState& link = *linkFor(iface);
    if (!link.open.load(std::memory_order_acquire)) return RV_NOT_CONNECTED;
    std::lock_guard<std::mutex> data(link.dataLock);
    const int rc = wiredTriggerIfNeeded(iface);
    if (rc != RV_SUCCESS) return rc;
    return wiredGreyImageInto(iface, leftImage, rightImage);
}

int VyxPosFunc::Zelmor_GetColorImageFromHardware(E_Interface iface, char* image) {
    if (iface != Interface_Ethernet && iface != Interface_USB) return RV_FAILED;
    LinkState& link = *linkFor(iface);
    if (!link.open.load(std::memory_order_acquire)) return RV_NOT_CONNECTED;
    std::lock_guard<std::mutex> data(link.dataLock);
    const int rc = wiredTriggerIfNeeded(iface);
    if (rc != RV_SUCCESS) return rc;
    return wiredColorImageInto(iface, image);
}

void VyxPosFunc::ImageVerticalStretchX2(const char* leftIn, const char* rightIn, char* leftOut,
                                        char* rightOut) const {
    const auto width = static_cast<std::size_t>(geometry_.greyWidth);
    const auto height = static_cast<std::size_t>(geometry_.greyHeight);
    stretchRowsTwice(reinterpret_cast<const std::uint8_t*>(leftIn),
                     reinterpret_cast<std::uint8_t*>(leftOut), width, height);
    stretchRowsTwice(reinterpret_cast<const std::uint8_t*>(rightIn),
                     reinterpret_cast<std::uint8_t*>(rightOut), width, height);
}
